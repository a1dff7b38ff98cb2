// The manual's chapter 'A database server': its very commands, run on a cluster of the test's own. Replaced
// are the words that the chapter says are to be replaced, and the port.

#include <odbcinst.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "db/Query.h"
#include "db/dialects/Dialect.h"
#include "tests/db/Fault.h"
#include "tests/support/Console.h"
#include "tests/support/Form.h"
#include "tests/support/ScratchCluster.h"
#include "tests/support/UnusedPort.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const QString Password = u"made up for the test"_s;

/// An indented block, and the paragraph that leads to it.
struct Block {
    QString lead;
    QString text;
};

/// The chapter's blocks, section by section; those before the first section stand under its own name.
QMap<QString, QList<Block>> blocksOf(const QString& chapter) {
    QFile file{QStringLiteral(MANUAL)};
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QMap<QString, QList<Block>> found;
    QString heading;
    QString section;
    QString lead;
    bool inBlock = false;
    for (const QString& line : QString::fromUtf8(file.readAll()).split(u'\n')) {
        if (line.startsWith(u"## "_s))
            heading = section = line.mid(3);
        else if (line.startsWith(u"### "_s))
            section = line.mid(4);
        if (heading != chapter)
            continue;
        if (line.startsWith(u"    "_s)) {
            if (!inBlock)
                found[section] << Block{lead, {}};
            inBlock = true;
            found[section].last().text += line.mid(4) + u'\n';
        } else if (!line.isEmpty()) {
            lead = inBlock || line.startsWith(u"As *"_s) ? line : QString{lead + u' ' + line};
            inBlock = false;
        }
    }
    return found;
}

struct Outcome {
    int status;
    QString out;
    QString err;
};

}  // namespace

class ServerManualTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void aNewDatabase();
    void whatStandsInTheFile();
    void fromAnotherMachine();
    void aBackUpComesBack();
    void theServerKnowsTheSettings();
    void everyBlockIsTried();

  private:
    /// Runs the section's blocks but those whose lead has one of the words.
    void follow(const QString& section, const QStringList& without = {});
    void run(const Block& block);
    [[nodiscard]] Outcome runShell(const QString& text, bool asPostgres) const;
    [[nodiscard]] QString home(const QString& name) const { return folder_->filePath(u"home/"_s + name); }
    /// Makes the test itself, and what it starts, the archive's user.
    void settle() const;
    void makeFile();
    [[nodiscard]] QString ask(const char* sql) const;
    /// Another line in the data source.
    void exchange(const QByteArray& line, const QByteArray& other) const;
    void connect(db::Connection& connection) const {
        // ODBC remembers what it has read for a while; it forgets when it writes.
        SQLWritePrivateProfileString("any", "any", "any", home(u"forget.ini"_s).toUtf8().constData());
        connection.setConnectString("DSN=DicomFDB");
        connection.establish();
    }

    QMap<QString, QList<Block>> blocks_;
    QSet<QString> tried_;
    std::unique_ptr<QTemporaryDir> folder_;
    QString port_;
};

void ServerManualTest::initTestCase() {
    blocks_ = blocksOf(u"A database server"_s);
    QVERIFY(blocks_.size() >= 3);
    port_ = unusedPort();
    qputenv("PGPORT",
            port_.toUtf8());  // the server's, before it is started, and that of PostgreSQL's programs
    qputenv("PATH", QByteArray{TESSALY_BINARY_DIR ":"} + qgetenv("PATH"));
    auto& cluster = ScratchCluster::instance();
    cluster.administer(u"ALTER SYSTEM SET listen_addresses TO 'localhost'"_s);  // as Debian's does
    cluster.restart();
}

void ServerManualTest::init() {
    folder_ = std::make_unique<QTemporaryDir>();
    QVERIFY(QDir{folder_->path()}.mkpath(u"home"_s));
    settle();
}

void ServerManualTest::cleanup() {
    Globals::DbConnection().close();
    (void)takeConsoleEnd();
    const auto& cluster = ScratchCluster::instance();
    for (const char* name : {"dicom", "trial"})
        cluster.administer(u"DROP DATABASE IF EXISTS %1 WITH (FORCE)"_s.arg(QLatin1StringView{name}));
    cluster.administer(u"DROP ROLE IF EXISTS dicom"_s);
    folder_.reset();
}

void ServerManualTest::settle() const {
    qputenv("HOME", home({}).toUtf8());
    qputenv("ODBCINI", home(u".odbc.ini"_s).toUtf8());  // ODBC goes by the list of users, not by HOME
}

Outcome ServerManualTest::runShell(const QString& text, bool asPostgres) const {
    QProcess shell;
    shell.setWorkingDirectory(home({}));
    QStringList words{u"setsid"_s, u"--wait"_s};  // no terminal: a password is read from the input
    if (asPostgres) {
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"PGHOST"_s, ScratchCluster::instance().address());
        environment.insert(u"PGUSER"_s, u"postgres"_s);
        environment.insert(u"PGDATABASE"_s, u"template1"_s);
        environment.insert(u"HOME"_s, ScratchCluster::instance().address());
        shell.setProcessEnvironment(environment);
        shell.setWorkingDirectory(u"/"_s);
        if (geteuid() == 0)
            words << u"setpriv"_s << u"--reuid=nobody"_s << u"--regid=nogroup"_s << u"--clear-groups"_s;
    }
    words << u"bash"_s << u"-euo"_s << u"pipefail"_s << u"-c"_s << text;
    shell.start(words.takeFirst(), words);
    shell.write((Password + u'\n' + Password + u'\n').toUtf8());
    shell.closeWriteChannel();
    constexpr int Patience = 120'000;
    shell.waitForFinished(Patience);
    return {.status = shell.exitStatus() == QProcess::NormalExit ? shell.exitCode() : -1,
            .out = QString::fromUtf8(shell.readAllStandardOutput()),
            .err = QString::fromUtf8(shell.readAllStandardError())};
}

void ServerManualTest::run(const Block& block) {
    tried_ << block.text;
    QString text = block.text;
    text.replace(u"PASSWORD"_s, Password);
    text.replace(u"db.example"_s, u"localhost"_s).replace(u"192.0.2.0/24"_s, u"samehost"_s);
    text.replace(u"5432"_s, port_);
    if (block.lead.contains(u"*root*"_s)) {
        if (text == u"systemctl restart postgresql\n"_s) {
            ScratchCluster::instance().restart();
            return;
        }
        static const QRegularExpression install{u"^apt-get install --yes ([a-z -]+)\n$"_s};
        const auto packages = install.match(text).captured(1).split(u' ', Qt::SkipEmptyParts);
        QVERIFY2(!packages.isEmpty(), qPrintable(text));
        for (const QString& package : packages)  // or the one of the version that it stands for
            QCOMPARE(runShell(u"dpkg-query --show '%1*' >&2"_s.arg(package), false).status, 0);
        return;
    }
    const bool asPostgres = block.lead.contains(u"*postgres*"_s);
    QVERIFY2(asPostgres || block.lead.contains(u"*the archive's user*"_s), qPrintable(block.lead));
    const Outcome outcome = runShell(text, asPostgres);
    QVERIFY2(outcome.status == 0, qPrintable(text + outcome.out + outcome.err));
    if (text.contains(u"tessaly-db check"_s))
        QVERIFY2(outcome.out.endsWith(u"DicomFDB: ok\n"_s), qPrintable(outcome.out));
}

void ServerManualTest::follow(const QString& section, const QStringList& without) {
    QVERIFY(blocks_.contains(section));
    for (const Block& block : blocks_[section]) {
        const bool left = std::any_of(without.begin(), without.end(),
                                      [&](const QString& word) { return block.lead.contains(word); });
        if (!left)
            run(block);
        if (QTest::currentTestFailed())
            return;
    }
}

QString ServerManualTest::ask(const char* sql) const {
    db::Connection connection;
    connect(connection);
    db::Query query{connection, sql};
    auto row = query.open();
    return row.next() ? QString::fromStdString(row.text("Answer")) : QString{};
}

void ServerManualTest::exchange(const QByteArray& line, const QByteArray& other) const {
    QFile ini{home(u".odbc.ini"_s)};
    QVERIFY(ini.open(QIODevice::ReadOnly));
    QByteArray lines = ini.readAll();
    QVERIFY(lines.contains(line));
    ini.close();
    QVERIFY(ini.open(QIODevice::WriteOnly));
    ini.write(lines.replace(line, other));
}

void ServerManualTest::makeFile() {
    QFile ini{home(u".odbc.ini"_s)};
    QVERIFY(ini.open(QIODevice::WriteOnly));
    ini.write("[Other]\nDriver=SQLite3\n[DicomFDB]\nDriver=SQLite3\nDatabase=" +
              home(u"DicomDB.mdb"_s).toUtf8() + "\nStepAPI=1\nJournalMode=WAL\n");
    ini.close();
    QCOMPARE(runShell(u"tessaly-db create --admin chief"_s, false).status, 0);
}

void ServerManualTest::aNewDatabase() {
    follow(u"On one machine"_s, {u"where there is a database already"_s, u"instead of a new one"_s});
    if (QTest::currentTestFailed())
        return;
    for (const char* file : {".odbc.ini", ".pgpass"}) {
        struct stat status {};
        QCOMPARE(stat(home(QLatin1StringView{file}).toUtf8().constData(), &status), 0);
        QCOMPARE(status.st_mode & 0777U, 0600U);
    }
    // The login has its password, and owns this database alone.
    QFile passwords{home(u".pgpass"_s)};
    QVERIFY(passwords.rename(home(u"away"_s)));
    db::Connection locked;
    const db::Error fault = faultOf([&] { connect(locked); });
    QVERIFY2(QString::fromUtf8(fault.what()).contains(u"password"_s), fault.what());
    QVERIFY(QFile::rename(home(u"away"_s), home(u".pgpass"_s)));
    QCOMPARE(ask("SELECT count(*) AS Answer FROM pg_database WHERE pg_has_role(datdba, 'USAGE')"), u"1"_s);
    QCOMPARE(ask("SELECT rolsuper OR rolcreaterole OR rolcreatedb AS Answer FROM pg_roles "
                 "WHERE rolname = current_user"),
             u"0"_s);
    // And the console is on it.
    Globals::DbConnection().setConnectString("DSN=DicomFDB");
    Globals::DbConnection().setCursorDriver(db::Connection::CursorDriver::DriverFirst);
    Globals::DbConnection().establish();
    QCOMPARE(Globals::DbConnection().dialect().engineName(), "PostgreSQL");
    TessalyManager window;
    window.load();
    QCOMPARE(Form{window}.rows(u"lstPorts"_s).size(), 1);
    QCOMPARE(Form{window}.rows(u"lstPorts"_s).first().first(), u"11112"_s);
}

void ServerManualTest::whatStandsInTheFile() {
    makeFile();
    follow(u"On one machine"_s, {u"a new database"_s});
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(ask("SELECT UserName AS Answer FROM Users"), u"chief"_s);
    QCOMPARE(runShell(u"tessaly-db --dsn File check"_s, false).out, u"File: ok\n"_s);
}

void ServerManualTest::fromAnotherMachine() {
    follow(u"On one machine"_s, {u"where there is a database already"_s, u"instead of a new one"_s});
    if (QTest::currentTestFailed())
        return;
    // Another machine's home, where nothing is but what was brought there.
    QVERIFY(QDir{home({})}.removeRecursively() && QDir{folder_->path()}.mkpath(u"home"_s));
    const auto& blocks = blocks_[u"From another machine"_s];
    for (const Block& block : blocks) {
        if (block.lead.contains(u"where `authority.crt` lies"_s))
            QVERIFY(QFile::copy(ScratchCluster::instance().address() + u"/data/authority.crt"_s,
                                home(u"authority.crt"_s)));
        run(block);
        if (QTest::currentTestFailed())
            return;
    }
    QCOMPARE(ask("SELECT ssl AS Answer FROM pg_stat_ssl WHERE pid = pg_backend_pid()"), u"1"_s);

    // The right server by another name, and another authority.
    exchange("Servername=localhost", "Servername=127.0.0.1");
    db::Connection misnamed;
    db::Error fault = faultOf([&] { connect(misnamed); });
    QVERIFY2(QString::fromUtf8(fault.what()).contains(u"does not match host name"_s), fault.what());
    exchange("Servername=127.0.0.1", "Servername=localhost");
    QCOMPARE(
        runShell(u"openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj '/CN=Authority of the archive' "
                 "-keyout other.key -out ~/.postgresql/root.crt"_s,
                 false)
            .status,
        0);
    db::Connection strange;
    fault = faultOf([&] { connect(strange); });
    QVERIFY2(QString::fromUtf8(fault.what()).contains(u"certificate verify failed"_s), fault.what());
}

void ServerManualTest::aBackUpComesBack() {
    follow(u"On one machine"_s, {u"where there is a database already"_s, u"instead of a new one"_s});
    if (QTest::currentTestFailed())
        return;
    const QString uid = ask("SELECT BaseUID AS Answer FROM SiteData");
    QVERIFY(uid.startsWith(u"2.25."_s));
    follow(u"Back-up"_s);
    if (QTest::currentTestFailed())
        return;
    exchange("Database=dicom", "Database=trial");
    QCOMPARE(ask("SELECT current_database() AS Answer"), u"trial"_s);
    QCOMPARE(ask("SELECT BaseUID AS Answer FROM SiteData"), uid);
    QCOMPARE(runShell(u"tessaly-db check"_s, false).out, u"DicomFDB: ok\n"_s);
}

void ServerManualTest::theServerKnowsTheSettings() {
    // It checks their names and values; that there is the memory for them shows at its start.
    follow(u"How large"_s);
    const Outcome known = runShell(
        u"psql -At <<'END'\nSELECT setting FROM pg_file_settings WHERE sourcefile LIKE '%auto.conf' AND name "
        u"IN "
        "('shared_buffers', 'maintenance_work_mem', 'max_wal_size') ORDER BY name;\nALTER SYSTEM RESET ALL;\nEND"_s,
        true);
    QCOMPARE(known.out, u"1GB\n16GB\n8GB\nALTER SYSTEM\n"_s);
}

/// Last, when the others have run: no command stands in the chapter that nobody tried.
void ServerManualTest::everyBlockIsTried() {
    for (const auto& section : blocks_)
        for (const Block& block : section)
            QVERIFY2(tried_.contains(block.text), qPrintable(block.text));
}

QTEST_MAIN(ServerManualTest)
#include "tst_servermanual.moc"
