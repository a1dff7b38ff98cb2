#include <fcntl.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QAbstractButton>
#include <QDir>
#include <QFile>
#include <QProgressBar>
#include <QRandomGenerator>
#include <QTest>
#include <QTimer>

#include "console/app/TessalyManager.h"
#include "console/maintenance/frmRepairDB.h"
#include "console/session/Globals.h"
#include "console/ui/ConsoleEnd.h"
#include "tests/console/maintenance/Archive.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const QString Question =
    u"The Tessaly must now be stopped to compact the Database\rDo you want to proceed?"_s;
const QString Missing = u"Non existing file"_s;

/// A user who is called in every turn of the event loop: for what a script of boxes in a fixed order cannot
/// say.
class User : public QTimer {
  public:
    /// `onBox` gives the button to be clicked on a box that stands; `onTurn` is called when none does.
    User(std::function<QMessageBox::StandardButton(const QString& text)> onBox,
         std::function<void()> onTurn) {
        connect(this, &QTimer::timeout, this, [onBox = std::move(onBox), onTurn = std::move(onTurn)] {
            if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget()))
                box->button(onBox(box->text()))->click();
            else
                onTurn();
        });
        start(0);
    }
};

}  // namespace

class RepairTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void cleanup();

    void theFormShowsTheProgress();
    void theBarEndsAtItsEnd();
    void aStopOfBeforeIsForgotten();
    void anEmptyArchiveGoesOnToTheQuestion();
    void aSoundArchiveLosesNothing();
    void anImageWithoutSeriesGoesSilently();
    void anImageWithoutStudyGoesSilently();
    void anImageWithoutFileIsAnnouncedOneByOne();
    void whatCountsAsAFile_data();
    void whatCountsAsAFile();
    void aFileThatCannotBeLookedUpEndsThePass();
    void onePassTakesTheWholeChain();
    void aStudyWithAnotherSeriesStays();
    void stopAfterTheCurrentRowSkipsTheOtherChecks();
    void escapeAndCloseAreStop_data();
    void escapeAndCloseAreStop();
    void aSecondClickStartsNoSecondPass();
    void theMainWindowStaysUsable();
    void closingTheMainWindowEndsThePassAndTheConsole();
    void aFailedRemovalEndsTheConsole();
    void aFailedCountEndsTheConsole();
    void aServerThatWritesMeanwhileDoesNoHarm();
    void nothingIsLockedWhileABoxWaits();
    void stoppedAnywhereASecondPassFinishes();

  private:
    [[nodiscard]] Form window() const { return Form{*window_}; }
    [[nodiscard]] Form repairForm() const {
        return Form{window().find<maintenance::frmRepairDB>(u"frmRepairDB"_s)};
    }
    void repair() const { window().trigger(u"mnuToolsRepair"_s); }
    /// Runs a body in the first event processing of a pass, that is after its first row.
    static void afterFirstRow(std::function<void()> body) { QTimer::singleShot(0, qApp, std::move(body)); }

    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<Archive> archive_;
    std::unique_ptr<TessalyManager> window_;
};

void RepairTest::init() {
    database_ = std::make_unique<ScratchDatabase>();
    archive_ = std::make_unique<Archive>(*database_);
    database_->openConsoleConnection();
    window_ = std::make_unique<TessalyManager>();
    window_->show();
}

void RepairTest::cleanup() {
    window_.reset();
    archive_.reset();
    database_.reset();
    (void)takeConsoleEnd();
}

void RepairTest::theFormShowsTheProgress() {
    archive_->addWholePatient(1, 1);  // one patient, one study, two series, four images: 12.5 % a row
    QList<int> values;
    afterFirstRow([&] {
        QWidget& form = repairForm().window();
        auto& bar = repairForm().find<QProgressBar>(u"prgBar"_s);
        QCOMPARE(form.windowTitle(), u"Repair DB"_s);
        QVERIFY(form.isVisible());
        QVERIFY(!form.isModal());
        QVERIFY(window_->isEnabled());
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
    QVERIFY(window_->findChild<QWidget*>(u"frmRepairDB"_s) == nullptr);
}

void RepairTest::theBarEndsAtItsEnd() {
    // Nobody has counted the rows.
    archive_->addPatient(1);
    archive_->addPatient(2);
    maintenance::frmRepairDB form{*window_, nullptr};
    form.CheckPatients();
    QCOMPARE(archive_->keys(), QStringList{});
    QCOMPARE(Form{form}.find<QProgressBar>(u"prgBar"_s).value(), 100);
}

void RepairTest::aStopOfBeforeIsForgotten() {
    archive_->addPatient(1);
    maintenance::frmRepairDB form{*window_, nullptr};
    form.show();
    Form{form}.click(u"cmdStop"_s);
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    form.Repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive_->keys(), QStringList{});
}

void RepairTest::anEmptyArchiveGoesOnToTheQuestion() {
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QVERIFY(Globals::DbConnection().isOpen());
    QVERIFY(!takeConsoleEnd());
}

void RepairTest::aSoundArchiveLosesNothing() {
    archive_->addWholePatient(1, 2);
    archive_->addWholePatient(2, 1);
    const QStringList before = archive_->keys();
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive_->keys(), before);
}

void RepairTest::anImageWithoutSeriesGoesSilently() {
    archive_->addWholePatient(1, 1);
    const QStringList before = archive_->keys();
    archive_->addImage(u"stray"_s, u"no such series"_s);
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive_->keys(), before);
}

void RepairTest::anImageWithoutStudyGoesSilently() {
    archive_->addSeries(u"orphan"_s, u"no such study"_s);
    archive_->addImage(u"stray"_s, u"orphan"_s);
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive_->keys(), QStringList{});
}

void RepairTest::anImageWithoutFileIsAnnouncedOneByOne() {
    archive_->addWholePatient(1, 1);
    const QStringList before = archive_->keys();
    archive_->addImage(u"lost one"_s, u"1.1.1"_s);
    archive_->addImage(u"lost two"_s, u"1.1.2"_s);
    BoxScript script;
    script.expect(plain(Missing)).expect(plain(Missing)).expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive_->keys(), before);
}

void RepairTest::whatCountsAsAFile_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("make");
    QTest::addColumn<bool>("kept");
    QTest::newRow("a file") << u"a.dcm"_s << u"touch a.dcm"_s << true;
    QTest::newRow("another case") << u"A.DCM"_s << u"touch a.dcm"_s << false;
    QTest::newRow("blanks and umlauts") << u" Röntgen 1 "_s << u"touch ' Röntgen 1 '"_s << true;
    QTest::newRow("a hidden file") << u".a"_s << u"touch .a"_s << false;
    QTest::newRow("a folder") << u"a"_s << u"mkdir a"_s << false;
    QTest::newRow("no name: the folder itself") << QString{} << u"true"_s << false;
    QTest::newRow("a file in a folder below") << u"b\\a"_s << u"mkdir b; touch b/a"_s << true;
    QTest::newRow("a file in a hidden folder") << u".b\\a"_s << u"mkdir .b; touch .b/a"_s << true;
    QTest::newRow("a hidden file in a folder") << u"b\\.a"_s << u"mkdir b; touch b/.a"_s << false;
    QTest::newRow("a file where a folder is asked") << u"a\\b"_s << u"touch a"_s << false;
    QTest::newRow("a link to a file") << u"l"_s << u"touch a; ln -s a l"_s << true;
    QTest::newRow("a link to nothing") << u"l"_s << u"ln -s a l"_s << false;
    QTest::newRow("a link to itself") << u"l"_s << u"ln -s l l"_s << false;
    QTest::newRow("a pipe") << u"p"_s << u"mkfifo p"_s << false;
    QTest::newRow("a pattern is a name") << u"*"_s << u"touch a"_s << false;
}

void RepairTest::whatCountsAsAFile() {
    QFETCH(QString, name);
    QFETCH(QString, make);
    QFETCH(bool, kept);
    archive_->addPatient(1);
    archive_->addStudy(u"st"_s, 1);
    archive_->addSeries(u"se"_s, u"st"_s);
    archive_->addImage(name, u"se"_s);
    const QString folder = database_->imageRoot() + u"/st/se"_s;
    QDir{}.mkpath(folder);
    QCOMPARE(std::system(u"cd '%1' && %2"_s.arg(folder, make).toUtf8().constData()), 0);
    BoxScript script;
    if (!kept)
        script.expect(plain(Missing));
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(database_->value(u"SELECT count(*) FROM Image"_s), kept ? u"1"_s : u"0"_s);
}

void RepairTest::aFileThatCannotBeLookedUpEndsThePass() {
    archive_->addWholePatient(1, 1);
    const QStringList before = archive_->keys();
    const QByteArray folder = database_->imageRoot().toUtf8();
    constexpr uid_t Nobody = 65534;
    // Root may look anywhere; nobody may not.
    QCOMPARE(chmod(folder.constData(), 0), 0);
    const int user = setfsuid(Nobody);
    BoxScript script;
    script.expect(critical(BoxScript::AnyText));
    repair();
    setfsuid(static_cast<uid_t>(user));
    QCOMPARE(chmod(folder.constData(), 0755), 0);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.endsWith(u"1.1.1.1: Permission denied"_s));
    QCOMPARE(takeConsoleEnd(), 1);
    QCOMPARE(archive_->keys(), before);
}

void RepairTest::onePassTakesTheWholeChain() {
    archive_->addWholePatient(1, 1);
    archive_->addWholePatient(2, 1);
    QVERIFY(QDir{database_->imageRoot() + u"/2.1"_s}.removeRecursively());
    BoxScript script;
    for (int image = 0; image < 4; ++image)
        script.expect(plain(Missing));
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive_->keys(),
             (QStringList{u"image 1.1.1.1"_s, u"image 1.1.1.2"_s, u"image 1.1.2.1"_s, u"image 1.1.2.2"_s,
                          u"patient 1"_s, u"series 1.1.1"_s, u"series 1.1.2"_s, u"study 1.1"_s}));
}

void RepairTest::aStudyWithAnotherSeriesStays() {
    archive_->addWholePatient(1, 1);
    QVERIFY(QDir{database_->imageRoot() + u"/1.1/1.1.2"_s}.removeRecursively());
    BoxScript script;
    script.expect(plain(Missing)).expect(plain(Missing)).expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive_->keys(), (QStringList{u"image 1.1.1.1"_s, u"image 1.1.1.2"_s, u"patient 1"_s,
                                            u"series 1.1.1"_s, u"study 1.1"_s}));
}

void RepairTest::stopAfterTheCurrentRowSkipsTheOtherChecks() {
    archive_->addPatient(1);  // without studies: the last check would remove it
    archive_->addImage(u"stray one"_s, u"gone"_s);
    archive_->addImage(u"stray two"_s, u"gone"_s);
    afterFirstRow([this] { repairForm().click(u"cmdStop"_s); });
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(archive_->keys(), (QStringList{u"image stray two"_s, u"patient 1"_s}));
}

void RepairTest::escapeAndCloseAreStop_data() {
    QTest::addColumn<bool>("close");
    QTest::newRow("Escape") << false;
    QTest::newRow("the window's close button") << true;
}

void RepairTest::escapeAndCloseAreStop() {
    QFETCH(bool, close);
    archive_->addPatient(1);
    archive_->addPatient(2);
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
    QCOMPARE(archive_->keys(), QStringList{u"patient 2"_s});
    QVERIFY(!takeConsoleEnd());
}

void RepairTest::aSecondClickStartsNoSecondPass() {
    archive_->addWholePatient(1, 2);
    int forms = 0;
    afterFirstRow([&] {
        repair();
        forms = static_cast<int>(window_->findChildren<maintenance::frmRepairDB*>().size());
    });
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));  // once
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(forms, 1);
}

void RepairTest::theMainWindowStaysUsable() {
    archive_->addWholePatient(1, 2);
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
    QCOMPARE(database_->value(u"SELECT Host FROM FtpNodes WHERE Name='x'"_s), u"x"_s);
}

void RepairTest::closingTheMainWindowEndsThePassAndTheConsole() {
    archive_->addPatient(1);
    archive_->addPatient(2);
    afterFirstRow([this] { window_->close(); });
    BoxScript script;  // and no question comes
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(takeConsoleEnd(), 0);
    QCOMPARE(archive_->keys(), QStringList{u"patient 2"_s});
    QVERIFY(Globals::DbConnection().isOpen());
}

void RepairTest::aFailedRemovalEndsTheConsole() {
    for (const QString& image : {u"a"_s, u"b"_s, u"c"_s})
        archive_->addImage(image, u"gone"_s);
    archive_->addPatient(1);
    database_->failOn(u"Image"_s, u"DELETE"_s, ScratchDatabase::Failure, u"OLD.SOPInstanceUID = 'b'"_s);
    BoxScript script;
    script.expect(critical(BoxScript::AnyText));
    repair();
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(ScratchDatabase::Failure));
    QCOMPARE(takeConsoleEnd(), 1);
    QCOMPARE(archive_->keys(), (QStringList{u"image b"_s, u"image c"_s, u"patient 1"_s}));
    QVERIFY(window_->findChild<QWidget*>(u"frmRepairDB"_s) == nullptr);
}

void RepairTest::aFailedCountEndsTheConsole() {
    archive_->addImage(u"a"_s, u"gone"_s);
    database_->run(u"DROP TABLE Patient"_s);
    BoxScript script;
    script.expect(critical(BoxScript::AnyText));
    repair();
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(u"no such table: Patient"_s));
    QCOMPARE(takeConsoleEnd(), 1);
    QCOMPARE(database_->value(u"SELECT count(*) FROM Image"_s), u"1"_s);
}

void RepairTest::aServerThatWritesMeanwhileDoesNoHarm() {
    archive_->addWholePatient(1, 1);
    const QStringList before = archive_->keys();
    for (const QString& image : {u"a"_s, u"b"_s, u"c"_s})
        archive_->addImage(image, u"gone"_s);
    afterFirstRow([this] {
        // What arrives while the pass runs is not walked, and its series is not taken for an empty one.
        archive_->addSeries(u"new series"_s, u"1.1"_s);
        archive_->addImage(u"new image"_s, u"new series"_s);
        archive_->addFile(u"1.1"_s, u"new series"_s, u"new image"_s);
    });
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QVERIFY(!takeConsoleEnd());
    QStringList after = before + QStringList{u"image new image"_s, u"series new series"_s};
    after.sort();
    QCOMPARE(archive_->keys(), after);
}

void RepairTest::nothingIsLockedWhileABoxWaits() {
    archive_->addWholePatient(1, 1);
    archive_->addImage(u"lost"_s, u"1.1.1"_s);
    database_->run(u"PRAGMA wal_checkpoint(TRUNCATE)"_s);
    QString busy;
    const User user{[&](const QString& text) {
                        if (text != Missing)
                            return QMessageBox::No;
                        database_->run(u"UPDATE SiteData SET Organization='x'"_s);
                        busy = database_->value(u"PRAGMA wal_checkpoint(TRUNCATE)"_s);
                        return QMessageBox::Ok;
                    },
                    [] {}};
    repair();
    QCOMPARE(busy, u"0"_s);  // a reader that held the log would make it 1
    QCOMPARE(database_->value(u"SELECT count(*) FROM Image"_s), u"4"_s);
}

void RepairTest::stoppedAnywhereASecondPassFinishes() {
    constexpr int Rounds = 20;
    QRandomGenerator random{62};
    for (int round = 0; round < Rounds; ++round) {
        cleanup();
        init();
        archive_->addWholePatient(1, 1);
        const QStringList sound = archive_->keys();
        // Whole chains without files, without images, without anything.
        for (int id = 2; id < 6; ++id) {
            archive_->addPatient(id);
            archive_->addStudy(u"st%1"_s.arg(id), id);
            archive_->addSeries(u"se%1"_s.arg(id), u"st%1"_s.arg(id));
            archive_->addImage(u"im%1"_s.arg(id), id % 2 == 0 ? u"se%1"_s.arg(id) : u"gone"_s);
        }
        const int stopAt = random.bounded(25);
        int boxes = 0;
        int turns = 0;
        const User user{[&](const QString& text) {
                            boxes += text == Missing ? 1 : 0;
                            return text == Missing ? QMessageBox::Ok : QMessageBox::No;
                        },
                        [&] {
                            if (++turns == stopAt)
                                repairForm().click(u"cmdStop"_s);
                        }};
        repair();
        repair();
        QCOMPARE(archive_->keys(), sound);
        QCOMPARE(boxes, 2);
        QVERIFY(!takeConsoleEnd());
    }
}

QTEST_MAIN(RepairTest)
#include "tst_repair.moc"
