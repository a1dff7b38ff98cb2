#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <future>
#include <latch>

#include "dicom/data/ObjectFile.h"
#include "dicom/net/ObjectSender.h"
#include "tests/dicom/net/OutgoingBytes.h"
#include "tests/dicom/net/Peers.h"
#include "tests/dicom/net/StorePeer.h"
#include "tests/support/Eventually.h"
#include "tests/support/UnusedPort.h"
#include "tests/tessalyd/Objects.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace tessaly::dicom;
using namespace tessaly::test;
using Outcome = SendResult::Outcome;

/// Objects on their way to a peer that fails, is slow, or cannot have them.
class SendingFaultsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void aPeerThatFailsFailsAllThatFollows_data();
    void aPeerThatFailsFailsAllThatFollows();
    void storescpGivesUp_data();
    void storescpGivesUp();
    void aSlowPeerIsWaitedFor();
    void everyAnswerHasItsOwnLimit();
    void aStopEndsIt_data();
    void aStopEndsIt();
    void aStopWhileItIsConvertedIsNoFailure() const;
    void whatCannotBeReadFailsAlone_data();
    void whatCannotBeReadFailsAlone();

  private:
    QString file(const QString& name) const { return folder_.filePath(name); }

    QTemporaryDir folder_;
};

void SendingFaultsTest::aPeerThatFailsFailsAllThatFollows_data() {
    QTest::addColumn<QString>("what");
    for (const char* what : {"nobody listens", "nobody takes the connection", "unknown host", "never speaks",
                             "stops half-way", "drips", "closes", "speaks nonsense", "rejects", "aborts",
                             "no answer", "closes instead of an answer", "answers another message"})
        QTest::newRow(what) << QString::fromLatin1(what);
}

void SendingFaultsTest::aPeerThatFailsFailsAllThatFollows() {
    QFETCH(const QString, what);
    using Manner = Peer::Manner;
    const std::map<QString, Manner> manners{{u"never speaks"_s, Manner::NeverSpeaks},
                                            {u"stops half-way"_s, Manner::StopsHalfWay},
                                            {u"drips"_s, Manner::Drips},
                                            {u"closes"_s, Manner::Closes},
                                            {u"speaks nonsense"_s, Manner::SpeaksNonsense},
                                            {u"rejects"_s, Manner::Rejects},
                                            {u"aborts"_s, Manner::Aborts}};
    const std::map<QString, int> answers{{u"no answer"_s, StorePeer::Nothing},
                                         {u"closes instead of an answer"_s, StorePeer::Close},
                                         {u"answers another message"_s, StorePeer::AnotherMessage}};
    const FullPort full;
    std::unique_ptr<Peer> peer;
    std::unique_ptr<StorePeer> storePeer;
    PeerAddress destination = at(unusedPort());
    if (manners.contains(what)) {
        peer = std::make_unique<Peer>(manners.at(what));
        destination = at(peer->port());
    } else if (answers.contains(what)) {
        storePeer = std::make_unique<StorePeer>(std::vector{Explicit},
                                                [answer = answers.at(what)](int) { return answer; });
        destination = at(storePeer->port());
    } else if (what == u"nobody takes the connection"_s) {
        destination = at(full.port());
    } else if (what == u"unknown host"_s) {
        destination.host = "nowhere.invalid";
    }
    ObjectSender sender{destination, {{Ct, Explicit}}, {}, Short};
    Bytes first;
    const SendResult result = sender.send(first);
    QCOMPARE(result.outcome, Outcome::Failed);
    QVERIFY(!result.detail.empty());
    QVERIFY(sender.failure());
    Bytes second;
    QCOMPARE(sender.send(second).detail, result.detail);
    if (peer)
        QCOMPARE(peer->connections(), 1);
    if (storePeer)
        QCOMPARE(storePeer->received().size(), 1);
}

void SendingFaultsTest::storescpGivesUp_data() {
    QTest::addColumn<QString>("option");
    for (const char* option : {"--refuse", "--abort-during", "--abort-after"})
        QTest::newRow(option) << QString::fromLatin1(option);
}

void SendingFaultsTest::storescpGivesUp() {
    QFETCH(const QString, option);
    const auto peer = Product::storescp({option, u"--ignore"_s});
    ObjectFile object{writeObject({.side = 1000}, file(u"one.dcm"_s)).toStdString()};
    ObjectSender sender{at(peer->port()), {object.kind()}, {}};
    QCOMPARE(sender.send(object).outcome, Outcome::Failed);
    QVERIFY(sender.failure());
}

void SendingFaultsTest::aSlowPeerIsWaitedFor() {
    const auto peer =
        Product::storescp({u"--sleep-during"_s, u"1"_s, u"--sleep-after"_s, u"1"_s, u"--ignore"_s});
    ObjectSender sender{at(peer->port()), {{Ct, Explicit}}, {}};
    ObjectFile object{writeObject({}, file(u"one.dcm"_s)).toStdString()};
    const SendResult result = sender.send(object);
    QVERIFY2(result.outcome == Outcome::Success, result.detail.c_str());
}

void SendingFaultsTest::everyAnswerHasItsOwnLimit() {
    // Together the answers take longer than the limit; each leaves nine tenths of it to a busy machine.
    const StorePeer peer{{Explicit}, [](int) {
                             std::this_thread::sleep_for(420ms);
                             return 0;
                         }};
    ObjectSender sender{at(peer.port()), {{Ct, Explicit}}, {}, {.connect = 10s, .silence = 4s}};
    for (int i = 0; i < 10; ++i) {
        Bytes object;
        const SendResult result = sender.send(object);
        QVERIFY2(result.outcome == Outcome::Success, result.detail.c_str());
    }
}

void SendingFaultsTest::aStopEndsIt_data() {
    QTest::addColumn<QString>("when");
    for (const char* when : {"while connecting", "while associating", "while it is sent", "before the answer",
                             "before it begins"})
        QTest::newRow(when) << QString::fromLatin1(when);
}

void SendingFaultsTest::aStopEndsIt() {
    QFETCH(const QString, when);
    const FullPort full;
    const Peer silent{Peer::Manner::NeverSpeaks};
    std::latch goOn{1};
    std::atomic<bool> asked = false;
    const StorePeer peer{{Explicit}, [&](int) {
                             asked = true;
                             goOn.wait();
                             return int{StorePeer::Close};
                         }};
    const bool isSent = when == u"while it is sent"_s;
    const PeerAddress destination = when == u"while connecting"_s    ? at(full.port())
                                    : when == u"while associating"_s ? at(silent.port())
                                                                     : at(peer.port());
    std::stop_source stop;
    if (when == u"before it begins"_s)
        stop.request_stop();
    auto result = std::async(std::launch::async, [&] {
        ObjectSender sender{destination, {{Ct, Explicit}}, stop.get_token(), Long};
        Bytes blocked;
        if (!isSent)
            return sender.send(blocked);
        Bytes endless{std::size_t{1} << 40U};
        return sender.send(endless);
    });
    if (when == u"before the answer"_s)
        EVENTUALLY(asked);
    else if (isSent)
        EVENTUALLY_COMPARE(peer.received().size(), 1);
    else if (when != u"before it begins"_s)
        QCOMPARE(result.wait_for(100ms), std::future_status::timeout);
    stop.request_stop();
    const SendResult stopped = result.get();  // whatever the peer does, which waits for the test
    goOn.count_down();
    QCOMPARE(stopped.outcome, Outcome::Stopped);
}

void SendingFaultsTest::aStopWhileItIsConvertedIsNoFailure() const {
    struct Stopped : Bytes {
        explicit Stopped(std::stop_source& source) : Bytes(100, {Ct, Rle}), stop(source) {}
        [[nodiscard]] std::unique_ptr<OutgoingObject> in(const std::string& /*syntax*/) override {
            stop.request_stop();
            throw std::runtime_error{"stopped"};
        }
        std::stop_source& stop;
    };
    const StorePeer peer{{Explicit}, &alwaysSuccess};
    std::stop_source stop;
    ObjectSender sender{at(peer.port()), {{Ct, Rle}}, stop.get_token()};
    Stopped object{stop};
    QCOMPARE(sender.send(object).outcome, Outcome::Stopped);
}

void SendingFaultsTest::whatCannotBeReadFailsAlone_data() {
    QTest::addColumn<int>("failsAt");
    QTest::addColumn<int>("associations");
    QTest::newRow("from the beginning") << 0 << 1;
    QTest::newRow("in the middle") << 1'000'000 << 2;
}

void SendingFaultsTest::whatCannotBeReadFailsAlone() {
    QFETCH(const int, failsAt);
    QFETCH(const int, associations);
    const StorePeer peer{{Explicit}, &alwaysSuccess};
    ObjectSender sender{at(peer.port()), {{Ct, Explicit}}, {}};
    Bytes before;
    QCOMPARE(sender.send(before).outcome, Outcome::Success);
    Bytes faulty{2'000'000};
    faulty.failsAt = static_cast<std::size_t>(failsAt);
    const SendResult result = sender.send(faulty);
    QCOMPARE(result.outcome, Outcome::Failed);
    QCOMPARE(result.detail, std::string{"the disk fails"});
    QVERIFY(!sender.failure());
    Bytes after;
    QCOMPARE(sender.send(after).outcome, Outcome::Success);
    QCOMPARE(peer.associations(), associations);
}

QTEST_GUILESS_MAIN(SendingFaultsTest)
#include "tst_sendingfaults.moc"
