#include <dcmtk/dcmnet/dcmtrans.h>
#include <dcmtk/dcmnet/dul.h>

#include <QTest>
#include <array>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/association/Caller.h"
#include "tests/tessalyd/association/ScriptedServer.h"

using namespace std::chrono_literals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

namespace {

/// Sends the parts of a message by itself.
class Parts : public RequestorAssociation {
  public:
    explicit Parts(const QString& port)
        : RequestorAssociation(port, "TESTER", "TESSALY", ScriptedServer::contexts()) {}

    void beginStore() { writeCommand(ScriptedServer::Ct, DIMSE_C_STORE_RQ, CtClass, "1.2.3"); }
    void add(std::size_t bytes, bool last) {
        writeParts(ScriptedServer::Ct, false, std::vector<char>(bytes, '\0'), last);
    }
};

}  // namespace

/// How long a peer may take for what it does.
class PeersTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void anAssociationMayBeIdleForLongerThanAMessageMayPause();
    void anIdleAssociationEndsAtItsOwnLimit();
    void aCommandThatDripsIsGivenUp();
    void aDataSetThatDripsIsGivenUp();
    void aSlowSenderThatKeepsTheRateGoesOn();
    void aCommandOfManyPartsHasALimitInAll();
    void halfACancelDoesNotHoldUpTheService();
};

void PeersTest::anAssociationMayBeIdleForLongerThanAMessageMayPause() {
    const ScriptedServer server{{.command = 1s, .message = {.silence = 1s}}};
    RequestorAssociation peer{server.port()};
    QVERIFY(peer.echo());
    std::this_thread::sleep_for(2500ms);
    QVERIFY(peer.echo());
}

void PeersTest::anIdleAssociationEndsAtItsOwnLimit() {
    const ScriptedServer server{{.idle = 1s}};
    RequestorAssociation peer{server.port()};
    QVERIFY(peer.echo());
    QVERIFY(peer.waitForEnd());
    EVENTUALLY_COMPARE(int{server.ended}, 1);
}

void PeersTest::aCommandThatDripsIsGivenUp() {
    const ScriptedServer server{{.command = 1h, .message = {.silence = 300ms}}};
    Caller peer{server.port()};
    QCOMPARE(peer.associate(), int{Caller::Accept});
    const QByteArray echo = Caller::echo();
    qsizetype sent = 0;
    for (; sent < echo.size() && !peer.hasAnswer(); ++sent) {
        peer.send(echo.mid(sent, 1));
        std::this_thread::sleep_for(50ms);
    }
    QVERIFY2(sent < echo.size(), "every byte was waited for");
    QVERIFY(peer.answer() != Caller::Data);
    EVENTUALLY_COMPARE(int{server.ended}, 1);
}

void PeersTest::aDataSetThatDripsIsGivenUp() {
    ScriptedServer server{{.message = {.silence = 300ms}}};
    server.on(CommandField::CStore, [](const Request&, Association& association) {
        (void)association.receiveDataSet([](std::span<const char>) {});
    });
    Parts peer{server.port()};
    peer.beginStore();
    // 16 bytes at a time with what is around them: never silent for as long as the limit.
    constexpr int Most = 600;
    int parts = 0;
    try {
        for (; parts < Most && server.ended == 0; ++parts) {
            peer.add(4, false);
            std::this_thread::sleep_for(100ms);
        }
    } catch (const std::runtime_error&) {  // the connection is over
    }
    QVERIFY(parts < Most);
    EVENTUALLY_COMPARE(int{server.ended}, 1);
}

void PeersTest::aSlowSenderThatKeepsTheRateGoesOn() {
    ScriptedServer server{{.message = {.silence = 3s}}};
    std::atomic<std::size_t> came = 0;
    server.on(CommandField::CStore, [&came](const Request& request, Association& association) {
        (void)association.receiveDataSet([&came](std::span<const char> bytes) { came += bytes.size(); });
        association.respond(request, STATUS_Success);
    });
    Parts peer{server.port()};
    peer.beginStore();
    constexpr std::size_t Part = 2048;
    constexpr int Count = 20;  // five seconds
    for (int i = 0; i < Count; ++i) {
        std::this_thread::sleep_for(250ms);
        peer.add(Part, i == Count - 1);
    }
    const Heard heard = hear(peer);
    QVERIFY(heard.arrived);
    QCOMPARE(int{heard.message.msg.CStoreRSP.DimseStatus}, 0);
    QCOMPARE(came.load(), Part * Count);
    QVERIFY(peer.echo());
}

void PeersTest::aCommandOfManyPartsHasALimitInAll() {
    const ScriptedServer server{{.command = 500ms}};
    Caller peer{server.port()};
    QCOMPARE(peer.associate(), int{Caller::Accept});
    const QByteArray empty = QByteArray::fromHex("040000000006000000020101");  // and not the last part
    constexpr int Most = 6000;
    int parts = 0;
    for (; parts < Most && !peer.hasAnswer(); ++parts) {
        peer.send(empty);
        std::this_thread::sleep_for(10ms);
    }
    QVERIFY(parts < Most);
    EVENTUALLY_COMPARE(int{server.ended}, 1);
}

void PeersTest::halfACancelDoesNotHoldUpTheService() {
    ScriptedServer server;
    std::atomic<bool> cancelled = true;
    server.on(CommandField::CFind, [&cancelled](const Request& request, Association& association) {
        (void)association.receiveDataSet([](std::span<const char>) {});
        const auto end = std::chrono::steady_clock::now() + 500ms;
        while (std::chrono::steady_clock::now() < end)
            cancelled = association.isCancelled();
        answerFind(request, association, STATUS_Success);
    });
    RequestorAssociation peer{server.port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    std::array<char, 3> half{4, 0, 0};
    QCOMPARE(DUL_getTransportConnection(peer.raw()->DULassociation)->write(half.data(), half.size()),
             ssize_t{3});
    const Heard heard = hear(peer);
    QVERIFY(heard.arrived);
    QCOMPARE(int{heard.message.msg.CFindRSP.DimseStatus}, 0);
    QVERIFY(!cancelled);
}

QTEST_GUILESS_MAIN(PeersTest)
#include "tst_peers.moc"
