#include "tests/support/ScratchDatabase.h"

#include <sqlite3.h>

#include <QDir>
#include <QFile>
#include <stdexcept>

#include "console/session/Globals.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void fail(sqlite3* handle, const QString& sql) {
    throw std::runtime_error((sql + u": "_s + QString::fromUtf8(sqlite3_errmsg(handle))).toStdString());
}

QString readFile(const QString& path) {
    QFile file{path};
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error("cannot read " + path.toStdString());
    return QString::fromUtf8(file.readAll());
}

/// Encoding is slow by design; every scratch database needs the same form.
const QString& encodedPassword() {
    static const QString encoded = Globals::EncodePassword(ScratchDatabase::Password);
    return encoded;
}

void runScript(sqlite3* handle, const QString& sql) {
    if (sqlite3_exec(handle, sql.toUtf8().constData(), nullptr, nullptr, nullptr) != SQLITE_OK)
        fail(handle, sql);
}

}  // namespace

ScratchDatabase::ScratchDatabase(Content content) {
    QDir{}.mkpath(imageRoot());
    open();
    runScript(handle_, u"PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF"_s);
    if (content == Content::Seeded) {
        runScript(handle_, readFile(QStringLiteral(TESSALY_SCHEMA)));
        run(u"INSERT INTO DicomServer VALUES (1, 0, 30)"_s);
        run(u"INSERT INTO SiteData VALUES ('Test Hospital', '2.25.1234')"_s);
        run(u"INSERT INTO Port VALUES ('11112', 'TESSALY', 10, ?, 0, 0, 1)"_s, {imageRoot()});
        run(u"INSERT INTO Users (UserName, UserPwd, DcmAdmin) VALUES (?, ?, 1)"_s,
            {Administrator, encodedPassword()});
    }
    writeDataSource(path());
    qputenv("ODBCINI", odbcIni().toUtf8());
}

ScratchDatabase::~ScratchDatabase() {
    Globals::DbConnection().close();
    release();
}

void ScratchDatabase::open() const {
    if (sqlite3_open(path().toUtf8().constData(), &handle_) != SQLITE_OK)
        fail(handle_, path());
    sqlite3_busy_timeout(handle_, 5000);
}

void ScratchDatabase::release() const {
    sqlite3_close(handle_);
    handle_ = nullptr;
}

void ScratchDatabase::writeDataSource(const QString& databasePath, const QString& section) const {
    QFile file{odbcIni()};
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        throw std::runtime_error("cannot write the data source");
    file.write(
        u"[%1]\nDriver=SQLite3\nDatabase=%2\nStepAPI=1\nJournalMode=WAL\nSyncPragma=NORMAL\nTimeout=5000\n"
        "NoCreat=1\n"_s.arg(section, databasePath)
            .toUtf8());
}

void ScratchDatabase::openConsoleConnection() const {
    db::Connection& connection = Globals::DbConnection();
    connection.close();
    connection.setConnectString("DSN=DicomFDB");
    connection.setCursorDriver(db::Connection::CursorDriver::Odbc);
    connection.establish();
    Globals::setConfigChanged(false);
}

void ScratchDatabase::run(const QString& sql, const QVariantList& values) const {
    (void)rows(sql, values);
}

QList<QStringList> ScratchDatabase::rows(const QString& sql, const QVariantList& values) const {
    if (handle_ == nullptr)
        open();
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(handle_, sql.toUtf8().constData(), -1, &statement, nullptr) != SQLITE_OK)
        fail(handle_, sql);
    for (int i = 0; i < static_cast<int>(values.size()); ++i) {
        const QVariant& value = values.at(i);
        if (value.isNull())
            sqlite3_bind_null(statement, i + 1);
        else if (value.typeId() == QMetaType::QString)
            sqlite3_bind_text(statement, i + 1, value.toString().toUtf8().constData(), -1, SQLITE_TRANSIENT);
        else
            sqlite3_bind_int64(statement, i + 1, value.toLongLong());
    }
    QList<QStringList> found;
    int result = SQLITE_ROW;
    while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
        QStringList row;
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, i));
            row << (text == nullptr ? QString{}
                                    : QString::fromUtf8(text, sqlite3_column_bytes(statement, i)));
        }
        found << row;
    }
    sqlite3_finalize(statement);
    if (result != SQLITE_DONE)
        fail(handle_, sql);
    return found;
}

QString ScratchDatabase::value(const QString& sql, const QVariantList& values) const {
    const QList<QStringList> found = rows(sql, values);
    return found.isEmpty() ? QString{} : found.first().first();
}

void ScratchDatabase::failOn(const QString& table, const QString& operation, const QString& message,
                             const QString& condition) const {
    run(u"CREATE TRIGGER fail_%1_%2 BEFORE %2 ON %1 %3 BEGIN SELECT RAISE(ABORT, '%4'); END"_s.arg(
        table, operation, condition.isEmpty() ? QString{} : u"WHEN "_s + condition, message));
}

void ScratchDatabase::allow(const QString& table, const QString& operation) const {
    run(u"DROP TRIGGER fail_%1_%2"_s.arg(table, operation));
}

}  // namespace tessaly::test
