#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include "console/session/Globals.h"
#include "db/Query.h"
#include "passwords/PasswordEncoder.h"
#include "tests/support/ScratchDatabase.h"
#include "tests/tessaly-db/Terminal.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

struct Outcome {
    int status = -1;  // -1 for a signal
    QString out;
    QString err;
};

class TestTessalyDb : public QObject {
    Q_OBJECT
  private slots:
    void init();
    void cleanup();

    void makesADatabase();
    void takesNameAndImageFolder();
    void everyDatabaseGetsItsOwnUidAndPassword();
    void neverTouchesAnExistingFile();
    void leavesNothingBehindAFailure_data();
    void leavesNothingBehindAFailure();
    void refusesAnOldLog();
    void refusesASemicolonInThePath();
    void addsAnAdministrator();
    void changesAPassword();
    void refusesNames_data();
    void refusesNames();
    void asksOnATerminal();
    void refusesWhatWasTyped_data();
    void refusesWhatWasTyped();
    void isBrokenOffWithTheTerminalIntact_data();
    void isBrokenOffWithTheTerminalIntact();
    void findsNoFault();
    void hasNothingAgainstTheConsolesOwnTable();
    void findsFaults_data();
    void findsFaults();
    void findsNoDatabase_data();
    void findsNoDatabase();
    void countsWhoCanLogIn_data();
    void countsWhoCanLogIn();
    void explainsABadCommandLine_data();
    void explainsABadCommandLine();
    void saysWhenThePasswordCannotBePrinted();

  private:
    [[nodiscard]] QString path(const QString& name) const { return scratch_->folder() + u'/' + name; }
    [[nodiscard]] QString file() const { return path(u"data/DicomDB.mdb"_s); }
    [[nodiscard]] Outcome run(const QStringList& arguments, const QString& out = {}) const;
    void create();
    [[nodiscard]] QStringList column(const char* sql) const;
    void change(const QString& sql) const;
    [[nodiscard]] QString storedPassword(const QString& user) const;

    QByteArray made_;  // a new database, as the first test that needs one made it
    std::unique_ptr<test::ScratchDatabase> scratch_;  // for its data source; the file is made here
};

QString encoded(const QString& password) {
    return QString::fromStdString(PasswordEncoder{}.encode(password.toStdString()));
}

/// The password in a line "Password of NAME: ...".
QString toldPassword(const QString& out, const QString& user) {
    const QRegularExpression line(u"^Password of %1: ([a-zA-Z2-9]{16})\n$"_s.arg(user));
    return line.match(out).captured(1);
}

bool isOneLine(const QString& text) {
    return text.endsWith(u'\n') && text.count(u'\n') == 1;
}

void openDatabase(db::Connection& connection) {
    connection.setConnectString("DSN=DicomFDB");
    connection.establish();
}

}  // namespace

void TestTessalyDb::init() {
    scratch_ = std::make_unique<test::ScratchDatabase>(test::ScratchDatabase::Content::Empty);
    scratch_->writeDataSource(file());
}

void TestTessalyDb::cleanup() {
    scratch_.reset();
}

/// Runs the program with no terminal; its output goes to the file `out` where one is given.
Outcome TestTessalyDb::run(const QStringList& arguments, const QString& out) const {
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

/// A new database for what comes after: encoding a password takes its time.
void TestTessalyDb::create() {
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

QStringList TestTessalyDb::column(const char* sql) const {
    db::Connection connection;
    openDatabase(connection);
    db::Query query{connection, sql};
    auto rows = query.open();
    QStringList values;
    while (rows.next())
        values += QString::fromStdString(rows.text(rows.columns().front().name));
    return values;
}

void TestTessalyDb::change(const QString& sql) const {
    db::Connection connection;
    openDatabase(connection);
    db::execute(connection, sql.toStdString());
}

QString TestTessalyDb::storedPassword(const QString& user) const {
    db::Connection connection;
    openDatabase(connection);
    db::Query query{connection, "SELECT UserPwd FROM Users WHERE UserName=?"};
    auto rows = query.bind(1, db::varchar(user.toStdString())).open();
    return rows.next() ? QString::fromStdString(rows.text("UserPwd")) : QString();
}

void TestTessalyDb::makesADatabase() {
    const auto made = run({u"create"_s});
    QCOMPARE(made.err, QString());
    QCOMPARE(made.status, 0);

    const QString password = toldPassword(made.out, u"admin"_s);
    QCOMPARE(password.size(), 16);
    QCOMPARE(storedPassword(u"admin"_s), encoded(password));
    QCOMPARE(
        column("SELECT UserName || DcmAdmin || DcmUpdate || DcmDelete || Move || Refert || Send || Backup"
               " || Import || ROI || ModTags || WLogin || '\"' || Signature || '\"' AS x FROM Users"),
        QStringList{u"admin11111111110\"\""_s});
    QCOMPARE(column("SELECT LogLevel || ',' || DumpLevel || ',' || QueryTimeout AS x FROM DicomServer"),
             QStringList{u"1,0,30"_s});
    QCOMPARE(column("SELECT Organization FROM SiteData"), QStringList{u"Unknown"_s});
    QCOMPARE(
        column("SELECT Port || ',' || AETitle || ',' || MaxConnections || ',' || CheckCallingAE || ',' ||"
               " CheckCalledAE || ',' || SaveCompressed || ',' || Root AS x FROM Port"),
        QStringList{u"11112,TESSALY,10,0,0,1,"_s + path(u"data/images"_s)});

    QCOMPARE(QDir(path(u"data"_s)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList({u"DicomDB.mdb"_s, u"images"_s}));
    struct stat status {};
    QCOMPARE(stat(QFile::encodeName(file()).constData(), &status), 0);
    QCOMPARE(status.st_mode & 0777U, 0600U);
    QCOMPARE(stat(QFile::encodeName(path(u"data"_s)).constData(), &status), 0);
    QCOMPARE(status.st_mode & 0777U, 0700U);
    QFile database(file());
    QVERIFY(database.open(QIODevice::ReadOnly));
    QCOMPARE(database.read(20).sliced(18), QByteArray("\2\2"));  // the header's mark of a write-ahead log
}

void TestTessalyDb::takesNameAndImageFolder() {
    const QString root = path(u"Bilder für alle/hier"_s);
    const auto made = run({u"create"_s, u"--admin"_s, u"Zoë"_s, u"--root"_s, root});
    QCOMPARE(made.status, 0);
    QCOMPARE(storedPassword(u"Zoë"_s), encoded(toldPassword(made.out, u"Zoë"_s)));
    QCOMPARE(column("SELECT Root FROM Port"), QStringList{root});
    QVERIFY(QDir(root).exists());
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
}

void TestTessalyDb::everyDatabaseGetsItsOwnUidAndPassword() {
    QSet<QString> uids;
    QSet<QString> passwords;
    for (int i = 0; i < 5; ++i) {
        scratch_->writeDataSource(path(u"%1/DicomDB.mdb"_s.arg(i)));
        passwords += toldPassword(run({u"create"_s}).out, u"admin"_s);
        uids += column("SELECT BaseUID FROM SiteData").join(u',');
    }
    QCOMPARE(passwords.size(), 5);
    QCOMPARE(uids.size(), 5);
    // One arc below 2.25, with room for what the server appends.
    const QRegularExpression form(u"^2\\.25\\.[1-9][0-9]{1,38}$"_s);
    for (const QString& uid : uids)
        QVERIFY2(form.match(uid).hasMatch(), qPrintable(uid));
}

void TestTessalyDb::neverTouchesAnExistingFile() {
    QVERIFY(QDir().mkpath(path(u"data"_s)));
    QFile database(file());
    QVERIFY(database.open(QIODevice::WriteOnly));
    database.write("precious");
    database.close();
    const auto refused = run({u"create"_s});
    QCOMPARE(refused.status, 1);
    QCOMPARE(refused.out, QString());
    QCOMPARE(refused.err, u"tessaly-db: There is a file %1 already: it is left as it is\n"_s.arg(file()));
    QVERIFY(database.open(QIODevice::ReadOnly));
    QCOMPARE(database.readAll(), QByteArray("precious"));
    QCOMPARE(QDir(path(u"data"_s)).entryList(QDir::Files), QStringList{u"DicomDB.mdb"_s});
}

void TestTessalyDb::leavesNothingBehindAFailure_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("database");
    QTest::newRow("image folder is a file") << QStringList{u"--root"_s, u"/etc/passwd"_s} << QString();
    QTest::newRow("image folder cannot be made") << QStringList{u"--root"_s, u"/dev/null/x"_s} << QString();
    QTest::newRow("image folder too long")
        << QStringList{u"--root"_s, u'/' + QString(255, u'x')} << QString();
    QTest::newRow("no such data source") << QStringList{u"--dsn"_s, u"Other"_s} << QString();
    QTest::newRow("no file named") << QStringList{} << u" "_s;
    QTest::newRow("relative path") << QStringList{} << u"DicomDB.mdb"_s;
    QTest::newRow("a folder") << QStringList{} << u"/"_s;
    QTest::newRow("folder cannot be made") << QStringList{} << u"/dev/null/DicomDB.mdb"_s;
    QTest::newRow("folder takes no file") << QStringList{} << u"/proc/DicomDB.mdb"_s;
}

void TestTessalyDb::leavesNothingBehindAFailure() {
    QFETCH(QStringList, arguments);
    QFETCH(QString, database);
    if (!database.isEmpty())
        scratch_->writeDataSource(database);
    const auto failed = run(QStringList{u"create"_s} + arguments);
    QCOMPARE(failed.status, 1);
    QCOMPARE(failed.out, QString());
    QVERIFY2(isOneLine(failed.err), qPrintable(failed.err));
    QCOMPARE(QDir(path(u"data"_s)).entryList(QDir::Files | QDir::Hidden), QStringList());
}

void TestTessalyDb::refusesAnOldLog() {
    QVERIFY(QDir().mkpath(path(u"data"_s)));
    QVERIFY(QFile(file() + u"-wal"_s).open(QIODevice::WriteOnly));
    const auto refused = run({u"create"_s});
    QCOMPARE(refused.status, 1);
    QVERIFY2(refused.err.contains(u"DicomDB.mdb-wal"_s), qPrintable(refused.err));
    QVERIFY(!QFile::exists(file()));
}

void TestTessalyDb::refusesASemicolonInThePath() {
    const QString named = path(u"a;b/DicomDB.mdb"_s);
    scratch_->writeDataSource(named);
    const auto refused = run({u"create"_s});
    QCOMPARE(refused.status, 1);
    QCOMPARE(refused.err,
             u"tessaly-db: A new database cannot have a semicolon in its path: %1\n"_s.arg(named));
    QVERIFY(!QFile::exists(path(u"a"_s)));
    QVERIFY(!QFile::exists(path(u"a;b"_s)));
}

void TestTessalyDb::addsAnAdministrator() {
    create();
    const auto added = run({u"add-admin"_s, u"Jürgen"_s});
    QCOMPARE(added.status, 0);
    QCOMPARE(storedPassword(u"Jürgen"_s), encoded(toldPassword(added.out, u"Jürgen"_s)));
    QCOMPARE(column("SELECT UserName FROM Users WHERE DcmAdmin<>0 ORDER BY UserName"),
             QStringList({u"admin"_s, u"Jürgen"_s}));

    const auto before = storedPassword(u"admin"_s);
    const auto again = run({u"add-admin"_s, u"ADMIN"_s});
    QCOMPARE(again.status, 1);
    QCOMPARE(again.err, u"tessaly-db: There is a user already: ADMIN\n"_s);
    QCOMPARE(storedPassword(u"admin"_s), before);
}

void TestTessalyDb::changesAPassword() {
    create();
    const auto before = storedPassword(u"admin"_s);
    const auto set = run({u"set-password"_s, u"admin"_s, u"--random"_s});
    QCOMPARE(set.status, 0);
    QCOMPARE(storedPassword(u"admin"_s), encoded(toldPassword(set.out, u"admin"_s)));
    QVERIFY(storedPassword(u"admin"_s) != before);

    const auto unknown = run({u"set-password"_s, u"nobody"_s});
    QCOMPARE(unknown.status, 1);
    QCOMPARE(unknown.err, u"tessaly-db: There is no user nobody\n"_s);
    QCOMPARE(column("SELECT UserName FROM Users"), QStringList{u"admin"_s});
}

void TestTessalyDb::refusesNames_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("why");
    QTest::newRow("empty") << QString() << u"must not be empty"_s;
    QTest::newRow("long") << u"seventeen letters"_s << u"is longer than 16 characters"_s;
    QTest::newRow("long beyond the first plane")
        << u"\U0001F60A"_s.repeated(9) << u"is longer than 16 characters"_s;
    QTest::newRow("blank in front") << u" x"_s << u"must not begin or end with a blank"_s;
    QTest::newRow("blank behind") << u"x "_s << u"must not begin or end with a blank"_s;
    QTest::newRow("two lines") << u"a\nb"_s << u"must not have control characters"_s;
}

void TestTessalyDb::refusesNames() {
    QFETCH(QString, name);
    QFETCH(QString, why);
    const auto refused = run({u"create"_s, u"--admin"_s, name});
    QCOMPARE(refused.status, 1);
    QCOMPARE(refused.err, u"tessaly-db: The user name %1\n"_s.arg(why));
    QVERIFY(!QFile::exists(file()));
}

void TestTessalyDb::asksOnATerminal() {
    Terminal creating(TESSALY_DB, {u"create"_s});
    QVERIFY(creating.waitFor("New password of admin: "));
    QVERIFY(!creating.echoes());
    creating.type("so geheim, ß\n");
    QVERIFY(creating.waitFor("Once more: "));
    QVERIFY(!creating.echoes());
    creating.type("so geheim, ß\n");
    QCOMPARE(creating.finish(), 0);
    QVERIFY2(!creating.screen().contains("geheim"), creating.screen().constData());
    QVERIFY(creating.echoes());
    QCOMPARE(storedPassword(u"admin"_s), encoded(u"so geheim, ß"_s));

    Terminal random(TESSALY_DB, {u"set-password"_s, u"admin"_s, u"--random"_s});
    QCOMPARE(random.finish(), 0);
    const QString shown = QString::fromUtf8(random.screen()).remove(u'\r');
    QCOMPARE(storedPassword(u"admin"_s), encoded(toldPassword(shown, u"admin"_s)));
}

void TestTessalyDb::refusesWhatWasTyped_data() {
    QTest::addColumn<QByteArrayList>("typed");
    QTest::addColumn<QByteArray>("why");
    QTest::newRow("nothing") << QByteArrayList{""} << QByteArray("The password must not be empty");
    QTest::newRow("long") << QByteArrayList{"12345678901234567"}
                          << QByteArray("The password is longer than 16 characters");
    QTest::newRow("no UTF-8") << QByteArrayList{"\xff\xfe"} << QByteArray("The password is not valid UTF-8");
    QTest::newRow("two") << QByteArrayList{"one", "two"} << QByteArray("The two passwords differ");
}

void TestTessalyDb::refusesWhatWasTyped() {
    QFETCH(QByteArrayList, typed);
    QFETCH(QByteArray, why);
    Terminal creating(TESSALY_DB, {u"create"_s});
    QVERIFY(creating.waitFor("New password of admin: "));
    creating.type(typed.first() + '\n');
    if (typed.size() > 1) {
        QVERIFY(creating.waitFor("Once more: "));
        creating.type(typed.last() + '\n');
    }
    QCOMPARE(creating.finish(), 1);
    QVERIFY2(creating.screen().contains("tessaly-db: " + why), creating.screen().constData());
    QVERIFY(!QFile::exists(file()));
}

void TestTessalyDb::isBrokenOffWithTheTerminalIntact_data() {
    QTest::addColumn<QByteArray>("key");
    QTest::newRow("Ctrl-C") << QByteArray("\x03");
    QTest::newRow("Ctrl-D") << QByteArray("\x04");
    QTest::newRow("Ctrl-backslash") << QByteArray("\x1c");
}

void TestTessalyDb::isBrokenOffWithTheTerminalIntact() {
    QFETCH(QByteArray, key);
    Terminal creating(TESSALY_DB, {u"create"_s});
    QVERIFY(creating.waitFor("New password of admin: "));
    creating.type(key);
    QCOMPARE(creating.finish(), 1);
    QVERIFY(creating.echoes());
    QVERIFY(creating.screen().contains("tessaly-db: Broken off: no password was given"));
    QVERIFY(!QFile::exists(file()));
}

void TestTessalyDb::findsNoFault() {
    create();
    const auto checked = run({u"check"_s});
    QCOMPARE(checked.status, 0);
    QCOMPARE(checked.out, u"DicomFDB: ok\n"_s);
    QCOMPARE(checked.err, QString());
    QVERIFY(!QFile::exists(file() + u"-wal"_s));
}

void TestTessalyDb::hasNothingAgainstTheConsolesOwnTable() {
    create();
    change(u"DROP TABLE FtpNodes"_s);
    scratch_->openConsoleConnection();
    Globals::EnsureFtpNodesTable();
    Globals::DbConnection().close();
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
}

void TestTessalyDb::findsFaults_data() {
    QTest::addColumn<QStringList>("changes");
    QTest::addColumn<QStringList>("faults");
    const auto row = [](const char* name, const QStringList& changes, const QStringList& faults) {
        QTest::newRow(name) << changes << faults;
    };
    row("table", {u"DROP TABLE FtpNodes"_s}, {u"The table FtpNodes is missing"_s});
    row("table with required rows", {u"DROP TABLE Port"_s}, {u"The table Port is missing"_s});
    row("column", {u"ALTER TABLE Printers DROP COLUMN Trim"_s},
        {u"Printers lacks the column Trim for text"_s});
    row("generated column", {u"ALTER TABLE Users DROP COLUMN User"_s},
        {u"Users lacks the column User for text"_s});
    row("column of another kind",
        {u"ALTER TABLE Printers DROP COLUMN Copies"_s,
         u"ALTER TABLE Printers ADD COLUMN Copies VARCHAR(9)"_s},
        {u"Printers lacks the column Copies for numbers"_s});
    row("look-up index", {u"DROP INDEX ImageBySeries"_s},
        {u"Image lacks an index for look-ups by SeriesInstanceUID"_s});
    row("unique index", {u"DROP INDEX PatientByPatientID"_s},
        {u"Patient lacks the unique key (PatientID)"_s});
    row("key that compares with case",
        {u"DROP TABLE DicomNodes"_s,
         u"CREATE TABLE DicomNodes (Name VARCHAR(16) NOT NULL PRIMARY KEY, AETitle VARCHAR(16),"
         " LocalAETitle VARCHAR(16), Host VARCHAR(64), Port VARCHAR(16), Store INTEGER, Query INTEGER,"
         " Print INTEGER)"_s},
        {u"DicomNodes lacks the unique key (Name without case)"_s});
    row("destinations without a key",
        {u"DROP TABLE FtpNodes"_s,
         u"CREATE TABLE FtpNodes (Name VARCHAR(16), Host VARCHAR(64), UserName VARCHAR(16),"
         " UserPwd VARCHAR(16), Destination VARCHAR(128), NodeType VARCHAR(8))"_s},
        {u"FtpNodes lacks the unique key (Name)"_s});
    row("no server row", {u"DELETE FROM DicomServer"_s}, {u"DicomServer has 0 rows instead of one"_s});
    row("two site rows", {u"INSERT INTO SiteData VALUES ('', '')"_s},
        {u"SiteData has 2 rows instead of one"_s});
    row("no port", {u"DELETE FROM Port"_s}, {u"Port has no row"_s});
    row("several", {u"DROP TABLE Series"_s, u"DELETE FROM Port"_s, u"DROP TABLE Image"_s},
        {u"The table Image is missing"_s, u"The table Series is missing"_s, u"Port has no row"_s});
    row("case of a name", {u"DROP INDEX StudyByPatient"_s, u"CREATE INDEX x ON STUDY (IDPATIENT)"_s},
        {u"DicomFDB: ok"_s});
}

void TestTessalyDb::findsFaults() {
    QFETCH(QStringList, changes);
    QFETCH(QStringList, faults);
    create();
    for (const QString& sql : changes)
        change(sql);
    const auto checked = run({u"check"_s});
    QCOMPARE(checked.out, faults.join(u'\n') + u'\n');
    QCOMPARE(checked.status, faults.first().endsWith(u"ok"_s) ? 0 : 1);
    QCOMPARE(checked.err, QString());
}

void TestTessalyDb::findsNoDatabase_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("no data source") << QStringList{u"--dsn"_s, u"Other"_s} << QByteArray();
    QTest::newRow("no file") << QStringList{} << QByteArray();
    QTest::newRow("no database") << QStringList{} << QByteArray(10'000, 'x');
}

void TestTessalyDb::findsNoDatabase() {
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, content);
    if (!content.isEmpty()) {
        QVERIFY(QDir().mkpath(path(u"data"_s)));
        QFile database(file());
        QVERIFY(database.open(QIODevice::WriteOnly));
        database.write(content);
    }
    const auto checked = run(QStringList{u"check"_s} + arguments);
    QCOMPARE(checked.status, 1);
    QVERIFY2(isOneLine(checked.out), qPrintable(checked.out));
    QCOMPARE(checked.err, QString());
    QCOMPARE(QFile::exists(file()), !content.isEmpty());  // looking makes no database

    const auto adding = run(QStringList{u"add-admin"_s, u"x"_s} + arguments);
    QCOMPARE(adding.status, 1);
    QVERIFY2(isOneLine(adding.err), qPrintable(adding.err));
    QCOMPARE(QFile::exists(file()), !content.isEmpty());
}

void TestTessalyDb::countsWhoCanLogIn_data() {
    QTest::addColumn<QString>("change");
    QTest::addColumn<bool>("canLogIn");
    QTest::newRow("no password") << u"UPDATE Users SET UserPwd = NULL"_s << true;
    QTest::newRow("empty password") << u"UPDATE Users SET UserPwd = ''"_s << true;
    QTest::newRow("right in another notation") << u"UPDATE Users SET DcmAdmin = -1"_s << true;
    QTest::newRow("password as typed") << u"UPDATE Users SET UserPwd = 'secret'"_s << false;
    QTest::newRow("no right") << u"UPDATE Users SET DcmAdmin = 0"_s << false;
    QTest::newRow("no user") << u"DELETE FROM Users"_s << false;
}

void TestTessalyDb::countsWhoCanLogIn() {
    QFETCH(QString, change);
    QFETCH(bool, canLogIn);
    create();
    this->change(change);
    QCOMPARE(run({u"check"_s}).out,
             canLogIn ? u"DicomFDB: ok\n"_s : u"Users has no administrator that can log in\n"_s);
}

void TestTessalyDb::explainsABadCommandLine_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("nothing") << QStringList{};
    QTest::newRow("unknown command") << QStringList{u"destroy"_s};
    QTest::newRow("no name") << QStringList{u"add-admin"_s};
    QTest::newRow("one word too many") << QStringList{u"check"_s, u"x"_s};
    QTest::newRow("option without value") << QStringList{u"check"_s, u"--dsn"_s};
    QTest::newRow("attributes beside the data source")
        << QStringList{u"check"_s, u"--dsn"_s, u"x;Database=y"_s};
}

void TestTessalyDb::explainsABadCommandLine() {
    QFETCH(QStringList, arguments);
    const auto refused = run(arguments);
    QCOMPARE(refused.status, 1);
    QVERIFY2(isOneLine(refused.err + refused.out), qPrintable(refused.err + refused.out));
    QCOMPARE(run({u"--help"_s}).status, 0);
}

void TestTessalyDb::saysWhenThePasswordCannotBePrinted() {
    const auto made = run({u"create"_s}, u"/dev/full"_s);
    QCOMPARE(made.status, 1);
    QVERIFY2(made.err.contains(u"set-password"_s), qPrintable(made.err));
    QVERIFY(isOneLine(made.err));
}

QTEST_GUILESS_MAIN(TestTessalyDb)
#include "tst_tessalydb.moc"
