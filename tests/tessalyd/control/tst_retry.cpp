#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <QFile>
#include <QTcpServer>
#include <QTest>
#include <array>
#include <cerrno>
#include <cstddef>

#include "tests/support/Eventually.h"
#include "tests/support/ScratchCluster.h"
#include "tests/tessalyd/DaemonTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// What a server lacks when it starts, as after a power failure, and gets later. Nobody presses Start.
class RetryTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void aDatabaseThatComesLateIsFound();
    void tablesThatComeLateAreFound();
    void aRestartWithoutADatabaseGoesOnByItself();
    void thePortsOfTheLastMomentCount();
    void aPortThatComesFreeIsBound();
    void theOnlyPortThatComesFreeIsBound();
    void stopEndsTheRetrying();
    void stopEndsTheRetryingOfAPort();
    void terminateDoesNotWaitForTheDatabase();
    void aPortThatNeedsARightIsReportedWithTheRemedy();

  private:
    using Proxy = OrgTessalyServer1Interface;
    static constexpr int Listening = 0;
    static constexpr int Stopped = 2;
    /// Longer than the server's interval; for what is not to come.
    static constexpr int MoreThanAnInterval = 7000;

    void launchWithoutDatabase();
    void takeDatabaseAway() const;
    void bringDatabaseBack() const;
    [[nodiscard]] int lines(const QString& words) const {
        return static_cast<int>(daemon_->log().count(words));
    }
    [[nodiscard]] bool echoes(int port = 0) const { return RequestorAssociation{daemon_->port(port)}.echo(); }
};

void RetryTest::takeDatabaseAway() const {
    const ScratchDatabase& database = daemon_->database;
    database.release();
    if (ScratchDatabase::isPostgresql())
        ScratchCluster::instance().stop();
    else
        QVERIFY(QFile::rename(database.path(), scratch(u"away"_s)));
}

void RetryTest::bringDatabaseBack() const {
    if (ScratchDatabase::isPostgresql()) {
        ScratchCluster::instance().start();
        return;
    }
    QVERIFY2(!QFile::exists(daemon_->database.path()), "an empty database was made in its place");
    QVERIFY(QFile::rename(scratch(u"away"_s), daemon_->database.path()));
}

void RetryTest::launchWithoutDatabase() {
    daemon_ = std::make_unique<Daemon>();
    takeDatabaseAway();
    daemon_->launch();
    QCOMPARE(daemon_->status(), (Daemon::Status{Stopped, 0, 0}));
}

void RetryTest::aDatabaseThatComesLateIsFound() {
    launchWithoutDatabase();
    QCOMPARE(daemon_->starts, 0);
    bringDatabaseBack();
    EVENTUALLY_COMPARE(daemon_->starts, 1);
    QCOMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 1}));
    QVERIFY(echoes());
    QCOMPARE(lines(u"not listening: "_s), 1);
    QCOMPARE(lines(u"; trying again every 5 s\n"_s), 1);
    QCOMPARE(lines(u"listening: what was missing is there\n"_s), 1);
    QCOMPARE(daemon_->starts, 1);
}

void RetryTest::tablesThatComeLateAreFound() {
    daemon_ = std::make_unique<Daemon>();
    daemon_->database.run(u"ALTER TABLE Image DROP COLUMN InstanceNumber"_s);
    daemon_->launch();
    QCOMPARE(daemon_->status(), (Daemon::Status{Stopped, 0, 0}));
    daemon_->database.run(u"ALTER TABLE Image ADD COLUMN InstanceNumber VARCHAR(12)"_s);
    EVENTUALLY_COMPARE(daemon_->starts, 1);
    QCOMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 1}));
}

void RetryTest::aRestartWithoutADatabaseGoesOnByItself() {
    launch();
    takeDatabaseAway();
    QVERIFY(!daemon_->succeeds(&Proxy::Restart));
    QCOMPARE(daemon_->status(), (Daemon::Status{Stopped, 0, 0}));
    bringDatabaseBack();
    EVENTUALLY_COMPARE(daemon_->starts, 2);
    QCOMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 1}));
    QVERIFY(echoes());
}

void RetryTest::thePortsOfTheLastMomentCount() {
    const QString taken = unusedPort();
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::Any, taken.toUShort()));
    launch({{.port = taken}});
    QCOMPARE(daemon_->status(), (Daemon::Status{Stopped, 0, 0}));
    const QString another = unusedPort();
    daemon_->database.run(u"UPDATE Port SET Port=?"_s, {another});
    EVENTUALLY_COMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 1}));
    QVERIFY(RequestorAssociation(another).echo());
}

void RetryTest::aPortThatComesFreeIsBound() {
    const QString taken = unusedPort();
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::Any, taken.toUShort()));
    launch({{.port = taken}, {}});
    QCOMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 1}));
    QVERIFY(echoes(1));
    other.close();
    EVENTUALLY_COMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 2}));
    QVERIFY(echoes(0));
    QCOMPARE(lines(u"port %1: cannot listen: bind: Address already in use; trying again\n"_s.arg(taken)), 1);
    QCOMPARE(lines(u"port %1: cannot"_s.arg(taken)), 1);
    QCOMPARE(lines(u"port %1: listening now as TESSALY\n"_s.arg(taken)), 1);
    QCOMPARE(daemon_->starts, 1);
}

void RetryTest::theOnlyPortThatComesFreeIsBound() {
    const QString taken = unusedPort();
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::Any, taken.toUShort()));
    launch({{.port = taken}});
    QCOMPARE(daemon_->status(), (Daemon::Status{Stopped, 0, 0}));
    QVERIFY(!daemon_->succeeds(&Proxy::Start));
    other.close();
    EVENTUALLY_COMPARE(daemon_->starts, 1);
    QCOMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 1}));
    QVERIFY(echoes());
    QCOMPARE(lines(u"listening: what was missing is there\n"_s), 1);
}

void RetryTest::stopEndsTheRetrying() {
    launchWithoutDatabase();
    QVERIFY(daemon_->succeeds(&Proxy::Stop));
    bringDatabaseBack();
    QVERIFY(!QTest::qWaitFor([this] { return daemon_->starts > 0; }, MoreThanAnInterval));
    QCOMPARE(daemon_->status(), (Daemon::Status{Stopped, 0, 0}));
    QCOMPARE(lines(u"suspended: not trying to listen any more\n"_s), 1);
    QVERIFY(daemon_->succeeds(&Proxy::Start));
    QCOMPARE(daemon_->status(), (Daemon::Status{Listening, 0, 1}));
}

void RetryTest::stopEndsTheRetryingOfAPort() {
    const QString taken = unusedPort();
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::Any, taken.toUShort()));
    launch({{.port = taken}, {}});
    QVERIFY(daemon_->succeeds(&Proxy::Stop));
    other.close();
    QVERIFY(
        !QTest::qWaitFor([this] { return daemon_->log().contains(u"listening now"_s); }, MoreThanAnInterval));
    QCOMPARE(daemon_->status(), (Daemon::Status{Stopped, 0, 0}));
}

void RetryTest::terminateDoesNotWaitForTheDatabase() {
    daemon_ = std::make_unique<Daemon>();
    const ScratchDatabase& database = daemon_->database;
    // From here on the database is locked: other readers wait for longer than the test does.
    if (ScratchDatabase::isPostgresql()) {
        database.run(u"BEGIN"_s);
        database.run(u"LOCK TABLE Port, DicomNodes, DicomServer, SiteData"_s);
    } else {
        database.setDataSource(database.dataSource({u"Timeout=3600000"_s}));
        database.run(u"PRAGMA locking_mode=EXCLUSIVE"_s);
        database.run(u"UPDATE SiteData SET BaseUID='1'"_s);
    }
    daemon_->process.start(QStringLiteral(TESSALY_BINARY_DIR "/tessalyd"),
                           {u"--log-file"_s, daemon_->logFile()});
    EVENTUALLY_COMPARE(daemon_->status(), (Daemon::Status{Stopped, 0, 0}));
    QVERIFY(daemon_->terminate());
    if (ScratchDatabase::isPostgresql())
        database.run(u"ROLLBACK"_s);
}

void RetryTest::aPortThatNeedsARightIsReportedWithTheRemedy() {
    daemon_ = std::make_unique<Daemon>(QList<PortRow>{{.port = u"104"_s}});
    // Whoever runs the tests may have the right, or the system may ask for none: here binding is refused.
    daemon_->process.setChildProcessModifier([] {
        std::array filter{sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                          sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_bind, 0, 1),
                          sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EACCES),
                          sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
        const sock_fprog program{.len = filter.size(), .filter = filter.data()};
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
    });
    daemon_->launch();
    QVERIFY2(
        daemon_->log().contains(
            u"port 104: cannot listen: bind: Permission denied. Ports below 1024 need a right: sudo setcap "
            "cap_net_bind_service=+ep " TESSALY_BINARY_DIR "/tessalyd, and start the server anew"_s),
        qPrintable(daemon_->log()));
}

QTEST_GUILESS_MAIN(RetryTest)
#include "tst_retry.moc"
