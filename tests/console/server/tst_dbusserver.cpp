#include <QSignalSpy>
#include <QTest>

#include "console/server/DBusServer.h"
#include "console/server/ServerBus.h"
#include "tests/console/server/FakeServer.h"
#include "tests/support/Eventually.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
using tessaly::server::DBusServer;
using tessaly::server::ServerBus;

namespace {

// The console is not to stand still for longer; the bus alone would wait for 25 s.
static_assert(ServerBus::CallLimit <= 2000);
static_assert(ServerBus::AnswerLimit == 3000);

// Faults that come from the limit, and those that come without waiting for anything.
const QString NoReply = u"Did not receive a reply"_s;
const QString NotWaitedFor = u"The server does not answer"_s;

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
        EVENTUALLY(!fake_->runs());
    }
    void initTestCase() { fake_ = std::make_unique<FakeServer>(); }
    void cleanupTestCase() { fake_.reset(); }

    void makingItStartsTheServerOnce();
    void withoutAServerItCannotBeMade();
    void aServerThatTheBusCannotStartIsTakenWhereItRuns();
    void aServerThatNeverComesUpIsWaitedForOnce();
    void everyOperationArrives();
    void anErrorIsThrown();
    void anAnswerThatTakesLongIsNotWaitedFor_data();
    void anAnswerThatTakesLongIsNotWaitedFor();
    void aHungServerIsWaitedForOnce();
    void aSwallowedQuestionIsAskedAnew();
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
        return fault([this] { (void)make(); }).isNull();
    }
    /// What a body throws says; null when it throws nothing.
    template <class Body>
    [[nodiscard]] static QString fault(Body body) {
        try {
            body();
        } catch (const std::runtime_error& error) {
            return QString::fromUtf8(error.what());
        }
        return {};
    }
#define QVERIFY_FAILS(body, why)                                                   \
    do {                                                                           \
        const QString says = fault([&] { body; });                                 \
        QVERIFY2(says.startsWith(why), qPrintable(u"it says \"%1\""_s.arg(says))); \
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
    QVERIFY_FAILS((void)make(), u"The name org.tessaly.Server was not provided"_s);
    fake_->offerFailing();
    QVERIFY_FAILS((void)make(), u"Process org.tessaly.Server exited"_s);
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
    QVERIFY_FAILS((void)make(), NoReply);  // the bus itself has not given up yet
    QVERIFY_FAILS((void)make(), NotWaitedFor);
    QVERIFY_FAILS((void)make(), NotWaitedFor);
    QCOMPARE(fake_->calls(), QStringList{u"created"_s});  // the one process that does not come up
    fake_->offer();
    fake_->endAll();
    EVENTUALLY(canBeMade());
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
    QVERIFY_FAILS(server->Start(), u"The server refuses"_s);
    QVERIFY_FAILS(server->Restart(), u"The server refuses"_s);
    QCOMPARE(server->GetStatus().state, 0);  // it answers: nothing is wrong with it
}

void DBusServerTest::anAnswerThatTakesLongIsNotWaitedFor_data() {
    QTest::addColumn<bool>("ofTheState");
    QTest::newRow("GetStatus") << true;
    QTest::newRow("IsService") << false;
}

void DBusServerTest::anAnswerThatTakesLongIsNotWaitedFor() {
    QFETCH(bool, ofTheState);
    const auto server = make();
    constexpr uint Late = 10 * ServerBus::CallLimit;
    fake_->tell(u"SetDelay"_s, {Late});
    const auto ask = [&] {
        if (ofTheState)
            (void)server->GetStatus();
        else
            (void)server->IsService();
    };
    QVERIFY_FAILS(ask(), NoReply);  // it would have had one in the end
    QVERIFY_FAILS(ask(), NotWaitedFor);
    QVERIFY_FAILS((void)make(), NotWaitedFor);
}

void DBusServerTest::aHungServerIsWaitedForOnce() {
    const auto server = make();
    const int process = fake_->process();
    fake_->hang();
    QVERIFY_FAILS(server->Restart(), NoReply);
    QVERIFY(fake_->isHung(process));
    QVERIFY_FAILS((void)server->GetStatus(), NotWaitedFor);
    QVERIFY_FAILS((void)server->IsService(), NotWaitedFor);
    QVERIFY_FAILS(server->Terminate(), NotWaitedFor);
    QVERIFY_FAILS((void)make(), NotWaitedFor);
    fake_->resume(process);
    EVENTUALLY(canBeMade());
    QCOMPARE(make()->GetStatus().state, 0);
    QCOMPARE(fake_->process(), process);
}

void DBusServerTest::aSwallowedQuestionIsAskedAnew() {
    bus_ = std::make_shared<ServerBus>(200);
    const auto server = make();
    constexpr int Swallowed = 5;
    fake_->tell(u"SetSwallows"_s, {Swallowed});
    QVERIFY_FAILS((void)server->GetStatus(), NoReply);
    QSet<QString> faults;
    const auto comesBack = [&] {
        const QString says = fault([&] { QCOMPARE(server->GetStatus().state, 0); });
        if (!says.isNull())
            faults << says;
        return says.isNull();
    };
    EVENTUALLY(comesBack());
    // All of them but the first were questions that nobody waited for.
    QCOMPARE(faults, QSet<QString>{NotWaitedFor});
    QVERIFY(fake_->tell(u"Looks"_s).toInt() > Swallowed);
}

void DBusServerTest::aCrashedServerStaysGone() {
    const auto server = make();
    const int process = fake_->process();
    fake_->tell(u"SetCrashes"_s, {true});
    QVERIFY_FAILS(server->Restart(), u"Message recipient disconnected"_s);
    EVENTUALLY(!fake_->runs());
    QVERIFY(!fault([&] { (void)server->GetStatus(); }).isNull());
    QVERIFY(!fake_->runs());  // a dead server's object does not start another one
    const auto next = make();
    QCOMPARE(next->GetStatus().state, 0);
    QVERIFY(fake_->process() != process);
    QVERIFY(!fault([&] { (void)server->GetStatus(); }).isNull());
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
    QVERIFY_FAILS(server->Terminate(), u"The server does not end"_s);
    QCOMPARE(fake_->process(), process);
    QVERIFY_FAILS((void)make(), u"The server that was terminated has not ended yet"_s);
    fake_->kill(process);
    EVENTUALLY(canBeMade());
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
    EVENTUALLY_COMPARE(stops.size(), 1);
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
    EVENTUALLY_COMPARE(starts.size(), 1);
    QCOMPARE(oldStarts.size(), 0);
}

void DBusServerTest::theLastEventsOfAProcessArrive() {
    auto server = make();
    QStringList ended;
    connect(server.get(), &DBusServer::OnEndConnection, this,
            [&](const QString& port, const QString& calling) { ended << port + calling; });
    fake_->tell(u"EndAndExit"_s, {u"104"_s, u"LAST"_s, u"TESSALY"_s});
    EVENTUALLY(bus_->owner().isEmpty());
    server.reset();
    QCOMPARE(ended, QStringList{u"104LAST"_s});
}

QTEST_MAIN(DBusServerTest)
#include "tst_dbusserver.moc"
