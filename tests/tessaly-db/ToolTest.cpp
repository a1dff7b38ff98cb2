#include "tests/tessaly-db/ToolTest.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include "db/Query.h"
#include "passwords/PasswordEncoder.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

void openDatabase(db::Connection& connection) {
    connection.setConnectString("DSN=DicomFDB");
    connection.establish();
}

}  // namespace

void ToolTest::init() {
    scratch_ = std::make_unique<test::ScratchDatabase>(test::ScratchDatabase::Content::Empty);
    scratch_->writeDataSource(file());
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

Outcome ToolTest::run(const QStringList& arguments, const QString& out) {
    QProcess program;
    program.setStandardInputFile(QProcess::nullDevice());
    if (!out.isEmpty())
        program.setStandardOutputFile(out);
    program.start(QStringLiteral(TESSALY_DB), arguments);
    program.waitForFinished();
    return {.status = program.exitStatus() == QProcess::NormalExit ? program.exitCode() : -1,
            .out = QString::fromUtf8(program.readAllStandardOutput()),
            .err = QString::fromUtf8(program.readAllStandardError())};
}

void ToolTest::create() {
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

QStringList ToolTest::column(const char* sql) {
    db::Connection connection;
    openDatabase(connection);
    db::Query query{connection, sql};
    auto rows = query.open();
    QStringList values;
    while (rows.next())
        values += QString::fromStdString(rows.text(rows.columns().front().name));
    return values;
}

void ToolTest::change(const QString& sql) {
    db::Connection connection;
    openDatabase(connection);
    db::execute(connection, sql.toStdString());
}

QString ToolTest::storedPassword(const QString& user) {
    db::Connection connection;
    openDatabase(connection);
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
