#include <QAbstractButton>
#include <QTabWidget>
#include <QTest>
#include <QTimer>

#include "console/session/Globals.h"
#include "tests/console/server/ServerWindowTest.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const QString ServiceQuestion = u"The service will be stopped: do you want to proceed?"_s;
const QString RestartQuestion =
    u"The server parameters have been modified. Do you want to restart the server?"_s;

}  // namespace

/// The server's registration as a service, and what becomes of the server when the console is closed.
class ServerServiceTest : public ServerWindowTest {
    Q_OBJECT

  private Q_SLOTS:
    void noLeavesTheServiceAlone();
    void yesRegistersTheService();
    void yesUnregistersTheService();
    void anImpossibleRegistrationIsReported_data();
    void anImpossibleRegistrationIsReported();
    void withoutAServerTheServiceBoxIsDisabled();
    void aServerLostDuringTheQuestion();
    void closingRestartsOnYes_data();
    void closingRestartsOnYes();
    void closingWithoutAServer();
};

void ServerServiceTest::noLeavesTheServiceAlone() {
    BoxScript script;
    script.expect(yesNo(ServiceQuestion, QMessageBox::No));
    window().click(u"chkService"_s);
    QVERIFY(script.isDone());
    QCOMPARE(script_.calls, QStringList{});
    QVERIFY(window().isChecked(u"chkService"_s));  // as the click left it
    QVERIFY(isEnabled(u"chkService"_s));
}

void ServerServiceTest::yesRegistersTheService() {
    BoxScript script;
    script.expect(yesNo(ServiceQuestion, QMessageBox::Yes));
    window().click(u"chkService"_s);
    QVERIFY(script.isDone());
    QCOMPARE(script_.takeCalls(), (QStringList{u"RegisterService"_s, u"IsService"_s, u"drop"_s}));
    QVERIFY(window().isChecked(u"chkService"_s));
    QVERIFY(isEnabled(u"chkService"_s));
    window_->RefreshServerState();
    QCOMPARE(script_.takeCalls(), (QStringList{u"create"_s, u"GetStatus"_s}));
}

void ServerServiceTest::yesUnregistersTheService() {
    script_.service = true;
    window().find<QAbstractButton>(u"chkService"_s).setChecked(true);
    BoxScript script;
    script.expect(yesNo(ServiceQuestion, QMessageBox::Yes));
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(3);
    auto& box = window().find(u"chkService"_s);
    QTest::mousePress(&box, Qt::LeftButton, {}, QPoint{8, box.height() / 2});
    QVERIFY(script.boxes().empty());  // it acts when the mouse is let go
    QTest::mouseRelease(&box, Qt::LeftButton, {}, QPoint{8, box.height() / 2});
    QVERIFY(script.isDone());
    QCOMPARE(script_.takeCalls(), (QStringList{u"UnregisterService"_s, u"drop"_s}));
    QVERIFY(!window().isChecked(u"chkService"_s));
    QVERIFY(!script_.service);
}

void ServerServiceTest::anImpossibleRegistrationIsReported_data() {
    QTest::addColumn<QStringList>("failing");
    QTest::newRow("not registered") << QStringList{};
    QTest::newRow("the call fails") << QStringList{u"RegisterService"_s};
    QTest::newRow("asking fails") << QStringList{u"IsService"_s};
    QTest::newRow("both fail") << QStringList{u"RegisterService"_s, u"IsService"_s};
}

void ServerServiceTest::anImpossibleRegistrationIsReported() {
    QFETCH(QStringList, failing);
    script_.refusesService = true;
    script_.failing = {failing.begin(), failing.end()};
    BoxScript script;
    script.expect(yesNo(ServiceQuestion, QMessageBox::Yes));
    script.expect(plain(u"Impossible to register service"_s));
    window().click(u"chkService"_s);
    QVERIFY(script.isDone());
    QVERIFY(!window().isChecked(u"chkService"_s));
    QCOMPARE(script_.calls, (QStringList{u"RegisterService"_s, u"IsService"_s, u"drop"_s}));
}

void ServerServiceTest::withoutAServerTheServiceBoxIsDisabled() {
    window_->DropServer();
    script_.calls.clear();
    const BoxScript noBox;
    window().click(u"chkService"_s);
    QVERIFY(!isEnabled(u"chkService"_s));
    QCOMPARE(script_.calls, QStringList{});
}

void ServerServiceTest::aServerLostDuringTheQuestion() {
    BoxScript script;
    script.expect(yesNo(ServiceQuestion, QMessageBox::Yes));
    script.expect(plain(u"Impossible to register service"_s));
    script_.failing << u"GetStatus"_s;
    // The timer goes on behind the question.
    QTimer::singleShot(0, window_.get(), [this] { window_->RefreshServerState(); });
    window().click(u"chkService"_s);
    QVERIFY(script.isDone());
    QCOMPARE(script_.calls, (QStringList{u"GetStatus"_s, u"drop"_s}));
    QVERIFY(!window().isChecked(u"chkService"_s));
}

void ServerServiceTest::closingRestartsOnYes_data() {
    QTest::addColumn<bool>("yes");
    QTest::addColumn<bool>("fails");
    QTest::newRow("yes") << true << false;
    QTest::newRow("yes, Restart fails") << true << true;
    QTest::newRow("no") << false << false;
}

void ServerServiceTest::closingRestartsOnYes() {
    QFETCH(bool, yes);
    QFETCH(bool, fails);
    if (fails)
        script_.failing << u"Restart"_s;
    Globals::setConfigChanged(true);
    BoxScript script;
    script.expect(yesNo(RestartQuestion, yes ? QMessageBox::Yes : QMessageBox::No));
    QVERIFY(window_->close());
    QVERIFY(script.isDone());
    QCOMPARE(script_.calls, yes ? QStringList{u"Restart"_s} : QStringList{});
    QCOMPARE(takeConsoleEnd(), std::optional{0});
}

void ServerServiceTest::closingWithoutAServer() {
    window_->DropServer();
    script_.calls.clear();
    Globals::setConfigChanged(true);
    BoxScript script;
    script.expect(yesNo(RestartQuestion, QMessageBox::Yes));
    QVERIFY(window_->close());
    QVERIFY(script.isDone());
    QCOMPARE(script_.calls, QStringList{});
    QCOMPARE(takeConsoleEnd(), std::optional{0});
}

QTEST_MAIN(ServerServiceTest)
#include "tst_serverservice.moc"
