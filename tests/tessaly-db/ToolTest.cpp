#include "tests/tessaly-db/ToolTest.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <algorithm>

#include "db/Query.h"
#include "passwords/PasswordEncoder.h"
#include "schema/Definitions.h"
#include "tests/support/Eventually.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

void openDatabase(db::Connection& connection, const QString& dsn) {
    connection.setConnectString("DSN=" + dsn.toStdString());
    connection.establish();
}

Outcome runProgram(const QString& name, const QStringList& arguments, const QString& out = {}) {
    QProcess program;
    program.setStandardInputFile(QProcess::nullDevice());
    if (!out.isEmpty())
        program.setStandardOutputFile(out);
    program.start(name, arguments);
    const bool isOver = program.waitForFinished(test::PatienceMs);
    return {.status = isOver && program.exitStatus() == QProcess::NormalExit ? program.exitCode() : -1,
            .out = QString::fromUtf8(program.readAllStandardOutput()),
            .err = QString::fromUtf8(program.readAllStandardError())};
}

}  // namespace

void ToolTest::init() {
    scratch_ = std::make_unique<test::ScratchDatabase>(test::ScratchDatabase::Content::Empty);
    if (!test::ScratchDatabase::isPostgresql())
        scratch_->writeDataSource(file());
    qputenv("XDG_DATA_HOME", path(u"home"_s).toUtf8());
}

void ToolTest::cleanup() {
    scratch_.reset();
}

QString ToolTest::path(const QString& name) const {
    return scratch_->folder() + u'/' + name;
}

QString ToolTest::file() const {
    return path(u"data/DicomDB.mdb"_s);
}

QString ToolTest::defaultImageRoot() const {
    return test::ScratchDatabase::isPostgresql() ? path(u"home/tessaly/images"_s) : path(u"data/images"_s);
}

void ToolTest::addDataSource(const QString& name, const QString& lines) const {
    QFile ini(scratch_->odbcIni());
    QVERIFY(ini.open(QIODevice::Append));
    ini.write(u"[%1]\n%2\n"_s.arg(name, lines).toUtf8());
}

bool ToolTest::hasTables() const {
    if (!test::ScratchDatabase::isPostgresql() && !QFile::exists(file()))
        return false;
    db::Connection connection;
    openDatabase(connection, DataSource);
    const auto definitions = schema::definitions(schema::engine(connection));
    return std::ranges::any_of(definitions.tables,
                               [&](const auto& table) { return connection.hasTable(table.name); });
}

bool ToolTest::haveDatabase() const {
    QFile empty(file());
    return test::ScratchDatabase::isPostgresql() ||
           (QDir().mkpath(path(u"data"_s)) && empty.open(QIODevice::WriteOnly));
}

std::unique_ptr<FileSource> ToolTest::fileSource(const QString& name) const {
    auto source = std::make_unique<FileSource>(path(u"source/DicomDB.mdb"_s));
    addDataSource(name, FileSource::lines(source->file()));
    return source;
}

Outcome ToolTest::run(const QStringList& arguments, const QString& out) {
    return runProgram(QStringLiteral(TESSALY_DB), arguments, out);
}

Outcome ToolTest::runLimited(long bytes, const QStringList& arguments) {
    return runProgram(u"prlimit"_s,
                      QStringList{u"--fsize=%1"_s.arg(bytes), QStringLiteral(TESSALY_DB)} + arguments);
}

Outcome ToolTest::asSomebodyWithoutRights(const QStringList& arguments) const {
    if (geteuid() != 0)
        return run(arguments);
    const QString target = QFileInfo{file()}.path();
    const auto* nobody = getpwnam("nobody");
    if (nobody == nullptr || !QDir{}.mkpath(target) ||
        chmod(QFile::encodeName(scratch_->folder()).constData(), 0755) != 0)
        return {};
    for (const QString& own : {target, scratch_->odbcIni()})  // ODBC reads none that it could not write
        if (chown(QFile::encodeName(own).constData(), nobody->pw_uid, nobody->pw_gid) != 0)
            return {};
    return runProgram(u"setpriv"_s, QStringList{u"--reuid=nobody"_s, u"--regid=nogroup"_s,
                                                u"--clear-groups"_s, QStringLiteral(TESSALY_DB)} +
                                        arguments);
}

void ToolTest::create() {
    if (test::ScratchDatabase::isPostgresql()) {
        QCOMPARE(run({u"create"_s}).status, 0);
        return;
    }
    QFile database(file());
    if (made_.isEmpty()) {
        QCOMPARE(run({u"create"_s}).status, 0);
        QVERIFY(database.open(QIODevice::ReadOnly));
        made_ = database.readAll();
    } else {
        QVERIFY(QDir().mkpath(path(u"data"_s)));
        QVERIFY(database.open(QIODevice::WriteOnly));
        database.write(made_);
    }
}

QStringList ToolTest::column(const char* sql, const QString& dsn) {
    db::Connection connection;
    openDatabase(connection, dsn);
    db::Query query{connection, sql};
    auto rows = query.open();
    QStringList values;
    while (rows.next())
        values += QString::fromStdString(rows.text(rows.columns().front().name));
    return values;
}

void ToolTest::change(const QString& sql, const QString& dsn) {
    db::Connection connection;
    openDatabase(connection, dsn);
    db::execute(connection, sql.toStdString());
}

QString ToolTest::storedPassword(const QString& user) {
    db::Connection connection;
    openDatabase(connection, DataSource);
    db::Query query{connection, "SELECT UserPwd FROM Users WHERE UserName=?"};
    auto rows = query.bind(1, db::varchar(user.toStdString())).open();
    return rows.next() ? QString::fromStdString(rows.text("UserPwd")) : QString();
}

QString ToolTest::encoded(const QString& password) {
    return QString::fromStdString(PasswordEncoder{}.encode(password.toStdString()));
}

QString ToolTest::toldPassword(const QString& out, const QString& user) {
    const QRegularExpression line(u"^Password of %1: ([a-zA-Z2-9]{16})\n$"_s.arg(user));
    return line.match(out).captured(1);
}

bool ToolTest::isOneLine(const QString& text) {
    return text.endsWith(u'\n') && text.count(u'\n') == 1;
}

QStringList ToolTest::tableLines(const QString& out) {
    QStringList lines;
    for (const QString& line : out.split(u'\n', Qt::SkipEmptyParts))
        lines += line.simplified();
    return lines;
}
