#pragma once

#include <QByteArray>
#include <QString>

struct sqlite3;

/// A SQLite database to be copied from, with the tables and the rows that a console expects, in a folder of
/// its own. Written with SQLite's own library.
class FileSource {
  public:
    explicit FileSource(QString file);
    ~FileSource();
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;

    /// A data source's lines for a database file.
    [[nodiscard]] static QString lines(const QString& file);
    [[nodiscard]] const QString& file() const { return file_; }

    /// One statement or more.
    void run(const QString& sql);
    /// Closes the file; the next statement opens it again.
    void release();
    /// Takes all keys and bounds off the tables, as in a database that others made.
    void loosen();
    void dropTables();
    /// Of the names, contents and times of all that is in its folder.
    [[nodiscard]] QByteArray fingerprint() const;

  private:
    QString file_;
    sqlite3* handle_ = nullptr;
};
