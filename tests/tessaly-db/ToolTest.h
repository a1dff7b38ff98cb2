#pragma once

#include <QByteArray>
#include <QObject>
#include <QStringList>
#include <memory>

#include "tests/support/ScratchDatabase.h"
#include "tests/tessaly-db/FileSource.h"

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
    inline static const QString DataSource = QStringLiteral("DicomFDB");

    [[nodiscard]] const tessaly::test::ScratchDatabase& scratch() const { return *scratch_; }
    [[nodiscard]] QString path(const QString& name) const;
    /// The file that the data source names, with SQLite.
    [[nodiscard]] QString file() const;
    /// Where `create` puts images when nobody says where.
    [[nodiscard]] QString defaultImageRoot() const;
    /// Adds a data source to the one there is.
    void addDataSource(const QString& name, const QString& lines) const;

    /// Whether the data source's database has any of the tables. None is made by looking.
    [[nodiscard]] bool hasTables() const;
    /// A database without tables.
    [[nodiscard]] bool haveDatabase() const;

    /// Runs the program with no terminal; its output goes to the file `out` where one is given.
    [[nodiscard]] static Outcome run(const QStringList& arguments, const QString& out = {});
    /// Runs it with no more than `bytes` for any file that it writes.
    [[nodiscard]] static Outcome runLimited(long bytes, const QStringList& arguments);
    /// Runs it as a user who may read the test's folder, and write nothing but the target's.
    [[nodiscard]] Outcome asSomebodyWithoutRights(const QStringList& arguments) const;
    /// A database to be copied from, behind a data source of that name.
    [[nodiscard]] std::unique_ptr<FileSource> fileSource(const QString& name) const;
    /// A new database for what comes after.
    void create();

    /// The first column of each row.
    [[nodiscard]] static QStringList column(const char* sql, const QString& dsn = DataSource);
    static void change(const QString& sql, const QString& dsn = DataSource);
    [[nodiscard]] static QString storedPassword(const QString& user);

    [[nodiscard]] static QString encoded(const QString& password);
    /// The password in a line "Password of NAME: ...".
    [[nodiscard]] static QString toldPassword(const QString& out, const QString& user);
    [[nodiscard]] static bool isOneLine(const QString& text);
    /// The lines of what was printed as a table, the words of each apart by one blank.
    [[nodiscard]] static QStringList tableLines(const QString& out);

  protected slots:
    void init();
    void cleanup();

  private:
    QByteArray made_;  // a new database, as the first test that needs one made it: encoding takes its time
    std::unique_ptr<tessaly::test::ScratchDatabase> scratch_;  // for its data source; the file is made here
};
