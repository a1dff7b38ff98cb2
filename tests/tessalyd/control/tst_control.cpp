#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusReply>
#include <QElapsedTimer>
#include <QFile>
#include <QTcpServer>
#include <QTest>
#include <csignal>

#include "tests/support/Eventually.h"
#include "tests/support/ScratchBus.h"
#include "tests/support/ScratchCluster.h"
#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/control/Managers.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

namespace {

using Proxy = OrgTessalyServer1Interface;

}  // namespace

/// The server as its console has it: on the bus.
class ControlTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void itListensFromTheLaunchOn();
    void aSecondInstanceGivesWay();
    void startAndStop();
    void openAssociationsGoOnAfterStop();
    void theGraceEnds();
    void theGraceIsNotForThoseWhoComeAfterARestart();
    void restartRereadsEverything();
    void aPortInUseDoesNotStopTheOthers();
    void aPortThatIsNoneIsReported();
    void terminateEndsTheProcess();
    void terminateAbortsWhatIsOpen();
    void terminateIsFollowedByANewProcess();
    void aSignalTerminates();
    void withoutADatabaseItIsStopped();
    void withoutTheColumnsItAsksForAnUpgrade();
    void repliesArePromptWhileTheDatabaseIsLocked();
    void itEndsWithItsBus();

  private:
    [[nodiscard]] bool echoes(int port = 0) {
        RequestorAssociation peer{daemon_->port(port)};
        if (!peer.isOpen() || !peer.echo())
            return false;
        peer.release();
        return true;
    }

    static constexpr int Listening = 0;
    static constexpr int Stopped = 2;
};

void ControlTest::itListensFromTheLaunchOn() {
    launch();
    QCOMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 1}));
    QCOMPARE(daemon_->starts, 1);
    QVERIFY(echoes());
}

void ControlTest::aSecondInstanceGivesWay() {
    launch();
    const QString log = daemon_->database.folder() + u"/second.log"_s;
    const Outcome second = run(QStringLiteral(TESSALY_BINARY_DIR "/tessalyd"), {u"--log-file"_s, log});
    QCOMPARE(second.exitCode, 1);
    QCOMPARE(second.output.trimmed().count(u'\n'), 0);
    QVERIFY(second.output.contains(u"org.tessaly.Server"_s));
    QVERIFY(!QFile::exists(log));
    QVERIFY(echoes());
}

void ControlTest::startAndStop() {
    launch();
    QVERIFY(daemon_->succeeds(&Proxy::Stop));
    QCOMPARE(daemon_->status(), (Daemon::Status{Stopped, 0, 0}));
    QVERIFY(!echoes());
    QVERIFY(daemon_->succeeds(&Proxy::Stop));
    QVERIFY(daemon_->succeeds(&Proxy::Start));
    QCOMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 1}));
    QVERIFY(daemon_->succeeds(&Proxy::Start));
    QVERIFY(echoes());
    EVENTUALLY_COMPARE(daemon_->starts, 2);
    QCOMPARE(daemon_->stops, 1);
}

void ControlTest::openAssociationsGoOnAfterStop() {
    launch();
    RequestorAssociation peer{daemon_->port()};
    QVERIFY(daemon_->succeeds(&Proxy::Stop));
    QCOMPARE(daemon_->status(), (Daemon::Status{Stopped, 1, 0}));
    QCOMPARE(peer.store(*makeObject({})).status, 0);
    QVERIFY(!RequestorAssociation{daemon_->port()}.isOpen());
    peer.release();
    EVENTUALLY_COMPARE(daemon_->status(), (Daemon::Status{Stopped, 0, 0}));
    QCOMPARE(daemon_->archiveRows(), 4);
}

void ControlTest::theGraceEnds() {
    launch({PortRow{}}, {u"--grace"_s, u"1"_s});
    RequestorAssociation before{daemon_->port()};
    QVERIFY(daemon_->succeeds(&Proxy::Restart));
    RequestorAssociation after{daemon_->port()};
    QVERIFY(before.isOpen() && after.isOpen());
    QVERIFY(before.waitForEnd());
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
    QVERIFY(after.echo());
    QCOMPARE(daemon_->status(), (Daemon::Status{Listening, 1, 1}));
}

void ControlTest::theGraceIsNotForThoseWhoComeAfterARestart() {
    UnitManager manager;
    manager.answers = false;
    launch({PortRow{}}, {u"--grace"_s, u"1"_s});
    RequestorAssociation before{daemon_->port()};
    QVERIFY(before.isOpen());
    // The thread that begins the grace waits for the manager's answer while the restart goes on in another.
    const QDBusPendingReply<> restart = daemon_->proxy.Restart();
    const QDBusPendingCall asked = askWhetherItIsAService();
    EVENTUALLY_COMPARE(daemon_->log().count(u"listening on 1 of 1 ports"_s), 2);
    RequestorAssociation after{daemon_->port()};
    QVERIFY(after.isOpen());
    QVERIFY(before.waitForEnd());
    EVENTUALLY(restart.isFinished() && asked.isFinished());
    QVERIFY(after.echo());
}

void ControlTest::restartRereadsEverything() {
    launch();
    const QString another = unusedPort();
    daemon_->database.run(u"UPDATE Port SET Port=?, CheckCalledAE=1, AETitle='OTHER'"_s, {another});
    daemon_->database.run(u"UPDATE DicomServer SET LogLevel=0"_s);
    QVERIFY(daemon_->succeeds(&Proxy::Restart));
    QVERIFY(!echoes());
    QVERIFY(!RequestorAssociation(another).isOpen());
    QVERIFY(RequestorAssociation(another, "TESTER", "OTHER").isOpen());
    QVERIFY(!daemon_->log().contains(u"TESTER > OTHER"_s));
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
    QCOMPARE(daemon_->ends.first(), (Daemon::Event{another, u"TESTER"_s, u"OTHER"_s, 0}));
}

void ControlTest::aPortInUseDoesNotStopTheOthers() {
    const QString taken = unusedPort();
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::Any, taken.toUShort()));
    launch({{.port = taken}, {}});
    QCOMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 1}));
    QVERIFY(daemon_->log().contains(u"port %1: cannot listen: bind: Address already in use"_s.arg(taken)));
    QVERIFY(echoes(1));
    other.close();
    QVERIFY(daemon_->succeeds(&Proxy::Restart));
    EVENTUALLY_COMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 2}));
    QVERIFY(echoes(0));
}

void ControlTest::aPortThatIsNoneIsReported() {
    launch({{.port = u"104x"_s}, {.port = u"70000"_s}, {}});
    QCOMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 1}));
    QVERIFY(daemon_->log().contains(u"port 104x: cannot listen: not a TCP port\n"_s));
    QVERIFY(daemon_->log().contains(u"port 70000: cannot listen: not a TCP port\n"_s));
    QVERIFY(echoes(2));
}

void ControlTest::terminateEndsTheProcess() {
    launch();
    QVERIFY(daemon_->terminate());
    QVERIFY(!QDBusConnection::sessionBus().interface()->isServiceRegistered(u"org.tessaly.Server"_s));
    QVERIFY(!echoes());
    // Its last connection was closed in order: nobody else holds the database's log, or a session.
    EVENTUALLY_COMPARE(
        daemon_->database.value(
            ScratchDatabase::isPostgresql()
                ? u"SELECT count(*) FROM pg_stat_activity WHERE datname=current_database() AND "
                  "pid<>pg_backend_pid()"_s
                : u"PRAGMA wal_checkpoint(TRUNCATE)"_s),
        u"0"_s);
    EVENTUALLY_COMPARE(daemon_->stops, 1);
}

void ControlTest::terminateAbortsWhatIsOpen() {
    launch();
    RequestorAssociation idle{daemon_->port()};
    RequestorAssociation busy{daemon_->port()};
    busy.beginStore({.side = 1200}, 2'000'000);
    EVENTUALLY(!daemon_->entries().isEmpty());  // the folders of what is under way
    QVERIFY(daemon_->terminate());
    QVERIFY(idle.waitForEnd());
    QVERIFY(busy.waitForEnd());
    EVENTUALLY_COMPARE(daemon_->ends.size(), 2);
    QCOMPARE(daemon_->entries(), QStringList{});
}

void ControlTest::terminateIsFollowedByANewProcess() {
    daemon_ = std::make_unique<Daemon>();
    const QByteArray before = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    const ScratchBus offering;
    qputenv("DBUS_SESSION_BUS_ADDRESS", before);
    offering.offer(u"org.tessaly.Server"_s,
                   QStringLiteral(TESSALY_BINARY_DIR "/tessalyd --log-file ") + daemon_->logFile());
    {
        QDBusConnection bus = QDBusConnection::connectToBus(offering.address(), u"offering"_s);
        OrgTessalyServer1Interface server{u"org.tessaly.Server"_s, u"/org/tessaly/Server"_s, bus};
        QList<uint> pids;
        for (int i = 0; i < 3; ++i) {
            int open = -1;
            int ports = -1;
            // The first call starts the process, and finds it listening.
            EVENTUALLY_COMPARE(server.GetStatus(open, ports).value(), Listening);
            QCOMPARE(ports, 1);
            QVERIFY(echoes());
            const uint pid = bus.interface()->servicePid(u"org.tessaly.Server"_s);
            QVERIFY(!pids.contains(pid));
            pids << pid;
            server.Terminate().waitForFinished();
            EVENTUALLY(!bus.interface()->isServiceRegistered(u"org.tessaly.Server"_s));
        }
    }
    QDBusConnection::disconnectFromBus(u"offering"_s);
}

void ControlTest::aSignalTerminates() {
    launch();
    RequestorAssociation open{daemon_->port()};
    QVERIFY(open.isOpen());
    ::kill(static_cast<pid_t>(daemon_->process.processId()), SIGTERM);
    EVENTUALLY_COMPARE(daemon_->process.state(), QProcess::NotRunning);
    QCOMPARE(daemon_->process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(daemon_->process.exitCode(), 0);
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
}

void ControlTest::withoutADatabaseItIsStopped() {
    daemon_ = std::make_unique<Daemon>();
    const ScratchDatabase& database = daemon_->database;
    // Not by the data source on a server: ODBC remembers for a while what it has read there.
    const auto setReachable = [&database](bool isReachable) {
        if (ScratchDatabase::isPostgresql())
            ScratchCluster::instance().administer(
                u"ALTER ROLE %1 %2"_s.arg(ScratchCluster::Owner, isReachable ? u"LOGIN"_s : u"NOLOGIN"_s));
        else
            database.writeDataSource(isReachable ? database.path() : u"/nowhere/DicomDB.mdb"_s);
    };
    setReachable(false);
    daemon_->launch();
    QCOMPARE(daemon_->status(), (Daemon::Status{Stopped, 0, 0}));
    QVERIFY(!daemon_->succeeds(&Proxy::Start));
    QVERIFY(!daemon_->succeeds(&Proxy::Restart));
    setReachable(true);
    QVERIFY2(daemon_->succeeds(&Proxy::Start), qPrintable(daemon_->log()));
    QCOMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 1}));
}

void ControlTest::withoutTheColumnsItAsksForAnUpgrade() {
    daemon_ = std::make_unique<Daemon>();
    daemon_->database.run(u"ALTER TABLE Image DROP COLUMN InstanceNumber"_s);
    daemon_->launch();
    QCOMPARE(daemon_->status(), (Daemon::Status{Stopped, 0, 0}));
    const QString why = u"Image lacks the column InstanceNumber for text: run tessaly-db upgrade"_s;
    QVERIFY2(daemon_->log().contains(why), qPrintable(daemon_->log()));
    auto reply = daemon_->proxy.Start();
    reply.waitForFinished();
    QCOMPARE(reply.error().message(), why);
    daemon_->database.run(u"ALTER TABLE Image ADD COLUMN InstanceNumber VARCHAR(12)"_s);
    QVERIFY(daemon_->succeeds(&Proxy::Start));
}

void ControlTest::repliesArePromptWhileTheDatabaseIsLocked() {
    launch();
    const ScratchDatabase& database = daemon_->database;
    QVERIFY(daemon_->succeeds(&Proxy::Stop));
    // From here on nobody else reads it.
    if (ScratchDatabase::isPostgresql()) {
        database.run(u"BEGIN"_s);
        database.run(u"LOCK TABLE Port, DicomNodes, DicomServer, SiteData"_s);
    } else {
        database.run(u"PRAGMA locking_mode=EXCLUSIVE"_s);
        database.run(u"UPDATE SiteData SET BaseUID='1'"_s);
    }
    daemon_->proxy.setTimeout(1900);
    QVERIFY(daemon_->succeeds(&Proxy::Start));
    QCOMPARE(daemon_->status(), (Daemon::Status{Stopped, 0, 0}));
    if (ScratchDatabase::isPostgresql()) {
        database.run(u"COMMIT"_s);
    } else {
        database.run(u"PRAGMA locking_mode=NORMAL"_s);
        (void)database.rows(u"SELECT * FROM SiteData"_s);  // gives the lock back
    }
    EVENTUALLY_COMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 1}));
}

void ControlTest::itEndsWithItsBus() {
    daemon_ = std::make_unique<Daemon>();
    QProcess server;
    const QByteArray before = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    {
        const ScratchBus bus;
        server.start(QStringLiteral(TESSALY_BINARY_DIR "/tessalyd"), {u"--log-file"_s, daemon_->logFile()});
        EVENTUALLY(daemon_->log().contains(u"listening on 1 of 1 ports"_s));
    }
    qputenv("DBUS_SESSION_BUS_ADDRESS", before);
    EVENTUALLY_COMPARE(server.state(), QProcess::NotRunning);
    QCOMPARE(server.exitStatus(), QProcess::NormalExit);
    QVERIFY(daemon_->log().contains(u"listening no more"_s));
}

QTEST_GUILESS_MAIN(ControlTest)
#include "tst_control.moc"
