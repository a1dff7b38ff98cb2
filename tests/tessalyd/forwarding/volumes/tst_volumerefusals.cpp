#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcsequen.h>

#include <QDir>
#include <QFile>
#include <QTest>

#include "tests/tessalyd/Processes.h"
#include "tests/tessalyd/forwarding/volumes/MadeSeries.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

/// What cannot become a volume, and what ends the work.
class VolumeRefusalsTest : public QObject {
    Q_OBJECT

  private slots:
    void whatIsNoVolumeIsRefused_data();
    void whatIsNoVolumeIsRefused();
    void framesWithoutPlacesAreRefused_data();
    void framesWithoutPlacesAreRefused();
    void aRefusalLeavesNoFile();
    void whatCannotBeDecodedIsRefused();
    void aMissingFileIsNoRefusal();
    void aDecoderThatCannotBeStartedIsNoRefusal();
    void aNameThatIsNoUidIsNotUsed();
    void volumesThatAreTooLargeAreRefused();
    void aStopEndsIt_data();
    void aStopEndsIt();
};

namespace {

using Change = std::function<void(DcmDataset&, int slice)>;

void put(DcmDataset& set, const DcmTagKey& tag, const char* value) {
    if (set.putAndInsertString(tag, value).bad())
        throw std::runtime_error{"not put"};
}

QStringList filesIn(const QString& folder) {
    return QDir{folder}.entryList(QDir::Files | QDir::Hidden);
}

enum class Moment { Beginning, Decoding, Writing };

}  // namespace

Q_DECLARE_METATYPE(Change)
Q_DECLARE_METATYPE(Moment)

void VolumeRefusalsTest::whatIsNoVolumeIsRefused_data() {
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char* name, const Change& change, const QString& reason) {
        QTest::newRow(name) << change << reason;
    };
    const auto without = [](const DcmTagKey& tag) {
        return [tag](DcmDataset& set, int) { set.findAndDeleteElement(tag); };
    };
    const auto with = [](const DcmTagKey& tag, const char* value) {
        return [tag, value](DcmDataset& set, int) { put(set, tag, value); };
    };
    row(
        "irregular distances",
        [](DcmDataset& set, int slice) {
            if (slice == 4)
                put(set, DCM_ImagePositionPatient, "-10.5\\20.25\\41");
        },
        u"the distances of its slices differ"_s);
    row(
        "a little too irregular",
        [](DcmDataset& set, int slice) {
            if (slice == 4)
                put(set, DCM_ImagePositionPatient, "-10.5\\20.25\\40.03");
        },
        u"the distances of its slices differ"_s);
    row(
        "a missing slice",
        [](DcmDataset& set, int slice) {
            if (slice == 4)
                put(set, DCM_ImagePositionPatient, "-10.5\\20.25\\1000");
        },
        u"the distances of its slices differ"_s);
    row(
        "one aside",
        [](DcmDataset& set, int slice) {
            if (slice == 4)
                put(set, DCM_ImagePositionPatient, "-9.5\\20.25\\40");
        },
        u"do not lie one above the other"_s);
    row(
        "side by side",
        [](DcmDataset& set, int slice) {
            put(set, DCM_ImagePositionPatient, slice < 4 ? "0\\0\\5" : "100\\0\\5");
        },
        u"side by side"_s);
    row(
        "one position twice",
        [](DcmDataset& set, int slice) {
            if (slice == 6)
                put(set, DCM_ImagePositionPatient, "-10.5\\20.25\\30");
        },
        u"different numbers of images"_s);
    row("no position", without(DCM_ImagePositionPatient), u"does not say where it is"_s);
    row("no orientation", without(DCM_ImageOrientationPatient), u"does not say where it is"_s);
    row("no spacing", without(DCM_PixelSpacing), u"does not say where it is"_s);
    row("a spacing of 0", with(DCM_PixelSpacing, R"(0\1)"), u"does not say where it is"_s);
    row("a negative spacing", with(DCM_PixelSpacing, R"(-1\-1)"), u"does not say where it is"_s);
    row("a position that is no number", with(DCM_ImagePositionPatient, R"(a\b\c)"),
        u"does not say where it is"_s);
    row("an endless position", with(DCM_ImagePositionPatient, R"(inf\nan\1)"), u"does not say where it is"_s);
    row("two parts of a position", with(DCM_ImagePositionPatient, R"(1\2)"), u"does not say where it is"_s);
    row("axes of no length", with(DCM_ImageOrientationPatient, R"(0\0\0\0\0\0)"), u"perpendicular"_s);
    row("axes that are one", with(DCM_ImageOrientationPatient, R"(1\0\0\1\0\0)"), u"perpendicular"_s);
    row(
        "colour",
        [](DcmDataset& set, int) {
            put(set, DCM_PhotometricInterpretation, "RGB");
            set.putAndInsertUint16(DCM_SamplesPerPixel, 3);
        },
        u"colours"_s);
    row("a palette", with(DCM_PhotometricInterpretation, "PALETTE COLOR"), u"colours"_s);
    row("a mosaic", with(DCM_ImageType, R"(ORIGINAL\PRIMARY\M\ND\MOSAIC)"), u"mosaic"_s);
    row(
        "values of a table",
        [](DcmDataset& set, int) {
            DcmItem* item = nullptr;
            set.findOrCreateSequenceItem(DCM_ModalityLUTSequence, item);
        },
        u"given by a table"_s);
    row("no pixels", without(DCM_PixelData), u"no pixel data"_s);
    row(
        "fewer pixels than promised",
        [](DcmDataset& set, int slice) {
            if (slice == 3)
                set.putAndInsertUint16(DCM_Rows, 25);
            else
                set.putAndInsertUint16(DCM_Rows, 24);
            if (slice != 3)
                set.putAndInsertUint16(DCM_Rows, 25);
        },
        u"less pixel data"_s);
    row(
        "a bit a pixel",
        [](DcmDataset& set, int) {
            set.putAndInsertUint16(DCM_BitsAllocated, 1);
            set.putAndInsertUint16(DCM_BitsStored, 1);
            set.putAndInsertUint16(DCM_HighBit, 0);
        },
        u"no integers"_s);
    row(
        "bits that are not there", [](DcmDataset& set, int) { set.putAndInsertUint16(DCM_HighBit, 20); },
        u"no integers"_s);
    row(
        "more bits than are there", [](DcmDataset& set, int) { set.putAndInsertUint16(DCM_BitsStored, 14); },
        u"no integers"_s);
    row(
        "more rows than a volume has", [](DcmDataset& set, int) { set.putAndInsertUint16(DCM_Rows, 40000); },
        u"32767 rows"_s);
    row("frames without groups", with(DCM_NumberOfFrames, "2"), u"where its frames are"_s);
    row("endless frames", with(DCM_NumberOfFrames, "2147483647"), u"too many frames"_s);
    row("no frames", with(DCM_NumberOfFrames, "0"), u"where its frames are"_s);
}

void VolumeRefusalsTest::whatIsNoVolumeIsRefused() {
    QFETCH(Change, change);
    QFETCH(QString, reason);
    const SeriesSpec spec;
    MadeSeries series;
    for (int slice = 0; slice < spec.depth; ++slice) {
        const auto object = makeSlice(spec, slice);
        change(*object->getDataset(), slice);
        series.add(*object);
    }
    for (const VolumeFormat format : {VolumeFormat::Nifti, VolumeFormat::Analyze}) {
        const QString refusal = series.refusal(format);
        QVERIFY2(refusal.contains(reason), qPrintable(refusal));
        QVERIFY(!refusal.contains(u"1.2.826"));
        QVERIFY(!refusal.contains(u"Doe"));
        QCOMPARE(filesIn(series.folder()), QStringList{});
    }
}

void VolumeRefusalsTest::framesWithoutPlacesAreRefused_data() {
    QTest::addColumn<Change>("change");
    const auto frames = [](DcmDataset& set) {
        DcmSequenceOfItems* sequence = nullptr;
        set.findAndGetSequence(DCM_PerFrameFunctionalGroupsSequence, sequence);
        return sequence;
    };
    QTest::newRow("one group too few")
        << Change{[frames](DcmDataset& set, int) { delete frames(set)->remove(3UL); }};
    QTest::newRow("one group too many")
        << Change{[frames](DcmDataset& set, int) { frames(set)->append(new DcmItem); }};
    QTest::newRow("no groups") << Change{
        [](DcmDataset& set, int) { set.findAndDeleteElement(DCM_PerFrameFunctionalGroupsSequence); }};
    QTest::newRow("a frame without a place") << Change{[frames](DcmDataset& set, int) {
        frames(set)->getItem(3)->findAndDeleteElement(DCM_PlanePositionSequence);
    }};
    QTest::newRow("a place of the object alone") << Change{[frames](DcmDataset& set, int) {
        put(set, DCM_ImagePositionPatient, "1\\2\\3");
        for (unsigned long i = 0; i < frames(set)->card(); ++i)
            frames(set)->getItem(i)->findAndDeleteElement(DCM_PlanePositionSequence);
    }};
}

void VolumeRefusalsTest::framesWithoutPlacesAreRefused() {
    QFETCH(Change, change);
    SeriesSpec spec;
    spec.times = 2;
    MadeSeries series;
    const auto object = makeEnhanced(spec);
    change(*object->getDataset(), 0);
    series.add(*object);
    QVERIFY(series.refusal().contains(u"say where it"));
}

void VolumeRefusalsTest::aRefusalLeavesNoFile() {
    // The first volume could be written, the pixels of the second cannot be decoded.
    SeriesSpec spec;
    MadeSeries series;
    series.add(spec);
    SeriesSpec other;
    other.columns = 20;
    other.firstInstance = 100;
    series.add(other, EXS_JPEGProcess14SV1);
    QFile broken{QString::fromStdString(series.request.objects.back().string())};
    QVERIFY(broken.open(QIODevice::ReadWrite));
    const QByteArray bytes = broken.readAll();
    const qsizetype stream = bytes.lastIndexOf("\xff\xda"_ba);
    QVERIFY(stream > 0);
    QVERIFY(broken.seek(stream) && broken.write(QByteArray(64, '\xff')) == 64);
    broken.close();
    QVERIFY(series.refusal().contains(u"cannot be decoded"));
    QCOMPARE(filesIn(series.folder()), QStringList{});
}

void VolumeRefusalsTest::whatCannotBeDecodedIsRefused() {
    const SeriesSpec spec;
    MadeSeries series;
    series.add(spec);
    const auto set = [](const QString& file, qint64 size) { return QFile::resize(file, size); };
    const QString last = QString::fromStdString(series.request.objects.back().string());
    QVERIFY(set(last, QFileInfo{last}.size() - 100));  // pixel data that is cut off
    QVERIFY(series.refusal().contains(u"cannot be decoded"));
    QVERIFY(set(last, 700));  // a header that is cut off
    QVERIFY(!series.refusal().isEmpty());
}

void VolumeRefusalsTest::aMissingFileIsNoRefusal() {
    MadeSeries series;
    series.add(SeriesSpec{});
    const QString last = QString::fromStdString(series.request.objects.back().string());
    const QString other = QString::fromStdString(series.request.objects.front().string());
    QVERIFY(QFile::remove(last));
    const auto fault = [&series] {
        try {
            static_cast<void>(series.write());
        } catch (const tessalyd::volumes::VolumeRefusal&) {
        } catch (const std::exception& thrown) {
            return QString::fromUtf8(thrown.what());
        }
        return QString{};
    };
    for (const QString& what : {u"missing"_s, u"a link"_s, u"no object"_s}) {
        if (what == u"a link")
            QVERIFY(QFile::link(other, last));
        if (what == u"no object") {
            QFile file{last};
            QVERIFY(file.remove() && file.open(QIODevice::WriteOnly) &&
                    file.write(QByteArray(1000, ' ')) == 1000);
        }
        QVERIFY2(!fault().isEmpty(), qPrintable(what));
        QVERIFY(!fault().contains(u"/"));  // what is in the folders' names is for no log
        QCOMPARE(filesIn(series.folder()), QStringList{});
    }
}

void VolumeRefusalsTest::aDecoderThatCannotBeStartedIsNoRefusal() {
    MadeSeries series;
    series.add(SeriesSpec{}, EXS_JPEGProcess14SV1);
    static_cast<void>(series.write());
    decoder::Pool none{{.program = "/nowhere/decoder"}};
    bool isOther = false;
    try {
        static_cast<void>(tessalyd::volumes::writeVolumes(series.request, none, {.stop = {}}));
    } catch (const tessalyd::volumes::VolumeRefusal&) {
    } catch (const std::exception&) {
        isOther = true;
    }
    QVERIFY(isOther);
}

void VolumeRefusalsTest::aNameThatIsNoUidIsNotUsed() {
    MadeSeries series;
    series.add(SeriesSpec{});
    static_cast<void>(series.write());
    for (const char* name : {"", "../1", "1.2/3", "a", "1..2"}) {
        series.request.seriesInstanceUid = name;
        QVERIFY_EXCEPTION_THROWN(
            static_cast<void>(tessalyd::volumes::writeVolumes(series.request, decoders(), {.stop = {}})),
            std::invalid_argument);
    }
}

void VolumeRefusalsTest::volumesThatAreTooLargeAreRefused() {
    MadeSeries series;
    series.add(SeriesSpec{});
    series.request.mostBytes = std::uint64_t{24} * 32 * 2 * 7;
    static_cast<void>(series.write());
    --series.request.mostBytes;
    QVERIFY(series.refusal().contains(u"would be larger"));
}

void VolumeRefusalsTest::aStopEndsIt_data() {
    QTest::addColumn<Moment>("moment");
    QTest::addColumn<bool>("isGivenUp");
    for (const bool isGivenUp : {false, true}) {
        const char* const how = isGivenUp ? "given up" : "stopped";
        QTest::addRow("at its beginning, %s", how) << Moment::Beginning << isGivenUp;
        QTest::addRow("while a decoder runs, %s", how) << Moment::Decoding << isGivenUp;
        QTest::addRow("while it writes, %s", how) << Moment::Writing << isGivenUp;
    }
}

void VolumeRefusalsTest::aStopEndsIt() {
    QFETCH(Moment, moment);
    QFETCH(bool, isGivenUp);
    MadeSeries series;
    if (moment == Moment::Decoding) {
        series.addFile(EXS_JPEGLSLossless, slowToDecode());
    } else {
        SeriesSpec spec;
        spec.rows = spec.columns = 1024;
        spec.depth = 40;
        series.add(spec);
    }
    const auto hasCome = [&] {
        if (moment == Moment::Decoding) {
            const auto servers = childrenOf(QCoreApplication::applicationPid());
            return std::any_of(servers.begin(), servers.end(),
                               [](int server) { return !childrenOf(server).isEmpty(); });
        }
        return moment == Moment::Beginning || !filesIn(series.folder()).isEmpty();
    };
    // It is asked often enough to be stopped at any moment, from the thread that does the work.
    std::stop_source stop;
    int asked = 0;
    const decoder::Interest interest{.stop = stop.get_token(), .isGivenUp = [&] {
                                         ++asked;
                                         if (!hasCome())
                                             return false;
                                         if (!isGivenUp)
                                             stop.request_stop();
                                         return isGivenUp;
                                     }};
    bool isAbandoned = false;
    try {
        static_cast<void>(series.write(VolumeFormat::Nifti, interest));
    } catch (const decoder::Abandoned&) {
        isAbandoned = true;
    }
    QVERIFY(asked > 0);
    QVERIFY(isAbandoned);
    QCOMPARE(filesIn(series.folder()), QStringList{});
}

QTEST_GUILESS_MAIN(VolumeRefusalsTest)
#include "tst_volumerefusals.moc"
