#include <QLabel>
#include <QTest>
#include <QTimer>

#include "tests/console/server/ServerWindowTest.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Eventually.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

/// The server's commands and states in the main window.
class ServerControlTest : public ServerWindowTest {
    Q_OBJECT

  private Q_SLOTS:
    void captionsAndToolTips();
    void loadMakesTheServerFirst();
    void loadGoesOnWithoutAServer();
    void theTimerRefreshesOnceASecond();
    void statesSetButtonsAndStatusBar();
    void otherStateCodesChangeNothing_data();
    void otherStateCodesChangeNothing();
    void aFailedStatusDropsTheServer();
    void aRefusedCreationIsTriedOnceATick();
    void commandsCallAndRefresh_data();
    void commandsCallAndRefresh();
    void commandsIgnoreErrors_data();
    void commandsIgnoreErrors();
    void commandsWithoutAServerMakeOne();
    void terminateReloads();
    void terminateThatFailsReloadsToo();
    void runWithoutAServerToBeHad();
    void theMaintenanceMayTakeTheServerAway();

  private:
    /// Which of the three commands can be given.
    [[nodiscard]] QString commands() const {
        return (isEnabled(u"cmdStart"_s) ? u"start "_s : QString{}) +
               (isEnabled(u"cmdStop"_s) ? u"stop "_s : QString{}) +
               (isEnabled(u"cmdRestart"_s) ? u"restart "_s : QString{});
    }
    /// Panel 1's word and icon, panel 2.
    [[nodiscard]] QStringList statusBar() const {
        const auto& icon = window().find<QLabel>(u"stsBarIcon1"_s);
        return {window().text(u"stsBarText1"_s),
                icon.pixmap().isNull() ? u"no icon"_s : icon.property("key").toString(),
                window().text(u"stsBarText2"_s)};
    }
};

void ServerControlTest::captionsAndToolTips() {
    for (const QStringList& button :
         QList<QStringList>{{u"cmdStart"_s, u"Start"_s, u"Start server"_s},
                            {u"cmdStop"_s, u"Suspend"_s, u"Stop the server"_s},
                            {u"cmdRestart"_s, u"Restart"_s, u"Restart the server reloading configuration"_s},
                            {u"cmdLoad"_s, u"Terminate"_s, u"Terminate server"_s},
                            {u"chkService"_s, u"Run as service"_s, u""_s}}) {
        QCOMPARE(window().text(button.at(0)), button.at(1));
        QCOMPARE(window().find(button.at(0)).toolTip(), button.at(2));
        QVERIFY(window().find(u"frmComands"_s).isAncestorOf(&window().find(button.at(0))));
    }
}

void ServerControlTest::loadMakesTheServerFirst() {
    script_.service = true;
    window_ = std::make_unique<TessalyManager>(script_.factory());
    script_.calls.clear();
    window_->load();
    QCOMPARE(script_.calls, (QStringList{u"create"_s, u"IsService"_s}));
    QVERIFY(window().isChecked(u"chkService"_s));
    QVERIFY(isEnabled(u"chkService"_s));
}

void ServerControlTest::loadGoesOnWithoutAServer() {
    script_.refusesCreation = true;
    database_->run(u"INSERT INTO FtpNodes (Name) VALUES ('ftp')"_s);
    window_ = std::make_unique<TessalyManager>(script_.factory());
    script_.calls.clear();
    const BoxScript noBox;
    window_->load();
    QCOMPARE(script_.calls, QStringList{u"refuse"_s});
    QCOMPARE(window().text(u"cmdLoad"_s), u"Run"_s);
    QVERIFY(!isEnabled(u"chkService"_s));
    QCOMPARE(window().rows(u"lstFTPNodes"_s).size(), 1);  // the fills after the server's part
}

void ServerControlTest::theTimerRefreshesOnceASecond() {
    auto& timer = *window_->findChild<QTimer*>(u"timerCheckConnections"_s);
    QCOMPARE(timer.interval(), 1000);
    window_->setConnectionTimerEnabled(true);
    EVENTUALLY(script_.calls.size() >= 2);
    QCOMPARE(QSet<QString>(script_.calls.begin(), script_.calls.end()), QSet<QString>{u"GetStatus"_s});
    QCOMPARE(statusBar(), (QStringList{u"Listening"_s, u"listening"_s, u""_s}));
    window_->setConnectionTimerEnabled(false);
    QVERIFY(!timer.isActive());
}

void ServerControlTest::statesSetButtonsAndStatusBar() {
    script_.state = 2;
    window_->RefreshServerState();
    QCOMPARE(statusBar(), (QStringList{u"Stopped"_s, u"stopped"_s, u""_s}));
    QCOMPARE(commands(), u"start "_s);
    script_.state = 0;
    window_->RefreshServerState();
    QCOMPARE(statusBar(), (QStringList{u"Listening"_s, u"listening"_s, u""_s}));
    QCOMPARE(commands(), u"stop restart "_s);
    QCOMPARE(script_.takeCalls(), (QStringList{u"GetStatus"_s, u"GetStatus"_s}));
}

void ServerControlTest::otherStateCodesChangeNothing_data() {
    QTest::addColumn<int>("code");
    for (const int code : {1, 3, -1, 100, 0x7fffffff})
        QTest::addRow("%d", code) << code;
}

void ServerControlTest::otherStateCodesChangeNothing() {
    QFETCH(int, code);
    script_.state = 2;
    window_->RefreshServerState();
    Q_EMIT script_.current->OnConnection(u"104"_s, u"A"_s, u"B"_s, 7);
    script_.state = code;
    window_->RefreshServerState();
    QCOMPARE(statusBar(), (QStringList{u"Connected"_s, u"connected"_s, u"Num. Connections =7"_s}));
    QCOMPARE(commands(), u"start "_s);
    QVERIFY(script_.current != nullptr);
}

void ServerControlTest::aFailedStatusDropsTheServer() {
    Q_EMIT script_.current->OnConnection(u"104"_s, u"A"_s, u"B"_s, 7);
    script_.failing << u"GetStatus"_s;
    const BoxScript noBox;
    window_->RefreshServerState();
    QCOMPARE(script_.takeCalls(), (QStringList{u"GetStatus"_s, u"drop"_s}));
    // Panel 2 and the list stay.
    QCOMPARE(statusBar(), (QStringList{u"Error"_s, u"error"_s, u"Num. Connections =7"_s}));
    QCOMPARE(window().rows(u"lstStatus"_s).size(), 1);
    QCOMPARE(commands(), u""_s);
    QCOMPARE(window().text(u"cmdLoad"_s), u"Run"_s);

    script_.failing.clear();
    window_->RefreshServerState();
    QCOMPARE(script_.takeCalls(), (QStringList{u"create"_s, u"GetStatus"_s}));
    QCOMPARE(statusBar(), (QStringList{u"Listening"_s, u"listening"_s, u""_s}));
    QCOMPARE(commands(), u"stop restart "_s);
    QCOMPARE(window().text(u"cmdLoad"_s), u"Terminate"_s);
    QVERIFY(isEnabled(u"chkService"_s));
}

void ServerControlTest::aRefusedCreationIsTriedOnceATick() {
    window_->DropServer();
    script_.refusesCreation = true;
    script_.calls.clear();
    const BoxScript noBox;
    for (int tick = 1; tick <= 3; ++tick) {
        window_->RefreshServerState();
        QCOMPARE(script_.takeCalls(), QStringList{u"refuse"_s});
        QCOMPARE(statusBar().mid(0, 2), (QStringList{u"Error"_s, u"error"_s}));
        QCOMPARE(commands(), u""_s);
        QCOMPARE(window().text(u"cmdLoad"_s), u"Run"_s);
        QCOMPARE(window().find(u"cmdLoad"_s).toolTip(), u"Load server"_s);
        QVERIFY(!isEnabled(u"chkService"_s));
    }
    // By the timer too, again and again.
    window_->setConnectionTimerEnabled(true);
    EVENTUALLY(script_.calls.size() >= 2);
    script_.refusesCreation = false;
    EVENTUALLY_COMPARE(statusBar().first(), u"Listening"_s);
}

void ServerControlTest::commandsCallAndRefresh_data() {
    QTest::addColumn<QString>("button");
    QTest::addColumn<QString>("operation");
    QTest::addColumn<int>("before");
    QTest::addColumn<QString>("after");
    QTest::newRow("start") << u"cmdStart"_s << u"Start"_s << 2 << u"Listening"_s;
    QTest::newRow("suspend") << u"cmdStop"_s << u"Stop"_s << 0 << u"Stopped"_s;
    QTest::newRow("restart") << u"cmdRestart"_s << u"Restart"_s << 0 << u"Listening"_s;
}

void ServerControlTest::commandsCallAndRefresh() {
    QFETCH(QString, button);
    QFETCH(QString, operation);
    QFETCH(int, before);
    script_.state = before;
    window_->RefreshServerState();
    script_.calls.clear();
    window().click(button);
    QCOMPARE(script_.calls, (QStringList{operation, u"GetStatus"_s}));
    QTEST(statusBar().first(), "after");
}

void ServerControlTest::commandsIgnoreErrors_data() {
    commandsCallAndRefresh_data();
}

void ServerControlTest::commandsIgnoreErrors() {
    QFETCH(QString, button);
    QFETCH(QString, operation);
    QFETCH(int, before);
    script_.state = before;
    script_.failing << operation;
    window_->RefreshServerState();
    const QStringList shown = statusBar();
    script_.calls.clear();
    const BoxScript noBox;
    window().click(button);
    QCOMPARE(script_.calls, (QStringList{operation, u"GetStatus"_s}));
    QCOMPARE(statusBar(), shown);
}

void ServerControlTest::commandsWithoutAServerMakeOne() {
    window_->RefreshServerState();
    window_->DropServer();
    script_.calls.clear();
    window().click(u"cmdStop"_s);
    QCOMPARE(script_.calls, (QStringList{u"create"_s, u"GetStatus"_s}));
}

void ServerControlTest::terminateReloads() {
    window_->RefreshServerState();
    script_.calls.clear();
    window().click(u"cmdLoad"_s);
    QCOMPARE(script_.calls, (QStringList{u"Terminate"_s, u"drop"_s, u"create"_s, u"GetStatus"_s}));
    QCOMPARE(window().text(u"cmdLoad"_s), u"Terminate"_s);
    QCOMPARE(window().find(u"cmdLoad"_s).toolTip(), u"Terminate server"_s);
    QCOMPARE(statusBar().first(), u"Listening"_s);
}

void ServerControlTest::terminateThatFailsReloadsToo() {
    script_.failing << u"Terminate"_s;
    const BoxScript noBox;
    window().click(u"cmdLoad"_s);
    QCOMPARE(script_.calls, (QStringList{u"Terminate"_s, u"drop"_s, u"create"_s, u"GetStatus"_s}));
}

void ServerControlTest::runWithoutAServerToBeHad() {
    script_.refusesCreation = true;
    window().click(u"cmdLoad"_s);
    script_.calls.clear();
    QCOMPARE(window().text(u"cmdLoad"_s), u"Run"_s);
    const BoxScript noBox;
    window().click(u"cmdLoad"_s);
    QCOMPARE(script_.takeCalls(), QStringList{u"refuse"_s});  // asked once, not again by the refresh
    QCOMPARE(statusBar().first(), u"Error"_s);

    script_.refusesCreation = false;
    window().click(u"cmdLoad"_s);
    QCOMPARE(script_.takeCalls(), (QStringList{u"create"_s, u"GetStatus"_s}));
    QCOMPARE(window().text(u"cmdLoad"_s), u"Terminate"_s);
}

void ServerControlTest::theMaintenanceMayTakeTheServerAway() {
    ServerOperations& operations = *window_;
    operations.setConnectionTimerEnabled(true);
    operations.TerminateServer();
    operations.setConnectionTimerEnabled(false);
    operations.DropServer();
    QCOMPARE(script_.takeCalls(), (QStringList{u"Terminate"_s, u"drop"_s}));
    operations.TerminateServer();  // there is none to terminate
    QCOMPARE(script_.takeCalls(), QStringList{});
    operations.RefreshServerState();
    QCOMPARE(script_.takeCalls(), (QStringList{u"create"_s, u"GetStatus"_s}));
    script_.failing << u"Terminate"_s;
    QVERIFY_EXCEPTION_THROWN(operations.TerminateServer(), std::runtime_error);
}

QTEST_MAIN(ServerControlTest)
#include "tst_servercontrol.moc"
