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

namespace {

const std::string Implicit = UID_LittleEndianImplicitTransferSyntax;
const std::string Explicit = UID_LittleEndianExplicitTransferSyntax;
const std::string Rle = UID_RLELosslessTransferSyntax;
const std::string Ct = UID_CTImageStorage;

/// No test waits for a peer's limit in vain.
constexpr ObjectSender::Limits Short{.connect = 300ms, .silence = 300ms};
constexpr ObjectSender::Limits Long{.connect = 1h, .silence = 1h};

PeerAddress at(std::uint16_t port) {
    return {.host = "127.0.0.1", .port = port, .callingAeTitle = "TESSALY", .calledAeTitle = "PEER"};
}
PeerAddress at(const QString& port) {
    return at(port.toUShort());
}

/// An object that is nothing but a number of bytes.
class Bytes : public OutgoingObject {
  public:
    explicit Bytes(std::size_t size = 100, ObjectKind kind = {Ct, Explicit})
        : kind_(std::move(kind)), size_(size) {}

    [[nodiscard]] const ObjectKind& kind() const noexcept override { return kind_; }
    [[nodiscard]] const std::string& sopInstanceUid() const noexcept override { return instance_; }
    [[nodiscard]] std::size_t size() const noexcept override { return size_; }
    void read(std::span<char> target) override {
        at_ += target.size();
        if (at_ > failsAt)
            throw std::runtime_error{"the disk fails"};
        std::fill(target.begin(), target.end(), '\0');
    }
    [[nodiscard]] std::unique_ptr<OutgoingObject> in(const std::string& syntax) override {
        return syntax == convertsTo ? std::make_unique<Bytes>(size_, ObjectKind{kind_.sopClass, syntax})
                                    : nullptr;
    }

    std::size_t failsAt = std::numeric_limits<std::size_t>::max();
    std::string convertsTo;

  private:
    ObjectKind kind_;
    std::string instance_ = "1.2.3.4";
    std::size_t size_;
    std::size_t at_ = 0;
};

int alwaysSuccess(int /*number*/) {
    return 0;
}

}  // namespace

/// Objects on their way to a peer, good or bad.
class SendingTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theBytesArriveAsTheyAreStored_data();
    void theBytesArriveAsTheyAreStored();
    void whatThePeerDoesNotTakeIsConverted_data();
    void whatThePeerDoesNotTakeIsConverted();
    void statusesAreToldApart_data();
    void statusesAreToldApart();
    void theOriginatorIsNamed();
    void moreClassesThanAnAssociationHasRoomForAreSent();
    void whatIsNotKnownIsNotProposed();
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

void SendingTest::theBytesArriveAsTheyAreStored_data() {
    QTest::addColumn<int>("syntax");
    QTest::addColumn<int>("side");
    QTest::newRow("implicit") << int{EXS_LittleEndianImplicit} << 64;
    QTest::newRow("explicit") << int{EXS_LittleEndianExplicit} << 64;
    QTest::newRow("explicit, 18 MB") << int{EXS_LittleEndianExplicit} << 3000;
    QTest::newRow("big endian") << int{EXS_BigEndianExplicit} << 64;
    QTest::newRow("RLE") << int{EXS_RLELossless} << 64;
    QTest::newRow("JPEG") << int{EXS_JPEGProcess14SV1} << 64;
    QTest::newRow("JPEG-LS") << int{EXS_JPEGLSLossless} << 64;
}

void SendingTest::theBytesArriveAsTheyAreStored() {
    QFETCH(const int, syntax);
    QFETCH(const int, side);
    const QString path =
        writeObject({.side = side}, file(u"one.dcm"_s), static_cast<E_TransferSyntax>(syntax));
    const auto peer = Product::storescp({u"+xa"_s, u"+B"_s, u"-od"_s, u"%FOLDER%"_s});
    ObjectFile object{path.toStdString()};
    {
        ObjectSender sender{at(peer->port()), {object.kind()}, {}};
        const SendResult result = sender.send(object);
        QVERIFY2(result.outcome == Outcome::Success, result.detail.c_str());
    }
    const QDir taken{peer->folder()};
    const QStringList copies = taken.entryList({u"CT.*"_s}, QDir::Files);  // it was answered: it is there
    QCOMPARE(copies.size(), 1);
    const QString copy = taken.filePath(copies.first());
    QCOMPARE(syntaxOf(copy), static_cast<E_TransferSyntax>(syntax));
    QVERIFY(dataSetOf(copy) == dataSetOf(path));
}

void SendingTest::whatThePeerDoesNotTakeIsConverted_data() {
    QTest::addColumn<QString>("takes");
    QTest::addColumn<QString>("convertsTo");
    QTest::addColumn<QString>("arrives");
    const auto text = [](const std::string& uid) { return QString::fromStdString(uid); };
    QTest::newRow("as it is") << text(Rle) << QString{} << text(Rle);
    QTest::newRow("explicit") << text(Explicit) << text(Explicit) << text(Explicit);
    QTest::newRow("implicit") << text(Implicit) << text(Implicit) << text(Implicit);
    QTest::newRow("not at all") << text(Explicit) << QString{} << QString{};
    QTest::newRow("nothing in common") << text(UID_JPEG2000TransferSyntax) << text(Explicit) << QString{};
}

void SendingTest::whatThePeerDoesNotTakeIsConverted() {
    QFETCH(const QString, takes);
    QFETCH(const QString, convertsTo);
    QFETCH(const QString, arrives);
    const StorePeer peer{{takes.toStdString()}, &alwaysSuccess};
    ObjectSender sender{at(peer.port()), {{Ct, Rle}}, {}};
    for (int i = 0; i < 2; ++i) {
        Bytes object{100, {Ct, Rle}};
        object.convertsTo = convertsTo.toStdString();
        const SendResult result = sender.send(object);
        QCOMPARE(result.outcome, arrives.isEmpty() ? Outcome::Failed : Outcome::Success);
        QCOMPARE(result.detail.empty(), !arrives.isEmpty());
    }
    QVERIFY(!sender.failure());
    QCOMPARE(peer.associations(), 1);
    QCOMPARE(peer.received().size(), arrives.isEmpty() ? 0 : 2);
    for (const StorePeer::Received& one : peer.received())
        QCOMPARE(QString::fromStdString(one.syntax), arrives);
}

void SendingTest::statusesAreToldApart_data() {
    QTest::addColumn<int>("status");
    QTest::addColumn<Outcome>("outcome");
    const auto row = [](int status, Outcome outcome) {
        QTest::newRow(qPrintable(u"%1"_s.arg(status, 4, 16, QChar{u'0'}))) << status << outcome;
    };
    row(0x0000, Outcome::Success);
    for (const int warning : {0x0001, 0x0107, 0x0116, 0xb000, 0xb006, 0xb007})
        row(warning, Outcome::Warning);
    for (const int failure : {0x0111, 0x0122, 0x0124, 0xa700, 0xa900, 0xc000, 0xfe00, 0xff00})
        row(failure, Outcome::Failed);
}

void SendingTest::statusesAreToldApart() {
    QFETCH(const int, status);
    QFETCH(const Outcome, outcome);
    const StorePeer peer{{Explicit}, [status](int) { return status; }};
    ObjectSender sender{at(peer.port()), {{Ct, Explicit}}, {}};
    for (int i = 0; i < 2; ++i) {  // the association goes on
        Bytes object;
        const SendResult result = sender.send(object);
        QCOMPARE(result.outcome, outcome);
        QCOMPARE(int{result.status}, status);
        QCOMPARE(result.detail.empty(), outcome == Outcome::Success);
    }
    QCOMPARE(peer.associations(), 1);
}

void SendingTest::theOriginatorIsNamed() {
    const StorePeer peer{{Explicit}, &alwaysSuccess};
    ObjectSender sender{at(peer.port()), {{Ct, Explicit}}, {}};
    const MoveOriginator originator{"WORKSTATION", 4711};
    Bytes first;
    Bytes second;
    QCOMPARE(sender.send(first, &originator).outcome, Outcome::Success);
    QCOMPARE(sender.send(second).outcome, Outcome::Success);
    const auto received = peer.received();
    QCOMPARE(received.size(), 2);
    const T_DIMSE_C_StoreRQ& moved = received[0].command;
    QCOMPARE(moved.AffectedSOPClassUID, Ct.c_str());
    QCOMPARE(moved.AffectedSOPInstanceUID, "1.2.3.4");
    QCOMPARE(moved.MoveOriginatorApplicationEntityTitle, "WORKSTATION");
    QCOMPARE(int{moved.MoveOriginatorID}, 4711);
    QCOMPARE(moved.opts & 3U, unsigned{O_STORE_MOVEORIGINATORAETITLE | O_STORE_MOVEORIGINATORID});
    QCOMPARE(received[1].command.opts & 3U, 0U);
    QVERIFY(moved.MessageID != received[1].command.MessageID);
}

void SendingTest::whatIsNotKnownIsNotProposed() {
    const ContextPlan plan{{{Ct, ""}, {"", ""}, {"", Rle}}};
    QCOMPARE(plan.associations(), std::size_t{1});
    QCOMPARE(plan.contexts(0).size(), std::size_t{1});
    QCOMPARE(plan.contexts(0).front().sopClass, Ct);
    QCOMPARE(plan.contexts(0).front().transferSyntaxes, (std::vector{Explicit, Implicit}));
    QVERIFY(!plan.associationOf(""));
    const ContextPlan nothing{std::vector<ObjectKind>{{"", ""}}};
    QCOMPARE(nothing.associations(), std::size_t{0});
}

void SendingTest::moreClassesThanAnAssociationHasRoomForAreSent() {
    std::vector<ObjectKind> kinds;
    for (int i = 0; i < numberOfDcmAllStorageSOPClassUIDs; ++i) {
        for (const std::string& syntax : {Rle, Explicit})
            kinds.push_back({dcmAllStorageSOPClassUIDs[i], syntax});
    }
    const ContextPlan plan{kinds};
    QVERIFY(plan.associations() > 2);
    for (std::size_t i = 0; i < plan.associations(); ++i)
        QVERIFY(plan.contexts(i).size() <= 128);

    const StorePeer peer{{Rle, Explicit}, &alwaysSuccess};
    ObjectSender sender{at(peer.port()), kinds, {}};
    std::stable_sort(kinds.begin(), kinds.end(), [&sender](const ObjectKind& a, const ObjectKind& b) {
        return sender.associationOf(a.sopClass) < sender.associationOf(b.sopClass);
    });
    for (const ObjectKind& kind : kinds) {
        Bytes object{100, kind};
        const SendResult result = sender.send(object);
        QVERIFY2(result.outcome == Outcome::Success, result.detail.c_str());
    }
    QCOMPARE(peer.associations(), static_cast<int>(plan.associations()));
    const auto received = peer.received();
    QCOMPARE(received.size(), static_cast<qsizetype>(kinds.size()));
    for (qsizetype i = 0; i < received.size(); ++i) {
        const ObjectKind& kind = kinds.at(static_cast<std::size_t>(i));
        QCOMPARE(received[i].syntax, kind.transferSyntax);
        QCOMPARE(received[i].command.AffectedSOPClassUID, kind.sopClass.c_str());
    }
    Bytes stranger{100, {UID_VerificationSOPClass, Explicit}};
    QCOMPARE(sender.send(stranger).outcome, Outcome::Failed);
    QVERIFY(!sender.failure());
}

void SendingTest::aPeerThatFailsFailsAllThatFollows_data() {
    QTest::addColumn<QString>("what");
    for (const char* what : {"nobody listens", "nobody takes the connection", "unknown host", "never speaks",
                             "stops half-way", "drips", "closes", "speaks nonsense", "rejects", "aborts",
                             "no answer", "closes instead of an answer", "answers another message"})
        QTest::newRow(what) << QString::fromLatin1(what);
}

void SendingTest::aPeerThatFailsFailsAllThatFollows() {
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

void SendingTest::storescpGivesUp_data() {
    QTest::addColumn<QString>("option");
    for (const char* option : {"--refuse", "--abort-during", "--abort-after"})
        QTest::newRow(option) << QString::fromLatin1(option);
}

void SendingTest::storescpGivesUp() {
    QFETCH(const QString, option);
    const auto peer = Product::storescp({option, u"--ignore"_s});
    ObjectFile object{writeObject({.side = 1000}, file(u"one.dcm"_s)).toStdString()};
    ObjectSender sender{at(peer->port()), {object.kind()}, {}};
    QCOMPARE(sender.send(object).outcome, Outcome::Failed);
    QVERIFY(sender.failure());
}

void SendingTest::aSlowPeerIsWaitedFor() {
    const auto peer =
        Product::storescp({u"--sleep-during"_s, u"1"_s, u"--sleep-after"_s, u"1"_s, u"--ignore"_s});
    ObjectSender sender{at(peer->port()), {{Ct, Explicit}}, {}};
    ObjectFile object{writeObject({}, file(u"one.dcm"_s)).toStdString()};
    const SendResult result = sender.send(object);
    QVERIFY2(result.outcome == Outcome::Success, result.detail.c_str());
}

void SendingTest::everyAnswerHasItsOwnLimit() {
    const StorePeer peer{{Explicit}, [](int) {
                             std::this_thread::sleep_for(300ms);
                             return 0;
                         }};
    ObjectSender sender{at(peer.port()), {{Ct, Explicit}}, {}, {.connect = 10s, .silence = 1s}};
    for (int i = 0; i < 5; ++i) {
        Bytes object;
        const SendResult result = sender.send(object);
        QVERIFY2(result.outcome == Outcome::Success, result.detail.c_str());
    }
}

void SendingTest::aStopEndsIt_data() {
    QTest::addColumn<QString>("when");
    for (const char* when : {"while connecting", "while associating", "while it is sent", "before the answer",
                             "before it begins"})
        QTest::newRow(when) << QString::fromLatin1(when);
}

void SendingTest::aStopEndsIt() {
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

void SendingTest::aStopWhileItIsConvertedIsNoFailure() const {
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

void SendingTest::whatCannotBeReadFailsAlone_data() {
    QTest::addColumn<int>("failsAt");
    QTest::addColumn<int>("associations");
    QTest::newRow("from the beginning") << 0 << 1;
    QTest::newRow("in the middle") << 1'000'000 << 2;
}

void SendingTest::whatCannotBeReadFailsAlone() {
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

QTEST_GUILESS_MAIN(SendingTest)
#include "tst_sending.moc"
