#include "tests/support/ScratchDatabase.h"

#include <odbcinst.h>

#include <QDir>
#include <QFile>
#include <stdexcept>

#include "console/session/Globals.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

namespace {

/// Encoding is slow by design; every scratch database needs the same form.
const QString& encodedPassword() {
    static const QString encoded = Globals::EncodePassword(ScratchDatabase::Password);
    return encoded;
}

}  // namespace

bool ScratchDatabase::isPostgresql() {
    return qEnvironmentVariable("TESSALY_TEST_ENGINE") == u"postgresql"_s;
}

std::unique_ptr<ScratchEngine> ScratchEngine::make(const QString& file, bool seeded) {
    return ScratchDatabase::isPostgresql() ? makePostgresql(seeded) : makeSqlite(file, seeded);
}

ScratchDatabase::ScratchDatabase(Content content)
    : engine_(ScratchEngine::make(path(), content == Content::Seeded)) {
    QDir{}.mkpath(imageRoot());
    if (content == Content::Seeded) {
        run(u"INSERT INTO DicomServer VALUES (1, 0, 30)"_s);
        run(u"INSERT INTO SiteData VALUES ('Test Hospital', '2.25.1234')"_s);
        run(u"INSERT INTO Port VALUES ('11112', 'TESSALY', 10, ?, 0, 0, 1)"_s, {imageRoot()});
        run(u"INSERT INTO Users (UserName, UserPwd, DcmAdmin) VALUES (?, ?, 1)"_s,
            {Administrator, encodedPassword()});
    }
    setDataSource(engine_->dataSource());
    qputenv("ODBCINI", odbcIni().toUtf8());
}

ScratchDatabase::~ScratchDatabase() {
    Globals::DbConnection().close();
}

void ScratchDatabase::writeDataSource(const QString& database, const QString& section) const {
    setDataSource(dataSource({u"Database="_s + database}), section);
}

void ScratchDatabase::setDataSource(const QString& lines, const QString& section) const {
    QFile file{odbcIni()};
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        throw std::runtime_error("cannot write the data source");
    file.write(u"[%1]\n%2"_s.arg(section, lines).toUtf8());
    file.close();
    // ODBC remembers what it has read for a while, by section and key alone; it forgets when it writes.
    SQLWritePrivateProfileString("any", "any", "any", folder_.filePath(u"forget.ini"_s).toUtf8().constData());
}

QString ScratchDatabase::dataSource(const QStringList& changes) const {
    QStringList lines = engine_->dataSource().split(u'\n', Qt::SkipEmptyParts);
    for (const QString& change : changes) {
        const QString key = change.section(u'=', 0, 0) + u'=';
        lines.removeIf([&](const QString& line) { return line.startsWith(key); });
        lines << change;
    }
    return (lines << QString{}).join(u'\n');
}

void ScratchDatabase::openConsoleConnection() const {
    db::Connection& connection = Globals::DbConnection();
    connection.close();
    connection.setConnectString("DSN=DicomFDB");
    connection.setCursorDriver(db::Connection::CursorDriver::DriverFirst);
    connection.establish();
    Globals::setConfigChanged(false);
}

void ScratchDatabase::release() const {
    engine_->release();
}

void ScratchDatabase::run(const QString& sql, const QVariantList& values) const {
    (void)rows(sql, values);
}

QList<QStringList> ScratchDatabase::rows(const QString& sql, const QVariantList& values) const {
    return engine_->rows(sql, values);
}

QString ScratchDatabase::value(const QString& sql, const QVariantList& values) const {
    const QList<QStringList> found = rows(sql, values);
    return found.isEmpty() ? QString{} : found.first().first();
}

void ScratchDatabase::define(const QString& sql) const {
    run(engine_->definition(sql));
}

void ScratchDatabase::failOn(const QString& table, const QString& operation, const QString& message,
                             const QString& condition) const {
    engine_->failOn(table, operation, message, condition);
}

void ScratchDatabase::allow(const QString& table, const QString& operation) const {
    engine_->allow(table, operation);
}

QString ScratchDatabase::noTable(const QString& table) const {
    return engine_->noTable(table);
}

QString ScratchDatabase::noColumn(const QString& column) const {
    return engine_->noColumn(column);
}

QString ScratchDatabase::twice(const QString& table, const QString& column) const {
    return engine_->twice(table, column);
}

void ScratchDatabase::beginAlone(const QString& table) const {
    engine_->beginAlone(table);
}

void ScratchDatabase::onUpdate(const QString& table, const QString& condition,
                               const QString& statement) const {
    engine_->onUpdate(table, condition, statement);
}

QString ScratchDatabase::textOf(const QByteArray& bytes) const {
    return engine_->textOf(bytes);
}

QString ScratchDatabase::hexOf(const QString& column) const {
    return engine_->hexOf(column);
}

QString ScratchDatabase::typeOf(const QString& column) const {
    return engine_->typeOf(column);
}

}  // namespace tessaly::test
