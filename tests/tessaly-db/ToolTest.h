#pragma once

#include <QByteArray>
#include <QObject>
#include <QStringList>
#include <memory>

#include "tests/support/ScratchDatabase.h"

/// How a run of the program ended, and what it said.
struct Outcome {
    int status = -1;  ///< -1 for a signal
    QString out;
    QString err;
};

/// A test of the program tessaly-db: each of its functions has a data source DicomFDB of its own, whose
/// database is not there yet.
class ToolTest : public QObject {
    Q_OBJECT
  protected:
    [[nodiscard]] const tessaly::test::ScratchDatabase& scratch() const { return *scratch_; }
    [[nodiscard]] QString path(const QString& name) const;
    /// The file that the data source names.
    [[nodiscard]] QString file() const;

    /// Runs the program with no terminal; its output goes to the file `out` where one is given.
    [[nodiscard]] static Outcome run(const QStringList& arguments, const QString& out = {});
    /// A new database for what comes after.
    void create();

    /// The first column of each row.
    [[nodiscard]] static QStringList column(const char* sql);
    static void change(const QString& sql);
    [[nodiscard]] static QString storedPassword(const QString& user);

    [[nodiscard]] static QString encoded(const QString& password);
    /// The password in a line "Password of NAME: ...".
    [[nodiscard]] static QString toldPassword(const QString& out, const QString& user);
    [[nodiscard]] static bool isOneLine(const QString& text);

  private slots:
    void init();
    void cleanup();

  private:
    QByteArray made_;  // a new database, as the first test that needs one made it: encoding takes its time
    std::unique_ptr<tessaly::test::ScratchDatabase> scratch_;  // for its data source; the file is made here
};
