#include <QDir>
#include <QProgressBar>
#include <QRandomGenerator>
#include <QTest>

#include "console/maintenance/frmRepairDB.h"
#include "console/session/Globals.h"
#include "tests/console/maintenance/RepairTest.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

/// The pass itself: what goes, what stays, how it is shown and stopped.
class RepairPassTest : public RepairTest {
    Q_OBJECT

  private Q_SLOTS:
    void theFormShowsTheProgress();
    void theBarEndsAtItsEnd();
    void aStopOfBeforeIsForgotten();
    void anEmptyArchiveGoesOnToTheQuestion();
    void aSoundArchiveLosesNothing();
    void anImageWithoutSeriesGoesSilently();
    void anImageWithoutStudyGoesSilently();
    void anImageWithoutFileIsAnnouncedOneByOne();
    void anImageWithoutAWholePathIsAnnounced_data();
    void anImageWithoutAWholePathIsAnnounced();
    void onePassTakesTheWholeChain();
    void aStudyWithAnotherSeriesStays();
    void stopAfterTheCurrentRowSkipsTheOtherChecks();
    void escapeAndCloseAreStop_data();
    void escapeAndCloseAreStop();
    void aSecondClickStartsNoSecondPass();
    void aFailedRemovalEndsTheConsole();
    void aFailedCountEndsTheConsole();
    void stoppedAnywhereASecondPassFinishes();
};

void RepairPassTest::theFormShowsTheProgress() {
    archive().addWholePatient(1, 1);  // one patient, one study, two series, four images: 12.5 % a row
    QList<int> values;
    afterFirstRow([&] {
        QWidget& form = repairForm().window();
        auto& bar = repairForm().find<QProgressBar>(u"prgBar"_s);
        QCOMPARE(form.windowTitle(), u"Repair DB"_s);
        QVERIFY(form.isVisible());
        QVERIFY(!form.isModal());
        QVERIFY(manager().isEnabled());
        QVERIFY(bar.isVisible());
        QCOMPARE(bar.minimum(), 0);
        QCOMPARE(bar.maximum(), 100);
        QCOMPARE(repairForm().text(u"cmdStop"_s), u"Stop"_s);
        QCOMPARE(repairForm().text(u"lblWait"_s), u"Wait... Compacting DB"_s);
        QVERIFY(!repairForm().find(u"lblWait"_s).isVisible());
        values << bar.value();
        QObject::connect(&bar, &QProgressBar::valueChanged, &bar, [&](int value) { values << value; });
    });
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(values, (QList<int>{12, 25, 37, 50, 62, 75, 87, 100}));
    QVERIFY(manager().findChild<QWidget*>(u"frmRepairDB"_s) == nullptr);
}

void RepairPassTest::theBarEndsAtItsEnd() {
    // Nobody has counted the rows.
    archive().addPatient(1);
    archive().addPatient(2);
    maintenance::frmRepairDB form{manager(), nullptr};
    form.CheckPatients();
    QCOMPARE(archive().keys(), QStringList{});
    QCOMPARE(Form{form}.find<QProgressBar>(u"prgBar"_s).value(), 100);
}

void RepairPassTest::aStopOfBeforeIsForgotten() {
    archive().addPatient(1);
    maintenance::frmRepairDB form{manager(), nullptr};
    form.show();
    Form{form}.click(u"cmdStop"_s);
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    form.Repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive().keys(), QStringList{});
}

void RepairPassTest::anEmptyArchiveGoesOnToTheQuestion() {
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QVERIFY(Globals::DbConnection().isOpen());
    QVERIFY(!takeConsoleEnd());
}

void RepairPassTest::aSoundArchiveLosesNothing() {
    archive().addWholePatient(1, 2);
    archive().addWholePatient(2, 1);
    const QStringList before = archive().keys();
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive().keys(), before);
}

void RepairPassTest::anImageWithoutSeriesGoesSilently() {
    archive().addWholePatient(1, 1);
    const QStringList before = archive().keys();
    archive().addImage(u"stray"_s, u"no such series"_s);
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive().keys(), before);
}

void RepairPassTest::anImageWithoutStudyGoesSilently() {
    archive().addSeries(u"orphan"_s, u"no such study"_s);
    archive().addImage(u"stray"_s, u"orphan"_s);
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive().keys(), QStringList{});
}

void RepairPassTest::anImageWithoutFileIsAnnouncedOneByOne() {
    archive().addWholePatient(1, 1);
    const QStringList before = archive().keys();
    archive().addImage(u"lost one"_s, u"1.1.1"_s);
    archive().addImage(u"lost two"_s, u"1.1.2"_s);
    BoxScript script;
    script.expect(plain(Missing)).expect(plain(Missing)).expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive().keys(), before);
}

void RepairPassTest::anImageWithoutAWholePathIsAnnounced_data() {
    QTest::addColumn<QString>("change");
    QTest::newRow("file") << u"UPDATE Image SET ImageFile=NULL WHERE SOPInstanceUID='2.1.1.1'"_s;
    QTest::newRow("series") << u"UPDATE Series SET SeriesDir=NULL WHERE SeriesInstanceUID='2.1.1'"_s;
    QTest::newRow("study") << u"UPDATE Study SET StudyPath=NULL WHERE StudyInstanceUID='2.1'"_s;
}

/// In a database from elsewhere, whose columns may be without a value.
void RepairPassTest::anImageWithoutAWholePathIsAnnounced() {
    QFETCH(QString, change);
    for (const QString& table : {u"Image"_s, u"Series"_s, u"Study"_s})
        database().run(u"DROP TABLE "_s + table);
    database().define(
        u"CREATE TABLE Study (StudyInstanceUID VARCHAR(64), IDPatient INTEGER, StudyPath VARCHAR(255))"_s);
    database().define(
        u"CREATE TABLE Series (SeriesInstanceUID VARCHAR(64), StudyInstanceUID VARCHAR(64), SeriesDir "
        "VARCHAR(64))"_s);
    database().define(
        u"CREATE TABLE Image (SOPInstanceUID VARCHAR(64), SeriesInstanceUID VARCHAR(64), ImageFile "
        "VARCHAR(128))"_s);
    archive().addWholePatient(1, 1);
    const QStringList sound = archive().keys();
    archive().addPatient(2);
    archive().addStudy(u"2.1"_s, 2);
    archive().addSeries(u"2.1.1"_s, u"2.1"_s);
    archive().addImage(u"2.1.1.1"_s, u"2.1.1"_s);
    archive().addFile(u"2.1"_s, u"2.1.1"_s, u"2.1.1.1"_s);
    archive().addImage(u"stray"_s, u"no such series"_s);  // which goes silently
    database().run(change);
    BoxScript script;
    script.expect(plain(Missing)).expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive().keys(), sound);
}

void RepairPassTest::onePassTakesTheWholeChain() {
    archive().addWholePatient(1, 1);
    archive().addWholePatient(2, 1);
    QVERIFY(QDir{database().imageRoot() + u"/2.1"_s}.removeRecursively());
    BoxScript script;
    for (int image = 0; image < 4; ++image)
        script.expect(plain(Missing));
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive().keys(),
             (QStringList{u"image 1.1.1.1"_s, u"image 1.1.1.2"_s, u"image 1.1.2.1"_s, u"image 1.1.2.2"_s,
                          u"patient 1"_s, u"series 1.1.1"_s, u"series 1.1.2"_s, u"study 1.1"_s}));
}

void RepairPassTest::aStudyWithAnotherSeriesStays() {
    archive().addWholePatient(1, 1);
    QVERIFY(QDir{database().imageRoot() + u"/1.1/1.1.2"_s}.removeRecursively());
    BoxScript script;
    script.expect(plain(Missing)).expect(plain(Missing)).expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive().keys(), (QStringList{u"image 1.1.1.1"_s, u"image 1.1.1.2"_s, u"patient 1"_s,
                                            u"series 1.1.1"_s, u"study 1.1"_s}));
}

void RepairPassTest::stopAfterTheCurrentRowSkipsTheOtherChecks() {
    archive().addPatient(1);  // without studies: the last check would remove it
    archive().addImage(u"stray one"_s, u"gone"_s);
    archive().addImage(u"stray two"_s, u"gone"_s);
    afterFirstRow([this] { repairForm().click(u"cmdStop"_s); });
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive().keys(), (QStringList{u"image stray two"_s, u"patient 1"_s}));
}

void RepairPassTest::escapeAndCloseAreStop_data() {
    QTest::addColumn<bool>("close");
    QTest::newRow("Escape") << false;
    QTest::newRow("the window's close button") << true;
}

void RepairPassTest::escapeAndCloseAreStop() {
    QFETCH(bool, close);
    archive().addPatient(1);
    archive().addPatient(2);
    afterFirstRow([&] {
        QWidget& form = repairForm().window();
        if (close)
            form.close();
        else
            QTest::keyClick(&form, Qt::Key_Escape);
        QVERIFY(form.isVisible());
    });
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive().keys(), QStringList{u"patient 2"_s});
    QVERIFY(!takeConsoleEnd());
}

void RepairPassTest::aSecondClickStartsNoSecondPass() {
    archive().addWholePatient(1, 2);
    int forms = 0;
    afterFirstRow([&] {
        repair();
        forms = static_cast<int>(manager().findChildren<maintenance::frmRepairDB*>().size());
    });
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));  // once
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(forms, 1);
}

void RepairPassTest::aFailedRemovalEndsTheConsole() {
    for (const QString& image : {u"a"_s, u"b"_s, u"c"_s})
        archive().addImage(image, u"gone"_s);
    archive().addPatient(1);
    database().failOn(u"Image"_s, u"DELETE"_s, ScratchDatabase::Failure, u"OLD.SOPInstanceUID = 'b'"_s);
    BoxScript script;
    script.expect(critical(BoxScript::AnyText));
    repair();
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(ScratchDatabase::Failure));
    QCOMPARE(takeConsoleEnd(), 1);
    QCOMPARE(archive().keys(), (QStringList{u"image b"_s, u"image c"_s, u"patient 1"_s}));
    QVERIFY(manager().findChild<QWidget*>(u"frmRepairDB"_s) == nullptr);
}

void RepairPassTest::aFailedCountEndsTheConsole() {
    archive().addImage(u"a"_s, u"gone"_s);
    database().run(u"DROP TABLE Patient"_s);
    BoxScript script;
    script.expect(critical(BoxScript::AnyText));
    repair();
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(database().noTable(u"Patient"_s)));
    QCOMPARE(takeConsoleEnd(), 1);
    QCOMPARE(database().value(u"SELECT count(*) FROM Image"_s), u"1"_s);
}

void RepairPassTest::stoppedAnywhereASecondPassFinishes() {
    constexpr int Rounds = 20;
    QRandomGenerator random{62};
    for (int round = 0; round < Rounds; ++round) {
        cleanup();
        init();
        archive().addWholePatient(1, 1);
        const QStringList sound = archive().keys();
        // Whole chains without files, without images, without anything.
        for (int id = 2; id < 6; ++id) {
            archive().addPatient(id);
            archive().addStudy(u"st%1"_s.arg(id), id);
            archive().addSeries(u"se%1"_s.arg(id), u"st%1"_s.arg(id));
            archive().addImage(u"im%1"_s.arg(id), id % 2 == 0 ? u"se%1"_s.arg(id) : u"gone"_s);
        }
        const int stopAt = random.bounded(25);
        int boxes = 0;
        int turns = 0;
        const RepairUser user{[&](const QString& text) {
                                  boxes += text == Missing ? 1 : 0;
                                  return text == Missing ? QMessageBox::Ok : QMessageBox::No;
                              },
                              [&] {
                                  if (++turns == stopAt)
                                      repairForm().click(u"cmdStop"_s);
                              }};
        repair();
        repair();
        QCOMPARE(archive().keys(), sound);
        QCOMPARE(boxes, 2);
        QVERIFY(!takeConsoleEnd());
    }
}

QTEST_MAIN(RepairPassTest)
#include "tst_repair.moc"
