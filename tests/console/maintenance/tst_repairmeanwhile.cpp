// The repair on an archive that others use meanwhile: the server, the main window, the user at a box.

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QTest>
#include <thread>

#include "console/maintenance/frmRepairDB.h"
#include "console/session/Globals.h"
#include "tests/console/maintenance/RepairTest.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace tessaly;
using namespace tessaly::test;

class RepairMeanwhileTest : public RepairTest {
    Q_OBJECT

  private Q_SLOTS:
    void theMainWindowStaysUsable();
    void closingTheMainWindowEndsThePassAndTheConsole();
    void aServerThatWritesMeanwhileDoesNoHarm();
    void anImageThatMovedSinceItWasReadStays();
    void whatHappensWhileABoxStandsCounts_data();
    void whatHappensWhileABoxStandsCounts();
    void aMoveAtTheMomentOfTheRemovalCounts();
};

void RepairMeanwhileTest::theMainWindowStaysUsable() {
    archive().addWholePatient(1, 2);
    afterFirstRow([this] {
        window().click(u"cmdFTPAdd"_s);  // a modal dialog in the middle of the pass
    });
    BoxScript script;
    script.drive(u"FTPNode"_s, [](Form form) {
        for (const auto& name :
             {u"txtName"_s, u"txtHost"_s, u"txtUser"_s, u"txtPassword"_s, u"txtDestination"_s})
            form.type(name, u"x"_s);
        form.click(u"cmdOk"_s);
    });
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT Host FROM FtpNodes WHERE Name='x'"_s), u"x"_s);
}

void RepairMeanwhileTest::closingTheMainWindowEndsThePassAndTheConsole() {
    archive().addPatient(1);
    archive().addPatient(2);
    afterFirstRow([this] { manager().close(); });
    BoxScript script;  // and no question comes
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(takeConsoleEnd(), 0);
    QCOMPARE(archive().keys(), QStringList{u"patient 2"_s});
    QVERIFY(Globals::DbConnection().isOpen());
}

void RepairMeanwhileTest::aServerThatWritesMeanwhileDoesNoHarm() {
    archive().addWholePatient(1, 1);
    const QStringList before = archive().keys();
    for (const QString& image : {u"a"_s, u"b"_s, u"c"_s})
        archive().addImage(image, u"gone"_s);
    afterFirstRow([this] {
        // What arrives while the pass runs is not walked, and its series is not taken for an empty one.
        archive().addSeries(u"new series"_s, u"1.1"_s);
        archive().addImage(u"new image"_s, u"new series"_s);
        archive().addFile(u"1.1"_s, u"new series"_s, u"new image"_s);
    });
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QVERIFY(!takeConsoleEnd());
    QStringList after = before + QStringList{u"image new image"_s, u"series new series"_s};
    after.sort();
    QCOMPARE(archive().keys(), after);
}

void RepairMeanwhileTest::anImageThatMovedSinceItWasReadStays() {
    archive().addWholePatient(1, 1);
    archive().addImage(u"moved"_s, u"1.1.1"_s);
    archive().addImage(u"moved, lost"_s, u"1.1.1"_s);
    archive().addImage(u"renamed, lost"_s, u"1.1.1"_s);
    archive().addImage(u"moved, astray"_s, u"1.1.1"_s);
    const QStringList before = archive().keys();
    afterFirstRow([this] {
        // As the server does it when the instance comes again in another series: the old file is gone.
        archive().addFile(u"1.1"_s, u"1.1.2"_s, u"moved"_s);
        database().run(u"UPDATE Image SET SeriesInstanceUID='1.1.2' WHERE SOPInstanceUID LIKE 'moved%'"_s);
        database().run(u"UPDATE Image SET SeriesInstanceUID='none' WHERE SOPInstanceUID='moved, astray'"_s);
        database().run(u"UPDATE Image SET ImageFile='other' WHERE SOPInstanceUID='renamed, lost'"_s);
    });
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));  // and no box before it
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive().keys(), before);
}

void RepairMeanwhileTest::whatHappensWhileABoxStandsCounts_data() {
    QTest::addColumn<QString>("statement");
    QTest::addColumn<bool>("fileComes");
    QTest::addColumn<bool>("kept");
    const QString none;
    QTest::newRow("nothing") << none << false << false;
    QTest::newRow("the file comes back") << none << true << true;
    QTest::newRow("the instance is stored again")
        << u"UPDATE Image SET InstanceNumber='2' WHERE SOPInstanceUID='lost'"_s << true << true;
    QTest::newRow("the image moves to a series that has its file")
        << u"UPDATE Image SET SeriesInstanceUID='1.1.2', ImageFile='1.1.2.1' WHERE SOPInstanceUID='lost'"_s
        << false << true;
    QTest::newRow("the image moves, and lacks its file there too")
        << u"UPDATE Image SET SeriesInstanceUID='1.1.2' WHERE SOPInstanceUID='lost'"_s << false << true;
    QTest::newRow("somebody else deletes the row")
        << u"DELETE FROM Image WHERE SOPInstanceUID='lost'"_s << true << false;
    QTest::newRow("its series goes") << u"DELETE FROM Series WHERE SeriesInstanceUID='1.1.1'"_s << false
                                     << false;
}

void RepairMeanwhileTest::whatHappensWhileABoxStandsCounts() {
    QFETCH(QString, statement);
    QFETCH(bool, fileComes);
    QFETCH(bool, kept);
    archive().addWholePatient(1, 1);
    archive().addImage(u"lost"_s, u"1.1.1"_s);
    int boxes = 0;
    const RepairUser user{[&](const QString& text) {
        if (text != Missing)
            return QMessageBox::No;
        ++boxes;
        if (!statement.isEmpty())
            database().run(statement);
        if (fileComes)
            archive().addFile(u"1.1"_s, u"1.1.1"_s, u"lost"_s);
        return QMessageBox::Ok;
    }};
    repair();
    QCOMPARE(boxes, 1);
    QVERIFY(!takeConsoleEnd());
    QCOMPARE(archive().keys().contains(u"image lost"_s), kept);
}

void RepairMeanwhileTest::aMoveAtTheMomentOfTheRemovalCounts() {
    // The server's transaction is under way when the row is judged, and ends while its removal waits.
    archive().addWholePatient(1, 1);
    archive().addImage(u"lost"_s, u"1.1.1"_s);
    maintenance::frmRepairDB form{manager(), nullptr};
    database().run(u"BEGIN"_s);
    database().run(
        u"UPDATE Image SET SeriesInstanceUID='1.1.2', ImageFile='1.1.2.1' WHERE SOPInstanceUID='lost'"_s);
    std::thread server;
    const RepairUser user{[&](const QString& /*text*/) {
        server = std::thread{[this] {
            std::this_thread::sleep_for(300ms);
            database().run(u"COMMIT"_s);
        }};
        return QMessageBox::Ok;
    }};
    form.CheckImages();
    QVERIFY(server.joinable());
    server.join();
    QVERIFY(archive().keys().contains(u"image lost"_s));
}

QTEST_MAIN(RepairMeanwhileTest)
#include "tst_repairmeanwhile.moc"
