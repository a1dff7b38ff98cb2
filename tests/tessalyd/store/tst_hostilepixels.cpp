#include <QTest>
#include <csignal>
#include <future>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/Encapsulated.h"
#include "tests/tessalyd/Processes.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// Objects that are well-formed and bad for whoever decodes them, on a port that does.
class HostilePixelsTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase() { needCodecs(); }
    void framesThatWrapThirtyTwoBitsEndNoServer();
    void aShortRunLengthFrameShowsNoOtherSendersMemory();
    void anEndlessStreamKeepsNoThread();
    void aTerminateEndsADecoder();
    void aStopEndsADecoder();
    void aSmallStreamMakesNoLargeFile();
    void framesThatDoNotMatchAreKeptAsTheyCame_data();
    void framesThatDoNotMatchAreKeptAsTheyCame();
    void aFrameInPartsIsDecoded_data();
    void aFrameInPartsIsDecoded();
    void whatIsDecodedAtOnceIsLimited();
    void aKilledDecoderIsReplaced();
    void neitherServerNorDecoderLeavesACore();

  private:
    void launchDecoding(const QStringList& arguments = {}) {
        daemon_ = std::make_unique<Daemon>(QList<PortRow>{{.saveCompressed = false}});
        daemon_->database.run(u"UPDATE DicomServer SET LogLevel=2"_s);  // warnings
        daemon_->launch(arguments);
    }
    RequestorAssociation::Answer send(const QByteArray& object, E_TransferSyntax syntax) const {
        RequestorAssociation peer{daemon_->port(),
                                  "TESTER",
                                  "TESSALY",
                                  {{UID_VerificationSOPClass, {UID_LittleEndianImplicitTransferSyntax}},
                                   {UID_CTImageStorage, {DcmXfer{syntax}.getXferID()}}}};
        auto answer =
            peer.storeBytes(ObjectSpec{}.instance, {object.data(), static_cast<std::size_t>(object.size())});
        peer.release();
        return answer;
    }
    /// The object is stored, its bytes are as they came, the log says so, and the server goes on.
    void expectKept(const QByteArray& object) {
        QCOMPARE(daemon_->files().size(), 1);
        QVERIFY(dataSetOf(daemon_->files().first()) == object);
        EVENTUALLY(!daemon_->isBusy());
        QVERIFY2(daemon_->log().contains(u"cannot be decoded; it is stored as it came"_s),
                 qPrintable(daemon_->log()));
        RequestorAssociation peer{daemon_->port()};
        QVERIFY(peer.echo());
    }
    /// The process that decodes now; 0 where none does.
    [[nodiscard]] int worker() const {
        for (const int decoder : childrenOf(daemon_->process.processId())) {
            for (const int child : childrenOf(decoder))
                return child;
        }
        return 0;
    }
};

namespace {

const ImageSpec Small{.bits = 8, .stored = 8};

/// Takes longer than anybody waits.
QByteArray slowObject() {
    ImageSpec image;
    return manyLargeFrames(image, 127);
}

}  // namespace

void HostilePixelsTest::framesThatWrapThirtyTwoBitsEndNoServer() {
    launchDecoding();
    ImageSpec image;
    const QByteArray object = manyLargeFrames(image);
    QVERIFY(object.size() < 500'000);
    QCOMPARE(send(object, EXS_JPEGLSLossless).status, 0);
    expectKept(object);
}

void HostilePixelsTest::aShortRunLengthFrameShowsNoOtherSendersMemory() {
    launchDecoding();
    const QByteArray marker = "OTHER-PATIENT-OTHER-PATIENT-";
    ImageSpec large = Small;
    large.rows = large.columns = 512;
    large.object.instance = "1.2.826.0.1.1.1.9";
    QByteArray pixels;
    while (pixels.size() < large.frameSize())
        pixels += marker;
    pixels.truncate(large.frameSize());
    const QByteArray other = encapsulated(large, {encodedFrame(large, pixels, EXS_RLELossless)});
    const QByteArray frame = encodedFrame(Small, framePixels(Small), EXS_RLELossless);
    ImageSpec claims = large;
    claims.object.instance = ObjectSpec{}.instance;
    const QByteArray hostile = encapsulated(claims, {frame});
    for (int round = 0; round < 5; ++round) {
        RequestorAssociation sender{daemon_->port(),
                                    "OTHER",
                                    "TESSALY",
                                    {{UID_VerificationSOPClass, {UID_LittleEndianImplicitTransferSyntax}},
                                     {UID_CTImageStorage, {UID_RLELosslessTransferSyntax}}}};
        QCOMPARE(
            sender.storeBytes(large.object.instance, {other.data(), static_cast<std::size_t>(other.size())})
                .status,
            0);
        QCOMPARE(send(hostile, EXS_RLELossless).status, 0);
        for (const Daemon::Image& image : daemon_->images()) {
            const bool isOther = image.instance == QString::fromStdString(large.object.instance);
            QCOMPARE(dataSetOf(image.file).contains(marker), isOther);
            if (!isOther)
                QVERIFY(dataSetOf(image.file) == hostile);
        }
    }
}

void HostilePixelsTest::anEndlessStreamKeepsNoThread() {
    launchDecoding();
    const QByteArray object = encapsulated(Small, {endlessJpeg()});
    QCOMPARE(send(object, EXS_JPEGProcess14SV1).status, 0);
    expectKept(object);
    QVERIFY(daemon_->terminate());
}

void HostilePixelsTest::aTerminateEndsADecoder() {
    launchDecoding();
    const QByteArray object = slowObject();
    auto sent = std::async(std::launch::async, [&] { return send(object, EXS_JPEGLSLossless); });
    int decoding = 0;
    EVENTUALLY((decoding = worker()) != 0);
    QCOMPARE(::kill(decoding, SIGSTOP), 0);  // it would never end by itself
    QVERIFY(daemon_->terminate());
    EVENTUALLY(hasEnded(decoding));
    sent.wait();
    for (const QString& file : daemon_->files())  // whole, or not at all
        QVERIFY(dataSetOf(file) == object);
}

void HostilePixelsTest::aStopEndsADecoder() {
    launchDecoding({u"--grace"_s, u"0"_s});
    const QByteArray object = slowObject();
    auto sent = std::async(std::launch::async, [&] { return send(object, EXS_JPEGLSLossless); });
    int decoding = 0;
    EVENTUALLY((decoding = worker()) != 0);
    QCOMPARE(::kill(decoding, SIGSTOP), 0);  // it would never end by itself
    QVERIFY(daemon_->succeeds(&OrgTessalyServer1Interface::Stop));
    EVENTUALLY(!daemon_->isBusy());
    EVENTUALLY(hasEnded(decoding));
    sent.wait();
    for (const QString& file : daemon_->files())
        QVERIFY(dataSetOf(file) == object);
}

void HostilePixelsTest::aSmallStreamMakesNoLargeFile() {
    launchDecoding();
    ImageSpec image = Small;
    image.rows = image.columns = 65535;
    const QByteArray object =
        encapsulated(image, {encodedFrame(Small, framePixels(Small), EXS_JPEGProcess14SV1)});
    QCOMPARE(send(object, EXS_JPEGProcess14SV1).status, 0);
    expectKept(object);
}

void HostilePixelsTest::framesThatDoNotMatchAreKeptAsTheyCame_data() {
    QTest::addColumn<QByteArray>("object");
    const QByteArray frame = encodedFrame(Small, framePixels(Small), EXS_JPEGProcess14SV1);
    const auto row = [](const char* name, const ImageSpec& image, const QByteArrayList& fragments) {
        QTest::newRow(name) << encapsulated(image, fragments);
    };
    ImageSpec image = Small;
    row("five fragments and no number of frames", image, QByteArrayList(5, frame));
    image.frames = std::string{"3"};
    row("three announced and one there", image, {frame});
    image.frames = std::string{"2"};
    row("two announced and three there", image, QByteArrayList(3, frame));
    image = Small;
    image.rows = image.columns = 512;
    row("a small stream under a large image", image, {frame});
    image.rows = image.columns = 32;
    row("a large stream under a small image", image, {frame});
}

void HostilePixelsTest::framesThatDoNotMatchAreKeptAsTheyCame() {
    QFETCH(const QByteArray, object);
    launchDecoding();
    QCOMPARE(send(object, EXS_JPEGProcess14SV1).status, 0);
    expectKept(object);
}

void HostilePixelsTest::aFrameInPartsIsDecoded_data() {
    QTest::addColumn<int>("first");
    QTest::newRow("in parts") << 200;
    QTest::newRow("split within its header") << 6;
}

void HostilePixelsTest::aFrameInPartsIsDecoded() {
    QFETCH(const int, first);
    launchDecoding();
    const QByteArray pixels = framePixels(Small);
    const QByteArray frame = encodedFrame(Small, pixels, EXS_JPEGProcess14SV1);
    QCOMPARE(send(encapsulated(Small, inParts(frame, first, 300)), EXS_JPEGProcess14SV1).status, 0);
    QCOMPARE(daemon_->files().size(), 1);
    QCOMPARE(syntaxOf(daemon_->files().first()), EXS_LittleEndianExplicit);
    QVERIFY(pixelsOf(daemon_->files().first()) == pixels);
}

void HostilePixelsTest::whatIsDecodedAtOnceIsLimited() {
    launchDecoding({u"--decode-limit"_s, QString::number(1024 * 1024)});
    ImageSpec image = Small;
    image.rows = image.columns = 1024;
    const QByteArray most = encapsulated(image, {encodedFrame(image, flatPixels(image), EXS_JPEGLSLossless)});
    QCOMPARE(send(most, EXS_JPEGLSLossless).status, 0);
    QCOMPARE(syntaxOf(daemon_->files().first()), EXS_LittleEndianExplicit);
    image.rows = 1025;
    const QByteArray more = encapsulated(image, {encodedFrame(image, flatPixels(image), EXS_JPEGLSLossless)});
    QCOMPARE(send(more, EXS_JPEGLSLossless).status, 0);
    expectKept(more);
    QVERIFY(daemon_->log().contains(u"its header promises more than may be decoded at once"_s));
}

void HostilePixelsTest::aKilledDecoderIsReplaced() {
    launchDecoding();
    const QByteArray pixels = framePixels(Small);
    const QByteArray object = encapsulated(Small, {encodedFrame(Small, pixels, EXS_JPEGLSLossless)});
    QCOMPARE(send(object, EXS_JPEGLSLossless).status, 0);
    const QList<int> decoders = childrenOf(daemon_->process.processId());
    QCOMPARE(decoders.size(), 1);
    QCOMPARE(statusOf(decoders.first(), "Seccomp"), u"2"_s);
    QCOMPARE(::kill(decoders.first(), SIGKILL), 0);
    QCOMPARE(send(object, EXS_JPEGLSLossless).status, 0);
    QCOMPARE(daemon_->files().size(), 1);
    QVERIFY(pixelsOf(daemon_->files().first()) == pixels);
    daemon_->kill();  // its decoders go with it
    for (const int decoder : decoders)
        EVENTUALLY(hasEnded(decoder));
}

void HostilePixelsTest::neitherServerNorDecoderLeavesACore() {
    launchDecoding();
    const QByteArray object =
        encapsulated(Small, {encodedFrame(Small, framePixels(Small), EXS_JPEGLSLossless)});
    QCOMPARE(send(object, EXS_JPEGLSLossless).status, 0);
    const qint64 server = daemon_->process.processId();
    for (const qint64 process : {server, qint64{childrenOf(server).value(0)}}) {
        QCOMPARE(limitOf(process, "Max core file size"), u"0"_s);
        // What cannot be dumped belongs to root, whoever runs it: that is what nobody else may look into.
        QCOMPARE(QFileInfo{u"/proc/%1/environ"_s.arg(process)}.ownerId(), 0U);
    }
}

QTEST_GUILESS_MAIN(HostilePixelsTest)
#include "tst_hostilepixels.moc"
