#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QFile>
#include <QtEndian>

#include "dicom/data/TransferSyntaxes.h"
#include "tests/dicom/net/StorePeer.h"
#include "tests/support/Eventually.h"
#include "tests/tessalyd/Deflated.h"
#include "tests/tessalyd/Jpeg2000Encoder.h"
#include "tests/tessalyd/OtherArchive.h"
#include "tests/tessalyd/services/retrieve/RetrieveTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
using tessaly::dicom::TransferSyntax;

namespace {

constexpr const char* Explicit = UID_LittleEndianExplicitTransferSyntax;
constexpr const char* Instance = "1.2.826.0.1.1.1.1";

struct Kind {
    const char* name;
    const char* syntax;
    ImageSpec image;
    QByteArray pixels;
    QByteArray object;
};

/// The bytes of the image, smooth so that they are soon coded.
QByteArray rampPixels(const ImageSpec& image) {
    QByteArray pixels(image.frameSize(), '\0');
    for (qsizetype i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<char>(i / 97 % 128);
    return pixels;
}

Kind wavelets(const char* name, const char* syntax, const ImageSpec& image) {
    const QByteArray pixels = rampPixels(image);
    const bool transform = image.photometric.starts_with("YBR");
    return {name, syntax, image, pixels,
            encapsulated(image, {waveletFrame(image, pixels, {.transform = transform})})};
}

/// An object in each of the codings that are decoded here and not by the toolkit.
QList<Kind> makeKinds() {
    const ImageSpec grey{.rows = 300, .columns = 200, .stored = 16};
    ImageSpec colour{.rows = 1500, .columns = 1400, .samples = 3, .bits = 8, .stored = 8};
    colour.photometric = "YBR_RCT";
    ImageSpec deep = grey;
    deep.rows = deep.columns = 2000;
    QList<Kind> all{wavelets("JPEG 2000", UID_JPEG2000LosslessOnlyTransferSyntax, grey),
                    wavelets("JPEG 2000, large", UID_JPEG2000LosslessOnlyTransferSyntax, deep),
                    wavelets("JPEG 2000, colour", UID_JPEG2000TransferSyntax, colour)};
    const QByteArray pixels = rampPixels(grey);
    all << Kind{"uncompressed", "1.2.840.10008.1.2.1.98", grey, pixels, encapsulated(grey, {pixels})};
    all << Kind{"deflated frame", "1.2.840.10008.1.2.8.1", grey, pixels,
                encapsulated(grey, {deflated(pixels)})};
    const ObjectSpec spec;
    const QByteArray plain = dataSetIn(TransferSyntax{EXS_LittleEndianExplicit}, spec);
    all << Kind{"deflated",
                UID_DeflatedExplicitVRLittleEndianTransferSyntax,
                {},
                plain.right(qsizetype{spec.side} * spec.side * 2),
                deflated(plain)};
    return all;
}

const QList<Kind>& kinds() {
    static const QList<Kind> all = makeKinds();
    return all;
}

/// The pixel data of a native object in explicit little endian, where nothing is behind it.
QByteArray endOf(const QByteArray& object, const QByteArray& pixels) {
    return object.right(pixels.size());
}

}  // namespace

/// Codings beyond the toolkit's, decoded by the server: on the way in where a port says so, and on the way
/// out.
class DecodedKindsTest : public RetrieveTest {
    Q_OBJECT

  private Q_SLOTS:
    void aPortDecodesThem_data();
    void aPortDecodesThem();
    void whatIsNotDecodedStaysAsItCame_data();
    void whatIsNotDecodedStaysAsItCame();
    void theyAreDecodedForWhoDoesNotTakeThem_data();
    void theyAreDecodedForWhoDoesNotTakeThem();
    void anotherArchiveForwardsThem();
    void anotherArchiveTakesThemDecoded();
    void otherProductsSendThem_data();
    void otherProductsSendThem();

  private:
    void launchDecoding() {
        daemon_ = std::make_unique<Daemon>(QList<PortRow>{{.saveCompressed = false}});
        daemon_->database.run(u"UPDATE DicomServer SET LogLevel=2"_s);  // warnings
        daemon_->launch();
    }
    [[nodiscard]] int send(const QByteArray& object, const std::string& syntax) const {
        RequestorAssociation sender{daemon_->port(), "MODALITY", "TESSALY", {{UID_CTImageStorage, {syntax}}}};
        const auto answer = sender.storeBytes(0, UID_CTImageStorage, Instance,
                                              {object.data(), static_cast<std::size_t>(object.size())});
        sender.release();
        return answer.arrived ? answer.status : -1;
    }
    static const inline std::vector<AskedKey> TheStudy{{DCM_StudyInstanceUID, Study}};
};

void DecodedKindsTest::aPortDecodesThem_data() {
    QTest::addColumn<int>("index");
    for (int i = 0; i < kinds().size(); ++i)
        QTest::newRow(kinds()[i].name) << i;
}

void DecodedKindsTest::aPortDecodesThem() {
    QFETCH(const int, index);
    const Kind& kind = kinds()[index];
    launchDecoding();
    QCOMPARE(send(kind.object, kind.syntax), 0);
    QCOMPARE(daemon_->files().size(), 1);
    const QString file = daemon_->files().first();
    QVERIFY2(!daemon_->log().contains(u"cannot be decoded"_s), qPrintable(daemon_->log()));
    QCOMPARE(syntaxOf(file), EXS_LittleEndianExplicit);
    QVERIFY(endOf(dataSetOf(file), kind.pixels) == kind.pixels);
    QCOMPARE(daemon_->database.value(u"SELECT TransferSyntaxUID FROM Image"_s), QLatin1StringView{Explicit});
}

void DecodedKindsTest::whatIsNotDecodedStaysAsItCame_data() {
    QTest::addColumn<QByteArray>("syntax");
    QTest::addColumn<QByteArray>("object");
    QTest::addColumn<bool>("isFault");
    const ImageSpec grey{.bits = 8, .stored = 8};
    const QByteArray stream = waveletFrame(grey, framePixels(grey));
    QTest::newRow("video") << QByteArray{UID_MPEG4HighProfileLevel4_1TransferSyntax}
                           << encapsulated(grey, {"any video"}) << false;
    QTest::newRow("JPEG XL") << QByteArray{"1.2.840.10008.1.2.4.110"} << encapsulated(grey, {"any image"})
                             << false;
    QTest::newRow("JPEG 2000 that is cut off")
        << QByteArray{UID_JPEG2000TransferSyntax} << encapsulated(grey, {stream.chopped(100)}) << true;
    ImageSpec huge = grey;
    huge.rows = huge.columns = 60'000;
    QByteArray promised = stream;
    promised.replace(8, 8, QByteArray::fromHex("0000ea600000ea60"));
    promised.replace(24, 8, QByteArray::fromHex("0000ea600000ea60"));
    QTest::newRow("JPEG 2000 that promises 3.6 GB")
        << QByteArray{UID_JPEG2000TransferSyntax} << encapsulated(huge, {promised}) << true;
    huge.rows = huge.columns = 40'000;
    promised.replace(8, 8, QByteArray::fromHex("00009c4000009c40"));
    promised.replace(24, 8, QByteArray::fromHex("00009c4000009c40"));
    QTest::newRow("JPEG 2000 that promises 1.6 GB")
        << QByteArray{UID_JPEG2000TransferSyntax} << encapsulated(huge, {promised}) << true;
    huge.rows = huge.columns = 10'000;
    QTest::newRow("a deflated frame that promises 100 MB")
        << QByteArray{"1.2.840.10008.1.2.8.1"} << encapsulated(huge, {deflated("short")}) << true;
    const QByteArray plain = dataSetIn(TransferSyntax{EXS_LittleEndianExplicit}, {});
    QTest::newRow("deflated, cut off within its pixels")
        << QByteArray{UID_DeflatedExplicitVRLittleEndianTransferSyntax} << deflated(plain.chopped(100))
        << true;
    QByteArray length(4, '\0');
    qToLittleEndian(quint32{0xfffffffe}, length.data());
    QByteArray long4 = plain;
    long4.replace(plain.lastIndexOf(QByteArray::fromHex("e07f1000")) + 8, 4, length);
    QTest::newRow("deflated, with 4 GB of pixels promised")
        << QByteArray{UID_DeflatedExplicitVRLittleEndianTransferSyntax} << deflated(long4) << true;
    QTest::newRow("deflated, with 64 MB behind its pixels")
        << QByteArray{UID_DeflatedExplicitVRLittleEndianTransferSyntax}
        << deflated(plain + QByteArray(qsizetype{64} << 20, '\0')) << true;
}

void DecodedKindsTest::whatIsNotDecodedStaysAsItCame() {
    QFETCH(const QByteArray, syntax);
    QFETCH(const QByteArray, object);
    QFETCH(const bool, isFault);
    launchDecoding();
    QCOMPARE(send(object, syntax.toStdString()), 0);
    QCOMPARE(daemon_->files().size(), 1);
    QVERIFY(dataSetOf(daemon_->files().first()) == object);
    QCOMPARE(daemon_->log().contains(u"cannot be decoded; it is stored as it came"_s), isFault);
}

void DecodedKindsTest::theyAreDecodedForWhoDoesNotTakeThem_data() {
    aPortDecodesThem_data();
}

void DecodedKindsTest::theyAreDecodedForWhoDoesNotTakeThem() {
    QFETCH(const int, index);
    const Kind& kind = kinds()[index];
    StorePeer peer{{UID_LittleEndianExplicitTransferSyntax}, [](int) { return 0; }};
    launchWith({{.aeTitle = u"PEER"_s, .port = QString::number(peer.port())}});
    QCOMPARE(send(kind.object, kind.syntax), 0);
    QVERIFY(dataSetOf(daemon_->files().first()) == kind.object);
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
    const Retrieved got = viewer.collect();
    QCOMPARE(got.status, STATUS_Success);
    QVERIFY(endOf(got.objects.value(QLatin1StringView{Instance}), kind.pixels) == kind.pixels);
    viewer.ask(Retriever::MoveStudyRoot, "STUDY", TheStudy, "PEER");
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, STATUS_Success);
    QCOMPARE(moved.counters.completed, 1);
    QCOMPARE(peer.received().value(0).syntax, std::string{Explicit});
}

void DecodedKindsTest::anotherArchiveForwardsThem() {
    launch();
    const Kind& kind = kinds().first();
    const QString file = scratch(u"one.dcm"_s);
    writeFile(file, TransferSyntax{std::string_view{kind.syntax}}, {}, kind.object);
    QFile bytes{file};
    QVERIFY(bytes.open(QIODevice::ReadOnly));
    const OtherArchive archive{scratch(u"orthanc"_s), u"ORTHANC"_s, daemon_->port()};
    const QByteArray taken = archive.ask(u"instances"_s, bytes.readAll());
    const qsizetype at = taken.indexOf(R"("ID" : ")") + 8;
    QVERIFY2(at > 8, taken);
    QVERIFY(
        !archive.ask(u"modalities/tessaly/store"_s, taken.mid(at, taken.indexOf('"', at) - at)).isEmpty());
    QCOMPARE(daemon_->files().size(), 1);
    QVERIFY(dataSetOf(daemon_->files().first()) == kind.object);
    QCOMPARE(daemon_->database.value(u"SELECT TransferSyntaxUID FROM Image"_s),
             QLatin1StringView{kind.syntax});
}

void DecodedKindsTest::anotherArchiveTakesThemDecoded() {
    const QString port = unusedPort();
    launchWith({{.aeTitle = u"ORTHANC"_s, .port = port}});
    const Kind& kind = kinds().first();
    QCOMPARE(send(kind.object, kind.syntax), 0);
    const OtherArchive archive{
        scratch(u"orthanc"_s), u"ORTHANC"_s, daemon_->port(), port, {QString::fromLatin1(Explicit)}};
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::MoveStudyRoot, "STUDY", TheStudy, "ORTHANC");
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, STATUS_Success);
    const auto got = dataSetsOf(archive, scratch(u"got"_s));
    QCOMPARE(got.size(), 1);
    QVERIFY(endOf(got.first(), kind.pixels) == kind.pixels);
}

void DecodedKindsTest::otherProductsSendThem_data() {
    QTest::addColumn<QString>("option");
    QTest::addColumn<QByteArray>("syntax");
    for (const auto& [option, syntax] : {std::pair{"-xi", UID_LittleEndianImplicitTransferSyntax},
                                         {"-xe", UID_LittleEndianExplicitTransferSyntax},
                                         {"-xb", UID_BigEndianExplicitTransferSyntax},
                                         {"-xd", UID_DeflatedExplicitVRLittleEndianTransferSyntax},
                                         {"-xs", UID_JPEGProcess14SV1TransferSyntax},
                                         {"-xy", UID_JPEGProcess1TransferSyntax},
                                         {"-xx", UID_JPEGProcess2_4TransferSyntax},
                                         {"-xv", UID_JPEG2000LosslessOnlyTransferSyntax},
                                         {"-xw", UID_JPEG2000TransferSyntax},
                                         {"-xt", UID_JPEGLSLosslessTransferSyntax},
                                         {"-xu", UID_JPEGLSLossyTransferSyntax},
                                         {"-xm", UID_MPEG2MainProfileAtMainLevelTransferSyntax},
                                         {"-xh", UID_MPEG2MainProfileAtHighLevelTransferSyntax},
                                         {"-xn", UID_MPEG4HighProfileLevel4_1TransferSyntax},
                                         {"-xl", UID_MPEG4BDcompatibleHighProfileLevel4_1TransferSyntax},
                                         {"-x2", UID_MPEG4HighProfileLevel4_2_For2DVideoTransferSyntax},
                                         {"-x3", UID_MPEG4HighProfileLevel4_2_For3DVideoTransferSyntax},
                                         {"-xo", UID_MPEG4StereoHighProfileLevel4_2TransferSyntax},
                                         {"-x4", UID_HEVCMainProfileLevel5_1TransferSyntax},
                                         {"-x5", UID_HEVCMain10ProfileLevel5_1TransferSyntax},
                                         {"-xr", UID_RLELosslessTransferSyntax}})
        QTest::newRow(option) << QString::fromLatin1(option) << QByteArray{syntax};
}

void DecodedKindsTest::otherProductsSendThem() {
    QFETCH(const QString, option);
    QFETCH(const QByteArray, syntax);
    launchWith();
    const TransferSyntax kind{std::string_view{syntax.constData()}};
    const QString file = scratch(u"one.dcm"_s);
    const QByteArray sent = dataSetIn(kind, {});
    writeFile(file, kind, {}, sent);
    const Outcome peer = run(u"storescu"_s, {option, u"localhost"_s, daemon_->port(), file});
    QVERIFY2(peer.exitCode == 0, qPrintable(peer.output));
    QCOMPARE(daemon_->files().size(), 1);
    QCOMPARE(daemon_->database.value(u"SELECT TransferSyntaxUID FROM Image"_s), QString::fromLatin1(syntax));
    if (!kind.isDeflated())  // which the sender inflates, and deflates in its own way
        QVERIFY(dataSetOf(daemon_->files().first()) == sent);
}

QTEST_GUILESS_MAIN(DecodedKindsTest)
#include "tst_decodedkinds.moc"
