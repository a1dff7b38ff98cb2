#include <unistd.h>

#include <QDBusVariant>
#include <QFile>
#include <QTest>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/control/Managers.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// The server as a service that starts with the machine.
class ServiceTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void cleanup() {
        daemon_.reset();
        login_.reset();
    }
    void withoutSystemdItIsNoService();
    void itRegistersWithSystemdAndTheLoginManager();
    void aUnitThatEndsWithTheSessionIsNoService();
    void lingerThatSomebodyElseTurnedOnStays();
    void aServerRemembersThatItTurnedLingerOn();
    void aRefusalLeavesNothingRegistered();
    void withoutALoginManagerNothingIsRegistered();
    void aUnitThatCannotBeEnabledGivesLingerBack();
    void aSlowLoginManagerHoldsUpNobody();

  private:
    using Proxy = OrgTessalyServer1Interface;

    void launchWithLogin() {
        login_ = std::make_unique<LoginStandIn>();
        launch();
    }
    [[nodiscard]] LoginStandIn::Object& login() { return login_->object(); }
    [[nodiscard]] static QVariant isService() {
        const QDBusPendingCall call = askWhetherItIsAService();
        if (!QTest::qWaitFor([&call] { return call.isFinished(); }, PatienceMs) || call.isError())
            return {};
        return call.reply().arguments().value(0).value<QDBusVariant>().variant();
    }
    /// Not blocking, as askWhetherItIsAService().
    [[nodiscard]] bool succeeds(QDBusPendingReply<> (Proxy::*method)()) {
        const QDBusPendingReply<> call = (daemon_->proxy.*method)();
        return QTest::qWaitFor([&call] { return call.isFinished(); }, PatienceMs) && !call.isError();
    }
    [[nodiscard]] static QString setLinger(bool isOn) {
        return u"SetUserLinger %1 %2 false"_s.arg(getuid()).arg(isOn ? u"true"_s : u"false"_s);
    }
    [[nodiscard]] bool hasMark() const {
        return QFile::exists(daemon_->stateFolder() + u"/tessaly/runs-without-session"_s);
    }

    std::unique_ptr<LoginStandIn> login_;
};

void ServiceTest::withoutSystemdItIsNoService() {
    launchWithLogin();
    QCOMPARE(isService(), QVariant{false});
    QVERIFY(succeeds(&Proxy::RegisterService));
    QCOMPARE(isService(), QVariant{false});
    QVERIFY(succeeds(&Proxy::UnregisterService));
    QVERIFY(!login().calls.contains(setLinger(true)));
}

void ServiceTest::itRegistersWithSystemdAndTheLoginManager() {
    UnitManager units;
    launchWithLogin();
    QCOMPARE(isService(), QVariant{false});
    QVERIFY(succeeds(&Proxy::RegisterService));
    QVERIFY(units.calls.contains(u"EnableUnitFiles tessalyd.service false true"_s));
    QVERIFY(login().calls.contains(setLinger(true)));
    EVENTUALLY_COMPARE(units.calls.last(), u"Reload "_s);
    EVENTUALLY_COMPARE(isService(), QVariant{true});
    QVERIFY(succeeds(&Proxy::UnregisterService));
    QVERIFY(units.calls.contains(u"DisableUnitFiles tessalyd.service false"_s));
    QCOMPARE(login().calls.last(), setLinger(false));
    QCOMPARE(isService(), QVariant{false});
    QVERIFY(!hasMark());
}

void ServiceTest::aUnitThatEndsWithTheSessionIsNoService() {
    UnitManager units;
    units.state = u"enabled"_s;
    launchWithLogin();
    QCOMPARE(isService(), QVariant{false});
    login().linger = true;
    EVENTUALLY_COMPARE(isService(), QVariant{true});
}

void ServiceTest::lingerThatSomebodyElseTurnedOnStays() {
    UnitManager units;
    launchWithLogin();
    login().linger = true;
    QVERIFY(succeeds(&Proxy::RegisterService));
    EVENTUALLY_COMPARE(isService(), QVariant{true});
    QVERIFY(succeeds(&Proxy::UnregisterService));
    QCOMPARE(isService(), QVariant{false});
    QVERIFY(login().linger);
    QCOMPARE(login().calls.filter(u"SetUserLinger"_s), QStringList{});
}

void ServiceTest::aServerRemembersThatItTurnedLingerOn() {
    UnitManager units;
    launchWithLogin();
    QVERIFY(succeeds(&Proxy::RegisterService));
    QVERIFY(login().linger);
    QVERIFY(daemon_->terminate());
    daemon_->launch();
    EVENTUALLY_COMPARE(isService(), QVariant{true});
    QVERIFY(succeeds(&Proxy::UnregisterService));
    QVERIFY(!login().linger);
}

void ServiceTest::aRefusalLeavesNothingRegistered() {
    UnitManager units;
    units.state = u"enabled"_s;  // by an earlier version, which knew of no login manager
    launchWithLogin();
    login().refuses = true;
    QVERIFY(succeeds(&Proxy::RegisterService));
    QCOMPARE(units.state, u"disabled"_s);
    QCOMPARE(isService(), QVariant{false});
    QVERIFY(!hasMark());
    QVERIFY2(daemon_->log().contains(u"Permission denied"_s), qPrintable(daemon_->log()));
    QVERIFY2(daemon_->log().contains(u"loginctl enable-linger "_s), qPrintable(daemon_->log()));
    // What the log says is what helps.
    login().linger = true;
    QVERIFY(succeeds(&Proxy::RegisterService));
    EVENTUALLY_COMPARE(isService(), QVariant{true});
}

void ServiceTest::withoutALoginManagerNothingIsRegistered() {
    UnitManager units;
    launch();
    QVERIFY(succeeds(&Proxy::RegisterService));
    QCOMPARE(units.state, u"disabled"_s);
    QCOMPARE(isService(), QVariant{false});
    QVERIFY2(daemon_->log().contains(u"loginctl enable-linger "_s), qPrintable(daemon_->log()));
}

void ServiceTest::aUnitThatCannotBeEnabledGivesLingerBack() {
    UnitManager units;
    units.refused = u"EnableUnitFiles"_s;
    launchWithLogin();
    QVERIFY(succeeds(&Proxy::RegisterService));
    QVERIFY(login().calls.contains(setLinger(true)));
    QVERIFY(!login().linger);
    QVERIFY(!hasMark());
    QCOMPARE(isService(), QVariant{false});
}

void ServiceTest::aSlowLoginManagerHoldsUpNobody() {
    UnitManager units;
    launchWithLogin();
    login().answers = false;
    QVERIFY(succeeds(&Proxy::RegisterService));
    QCOMPARE(daemon_->status(), (Daemon::Status{0, 0, 1}));
    QCOMPARE(units.state, u"disabled"_s);
    login().answerNow();  // the registration has gone on
    EVENTUALLY_COMPARE(units.state, u"enabled"_s);
    EVENTUALLY_COMPARE(isService(), QVariant{true});
}

QTEST_GUILESS_MAIN(ServiceTest)
#include "tst_service.moc"
