#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

#include "server/DBusServer.h"
#include "server/ServerBus.h"
#include "tests/server/FakeServer.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
using tessaly::server::DBusServer;
using tessaly::server::ServerBus;

namespace {

// What may pass at most while a limit of two seconds is waited for, on a machine under load; the bus alone
// would wait for 25 s.
constexpr int Bounded = 10'000;

}  // namespace

/// The server's object against a server process of its own.
class DBusServerTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        fake_->offer();
        bus_ = std::make_shared<ServerBus>();
    }
    void cleanup() {
        bus_.reset();
        fake_->endAll();
        QTRY_VERIFY(!fake_->runs());
    }
    void initTestCase() { fake_ = std::make_unique<FakeServer>(); }
    void cleanupTestCase() { fake_.reset(); }

    void makingItStartsTheServerOnce();
    void withoutAServerItCannotBeMade();
    void aServerThatTheBusCannotStartIsTakenWhereItRuns();
    void aServerThatNeverComesUpIsWaitedForOnce();
    void everyOperationArrives();
    void anErrorIsThrown();
    void aSlowServerIsNotWaitedFor();
    void aHungServerIsWaitedForOnce();
    void aCrashedServerStaysGone();
    void terminateReturnsWhenTheProcessIsGone();
    void terminateOfAServerThatCrashes();
    void aServerThatDoesNotEndIsNotTakenAgain();
    void eventsArriveWithTheirValues();
    void eventsOfAnotherProcessDoNotArrive();
    void theLastEventsOfAProcessArrive();

  private:
    [[nodiscard]] std::unique_ptr<DBusServer> make() const { return std::make_unique<DBusServer>(bus_); }
    [[nodiscard]] bool canBeMade() const {
        try {
            (void)make();
            return true;
        } catch (const std::runtime_error&) {
            return false;
        }
    }
    /// The time that a body took which is to throw, in milliseconds; -1 when it did not throw.
    template <class Body>
    static qint64 timeOfFailure(Body body) {
        QElapsedTimer time;
        time.start();
        try {
            body();
        } catch (const std::runtime_error&) {
            return time.elapsed();
        }
        return -1;
    }
#define QVERIFY_FAILS_AT_ONCE(body)                       \
    do {                                                  \
        const qint64 time = timeOfFailure([&] { body; }); \
        QVERIFY(time >= 0);                               \
        QVERIFY(time < ServerBus::CallLimit);             \
    } while (false)
#define QVERIFY_FAILS_AFTER_THE_LIMIT(body)               \
    do {                                                  \
        const qint64 time = timeOfFailure([&] { body; }); \
        QVERIFY(time >= ServerBus::CallLimit / 2);        \
        QVERIFY(time < Bounded);                          \
    } while (false)

    std::unique_ptr<FakeServer> fake_;
    std::shared_ptr<ServerBus> bus_;
};

void DBusServerTest::makingItStartsTheServerOnce() {
    QVERIFY(!fake_->runs());
    const auto first = make();
    QVERIFY(fake_->runs());
    const auto second = make();
    QCOMPARE(fake_->calls(), QStringList{u"created"_s});
}

void DBusServerTest::withoutAServerItCannotBeMade() {
    fake_->withdraw();
    QVERIFY_FAILS_AT_ONCE((void)make());
    fake_->offerFailing();
    QVERIFY_FAILS_AT_ONCE((void)make());
    fake_->offer();
    QVERIFY(canBeMade());
}

void DBusServerTest::aServerThatTheBusCannotStartIsTakenWhereItRuns() {
    const auto first = make();
    fake_->withdraw();
    QCOMPARE(make()->GetStatus().state, 0);
    QCOMPARE(fake_->calls(), QStringList{u"created"_s});
}

void DBusServerTest::aServerThatNeverComesUpIsWaitedForOnce() {
    fake_->offerSilent();
    QVERIFY_FAILS_AFTER_THE_LIMIT((void)make());
    QVERIFY_FAILS_AT_ONCE((void)make());
    QVERIFY_FAILS_AT_ONCE((void)make());
    QCOMPARE(fake_->calls(), QStringList{u"created"_s});  // the one process that does not come up
    fake_->offer();
    fake_->endAll();
    QTRY_VERIFY(canBeMade());
}

void DBusServerTest::everyOperationArrives() {
    const auto server = make();
    QCOMPARE(server->GetStatus().state, 0);
    server->Stop();
    QCOMPARE(server->GetStatus().state, 2);
    QCOMPARE(server->GetStatus().openAssociations, 3);
    QCOMPARE(server->GetStatus().portsBound, 1);
    server->Start();
    QCOMPARE(server->GetStatus().state, 0);
    server->Restart();
    QVERIFY(!server->IsService());
    server->RegisterService();
    QVERIFY(server->IsService());
    server->UnregisterService();
    QVERIFY(!server->IsService());
    server->Terminate();
    QCOMPARE(fake_->calls(), (QStringList{u"created"_s, u"Stop"_s, u"Start"_s, u"Restart"_s, u"IsService"_s,
                                          u"RegisterService"_s, u"IsService"_s, u"UnregisterService"_s,
                                          u"IsService"_s, u"Terminate"_s}));
}

void DBusServerTest::anErrorIsThrown() {
    const auto server = make();
    fake_->tell(u"SetRefuses"_s, {true});
    QVERIFY_FAILS_AT_ONCE(server->Start());
    try {
        server->Restart();
        QFAIL("nothing thrown");
    } catch (const std::runtime_error& error) {
        QCOMPARE(error.what(), "The server refuses");
    }
    QCOMPARE(server->GetStatus().state, 0);  // it answers: nothing is wrong with it
}

void DBusServerTest::aSlowServerIsNotWaitedFor() {
    const auto server = make();
    fake_->tell(u"SetDelay"_s, {3000U});
    QVERIFY_FAILS_AFTER_THE_LIMIT((void)server->GetStatus());
    QVERIFY_FAILS_AT_ONCE((void)server->GetStatus());  // the question in the background is open
    QVERIFY_FAILS_AT_ONCE((void)make());
    fake_->tell(u"SetDelay"_s, {0U});  // answered after the slow ones
    QTRY_VERIFY(canBeMade());
    QCOMPARE(make()->GetStatus().state, 0);
}

void DBusServerTest::aHungServerIsWaitedForOnce() {
    const auto server = make();
    const int process = fake_->process();
    fake_->hang();
    QVERIFY_FAILS_AFTER_THE_LIMIT(server->Restart());
    QVERIFY_FAILS_AT_ONCE((void)server->GetStatus());
    QVERIFY_FAILS_AT_ONCE((void)server->IsService());
    QVERIFY_FAILS_AT_ONCE(server->Terminate());
    QVERIFY_FAILS_AT_ONCE((void)make());
    fake_->resume(process);
    QTRY_VERIFY(canBeMade());
    QCOMPARE(make()->GetStatus().state, 0);
    QCOMPARE(fake_->process(), process);
}

void DBusServerTest::aCrashedServerStaysGone() {
    const auto server = make();
    const int process = fake_->process();
    fake_->tell(u"SetCrashes"_s, {true});
    QVERIFY_FAILS_AT_ONCE(server->Restart());
    QTRY_VERIFY(!fake_->runs());
    QVERIFY_FAILS_AT_ONCE((void)server->GetStatus());
    QVERIFY(!fake_->runs());  // a dead server's object does not start another one
    const auto next = make();
    QCOMPARE(next->GetStatus().state, 0);
    QVERIFY(fake_->process() != process);
    QVERIFY_FAILS_AT_ONCE((void)server->GetStatus());
}

void DBusServerTest::terminateReturnsWhenTheProcessIsGone() {
    for (const int linger : {0, 300}) {
        const auto server = make();
        const int process = fake_->process();
        fake_->tell(u"SetLinger"_s, {linger});
        server->Terminate();
        QVERIFY(!fake_->runs());
        const auto next = make();
        QVERIFY(fake_->process() != process);
        QCOMPARE(next->GetStatus().state, 0);
    }
}

void DBusServerTest::terminateOfAServerThatCrashes() {
    const auto server = make();
    fake_->tell(u"SetCrashes"_s, {true});
    server->Terminate();  // gone is gone
    QVERIFY(!fake_->runs());
}

void DBusServerTest::aServerThatDoesNotEndIsNotTakenAgain() {
    const auto server = make();
    const int process = fake_->process();
    fake_->tell(u"SetLinger"_s, {-1});
    QVERIFY_FAILS_AFTER_THE_LIMIT(server->Terminate());
    QVERIFY_FAILS_AT_ONCE((void)make());
    fake_->kill(process);
    QTRY_VERIFY(canBeMade());
    QVERIFY(fake_->process() != process);
}

void DBusServerTest::eventsArriveWithTheirValues() {
    const auto server = make();
    QSignalSpy connections{server.get(), &DBusServer::OnConnection};
    QSignalSpy ends{server.get(), &DBusServer::OnEndConnection};
    QSignalSpy starts{server.get(), &DBusServer::OnStart};
    QSignalSpy stops{server.get(), &DBusServer::OnStop};
    const short total = 32767;
    fake_->tell(u"Connect"_s, {u"104"_s, u" CALLING"_s, u"Ä:é"_s, QVariant::fromValue(total)});
    fake_->tell(u"End"_s, {u"104"_s, u" CALLING"_s, u""_s});
    fake_->tell(u"Begin"_s);
    fake_->tell(u"Suspend"_s);
    QTRY_COMPARE(stops.size(), 1);
    QCOMPARE(connections,
             (QList<QVariantList>{{u"104"_s, u" CALLING"_s, u"Ä:é"_s, QVariant::fromValue(total)}}));
    QCOMPARE(ends, (QList<QVariantList>{{u"104"_s, u" CALLING"_s, u""_s, 0}}));
    QCOMPARE(starts.size(), 1);
}

void DBusServerTest::eventsOfAnotherProcessDoNotArrive() {
    const auto old = make();
    QSignalSpy oldStarts{old.get(), &DBusServer::OnStart};
    old->Terminate();
    const auto next = make();
    QSignalSpy starts{next.get(), &DBusServer::OnStart};
    fake_->tell(u"Begin"_s);
    QTRY_COMPARE(starts.size(), 1);
    QCOMPARE(oldStarts.size(), 0);
}

void DBusServerTest::theLastEventsOfAProcessArrive() {
    auto server = make();
    QStringList ended;
    connect(server.get(), &DBusServer::OnEndConnection, this,
            [&](const QString& port, const QString& calling) { ended << port + calling; });
    fake_->tell(u"EndAndExit"_s, {u"104"_s, u"LAST"_s, u"TESSALY"_s});
    QTRY_VERIFY(bus_->owner().isEmpty());
    server.reset();
    QCOMPARE(ended, QStringList{u"104LAST"_s});
}

QTEST_MAIN(DBusServerTest)
#include "tst_dbusserver.moc"
