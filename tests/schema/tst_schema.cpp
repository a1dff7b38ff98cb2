#include <QTest>
#include <algorithm>
#include <stdexcept>

#include "db/Error.h"
#include "db/Query.h"
#include "db/dialects/Dialect.h"
#include "schema/Catalogue.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

class TestSchema : public QObject {
    Q_OBJECT
  private slots:
    void init();
    void cleanup();
    void splitsStatements();
    void knowsItsEngines();
    void makesEveryTable();
    void listsWhatItMade_data();
    void listsWhatItMade();
    void everyEngineHasTheSame();
    void whatIsExpectedIsWhatIsMade();
    void takesTheTextApart();
    void keysCompareWithoutCase_data();
    void keysCompareWithoutCase();
    void usersSortByUser();

  private:
    std::unique_ptr<test::ScratchDatabase> scratch_;
    std::unique_ptr<db::Connection> connection_;
};

void makeTables(const db::Connection& connection) {
    for (const auto& statement : schema::statements(schema::engine(connection).tables))
        db::execute(connection, statement);
}

/// What the catalogue says, sorted. In lower case: engines differ in how they keep a name.
QStringList factsOf(const db::Connection& connection) {
    QStringList facts;
    db::Query query{connection, std::string{schema::engine(connection).catalogue}};
    auto rows = query.open();
    while (rows.next())
        facts += QString::fromStdString(rows.text("TableName") + ": " + rows.text("Fact")).toLower();
    facts.sort();
    return facts;
}

}  // namespace

void TestSchema::init() {
    scratch_ = std::make_unique<test::ScratchDatabase>(test::ScratchDatabase::Content::Empty);
    connection_ = std::make_unique<db::Connection>();
    connection_->setConnectString("DSN=DicomFDB");
    connection_->establish();
    makeTables(*connection_);
}

void TestSchema::cleanup() {
    connection_.reset();
    scratch_.reset();
}

void TestSchema::splitsStatements() {
    const std::vector<std::string> expected{"CREATE TABLE a (\n  b INTEGER \n)", "DROP TABLE a"};
    QCOMPARE(schema::statements("-- first; not a statement\n\nCREATE TABLE a (\n  b INTEGER -- a; b\n);\n\n"
                                "DROP TABLE a;\n;\n  "),
             expected);
    QVERIFY(schema::statements("").empty());
    QCOMPARE(schema::statements("SELECT 1"), std::vector<std::string>{"SELECT 1"});
}

void TestSchema::knowsItsEngines() {
    QCOMPARE(schema::engine(*connection_).name, connection_->dialect().engineName());
    QCOMPARE(&schema::engine("sqlite"), &schema::engine("SQLite"));
    QVERIFY_EXCEPTION_THROWN((void)schema::engine("Abacus"), std::runtime_error);
}

void TestSchema::makesEveryTable() {
    for (const char* table : {"DicomServer", "SiteData", "DicomNodes", "FtpNodes", "Port", "PortRemoteNodes",
                              "Printers", "Users", "Patient", "Study", "Series", "Image", "Job", "JobItem"})
        QVERIFY2(connection_->hasTable(table), table);
}

void TestSchema::listsWhatItMade_data() {
    QTest::addColumn<QString>("fact");
    for (const auto* fact :
         {"Image: the table", "Users: the column DcmAdmin for numbers", "Users: the column User for text",
          "Users: the unique key (UserName without case)", "Patient: the unique key (ID)",
          "PortRemoteNodes: the unique key (Name without case, Port without case)",
          "Image: an index for look-ups by SeriesInstanceUID", "Study: an index for look-ups by IDPatient",
          "Series: an index for look-ups by StudyInstanceUID"})
        QTest::newRow(fact) << QString::fromLatin1(fact);
}

void TestSchema::listsWhatItMade() {
    QFETCH(QString, fact);
    const auto facts = factsOf(*connection_);
    QVERIFY2(facts.contains(fact.toLower()), qPrintable(facts.join(u'\n')));
}

void TestSchema::everyEngineHasTheSame() {
    db::Connection sqlite;
    sqlite.setConnectString("Driver=SQLite3;Database=:memory:");
    sqlite.establish();
    makeTables(sqlite);
    QVERIFY(factsOf(sqlite).size() > 100);
    QCOMPARE(factsOf(*connection_), factsOf(sqlite));
}

void TestSchema::whatIsExpectedIsWhatIsMade() {
    const auto definitions = schema::definitions(schema::engine(*connection_));
    QStringList expected;
    for (const auto& [table, facts] : schema::expectedCatalogue(definitions))
        for (const auto& fact : facts)
            expected += (QString::fromStdString(table) + u": "_s + QString::fromStdString(fact)).toLower();
    expected.sort();
    QCOMPARE(expected, factsOf(*connection_));
}

void TestSchema::takesTheTextApart() {
    const auto definitions = schema::definitions(schema::engine(*connection_));
    const auto* users = schema::findTable(definitions, "users");
    QVERIFY(users != nullptr);
    QCOMPARE(users->key, std::vector<std::string>{"UserName"});
    QCOMPARE(users->columns.size(), std::size_t{15});
    const auto* name = schema::findColumn(*users, "USERNAME");
    QVERIFY(name != nullptr && name->required && name->withoutCase && !name->generated);
    QCOMPARE(name->width, std::optional{16});
    const auto* user = schema::findColumn(*users, "User");
    QVERIFY(user != nullptr && user->generated);
    const auto* flag = schema::findColumn(*users, "DcmAdmin");
    QVERIFY(flag != nullptr && !flag->width && flag->required);
    const auto* pairs = schema::findTable(definitions, "PortRemoteNodes");
    QVERIFY(pairs != nullptr);
    QCOMPARE(pairs->key, (std::vector<std::string>{"Port", "Name"}));
    QCOMPARE(pairs->columns.size(), std::size_t{2});
    QVERIFY(schema::findTable(definitions, "none") == nullptr);
    QVERIFY(schema::findColumn(*users, "none") == nullptr);
    const auto unique = std::find_if(definitions.indexes.begin(), definitions.indexes.end(),
                                     [](const schema::Index& index) { return index.unique; });
    QVERIFY(unique != definitions.indexes.end());
    QCOMPARE(unique->name, std::string{"PatientByPatientID"});
    QCOMPARE(unique->table, std::string{"Patient"});
    QCOMPARE(unique->columns, std::vector<std::string>{"PatientID"});
    QCOMPARE(definitions.rows.size(), std::size_t{1});
}

void TestSchema::keysCompareWithoutCase_data() {
    QTest::addColumn<QString>("insert");
    QTest::newRow("node") << u"INSERT INTO DicomNodes (Name) VALUES (?)"_s;
    QTest::newRow("FTP node") << u"INSERT INTO FtpNodes (Name) VALUES (?)"_s;
    QTest::newRow("port")
        << u"INSERT INTO Port (Port, AETitle, MaxConnections, Root) VALUES (?, '', 1, '')"_s;
    QTest::newRow("accepted node") << u"INSERT INTO PortRemoteNodes (Port, Name) VALUES ('104', ?)"_s;
    QTest::newRow("printer") << u"INSERT INTO Printers (Name) VALUES (?)"_s;
    QTest::newRow("user") << u"INSERT INTO Users (UserName) VALUES (?)"_s;
}

void TestSchema::keysCompareWithoutCase() {
    QFETCH(QString, insert);
    db::execute(*connection_, insert.toStdString(), {db::varchar("Alpha")});
    int number = 0;
    try {
        db::execute(*connection_, insert.toStdString(), {db::varchar("ALPHA")});
    } catch (const db::Error& error) {
        number = error.Number();
    }
    QCOMPARE(number, db::Error::DuplicateKeyNumber);
}

void TestSchema::usersSortByUser() {
    for (const char* name : {"cara", "Anna", "bert"})
        db::execute(*connection_, "INSERT INTO Users (UserName) VALUES (?)", {db::varchar(name)});
    QStringList names;
    db::Query query{*connection_, "SELECT UserName FROM Users ORDER BY User"};
    auto rows = query.open();
    while (rows.next())
        names += QString::fromStdString(rows.text("UserName"));
    QCOMPARE(names, QStringList({u"Anna"_s, u"bert"_s, u"cara"_s}));
}

QTEST_GUILESS_MAIN(TestSchema)
#include "tst_schema.moc"
