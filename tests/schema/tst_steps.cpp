#include <QTest>
#include <array>
#include <stdexcept>

#include "db/Error.h"
#include "db/Query.h"
#include "schema/Upgrade.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

/// How tables come from one version to the next; what stands in the program's own steps is tested with it.
class TestSteps : public QObject {
    Q_OBJECT
  private slots:
    void init();
    void cleanup();
    void theTablesHaveTheStepsVersion();
    void tablesFromBeforeVersionsAreTheFirst();
    void runsWhatIsAboveTheVersion_data();
    void runsWhatIsAboveTheVersion();
    void fillsWhatWasAdded();
    void makesAnewWhatAStepTakesAway();
    void takesEverythingBack();
    void refusesANewerOne();
    void refusesWhatItCannotAdd();
    void asksForAnUpgrade_data();
    void asksForAnUpgrade();

  private:
    std::unique_ptr<test::ScratchDatabase> scratch_;
    std::unique_ptr<db::Connection> connection_;
};

QStringList lines(const std::vector<std::string>& texts) {
    QStringList result;
    for (const auto& text : texts)
        result += QString::fromStdString(text);
    return result;
}

/// Steps beyond the program's own, each of which leaves a mark.
std::array<schema::Step, 2> marking() {
    const auto mark = [](const char* name) {
        return [name](const db::Connection& connection) {
            db::execute(connection, "INSERT INTO FtpNodes (Name) VALUES (?)", {db::varchar(name)});
        };
    };
    return {schema::Step{.version = 50, .about = "fifty", .fill = mark("50")},
            schema::Step{.version = 51, .about = "fifty-one", .fill = mark("51")}};
}

std::string whyNot(const std::function<void()>& work) {
    try {
        work();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

}  // namespace

void TestSteps::init() {
    scratch_ = std::make_unique<test::ScratchDatabase>();
    connection_ = std::make_unique<db::Connection>();
    connection_->setConnectString("DSN=DicomFDB");
    connection_->establish();
}

void TestSteps::cleanup() {
    connection_.reset();
    scratch_.reset();
}

void TestSteps::theTablesHaveTheStepsVersion() {
    QCOMPARE(scratch_->value(u"SELECT Version FROM SchemaVersion"_s),
             QString::number(schema::currentVersion()));
    QCOMPARE(schema::version(*connection_), schema::currentVersion());
    int last = 1;
    for (const auto& step : schema::steps()) {
        QCOMPARE(step.version, last + 1);
        QVERIFY(!step.about.empty());
        last = step.version;
    }
    QCOMPARE(lines(schema::upgrade(*connection_)), QStringList());
}

void TestSteps::tablesFromBeforeVersionsAreTheFirst() {
    scratch_->run(u"DELETE FROM SchemaVersion"_s);
    QCOMPARE(schema::version(*connection_), 1);
    scratch_->run(u"DROP TABLE SchemaVersion"_s);
    QCOMPARE(schema::version(*connection_), 1);
    const auto done = lines(schema::upgrade(*connection_));
    QCOMPARE(done.first(), u"Made the table SchemaVersion"_s);
    QCOMPARE(scratch_->rows(u"SELECT Version FROM SchemaVersion"_s).size(), 1);
    QCOMPARE(schema::version(*connection_), schema::currentVersion());
}

void TestSteps::runsWhatIsAboveTheVersion_data() {
    QTest::addColumn<int>("version");
    QTest::addColumn<QStringList>("done");
    QTest::addColumn<QString>("marks");
    QTest::newRow("both") << 49 << QStringList{u"Version 50: fifty"_s, u"Version 51: fifty-one"_s}
                          << u"50,51"_s;
    QTest::newRow("one") << 50 << QStringList{u"Version 51: fifty-one"_s} << u"51"_s;
    QTest::newRow("none") << 51 << QStringList{} << QString();
}

void TestSteps::runsWhatIsAboveTheVersion() {
    QFETCH(int, version);
    QFETCH(QStringList, done);
    QFETCH(QString, marks);
    scratch_->run(u"UPDATE SchemaVersion SET Version = ?"_s, {version});
    QCOMPARE(lines(schema::upgrade(*connection_, marking())), done);
    QStringList found;
    for (const auto& row : scratch_->rows(u"SELECT Name FROM FtpNodes ORDER BY Name"_s))
        found += row;
    QCOMPARE(found.join(u','), marks);
    QCOMPARE(schema::version(*connection_), 51);
    QCOMPARE(lines(schema::upgrade(*connection_, marking())), QStringList());
}

void TestSteps::fillsWhatWasAdded() {
    scratch_->run(u"ALTER TABLE FtpNodes DROP COLUMN NodeType"_s);
    scratch_->run(u"INSERT INTO FtpNodes (Name) VALUES ('old')"_s);
    const std::array steps{
        schema::Step{.version = 50, .about = "node types", .fill = [](const db::Connection& connection) {
                         db::execute(connection, "UPDATE FtpNodes SET NodeType = 'ftp'");
                     }}};
    QCOMPARE(lines(schema::upgrade(*connection_, steps)),
             (QStringList{u"FtpNodes: added the column NodeType for text"_s, u"Version 50: node types"_s}));
    QCOMPARE(scratch_->value(u"SELECT NodeType FROM FtpNodes WHERE Name = 'old'"_s), u"ftp"_s);
}

void TestSteps::makesAnewWhatAStepTakesAway() {
    scratch_->run(u"DROP INDEX PortRemoteNodesByName"_s);
    scratch_->run(u"CREATE INDEX PortRemoteNodesByName ON PortRemoteNodes (Name, Port)"_s);
    const std::array steps{schema::Step{
        .version = 50, .about = "another index", .fill = {}, .prepare = [](const db::Connection& connection) {
            db::execute(connection, "DROP INDEX PortRemoteNodesByName");
        }}};
    QCOMPARE(lines(schema::upgrade(*connection_, steps)),
             (QStringList{u"PortRemoteNodes: added an index for look-ups by Name"_s,
                          u"Version 50: another index"_s}));
    QCOMPARE(lines(schema::upgrade(*connection_, steps)), QStringList());
}

void TestSteps::takesEverythingBack() {
    scratch_->run(u"DROP TABLE SchemaVersion"_s);
    scratch_->run(u"ALTER TABLE Printers DROP COLUMN Trim"_s);
    scratch_->failOn(u"FtpNodes"_s, u"INSERT"_s, test::ScratchDatabase::Failure, u"NEW.Name = '51'"_s);
    const auto why = whyNot([this] { (void)schema::upgrade(*connection_, marking()); });
    QVERIFY2(QString::fromStdString(why).contains(test::ScratchDatabase::Failure), why.c_str());
    QVERIFY(!connection_->hasTable("SchemaVersion"));
    QCOMPARE(scratch_->value(u"SELECT COUNT(*) FROM FtpNodes"_s), u"0"_s);
    QVERIFY_EXCEPTION_THROWN((void)scratch_->rows(u"SELECT Trim FROM Printers"_s), std::runtime_error);
}

void TestSteps::refusesANewerOne() {
    scratch_->run(u"UPDATE SchemaVersion SET Version = 99"_s);
    scratch_->run(u"ALTER TABLE Printers DROP COLUMN Trim"_s);
    const auto known = std::to_string(schema::currentVersion());
    const std::string refusal =
        "The tables are of version 99, newer than the version " + known + " that this program knows";
    QCOMPARE(whyNot([this] { (void)schema::upgrade(*connection_); }), refusal);
    QCOMPARE(whyNot([this] { schema::requireUpgraded(*connection_, {}); }), refusal);
    QVERIFY_EXCEPTION_THROWN((void)scratch_->rows(u"SELECT Trim FROM Printers"_s), std::runtime_error);
}

void TestSteps::refusesWhatItCannotAdd() {
    scratch_->run(u"DROP TABLE SchemaVersion"_s);
    scratch_->run(u"DROP TABLE DicomNodes"_s);
    scratch_->run(
        u"CREATE TABLE DicomNodes (Name VARCHAR(16), AETitle VARCHAR(16), LocalAETitle VARCHAR(16),"
        " Host VARCHAR(64), Port VARCHAR(16), Store INTEGER, Query INTEGER, Print INTEGER)"_s);
    QCOMPARE(
        whyNot([this] { (void)schema::upgrade(*connection_); }),
        std::string{"DicomNodes lacks the unique key (Name without case), which cannot be added: copy the "
                    "database into a new one instead"});
    QVERIFY(!connection_->hasTable("SchemaVersion"));
}

void TestSteps::asksForAnUpgrade_data() {
    QTest::addColumn<QString>("change");
    QTest::addColumn<QString>("why");
    QTest::newRow("nothing lacks") << u"DROP TABLE SchemaVersion"_s << u"nothing was thrown"_s;
    QTest::newRow("a column") << u"ALTER TABLE Image DROP COLUMN InstanceNumber"_s
                              << u"Image lacks the column InstanceNumber for text: run tessaly-db upgrade"_s;
    QTest::newRow("a table") << u"DROP TABLE Image"_s
                             << u"The table Image is missing: run tessaly-db upgrade"_s;
    QTest::newRow("an index") << u"DROP INDEX ImageBySeries"_s << u"nothing was thrown"_s;
    QTest::newRow("somebody else's column")
        << u"ALTER TABLE Printers DROP COLUMN Trim"_s << u"nothing was thrown"_s;
}

void TestSteps::asksForAnUpgrade() {
    QFETCH(QString, change);
    QFETCH(QString, why);
    scratch_->run(change);
    QCOMPARE(QString::fromStdString(whyNot([this] {
                 schema::requireUpgraded(*connection_, {"Port", "image"});
             })),
             why);
}

QTEST_GUILESS_MAIN(TestSteps)
#include "tst_steps.moc"
