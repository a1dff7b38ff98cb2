#include <dcmtk/dcmdata/dcdeftag.h>

#include <csignal>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/Encapsulated.h"
#include "tests/tessalyd/Processes.h"
#include "tests/tessalyd/services/retrieve/MoveTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// Objects that are decoded for whoever fetches them, planted by somebody on a port that keeps what comes.
class ConversionsTest : public MoveTest {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase() { needCodecs(); }
    void whatCannotBeDecodedFailsAlone_data();
    void whatCannotBeDecodedFailsAlone();
    void noOtherSendersMemoryIsSent();
    void aCancelEndsADecoder_data();
    void aCancelEndsADecoder();
    void aTerminateEndsADecoder_data();
    void aTerminateEndsADecoder();
    void aRequestorThatVanishesEndsADecoder();
    void whoWaitsIsToldHowFarItIs();

  private:
    static void byModel() {
        QTest::addColumn<bool>("isMove");
        QTest::newRow("C-GET") << false;
        QTest::newRow("C-MOVE") << true;
    }
    /// Stores the object as it is.
    void plant(const QByteArray& object, E_TransferSyntax syntax, const std::string& instance) {
        RequestorAssociation peer{daemon_->port(),
                                  "TESTER",
                                  "TESSALY",
                                  {{UID_VerificationSOPClass, {UID_LittleEndianImplicitTransferSyntax}},
                                   {UID_CTImageStorage, {DcmXfer{syntax}.getXferID()}}}};
        QCOMPARE(peer.storeBytes(instance, {object.data(), static_cast<std::size_t>(object.size())}).status,
                 0);
        peer.release();
    }
    DIC_US ask(Retriever& viewer, bool isMove) {
        return isMove ? askForMove(viewer) : viewer.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
    }
    /// The process that decodes now; 0 where none does.
    [[nodiscard]] int worker() const {
        for (const int decoder : childrenOf(daemon_->process.processId())) {
            for (const int child : childrenOf(decoder))
                return child;
        }
        return 0;
    }
    void plantSlow() {
        ImageSpec slow;
        const QByteArray object = manyLargeFrames(slow, 127);
        plant(object, EXS_JPEGLSLossless, slow.object.instance);
    }
};

namespace {

const ImageSpec Small{.bits = 8, .stored = 8};

}  // namespace

void ConversionsTest::whatCannotBeDecodedFailsAlone_data() {
    QTest::addColumn<bool>("isMove");
    QTest::addColumn<int>("syntax");
    QTest::addColumn<QByteArray>("object");
    const QByteArray frame = encodedFrame(Small, framePixels(Small), EXS_JPEGProcess14SV1);
    for (const bool isMove : {false, true}) {
        const char* how = isMove ? "C-MOVE" : "C-GET";
        const auto row = [=](const char* name, int syntax, const QByteArray& object) {
            QTest::addRow("%s, %s", how, name) << isMove << syntax << object;
        };
        ImageSpec image;
        row("sizes beyond 32 bits", EXS_JPEGLSLossless, manyLargeFrames(image));
        row("a loop of markers", EXS_JPEGProcess14SV1, encapsulated(Small, {endlessJpeg()}));
        image = Small;
        image.rows = image.columns = 65535;
        row("a small stream under the largest image", EXS_JPEGProcess14SV1, encapsulated(image, {frame}));
        row("five fragments and no number of frames", EXS_JPEGProcess14SV1,
            encapsulated(Small, QByteArrayList(5, frame)));
    }
}

void ConversionsTest::whatCannotBeDecodedFailsAlone() {
    QFETCH(const bool, isMove);
    QFETCH(const int, syntax);
    QFETCH(const QByteArray, object);
    const Receiver receiver;  // little endian alone
    launchWith({destination(receiver.port)});
    const ObjectSpec good{.instance = "1.2.826.0.1.1.1.2"};
    QCOMPARE(store(good).status, 0);
    plant(object, static_cast<E_TransferSyntax>(syntax), ObjectSpec{}.instance);
    Retriever viewer{daemon_->port()};
    for (int round = 0; round < 2; ++round) {  // it is no lasting harm
        ask(viewer, isMove);
        const Retrieved got = viewer.collect();
        QCOMPARE(got.status, 0xb000);
        QCOMPARE(got.counters, (Progress{-1, 1, 1, 0}));
        QCOMPARE(got.failed, QStringList{QString::fromStdString(ObjectSpec{}.instance)});
    }
    QVERIFY2(daemon_->log().contains(u"it cannot be decoded: "_s), qPrintable(daemon_->log()));
    viewer.release();
    QVERIFY(daemon_->terminate());
}

void ConversionsTest::noOtherSendersMemoryIsSent() {
    launchWith();
    const QByteArray marker = "OTHER-PATIENT-OTHER-PATIENT-";
    ImageSpec large = Small;
    large.rows = large.columns = 512;
    QByteArray pixels;
    while (pixels.size() < large.frameSize())
        pixels += marker;
    pixels.truncate(large.frameSize());
    large.object.instance = "1.2.826.0.1.1.1.9";
    plant(encapsulated(large, {encodedFrame(large, pixels, EXS_RLELossless)}), EXS_RLELossless,
          large.object.instance);
    large.object.instance = ObjectSpec{}.instance;
    plant(encapsulated(large, {encodedFrame(Small, framePixels(Small), EXS_RLELossless)}), EXS_RLELossless,
          large.object.instance);
    Retriever viewer{daemon_->port()};
    for (int round = 0; round < 5; ++round) {
        ask(viewer, false);
        const Retrieved got = viewer.collect();
        QCOMPARE(got.counters, (Progress{-1, 1, 1, 0}));
        QCOMPARE(got.objects.size(), 1);
        QVERIFY(got.objects.value(u"1.2.826.0.1.1.1.9"_s).contains(marker));
    }
}

void ConversionsTest::aCancelEndsADecoder_data() {
    byModel();
}

void ConversionsTest::aCancelEndsADecoder() {
    QFETCH(const bool, isMove);
    const Receiver receiver;
    launchWith({destination(receiver.port)});
    plantSlow();
    Retriever viewer{daemon_->port()};
    const DIC_US message = ask(viewer, isMove);
    int decoding = 0;
    EVENTUALLY((decoding = worker()) != 0);
    QCOMPARE(::kill(decoding, SIGSTOP), 0);  // it would never end by itself
    viewer.cancel(isMove ? Retriever::MoveStudyRoot : Retriever::GetStudyRoot, message);
    const Retrieved got = viewer.collect();
    QVERIFY(got.objects.isEmpty());
    QCOMPARE(got.status, 0xfe00);
    EVENTUALLY(hasEnded(decoding));
    QVERIFY(viewer.echo());
}

void ConversionsTest::aTerminateEndsADecoder_data() {
    byModel();
}

void ConversionsTest::aTerminateEndsADecoder() {
    QFETCH(const bool, isMove);
    const Receiver receiver;
    launchWith({destination(receiver.port)});
    plantSlow();
    Retriever viewer{daemon_->port()};
    ask(viewer, isMove);
    int decoding = 0;
    EVENTUALLY((decoding = worker()) != 0);
    QCOMPARE(::kill(decoding, SIGSTOP), 0);  // it would never end by itself
    QVERIFY(daemon_->terminate());
    EVENTUALLY(hasEnded(decoding));
    QVERIFY(dataSetsIn(receiver.folder.path()).isEmpty());
}

void ConversionsTest::aRequestorThatVanishesEndsADecoder() {
    launchWith();
    plantSlow();
    int decoding = 0;
    {
        Retriever viewer{daemon_->port()};
        ask(viewer, false);
        EVENTUALLY((decoding = worker()) != 0);
        QCOMPARE(::kill(decoding, SIGSTOP), 0);
        viewer.abort();
    }
    EVENTUALLY(hasEnded(decoding));
    EVENTUALLY(!daemon_->isBusy());
}

void ConversionsTest::whoWaitsIsToldHowFarItIs() {
    launchWith();
    plantSlow();
    Retriever viewer{daemon_->port()};
    const DIC_US message = ask(viewer, false);
    int decoding = 0;
    EVENTUALLY((decoding = worker()) != 0);
    QCOMPARE(::kill(decoding, SIGSTOP), 0);
    for (int i = 0; i < 2; ++i) {
        const RetrievalMessage pending = viewer.hear();
        QVERIFY(pending.isPending());
        QCOMPARE(pending.progress(), (Progress{1, 0, 0, 0}));
    }
    viewer.cancel(Retriever::GetStudyRoot, message);
    QCOMPARE(viewer.collect().status, 0xfe00);
}

QTEST_GUILESS_MAIN(ConversionsTest)
#include "tst_conversions.moc"
