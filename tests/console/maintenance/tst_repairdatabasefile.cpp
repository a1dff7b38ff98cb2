// What the repair owes to the database that is a file: its log, its lock, the order of its rows.

#include <QTest>
#include <thread>

#include "console/maintenance/frmRepairDB.h"
#include "tests/console/maintenance/RepairTest.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace tessaly;
using namespace tessaly::test;

class RepairDatabaseFileTest : public RepairTest {
    Q_OBJECT

  private Q_SLOTS:
    void theRowsGoInTheOrderOfTheirTable();
    void nothingIsLockedWhileABoxWaits();
    void nothingIsLockedWhileADialogWaitsInTheMiddleOfTheReading();
    void anOwnerThatIsJustGettingSomethingStays();
};

void RepairDatabaseFileTest::theRowsGoInTheOrderOfTheirTable() {
    // Neither the keys nor any index know this order.
    for (const int id : {3, 1, 2})
        archive().addPatient(id);
    for (const QString& name : {u"z"_s, u"a"_s, u"m"_s}) {
        archive().addStudy(u"study "_s + name, 9);
        archive().addImage(u"image "_s + name, u"gone"_s);
    }
    database().run(u"CREATE TABLE Gone (Row TEXT)"_s);
    for (const QString& key : {u"Image SOPInstanceUID"_s, u"Study StudyInstanceUID"_s, u"Patient ID"_s})
        database().run(
            u"CREATE TRIGGER gone_%1 AFTER DELETE ON %1 BEGIN INSERT INTO Gone VALUES (OLD.%2); "
            "END"_s.arg(key.section(u' ', 0, 0), key.section(u' ', 1)));
    QList<QStringList> order;
    for (const QString& rows : {u"SOPInstanceUID, Image.* FROM Image"_s,
                                u"StudyInstanceUID, Study.* FROM Study"_s, u"ID, Patient.* FROM Patient"_s}) {
        for (const QStringList& row : database().rows(u"SELECT "_s + rows))
            order << QStringList{row.first()};
    }
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(order.front(), QStringList{u"image z"_s});
    QCOMPARE(database().rows(u"SELECT Row FROM Gone ORDER BY rowid"_s), order);
}

void RepairDatabaseFileTest::nothingIsLockedWhileABoxWaits() {
    archive().addWholePatient(1, 1);
    archive().addImage(u"lost"_s, u"1.1.1"_s);
    database().run(u"PRAGMA wal_checkpoint(TRUNCATE)"_s);
    QString busy;
    const RepairUser user{[&](const QString& text) {
                              if (text != Missing)
                                  return QMessageBox::No;
                              database().run(u"UPDATE SiteData SET Organization='x'"_s);
                              busy = database().value(u"PRAGMA wal_checkpoint(TRUNCATE)"_s);
                              return QMessageBox::Ok;
                          },
                          [] {}};
    repair();
    QCOMPARE(busy, u"0"_s);  // a reader that held the log would make it 1
    QCOMPARE(database().value(u"SELECT count(*) FROM Image"_s), u"4"_s);
}

void RepairDatabaseFileTest::nothingIsLockedWhileADialogWaitsInTheMiddleOfTheReading() {
    // So many that the pass lets events in before it has read them all.
    constexpr int Images = 250;
    for (int image = 0; image < Images; ++image)
        archive().addImage(QString::number(image), u"gone"_s);
    database().run(u"PRAGMA wal_checkpoint(TRUNCATE)"_s);
    bool reading = false;
    afterFirstRow([&] {
        reading = database().value(u"SELECT count(*) FROM Image"_s) == QString::number(Images);
        database().run(
            u"UPDATE SiteData SET Organization='x'"_s);  // a server's write since the reading began
        window().click(u"cmdFTPAdd"_s);
    });
    QString busy;
    BoxScript script;
    script.drive(u"FTPNode"_s, [&](Form form) {
        busy = database().value(u"PRAGMA wal_checkpoint(TRUNCATE)"_s);
        archive().addImage(u"late"_s, u"gone"_s);
        for (const auto& name :
             {u"txtName"_s, u"txtHost"_s, u"txtUser"_s, u"txtPassword"_s, u"txtDestination"_s})
            form.type(name, u"x"_s);
        form.click(u"cmdOk"_s);
    });
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QVERIFY(reading);
    QCOMPARE(busy, u"0"_s);
    QCOMPARE(database().value(u"SELECT Host FROM FtpNodes WHERE Name='x'"_s), u"x"_s);
    QCOMPARE(archive().keys(), QStringList{});  // the late one too: the reading began anew
}

void RepairDatabaseFileTest::anOwnerThatIsJustGettingSomethingStays() {
    // The server's transaction is under way when the row is judged, and ends while its removal waits.
    using Check = void (maintenance::frmRepairDB::*)();
    struct Case {
        QString statement;
        Check check;
        QString owner;
    };
    for (
        const Case& one :
        {Case{
             u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile) VALUES ('i', 'empty', 'i')"_s,
             &maintenance::frmRepairDB::CheckSeries, u"series empty"_s},
         Case{
             u"INSERT INTO Series (SeriesInstanceUID, StudyInstanceUID, SeriesDir) VALUES ('s', 'bare', 's')"_s,
             &maintenance::frmRepairDB::CheckStudies, u"study bare"_s},
         Case{u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath) VALUES ('t', 7, 't')"_s,
              &maintenance::frmRepairDB::CheckPatients, u"patient 7"_s}}) {
        cleanup();
        init();
        archive().addWholePatient(1, 1);
        archive().addSeries(u"empty"_s, u"1.1"_s);
        archive().addStudy(u"bare"_s, 1);
        archive().addPatient(7);
        maintenance::frmRepairDB form{manager(), nullptr};
        database().run(u"BEGIN"_s);
        database().run(one.statement);
        std::thread server{[this] {
            std::this_thread::sleep_for(300ms);
            database().run(u"COMMIT"_s);
        }};
        (form.*one.check)();
        server.join();
        QVERIFY2(archive().keys().contains(one.owner), qPrintable(one.owner));
    }
}

QTEST_MAIN(RepairDatabaseFileTest)
#include "tst_repairdatabasefile.moc"
