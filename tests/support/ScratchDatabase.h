#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QVariant>
#include <memory>

#include "tests/support/ScratchEngine.h"

namespace tessaly::test {

/// A configuration database of the test's own in a temporary folder, with the tables of the schema and the
/// rows that a console expects, behind a data source DicomFDB that only this process and its children see.
/// Which engine it is, the environment says: a test has one text for all of them. Reads and writes it with
/// the engine's own library, so that the code under test is not its own witness. Closes the console's
/// connection when it goes.
class ScratchDatabase {
  public:
    enum class Content {
        Seeded,  ///< all tables; one DicomServer, SiteData and Port row, one administrator
        Empty    ///< a database without tables
    };
    explicit ScratchDatabase(Content content = Content::Seeded);
    ~ScratchDatabase();
    ScratchDatabase(const ScratchDatabase&) = delete;
    ScratchDatabase& operator=(const ScratchDatabase&) = delete;

    /// For what one engine alone has: its files, its words, its ways to fail.
    [[nodiscard]] static bool isPostgresql();

    /// The administrator of a seeded database.
    inline static const QString Administrator = QStringLiteral("admin");
    inline static const QString Password = QStringLiteral("secret");

    [[nodiscard]] QString folder() const { return folder_.path(); }
    /// The database's file, with SQLite.
    [[nodiscard]] QString path() const { return folder_.filePath(QStringLiteral("DicomDB.mdb")); }
    /// An existing folder for images, the Root of the seeded port.
    [[nodiscard]] QString imageRoot() const { return folder_.filePath(QStringLiteral("images")); }
    [[nodiscard]] QString odbcIni() const { return folder_.filePath(QStringLiteral("odbc.ini")); }

    /// (Re)writes the data source for another database (SQLite: its path) or with other lines.
    void writeDataSource(const QString& database, const QString& section = QStringLiteral("DicomFDB")) const;
    void setDataSource(const QString& lines, const QString& section = QStringLiteral("DicomFDB")) const;
    /// The lines of this database's data source, some of them with other values: "Key=value".
    [[nodiscard]] QString dataSource(const QStringList& changes) const;

    /// Opens Globals::DbConnection() on it as Main does.
    void openConsoleConnection() const;

    /// Closes the database, for what needs it alone; the next statement opens it again.
    void release() const;

    void run(const QString& sql, const QVariantList& values = {}) const;
    /// Rows as texts; NULL is a null QString.
    [[nodiscard]] QList<QStringList> rows(const QString& sql, const QVariantList& values = {}) const;
    /// The first column of the first row; null QString when there is none.
    [[nodiscard]] QString value(const QString& sql, const QVariantList& values = {}) const;

    /// Runs a CREATE TABLE in SQLite's words; other engines get theirs for BIT, INTEGER and COLLATE NOCASE.
    void define(const QString& sql) const;

    /// Makes every `operation` ("INSERT", "UPDATE", "DELETE") on the table fail with the message, where
    /// `condition` holds (an SQL expression over NEW and OLD; empty: always), until allow().
    void failOn(const QString& table, const QString& operation, const QString& message = Failure,
                const QString& condition = {}) const;
    void allow(const QString& table, const QString& operation) const;
    inline static const QString Failure = QStringLiteral("the disk of the test refuses");

    /// Begins a transaction, for run() to end, in which nobody else can write to the table.
    void beginAlone(const QString& table) const;

    /// Runs a statement of the database's own after every update of a row where the condition holds.
    void onUpdate(const QString& table, const QString& condition, const QString& statement) const;

    /// What the engine says of a table or a column that is not there, and of a key that would stand twice.
    [[nodiscard]] QString noTable(const QString& table) const;
    [[nodiscard]] QString noColumn(const QString& column) const;
    [[nodiscard]] QString twice(const QString& table, const QString& column) const;
    /// SQL for the type of the value in a column, in SQLite's words.
    [[nodiscard]] QString typeOf(const QString& column) const;
    /// SQL for a text of just those bytes, and for a text's bytes as hexadecimal digits in upper case.
    [[nodiscard]] QString textOf(const QByteArray& bytes) const;
    [[nodiscard]] QString hexOf(const QString& column) const;

  private:
    QTemporaryDir folder_;
    std::unique_ptr<ScratchEngine> engine_;
};

}  // namespace tessaly::test
