#pragma once

#include <QStringList>

#include "tests/tessaly-db/ToolTest.h"

/// What the tests of an upgrade share that fills the rows of an archive which is older than the columns that
/// queries need.
class FillTest : public ToolTest {
    Q_OBJECT
  private slots:
    void init();

  protected:
    static constexpr auto ClassUid = "1.2.840.10008.5.1.4.1.1.2";
    [[nodiscard]] static QString uid(int number) { return QStringLiteral("1.2.3.%1").arg(100'000 + number); }
    /// Today's tables as version 2 had them, with nothing in the archive.
    void makeOlder();
    /// The rows of one object in a study and a series of their own, as an older server left them; writeRows()
    /// writes them.
    void addRows(int number, const QString& file);
    /// The same, with the file.
    void addObject(int number);
    void writeRows();
    [[nodiscard]] QString imageFolder() const { return path(QStringLiteral("images/1.2.3")); }
    [[nodiscard]] static QString row(const QString& columns, const QString& table, const QString& where);

    QStringList rows_;
};
