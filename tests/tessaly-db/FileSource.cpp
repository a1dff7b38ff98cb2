#include "tests/tessaly-db/FileSource.h"

#include <sqlite3.h>

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <stdexcept>

#include "schema/Definitions.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

FileSource::FileSource(QString file) : file_(std::move(file)) {
    QDir{}.mkpath(QFileInfo{file_}.path());
    const auto tables = schema::engine("SQLite").tables;
    run(QString::fromUtf8(tables.data(), static_cast<qsizetype>(tables.size())));
    run(u"INSERT INTO DicomServer VALUES (1, 0, 30);"
        "INSERT INTO SiteData VALUES ('Test Hospital', '2.25.1234');"
        "INSERT INTO Port VALUES ('11112', 'TESSALY', 10, '/images', 0, 0, 1);"
        "INSERT INTO Users (UserName, UserPwd, DcmAdmin) VALUES ('admin', '', 1);"_s);
    release();
}

FileSource::~FileSource() {
    release();
}

QString FileSource::lines(const QString& file) {
    return u"Driver=SQLite3\nDatabase=%1\nStepAPI=1\nJournalMode=WAL\nSyncPragma=NORMAL\nTimeout=5000\n"_s
        .arg(file);
}

void FileSource::run(const QString& sql) {
    if (handle_ == nullptr)
        sqlite3_open(file_.toUtf8().constData(), &handle_);
    if (sqlite3_exec(handle_, sql.toUtf8().constData(), nullptr, nullptr, nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(handle_));
}

void FileSource::release() {
    sqlite3_close(handle_);
    handle_ = nullptr;
}

void FileSource::loosen() {
    for (const auto& table : schema::definitions(schema::engine("SQLite")).tables)
        run(u"ALTER TABLE %1 RENAME TO old; CREATE TABLE %1 AS SELECT * FROM old; DROP TABLE old"_s.arg(
            QString::fromStdString(table.name)));
}

void FileSource::dropTables() {
    for (const auto& table : schema::definitions(schema::engine("SQLite")).tables)
        run(u"DROP TABLE "_s + QString::fromStdString(table.name));
}

QByteArray FileSource::fingerprint() const {
    QByteArray found;
    const QDir folder = QFileInfo{file_}.dir();
    for (const auto& entry : folder.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)) {
        QFile content{entry.filePath()};
        content.open(QIODevice::ReadOnly);
        found += entry.fileName().toUtf8() + ' ' + entry.lastModified().toString(Qt::ISODateWithMs).toUtf8() +
                 ' ' + QCryptographicHash::hash(content.readAll(), QCryptographicHash::Sha256).toHex() + '\n';
    }
    return found;
}
