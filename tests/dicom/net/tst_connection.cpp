#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/dcmtrans.h>
#include <sys/socket.h>

#include <QTcpServer>
#include <QTest>
#include <array>
#include <cerrno>
#include <functional>
#include <future>
#include <limits>
#include <thread>
#include <vector>

#include "dicom/net/transport/BoundedConnection.h"
#include "dicom/net/transport/BoundedTransport.h"
#include "tests/dicom/net/Peers.h"
#include "tests/support/Eventually.h"
#include "tests/support/UnusedPort.h"

using namespace std::chrono_literals;
using namespace tessaly::dicom;
using namespace tessaly::test;

namespace {

SocketAddress at(const std::string& numeric, const QString& port) {
    return SocketAddress::parse(numeric, port.toUShort()).value();
}

/// Shows its socket.
class OpenConnection : public BoundedConnection {
  public:
    using BoundedConnection::BoundedConnection;
    using BoundedConnection::getSocket;
};

/// A connection with its other end, which the test holds.
struct Ends {
    using MakeStream = std::function<std::unique_ptr<ByteStream>(int socket)>;

    explicit Ends(std::shared_ptr<const IoLimits> bounds, const MakeStream& makeStream = {}) {
        std::array<int, 2> both{};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, both.data()) < 0)
            throw std::runtime_error{"no sockets"};
        other = both[1];
        near = std::make_unique<OpenConnection>(both[0], std::move(bounds),
                                                makeStream ? makeStream(both[0]) : nullptr);
    }
    ~Ends() { ::close(other); }
    Ends(const Ends&) = delete;
    Ends& operator=(const Ends&) = delete;

    ssize_t read() const {
        std::array<char, 16> bytes{};
        return near->read(bytes.data(), bytes.size());
    }
    /// More than the system buffers.
    ssize_t writeMuch() const {
        std::vector<char> bytes(std::size_t{16} << 20U);
        return near->write(bytes.data(), bytes.size());
    }
    bool hasArrived() const {
        char byte = 0;
        return recv(other, &byte, 1, MSG_DONTWAIT | MSG_PEEK) == 1;
    }

    int other = -1;
    std::unique_ptr<OpenConnection> near;
};

/// Wants the other direction once before each call, as encryption does at times.
class ContraryStream final : public ByteStream {
  public:
    explicit ContraryStream(int socket) : plain_(socket) {}
    [[nodiscard]] Outcome handshake() override {
        return ++handshakes == 1 ? Outcome{Kind::WantsToWrite} : plain_.handshake();
    }
    [[nodiscard]] Outcome read(std::span<char> target) override {
        return ++reads % 2 == 1 ? Outcome{Kind::WantsToWrite} : plain_.read(target);
    }
    [[nodiscard]] Outcome write(const Parts& parts) override {
        return ++writes % 2 == 1 ? Outcome{Kind::WantsToRead} : plain_.write(parts);
    }
    [[nodiscard]] std::size_t queued() const override { return plain_.queued(); }

    int handshakes = 0;
    int reads = 0;
    int writes = 0;

  private:
    SocketStream plain_;
};

/// Its handshake never comes to more than this.
class StuckStream final : public ByteStream {
  public:
    explicit StuckStream(Kind kind) : kind_(kind) {}
    [[nodiscard]] Outcome handshake() override { return {kind_}; }
    [[nodiscard]] Outcome read(std::span<char> /*target*/) override { return {}; }
    [[nodiscard]] Outcome write(const Parts& /*parts*/) override { return {}; }
    [[nodiscard]] std::size_t queued() const override { return 0; }

  private:
    Kind kind_;
};

}  // namespace

Q_DECLARE_METATYPE(tessaly::dicom::ByteStream::Kind)

/// Waits for a peer: each has an end.
class ConnectionTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void connectingHasAnEnd_data();
    void connectingHasAnEnd();
    void aConnectionThatNobodyTakesIsToldApart();
    void addressesAreTriedOneAfterTheOther();
    void hostsAreToldApartByTheirAddresses();
    void readingAndWritingHaveAnEnd_data();
    void readingAndWritingHaveAnEnd();
    void afterAStopNothingIsReadAndTheLastWordIsSent();
    void piecesGoOutTogether();
    void aStreamMayWantTheOtherDirection();
    void aHandshakeHasAnEnd_data();
    void aHandshakeHasAnEnd();
    void aGlanceSendsWhatHasWaited();
    void aGlanceDoesNotWaitForAPeerThatTakesNothing();
    void aPeerThatKeepsTheRateIsWaitedFor_data();
    void aPeerThatKeepsTheRateIsWaitedFor();
    void waitingIsMadeUpForByBytesAlone();
};

void ConnectionTest::connectingHasAnEnd_data() {
    QTest::addColumn<bool>("stopped");
    QTest::newRow("a stop") << true;
    QTest::newRow("its limit") << false;
}

void ConnectionTest::connectingHasAnEnd() {
    QFETCH(const bool, stopped);
    const FullPort full;
    std::stop_source stop;
    auto connected = std::async(std::launch::async, [&] {
        BoundedTransport transport{std::make_shared<IoLimits>(stop.get_token())};
        const bool stands =
            transport.connect(std::vector{at("127.0.0.1", full.port())}, stopped ? 1h : 100ms).has_value();
        return std::pair{stands, errno};
    });
    if (stopped) {
        QCOMPARE(connected.wait_for(100ms), std::future_status::timeout);
        stop.request_stop();
    }
    QCOMPARE(connected.get(), (std::pair{false, ETIMEDOUT}));
}

void ConnectionTest::aConnectionThatNobodyTakesIsToldApart() {
    BoundedTransport transport{std::make_shared<IoLimits>(std::stop_token{})};
    QVERIFY(!transport.connect(std::vector{at("127.0.0.1", unusedPort())}, 1h));
    QCOMPARE(errno, ECONNREFUSED);
    QVERIFY(!transport.connect({}, 1h));
}

void ConnectionTest::addressesAreTriedOneAfterTheOther() {
    const FullPort full;  // does not answer
    QTcpServer open;
    QVERIFY(open.listen(QHostAddress::LocalHost));
    const std::vector addresses{at("::1", unusedPort()), at("127.0.0.1", full.port()),
                                at("127.0.0.1", QString::number(open.serverPort()))};
    BoundedTransport transport{std::make_shared<IoLimits>(std::stop_token{})};
    QVERIFY(transport.connect(addresses, 6s));
}

void ConnectionTest::hostsAreToldApartByTheirAddresses() {
    const auto key = [](const char* numeric) { return at(numeric, QString::number(104)).hostKey(); };
    QCOMPARE(key("192.0.2.1"), std::uint64_t{0xc0000201});
    QCOMPARE(key("::ffff:192.0.2.1"), key("192.0.2.1"));
    QCOMPARE(key("2001:db8::1"), key("[2001:db8::ffff:2]"));  // one host may have all of these
    QVERIFY(key("2001:db8::1") != key("2001:db8:0:1::1"));
    QVERIFY(key("::1") != key("0.0.0.0"));
    for (const char* none : {"", "localhost", "127.0.0", "[127.0.0.1]", "::g", "1.2.3.4.5"})
        QVERIFY2(!SocketAddress::parse(none), none);
}

void ConnectionTest::readingAndWritingHaveAnEnd_data() {
    QTest::addColumn<QString>("end");
    for (const char* end : {"stop", "deadline", "silence"})
        QTest::newRow(end) << QString::fromLatin1(end);
}

void ConnectionTest::readingAndWritingHaveAnEnd() {
    QFETCH(const QString, end);
    for (const bool writes : {false, true}) {
        std::stop_source stop;
        const auto bounds = std::make_shared<IoLimits>(
            stop.get_token(),
            end == QStringLiteral("deadline") ? IoLimits::Clock::now() + 100ms : IoLimits::NoDeadline,
            Pace{.silence = end == QStringLiteral("silence") ? 100ms : IoLimits::NoLimit});
        Ends ends{bounds};
        auto result = std::async(std::launch::async, [&] { return writes ? ends.writeMuch() : ends.read(); });
        if (end == QStringLiteral("stop")) {
            QCOMPARE(result.wait_for(100ms), std::future_status::timeout);
            stop.request_stop();
        }
        QCOMPARE(result.get(), ssize_t{-1});
    }
}

void ConnectionTest::afterAStopNothingIsReadAndTheLastWordIsSent() {
    std::stop_source stop;
    Ends ends{std::make_shared<IoLimits>(stop.get_token())};
    QCOMPARE(::send(ends.other, "x", 1, 0), ssize_t{1});
    stop.request_stop();
    QCOMPARE(ends.read(), ssize_t{-1});
    char word = 'w';
    QCOMPARE(ends.near->write(&word, 1), ssize_t{1});
    ends.near->close();
    QVERIFY(ends.hasArrived());
}

void ConnectionTest::aStreamMayWantTheOtherDirection() {
    ContraryStream* stream = nullptr;
    const Ends ends{std::make_shared<IoLimits>(std::stop_token{}), [&stream](int socket) {
                        auto made = std::make_unique<ContraryStream>(socket);
                        stream = made.get();
                        return made;
                    }};
    QVERIFY(ends.near->serverSideHandshake().good());
    QCOMPARE(stream->handshakes, 2);
    QCOMPARE(::send(ends.other, "x", 1, 0), ssize_t{1});
    char word[] = "abc";  // NOLINT(modernize-avoid-c-arrays)
    QCOMPARE(ends.near->write(word, 3), ssize_t{3});
    QCOMPARE(ends.read(), ssize_t{1});  // sends what was written before
    QCOMPARE(stream->writes, 2);
    QCOMPARE(stream->reads, 2);
    std::array<char, 8> came{};
    QCOMPARE(::recv(ends.other, came.data(), came.size(), MSG_DONTWAIT), ssize_t{3});
}

void ConnectionTest::aHandshakeHasAnEnd_data() {
    QTest::addColumn<ByteStream::Kind>("kind");
    QTest::addColumn<bool>("isStopped");
    QTest::newRow("nothing comes") << ByteStream::Kind::WantsToRead << false;
    QTest::newRow("stopped") << ByteStream::Kind::WantsToRead << true;
    QTest::newRow("failed") << ByteStream::Kind::Failed << false;
    QTest::newRow("ended") << ByteStream::Kind::Ended << false;
}

void ConnectionTest::aHandshakeHasAnEnd() {
    QFETCH(const ByteStream::Kind, kind);
    QFETCH(const bool, isStopped);
    std::stop_source stop;
    auto limits = std::make_shared<IoLimits>(stop.get_token());
    if (isStopped)
        stop.request_stop();
    else
        limits->setDeadline(IoLimits::Clock::now() + std::chrono::milliseconds{200});
    const Ends ends{limits, [kind](int) { return std::make_unique<StuckStream>(kind); }};
    QVERIFY(ends.near->clientSideHandshake().bad());
}

void ConnectionTest::piecesGoOutTogether() {
    Ends ends{std::make_shared<IoLimits>(std::stop_token{})};
    char piece = 'p';
    QCOMPARE(ends.near->write(&piece, 1), ssize_t{1});
    QCOMPARE(ends.near->write(&piece, 1), ssize_t{1});
    QVERIFY(!ends.hasArrived());
    QCOMPARE(::send(ends.other, "xy", 2, 0), ssize_t{2});
    QCOMPARE(ends.read(), ssize_t{2});
    std::array<char, 4> arrived{};
    QCOMPARE(recv(ends.other, arrived.data(), arrived.size(), MSG_DONTWAIT), ssize_t{2});
}

void ConnectionTest::aGlanceSendsWhatHasWaited() {
    Ends ends{std::make_shared<IoLimits>(std::stop_token{})};
    char piece = 'p';
    QCOMPARE(ends.near->write(&piece, 1), ssize_t{1});
    QVERIFY(!ends.near->networkDataAvailable(0));  // nothing has ever been sent: that is long enough ago
    QVERIFY(ends.hasArrived());
    QCOMPARE(ends.near->write(&piece, 1), ssize_t{1});
    EVENTUALLY(!ends.near->networkDataAvailable(0) &&
               recv(ends.other, std::array<char, 4>{}.data(), 4, MSG_DONTWAIT | MSG_PEEK) == 2);
}

void ConnectionTest::aGlanceDoesNotWaitForAPeerThatTakesNothing() {
    std::stop_source stop;
    Ends ends{std::make_shared<IoLimits>(stop.get_token())};
    const std::vector<char> bytes(4096);
    while (::send(ends.near->getSocket(), bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) {
    }
    char piece = 'p';
    QCOMPARE(ends.near->write(&piece, 1), ssize_t{1});
    auto seen = std::async(std::launch::async, [&ends] {
        std::this_thread::sleep_for(20ms);  // it is no longer gathered
        return ends.near->networkDataAvailable(0) != 0;
    });
    const bool waited = seen.wait_for(10s) == std::future_status::timeout;
    stop.request_stop();
    QVERIFY(!seen.get());
    QVERIFY(!waited);
}

void ConnectionTest::aPeerThatKeepsTheRateIsWaitedFor_data() {
    QTest::addColumn<int>("rate");
    QTest::addColumn<bool>("keeps");
    QTest::newRow("slow, but fast enough") << (16 << 10) << true;
    QTest::newRow("never silent, and too slow") << (64 << 20) << false;
}

void ConnectionTest::aPeerThatKeepsTheRateIsWaitedFor() {
    QFETCH(const int, rate);
    QFETCH(const bool, keeps);
    Ends ends{
        std::make_shared<IoLimits>(std::stop_token{}, IoLimits::NoDeadline,
                                   Pace{.silence = 2s, .bytesPerSecond = static_cast<std::size_t>(rate)})};
    // Some megabytes a second, for longer than the silence.
    std::jthread reader{[&ends](const std::stop_token& stop) {
        std::vector<char> part(std::size_t{128} << 10U);
        while (!stop.stop_requested()) {
            (void)::recv(ends.other, part.data(), part.size(), MSG_DONTWAIT);
            std::this_thread::sleep_for(40ms);
        }
    }};
    QCOMPARE(ends.writeMuch() > 0, keeps);
}

void ConnectionTest::waitingIsMadeUpForByBytesAlone() {
    Patience patience{{.silence = 60s, .bytesPerSecond = 1000}};
    QCOMPARE(patience.left(), 60'000ms);
    patience.addBytes(1'000'000);  // what comes before a silence does not make it longer
    patience.addWait(59s);
    QCOMPARE(patience.left(), 1'000ms);
    patience.addBytes(20'000);
    QCOMPARE(patience.left(), 21'000ms);
    patience.addWait(22s);
    QCOMPARE(patience.left(), 0ms);
    patience.addBytes(std::numeric_limits<std::size_t>::max());
    QCOMPARE(patience.left(), 60'000ms);
    QCOMPARE(Patience{Pace{}}.left(), Pace::NoLimit);
}

QTEST_GUILESS_MAIN(ConnectionTest)
#include "tst_connection.moc"
