#include <QLabel>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTest>
#include <QTimer>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "tests/console/server/FakeServer.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"
#include "tests/support/Eventually.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

/// The main window and a server process of its own.
class ServerProcessTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase() { fake_ = std::make_unique<FakeServer>(); }
    void cleanupTestCase() { fake_.reset(); }
    void init() {
        fake_->offer();
        database_ = std::make_unique<ScratchDatabase>();
        database_->openConsoleConnection();
        window_ = std::make_unique<TessalyManager>();
        window_->load();
        window_->show();
        window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(3);
    }
    void cleanup() {
        window_.reset();
        database_.reset();
        (void)takeConsoleEnd();
        fake_->endAll();
        EVENTUALLY(!fake_->runs());
    }

    void theWindowStartsTheServer();
    void theButtonsDriveTheServer();
    void terminateBringsAnotherProcess();
    void aKilledServerComesBack();
    void aCommandThatCrashesTheServer();
    void anAbsentServerIsAnErrorUntilItComes();
    void aHungServerLeavesTheWindowUsable();
    void aServerThatSwallowedCallsComesBack();
    void closingDoesNotWaitForAHungServer();
    void eventsShowInTheList();
    void aBurstIsCountedRight();
    void theLastEndsOfATerminatedServerCount();
    void rowsOfAKilledServerStay();

  private:
    [[nodiscard]] Form window() const { return Form{*window_}; }
    [[nodiscard]] QString state() const { return window().text(u"stsBarText1"_s); }
    [[nodiscard]] QList<QStringList> rows() const { return window().rows(u"lstStatus"_s); }
    [[nodiscard]] bool isEnabled(const QString& name) const { return window().find(name).isEnabled(); }

    std::unique_ptr<FakeServer> fake_;
    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<TessalyManager> window_;
};

void ServerProcessTest::theWindowStartsTheServer() {
    QVERIFY(fake_->runs());
    QCOMPARE(fake_->calls(), (QStringList{u"created"_s, u"IsService"_s}));
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
    QVERIFY(!isEnabled(u"cmdStart"_s) && isEnabled(u"cmdStop"_s) && isEnabled(u"cmdRestart"_s));
    fake_->tell(u"SetState"_s, {2});
    EVENTUALLY_COMPARE(state(), u"Stopped"_s);
    QVERIFY(isEnabled(u"cmdStart"_s) && !isEnabled(u"cmdStop"_s) && !isEnabled(u"cmdRestart"_s));
}

void ServerProcessTest::theButtonsDriveTheServer() {
    window_->RefreshServerState();
    window().click(u"cmdStop"_s);
    QCOMPARE(state(), u"Stopped"_s);
    window().click(u"cmdStart"_s);
    QCOMPARE(state(), u"Listening"_s);
    window().click(u"cmdRestart"_s);
    QCOMPARE(state(), u"Listening"_s);
    QCOMPARE(fake_->calls().mid(2), (QStringList{u"Stop"_s, u"Start"_s, u"Restart"_s}));
    BoxScript script;
    script.expect(yesNo(u"The service will be stopped: do you want to proceed?"_s, QMessageBox::Yes));
    window().click(u"chkService"_s);
    QVERIFY(script.isDone());
    QCOMPARE(fake_->calls().mid(5), (QStringList{u"RegisterService"_s, u"IsService"_s}));
}

void ServerProcessTest::terminateBringsAnotherProcess() {
    window_->RefreshServerState();
    for (int round = 0; round < 3; ++round) {
        const int process = fake_->process();
        window().click(u"cmdLoad"_s);
        QVERIFY(fake_->process() != process);
        QCOMPARE(state(), u"Listening"_s);  // at once: no "Error" in between
        QCOMPARE(window().text(u"cmdLoad"_s), u"Terminate"_s);
    }
    QCOMPARE(fake_->calls().count(u"Terminate"_s), 3);
    QCOMPARE(fake_->calls().count(u"created"_s), 4);
}

void ServerProcessTest::aKilledServerComesBack() {
    window_->RefreshServerState();
    fake_->kill(fake_->process());
    EVENTUALLY_COMPARE(fake_->calls().count(u"created"_s), 2);
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
}

void ServerProcessTest::aCommandThatCrashesTheServer() {
    window_->RefreshServerState();
    fake_->tell(u"SetCrashes"_s, {true});
    window().click(u"cmdRestart"_s);
    QCOMPARE(state(), u"Error"_s);
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
    QCOMPARE(fake_->calls().count(u"created"_s), 2);
}

void ServerProcessTest::anAbsentServerIsAnErrorUntilItComes() {
    fake_->withdraw();
    window_->RefreshServerState();
    const BoxScript noBox;
    fake_->kill(fake_->process());
    EVENTUALLY_COMPARE(state(), u"Error"_s);
    window().click(u"cmdLoad"_s);
    QCOMPARE(window().text(u"cmdLoad"_s), u"Run"_s);
    QVERIFY(!isEnabled(u"cmdStart"_s) && !isEnabled(u"cmdStop"_s) && !isEnabled(u"cmdRestart"_s));
    fake_->offer();
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
}

void ServerProcessTest::aHungServerLeavesTheWindowUsable() {
    window_->RefreshServerState();
    const int process = fake_->process();
    const int looksBefore = fake_->tell(u"Looks"_s).toInt();
    QSignalSpy looks{window_->findChild<QTimer*>(u"timerCheckConnections"_s), &QTimer::timeout};
    const BoxScript noBox;
    fake_->hang();
    EVENTUALLY_COMPARE(state(), u"Error"_s);
    QVERIFY(fake_->isHung(process));
    const auto looksUntilError = looks.size();
    EVENTUALLY(looks.size() >= looksUntilError + 3);
    QCOMPARE(state(), u"Error"_s);
    window().click(u"cmdLoad"_s);
    QCOMPARE(state(), u"Error"_s);
    QVERIFY(fake_->isHung(process));

    window_->setConnectionTimerEnabled(false);
    fake_->resume(process);
    // One look ran out of time, and left a question open behind it. The others asked at most that question
    // anew: there was nothing to wait for.
    const auto others = looks.size() - 1 + 1;  // the button's is one, too
    QVERIFY(fake_->tell(u"Looks"_s).toInt() <= looksBefore + 2 + others);
    window_->setConnectionTimerEnabled(true);
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
    QCOMPARE(fake_->process(), process);
    QVERIFY(isEnabled(u"cmdStop"_s));
}

void ServerProcessTest::aServerThatSwallowedCallsComesBack() {
    window_->RefreshServerState();
    QCOMPARE(state(), u"Listening"_s);
    const int process = fake_->process();
    const int looksBefore = fake_->tell(u"Looks"_s).toInt();
    fake_->tell(u"SetSwallows"_s, {2});  // the look that runs out of time, and the question behind it
    const BoxScript noBox;
    EVENTUALLY_COMPARE(state(), u"Error"_s);
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
    QCOMPARE(fake_->process(), process);
    // A second question behind it was answered before the window looked again.
    QVERIFY(fake_->tell(u"Looks"_s).toInt() >= looksBefore + 4);
}

void ServerProcessTest::closingDoesNotWaitForAHungServer() {
    window_->RefreshServerState();
    Globals::setConfigChanged(true);
    const int process = fake_->process();
    fake_->hang();
    BoxScript script;
    script.expect(yesNo(u"The server parameters have been modified. Do you want to restart the server?"_s,
                        QMessageBox::Yes));
    QVERIFY(window_->close());
    window_.reset();
    QVERIFY(fake_->isHung(process));
    QVERIFY(script.isDone());
    QCOMPARE(takeConsoleEnd(), std::optional{0});
}

void ServerProcessTest::eventsShowInTheList() {
    window_->setConnectionTimerEnabled(false);
    fake_->tell(u"Connect"_s, {u"104"_s, u"CT1"_s, u"TESSALY"_s, QVariant::fromValue<short>(9)});
    EVENTUALLY_COMPARE(rows(), (QList<QStringList>{{u"104"_s, u"CT1"_s, u"TESSALY"_s, u"1"_s}}));
    QCOMPARE(state(), u"Connected"_s);
    QCOMPARE(window().text(u"stsBarText2"_s), u"Num. Connections =9"_s);
    fake_->tell(u"Suspend"_s);
    EVENTUALLY_COMPARE(state(), u"Stopped"_s);
    fake_->tell(u"Begin"_s);
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
    fake_->tell(u"End"_s, {u"104"_s, u"CT1"_s, u"TESSALY"_s});
    EVENTUALLY_COMPARE(rows(), QList<QStringList>{});
}

void ServerProcessTest::aBurstIsCountedRight() {
    constexpr int Associations = 10'000;
    constexpr int Callers = 100;
    window_->RefreshServerState();
    fake_->tell(u"Burst"_s, {Associations, Callers});
    const auto counts = [this] {
        QStringList numbers;
        for (const QStringList& row : rows())
            numbers << row.last();
        return numbers;
    };
    EVENTUALLY_COMPARE(counts(), (QStringList{Callers, QString::number(Associations / Callers)}));
    fake_->tell(u"EndBurst"_s, {Associations - Callers, Callers});
    EVENTUALLY_COMPARE(counts(), (QStringList{Callers, u"1"_s}));
    fake_->tell(u"EndBurst"_s, {Callers, Callers});
    EVENTUALLY_COMPARE(rows().size(), 0);
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
}

void ServerProcessTest::theLastEndsOfATerminatedServerCount() {
    window_->setConnectionTimerEnabled(false);
    fake_->tell(u"Connect"_s, {u"104"_s, u"CT1"_s, u"TESSALY"_s, QVariant::fromValue<short>(1)});
    EVENTUALLY_COMPARE(rows().size(), 1);
    fake_->tell(u"SetEndsOnTerminate"_s, {u"104"_s, u"CT1"_s, u"TESSALY"_s});
    window().click(u"cmdLoad"_s);
    QCOMPARE(rows(), QList<QStringList>{});
}

void ServerProcessTest::rowsOfAKilledServerStay() {
    window_->RefreshServerState();
    fake_->tell(u"Connect"_s, {u"104"_s, u"CT1"_s, u"TESSALY"_s, QVariant::fromValue<short>(1)});
    EVENTUALLY_COMPARE(rows().size(), 1);
    fake_->kill(fake_->process());
    EVENTUALLY_COMPARE(fake_->calls().count(u"created"_s), 2);
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
    QCOMPARE(rows().size(), 1);
}

QTEST_MAIN(ServerProcessTest)
#include "tst_serverprocess.moc"
