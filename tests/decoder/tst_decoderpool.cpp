#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <fcntl.h>
#include <unistd.h>

#include <QDir>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QTest>
#include <csignal>
#include <future>

#include "decoder/Pool.h"
#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/Encapsulated.h"
#include "tests/tessalyd/Processes.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace tessaly;
using namespace tessaly::test;

using decoder::Pool;

namespace {

/// An object and the file that it is converted into.
struct Files {
    QTemporaryFile source;
    QTemporaryFile target;
    qint64 size = 0;
    E_TransferSyntax from;
    E_TransferSyntax to;

    explicit Files(const QByteArray& object, E_TransferSyntax syntax = EXS_JPEGLSLossless,
                   E_TransferSyntax wanted = EXS_LittleEndianExplicit)
        : size(object.size()), from(syntax), to(wanted) {
        if (!source.open() || !target.open() || source.write(object) != size || !source.flush())
            throw std::runtime_error{"no temporary files"};
    }
    [[nodiscard]] decoder::Result convert(Pool& pool, const decoder::Interest& interest = {.stop = {}}) {
        return pool.convert({.file = source.handle(), .size = static_cast<std::size_t>(size), .syntax = from},
                            {.file = target.handle(), .syntax = to}, interest);
    }
    [[nodiscard]] QByteArray result() const {
        QFile file{target.fileName()};
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray{};
    }
};

QByteArray smallImage() {
    const ImageSpec image{.bits = 8, .stored = 8};
    return encapsulated(image, {encodedFrame(image, framePixels(image), EXS_JPEGLSLossless)});
}

/// Decoding it takes long, and nearly all that may be promised.
constexpr int SlowFrames = 127;
QByteArray slowImage() {
    ImageSpec image;
    return manyLargeFrames(image, SlowFrames);
}

}  // namespace

/// The processes that decode: what they may do, what they do wrong, and who wants them no more.
class DecoderPoolTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase() { needCodecs(); }
    void anObjectIsConverted();
    void manyAtOnceAreConverted();
    void aDecoderMayDoNothingElse();
    void aDecoderThatMisbehavesIsNotBelieved_data();
    void aDecoderThatMisbehavesIsNotBelieved();
    void aKilledDecoderIsReplaced();
    void aStopEndsADecoderAtOnce();
    void whoGivesUpEndsADecoder();
    void whatTheQuestionThrowsComesThrough();
    void oneThatWaitsForItsTurnIsStopped();
    void whatIsPromisedIsLimited();
    void allDecodersKeepWithinTheirMemory();
    void withoutAProgramNothingIsConverted();
    void itsMemoryIsNotTheObjects();

  private:
    [[nodiscard]] QString standin(const QString& behaviour) {
        QString link = folder_.filePath(behaviour);
        QFile::link(QStringLiteral(STANDIN), link);
        return link;
    }
    [[nodiscard]] static Pool::Options real() { return {.program = DECODER, .processes = 2}; }

    QTemporaryDir folder_;
};

void DecoderPoolTest::anObjectIsConverted() {
    Pool pool{real()};
    for (int i = 0; i < 3; ++i) {
        Files files{smallImage()};
        const auto result = files.convert(pool);
        QVERIFY2(result.outcome == decoder::Outcome::Converted, result.reason.c_str());
        QVERIFY(files.result().endsWith(framePixels({.bits = 8, .stored = 8})));
    }
    QCOMPARE(childrenOf(QCoreApplication::applicationPid()).size(), 1);
}

void DecoderPoolTest::manyAtOnceAreConverted() {
    Pool pool{real()};
    std::vector<std::future<bool>> all;
    all.reserve(16);
    for (int i = 0; i < 16; ++i)
        all.push_back(std::async(std::launch::async, [&pool] {
            Files files{smallImage()};
            return files.convert(pool).outcome == decoder::Outcome::Converted;
        }));
    for (auto& one : all)
        QVERIFY(one.get());
    QVERIFY(childrenOf(QCoreApplication::applicationPid()).size() <= 2);
}

void DecoderPoolTest::aDecoderMayDoNothingElse() {
    Pool pool{real()};
    std::stop_source stop;
    Files files{slowImage()};
    auto result =
        std::async(std::launch::async, [&] { return files.convert(pool, {.stop = stop.get_token()}); });
    const auto server = [] { return childrenOf(QCoreApplication::applicationPid()).value(0); };
    const auto worker = [&server] { return childrenOf(server()).value(0); };
    EVENTUALLY(worker() != 0 && statusOf(worker(), "Seccomp_filters") == u"2");
    for (const int process : {server(), worker()}) {
        QCOMPARE(statusOf(process, "Seccomp"), u"2"_s);  // by a filter
        QCOMPARE(statusOf(process, "NoNewPrivs"), u"1"_s);
        QCOMPARE(limitOf(process, "Max core file size"), u"0"_s);
    }
    QVERIFY(limitOf(worker(), "Max open files").toInt() <= 16);
    QVERIFY(limitOf(worker(), "Max cpu time").toLongLong() >= 10);
    // The frames of 16 MB, and little beside them.
    const qint64 file = limitOf(worker(), "Max file size").toLongLong();
    QVERIFY2(file > SlowFrames * (16LL << 20) && file < SlowFrames * (16LL << 20) + (32LL << 20),
             qPrintable(QString::number(file)));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    QVERIFY(limitOf(worker(), "Max address space").toLongLong() < 2LL << 30);
#endif
    stop.request_stop();
    QCOMPARE(result.get().outcome, decoder::Outcome::Stopped);
}

void DecoderPoolTest::aDecoderThatMisbehavesIsNotBelieved_data() {
    QTest::addColumn<bool>("native");
    for (const char* behaviour : {"crashes", "fails", "unknown", "died", "echoes", "silent", "babbles"})
        QTest::newRow(behaviour) << false;
    for (const char* behaviour : {"repeats", "shortens", "exchanges"})
        QTest::newRow(behaviour) << true;  // what it hands back would be right otherwise
}

void DecoderPoolTest::aDecoderThatMisbehavesIsNotBelieved() {
    QFETCH(const bool, native);
    Pool pool{
        {.program = standin(QString::fromLatin1(QTest::currentDataTag())).toStdString(), .processes = 1}};
    QByteArray object = smallImage();
    E_TransferSyntax syntax = EXS_JPEGLSLossless;
    if (native) {
        const auto plain = makeObject({});
        std::vector<char> bytes(1U << 16U);
        DcmOutputBufferStream out{bytes.data(), static_cast<offile_off_t>(bytes.size())};
        plain->getDataset()->transferInit();
        QVERIFY(
            plain->getDataset()->write(out, EXS_LittleEndianExplicit, EET_ExplicitLength, nullptr).good());
        object = {bytes.data(), static_cast<qsizetype>(out.tell())};
        syntax = EXS_LittleEndianExplicit;
        Pool honest{{.program = standin(u"echoes"_s).toStdString()}};
        Files files{object, syntax};
        QCOMPARE(files.convert(honest).outcome, decoder::Outcome::Converted);
    }
    for (int i = 0; i < 2; ++i) {
        Files files{object, syntax};
        const auto result = files.convert(pool);
        QCOMPARE(result.outcome, decoder::Outcome::NotConvertible);
        QVERIFY(!result.reason.empty());
    }
}

void DecoderPoolTest::aKilledDecoderIsReplaced() {
    Pool pool{real()};
    Files first{smallImage()};
    QCOMPARE(first.convert(pool).outcome, decoder::Outcome::Converted);
    const QList<int> before = childrenOf(QCoreApplication::applicationPid());
    QCOMPARE(before.size(), 1);
    QCOMPARE(::kill(before.first(), SIGKILL), 0);
    Files second{smallImage()};
    QCOMPARE(second.convert(pool).outcome, decoder::Outcome::Converted);
    const QList<int> after = childrenOf(QCoreApplication::applicationPid());
    QCOMPARE(after.size(), 1);
    QVERIFY(after != before);
}

void DecoderPoolTest::aStopEndsADecoderAtOnce() {
    for (const bool isReal : {true, false}) {
        Pool pool{isReal ? real() : Pool::Options{.program = standin(u"sleeps"_s).toStdString()}};
        std::stop_source stop;
        Files files{slowImage()};
        auto result =
            std::async(std::launch::async, [&] { return files.convert(pool, {.stop = stop.get_token()}); });
        const auto children = [] { return childrenOf(QCoreApplication::applicationPid()); };
        EVENTUALLY(!children().isEmpty() && (!isReal || !childrenOf(children().first()).isEmpty()));
        const QList<int> workers = childrenOf(children().first());
        stop.request_stop();
        QCOMPARE(result.get().outcome, decoder::Outcome::Stopped);
        QVERIFY(children().isEmpty());
        for (const int worker : workers)
            EVENTUALLY(hasEnded(worker));
    }
}

void DecoderPoolTest::whoGivesUpEndsADecoder() {
    Pool pool{{.program = standin(u"sleeps"_s).toStdString()}};
    Files files{smallImage()};
    int asked = 0;
    const auto result = files.convert(pool, {.stop = {}, .isGivenUp = [&asked] { return ++asked == 3; }});
    QCOMPARE(result.outcome, decoder::Outcome::Stopped);
    QCOMPARE(asked, 3);
}

void DecoderPoolTest::whatTheQuestionThrowsComesThrough() {
    Pool pool{{.program = standin(u"sleeps"_s).toStdString(), .processes = 1}};
    Files files{smallImage()};
    const decoder::Interest faulty{.stop = {},
                                   .isGivenUp = []() -> bool { throw std::out_of_range{"gone"}; }};
    for (int i = 0; i < 2; ++i)
        QVERIFY_THROWS_EXCEPTION(std::out_of_range, (void)files.convert(pool, faulty));
    QVERIFY(childrenOf(QCoreApplication::applicationPid()).isEmpty());
}

void DecoderPoolTest::oneThatWaitsForItsTurnIsStopped() {
    Pool pool{{.program = standin(u"sleeps"_s).toStdString(), .processes = 1}};
    std::stop_source first;
    Files busy{smallImage()};
    auto running =
        std::async(std::launch::async, [&] { return busy.convert(pool, {.stop = first.get_token()}); });
    EVENTUALLY(!childrenOf(QCoreApplication::applicationPid()).isEmpty());
    std::stop_source second;
    Files waiting{smallImage()};
    auto queued =
        std::async(std::launch::async, [&] { return waiting.convert(pool, {.stop = second.get_token()}); });
    QCOMPARE(queued.wait_for(300ms), std::future_status::timeout);
    second.request_stop();
    QCOMPARE(queued.get().outcome, decoder::Outcome::Stopped);
    Files impatient{smallImage()};
    QCOMPARE(impatient.convert(pool, {.stop = {}, .isGivenUp = [] { return true; }}).outcome,
             decoder::Outcome::Stopped);
    QCOMPARE(running.wait_for(0ms), std::future_status::timeout);
    first.request_stop();
    QCOMPARE(running.get().outcome, decoder::Outcome::Stopped);
}

void DecoderPoolTest::whatIsPromisedIsLimited() {
    const ImageSpec image{.bits = 8, .stored = 8};
    auto options = real();
    options.decodeLimit = static_cast<std::uint64_t>(image.frameSize());
    Pool enough{options};
    Files good{smallImage()};
    QCOMPARE(good.convert(enough).outcome, decoder::Outcome::Converted);
    --options.decodeLimit;
    Pool less{options};
    Files refused{smallImage()};
    const auto result = refused.convert(less);
    QCOMPARE(result.outcome, decoder::Outcome::NotConvertible);
    QCOMPARE(QString::fromStdString(result.reason),
             u"its header promises more than may be decoded at once"_s);
    // What wraps in 32 bits is refused by the default limit, before a decoder sees it.
    Pool usual{real()};
    ImageSpec many;
    Files huge{manyLargeFrames(many)};
    QCOMPARE(QString::fromStdString(huge.convert(usual).reason),
             u"its header promises no image, or one that no object can hold"_s);
    QVERIFY(childrenOf(QCoreApplication::applicationPid()).size() <= 1);
}

void DecoderPoolTest::allDecodersKeepWithinTheirMemory() {
    auto options = Pool::Options{.program = standin(u"sleeps"_s).toStdString(), .processes = 8};
    options.decodeMemory = std::uint64_t{150} << 20U;  // of some 66 MB each
    Pool pool{options};
    std::stop_source stop;
    std::vector<std::future<decoder::Result>> all;
    all.reserve(4);
    for (int i = 0; i < 4; ++i)
        all.push_back(std::async(std::launch::async, [&] {
            Files files{smallImage()};
            return files.convert(pool, {.stop = stop.get_token()});
        }));
    const auto running = [] { return childrenOf(QCoreApplication::applicationPid()).size(); };
    EVENTUALLY_COMPARE(running(), 2);
    QCOMPARE(all.back().wait_for(500ms), std::future_status::timeout);
    QCOMPARE(running(), 2);
    stop.request_stop();
    for (auto& one : all)
        QCOMPARE(one.get().outcome, decoder::Outcome::Stopped);
}

void DecoderPoolTest::withoutAProgramNothingIsConverted() {
    Pool pool{{.program = "/nowhere/tessaly-decoder"}};
    Files files{smallImage()};
    const auto result = files.convert(pool);
    QCOMPARE(result.outcome, decoder::Outcome::NotConvertible);
    QVERIFY(QString::fromStdString(result.reason).startsWith(u"no decoder can be started"_s));
}

/// Frames go out one by one, so the limit of one frame's memory is enough for many.
void DecoderPoolTest::itsMemoryIsNotTheObjects() {
    ImageSpec image{.rows = 1024, .columns = 1024, .bits = 8, .stored = 8};
    const QByteArray frame = encodedFrame(image, flatPixels(image), EXS_JPEGLSLossless);
    image.frames = std::string{"300"};
    auto options = real();
    options.decodeMemory = std::uint64_t{128} << 20U;
    Pool pool{options};
    Files files{encapsulated(image, QByteArrayList(300, frame))};
    const auto result = files.convert(pool);
    QVERIFY2(result.outcome == decoder::Outcome::Converted, result.reason.c_str());
    QVERIFY(files.target.size() > 300LL << 20);
}

QTEST_GUILESS_MAIN(DecoderPoolTest)
#include "tst_decoderpool.moc"
