#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QVariant>

struct sqlite3;

namespace tessaly::test {

/// A configuration database of the test's own in a temporary folder, with the tables of the schema and the
/// rows that a console expects, behind a data source DicomFDB that only this process and its children see.
/// Reads and writes it with SQLite's own library, so that the code under test is not its own witness. Closes
/// the console's connection when it goes.
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

    /// The administrator of a seeded database.
    inline static const QString Administrator = QStringLiteral("admin");
    inline static const QString Password = QStringLiteral("secret");

    [[nodiscard]] QString folder() const { return folder_.path(); }
    [[nodiscard]] QString path() const { return folder_.filePath(QStringLiteral("DicomDB.mdb")); }
    /// An existing folder for images, the Root of the seeded port.
    [[nodiscard]] QString imageRoot() const { return folder_.filePath(QStringLiteral("images")); }
    [[nodiscard]] QString odbcIni() const { return folder_.filePath(QStringLiteral("odbc.ini")); }

    /// (Re)writes the data source for another database path or with other settings.
    void writeDataSource(const QString& databasePath,
                         const QString& section = QStringLiteral("DicomFDB")) const;

    /// Opens Globals::DbConnection() on it as Main does.
    void openConsoleConnection() const;

    /// Closes the file, for what needs it alone; the next statement opens it again.
    void release() const;

    void run(const QString& sql, const QVariantList& values = {}) const;
    /// Rows as texts; NULL is a null QString.
    [[nodiscard]] QList<QStringList> rows(const QString& sql, const QVariantList& values = {}) const;
    /// The first column of the first row; null QString when there is none.
    [[nodiscard]] QString value(const QString& sql, const QVariantList& values = {}) const;

    /// Makes every `operation` ("INSERT", "UPDATE", "DELETE") on the table fail with the message, where
    /// `condition` holds (an SQL expression over NEW and OLD; empty: always), until allow().
    void failOn(const QString& table, const QString& operation, const QString& message = Failure,
                const QString& condition = {}) const;
    void allow(const QString& table, const QString& operation) const;
    inline static const QString Failure = QStringLiteral("the disk of the test refuses");

  private:
    void open() const;

    QTemporaryDir folder_;
    mutable sqlite3* handle_ = nullptr;
};

}  // namespace tessaly::test
