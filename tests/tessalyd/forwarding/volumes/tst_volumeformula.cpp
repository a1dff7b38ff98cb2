#include <dcmtk/dcmdata/dcdeftag.h>

#include <QTest>
#include <cmath>

#include "tests/tessalyd/forwarding/volumes/MadeSeries.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const std::string EnhancedMr = "1.2.840.10008.5.1.4.1.1.4.1";

}  // namespace

/// Volumes beside the formula of PS3.3 C.7.6.2.1.1: every voxel of each is looked for at its place in the
/// world.
class VolumeFormulaTest : public QObject {
    Q_OBJECT

  private slots:
    void aVolumeHasEveryPixelAtItsPlace_data();
    void aVolumeHasEveryPixelAtItsPlace();
    void aTiltIsAnExactShear();
    void framesHaveTheirPlacesFromTheirGroups_data();
    void framesHaveTheirPlacesFromTheirGroups();
    void onlyStoredBitsCount();
    void slopesThatDifferMakeFloats();
    void analyzeAppliesTheScale_data();
    void analyzeAppliesTheScale();
    void imagesOfDifferentKindsHaveOneType();
    void groupsAreParted_data();
    void groupsAreParted();
    void distancesMayDifferALittle();

  private:
    static void verifyAll(const QJsonObject& told, const SeriesSpec& spec, double most = 0) {
        QCOMPARE(told[u"count"_s].toInt(), spec.rows * spec.columns * spec.depth * spec.times);
        QCOMPARE(told[u"voxels"_s], told[u"count"_s]);
        QCOMPARE(told[u"outside"_s].toInt(-1), 0);
        QVERIFY2(told[u"away"_s].toDouble(1) < 1e-3,
                 qPrintable(QString::number(told[u"away"_s].toDouble(1))));
        QVERIFY2(told[u"most"_s].toDouble(1) <= most,
                 qPrintable(QString::number(told[u"most"_s].toDouble(1))));
    }
};

void VolumeFormulaTest::aVolumeHasEveryPixelAtItsPlace_data() {
    QTest::addColumn<SeriesSpec>("spec");
    SeriesSpec bytes;
    bytes.bits = bytes.stored = 8;
    SeriesSpec signedBytes = bytes;
    signedBytes.isSigned = true;
    SeriesSpec twelve;
    twelve.isSigned = true;
    SeriesSpec words;
    words.stored = 16;
    SeriesSpec longs;
    longs.bits = 32;
    longs.stored = 20;
    longs.isSigned = true;
    SeriesSpec one;
    one.depth = 1;
    QTest::newRow("unsigned, 8 bits") << bytes;
    QTest::newRow("signed, 8 bits") << signedBytes;
    QTest::newRow("signed, 12 of 16 bits") << twelve;
    QTest::newRow("unsigned, 16 bits") << words;
    QTest::newRow("signed, 20 of 32 bits") << longs;
    QTest::newRow("one slice") << one;
}

void VolumeFormulaTest::aVolumeHasEveryPixelAtItsPlace() {
    QFETCH(SeriesSpec, spec);
    MadeSeries series;
    series.add(spec);
    const auto volumes = series.write();
    QCOMPARE(volumes.names.size(), 1U);
    verifyAll(besideFormula(series.path(volumes.names[0]), spec), spec);
}

void VolumeFormulaTest::aTiltIsAnExactShear() {
    SeriesSpec spec;
    spec.sopClass = "1.2.840.10008.5.1.4.1.1.2";
    spec.modality = "CT";
    spec.depth = 20;
    spec.orientation = {Vector{1, 0, 0}, Vector{0, std::cos(0.3), std::sin(0.3)}};
    MadeSeries series;
    series.add(spec);
    const auto volumes = series.write();
    const QJsonObject told = besideFormula(series.path(volumes.names.at(0)), spec);
    verifyAll(told, spec);
    QCOMPARE(told[u"qform"_s].toInt(-1), 0);
    QCOMPARE(told[u"sform"_s].toInt(-1), 1);
    QVERIFY(series.refusal(VolumeFormat::Analyze).contains(u"tilted"));
}

void VolumeFormulaTest::framesHaveTheirPlacesFromTheirGroups_data() {
    QTest::addColumn<E_TransferSyntax>("syntax");
    QTest::addColumn<int>("times");
    QTest::newRow("explicit, 3D") << EXS_LittleEndianExplicit << 1;
    QTest::newRow("explicit, 4D") << EXS_LittleEndianExplicit << 5;
    QTest::newRow("implicit, 4D") << EXS_LittleEndianImplicit << 5;
    QTest::newRow("big endian, 4D") << EXS_BigEndianExplicit << 5;
    QTest::newRow("deflated, 4D") << EXS_DeflatedLittleEndianExplicit << 5;
    QTest::newRow("JPEG-LS, 4D") << EXS_JPEGLSLossless << 5;
    QTest::newRow("run lengths, 4D") << EXS_RLELossless << 5;
}

void VolumeFormulaTest::framesHaveTheirPlacesFromTheirGroups() {
    QFETCH(E_TransferSyntax, syntax);
    QFETCH(int, times);
    SeriesSpec spec;
    spec.sopClass = EnhancedMr;
    spec.orientation = {Vector{0, 1, 0}, Vector{0, 0, -1}};
    spec.step = {2, 0, 0};
    spec.times = times;
    MadeSeries series;
    series.add(*makeEnhanced(spec), syntax);
    const auto volumes = series.write();
    QCOMPARE(volumes.names.size(), 1U);
    const QJsonObject told = besideFormula(series.path(volumes.names[0]), spec);
    verifyAll(told, spec);
    QCOMPARE(told[u"shape"_s].toArray().size(), times > 1 ? 4 : 3);
}

void VolumeFormulaTest::onlyStoredBitsCount() {
    MadeSeries series;
    SeriesSpec spec;
    for (int slice = 0; slice < spec.depth; ++slice) {
        const auto object = makeSlice(spec, slice);
        DcmDataset& set = *object->getDataset();
        std::vector<Uint16> pixels;
        for (int row = 0; row < spec.rows; ++row)
            for (int column = 0; column < spec.columns; ++column)
                pixels.push_back(static_cast<Uint16>(spec.value(row, column, slice) << 2 | (row % 3 + 1) |
                                                     (column % 2 + 1) << 14));
        QVERIFY(set.putAndInsertUint16(DCM_HighBit, 13).good());
        QVERIFY(set.putAndInsertUint16Array(DCM_PixelData, pixels.data(), pixels.size()).good());
        series.add(*object);
    }
    verifyAll(besideFormula(series.path(series.write().names.at(0)), spec), spec);
}

void VolumeFormulaTest::slopesThatDifferMakeFloats() {
    SeriesSpec spec;
    spec.sopClass = EnhancedMr;
    spec.times = 2;
    spec.differing = [](int slice, int time) -> std::vector<Attribute> {
        return {{DCM_RescaleSlope, std::to_string(1 + slice) + ".25"},
                {DCM_RescaleIntercept, std::to_string(-100 * time)}};
    };
    const auto scaled = [](int stored, int slice, int time) { return stored * (1.25 + slice) - 100 * time; };
    for (const bool isEnhanced : {false, true}) {
        MadeSeries series;
        if (isEnhanced)
            series.add(*makeEnhanced(spec));
        else
            series.add(spec);
        const QJsonObject told = besideFormula(series.path(series.write().names.at(0)), spec, scaled);
        verifyAll(told, spec);
        QCOMPARE(told[u"type"_s].toString(), u"float32"_s);
        QCOMPARE(told[u"slope"_s].toDouble(), 1.0);
    }
}

void VolumeFormulaTest::analyzeAppliesTheScale_data() {
    QTest::addColumn<QString>("slope");
    QTest::addColumn<QString>("intercept");
    QTest::addColumn<int>("stored");
    QTest::addColumn<QString>("type");
    QTest::newRow("fits") << u"1"_s << u"-1024"_s << 12 << u"int16"_s;
    QTest::newRow("fits, slope") << u"-3"_s << u"7"_s << 12 << u"int16"_s;
    QTest::newRow("too much") << u"20"_s << u"0"_s << 12 << u"float32"_s;
    QTest::newRow("a fraction") << u"0.5"_s << u"0"_s << 12 << u"float32"_s;
    QTest::newRow("a fraction added") << u"1"_s << u"0.5"_s << 12 << u"float32"_s;
}

void VolumeFormulaTest::analyzeAppliesTheScale() {
    QFETCH(QString, slope);
    QFETCH(QString, intercept);
    QFETCH(int, stored);
    QFETCH(QString, type);
    SeriesSpec spec;
    spec.stored = stored;
    spec.attributes = {{DCM_RescaleSlope, slope.toStdString()},
                       {DCM_RescaleIntercept, intercept.toStdString()}};
    MadeSeries series;
    series.add(spec);
    const auto nifti = series.write().names.at(0);
    const auto names = series.write(VolumeFormat::Analyze).names;
    // The other file's values are compared with the formula elsewhere.
    const QJsonObject told = asked({u"reoriented"_s, series.path(names.at(1)), series.path(nifti)});
    QCOMPARE(told[u"different"_s].toInt(-1), 0);
    QCOMPARE(told[u"type"_s].toString(), type);
}

void VolumeFormulaTest::imagesOfDifferentKindsHaveOneType() {
    SeriesSpec spec;
    MadeSeries series;
    for (int slice = 0; slice < spec.depth; ++slice) {
        SeriesSpec one = spec;
        one.bits = slice % 2 == 0 ? 16 : 32;
        series.add(*makeSlice(one, slice));
    }
    const QJsonObject told = besideFormula(series.path(series.write().names.at(0)), spec);
    verifyAll(told, spec);
    QCOMPARE(told[u"type"_s].toString(), u"int32"_s);
}

void VolumeFormulaTest::groupsAreParted_data() {
    QTest::addColumn<SeriesSpec>("other");
    SeriesSpec other;
    other.firstInstance = 50;
    auto orientation = other;
    orientation.orientation = {Vector{0, 1, 0}, Vector{0, 0, -1}};
    orientation.step = {3, 0, 0};
    auto rows = other;
    rows.rows = 20;
    auto columns = other;
    columns.columns = 20;
    auto spacing = other;
    spacing.spacing = {0.8, 0.8};
    auto type = other;
    type.attributes = {{DCM_ImageType, "ORIGINAL\\PRIMARY\\P"}};
    auto echo = other;
    echo.attributes = {{DCM_EchoTime, "30"}};
    for (const auto& [name, spec] : {std::pair{"orientation", orientation},
                                     {"rows", rows},
                                     {"columns", columns},
                                     {"spacing", spacing},
                                     {"type", type},
                                     {"echo time", echo}})
        QTest::newRow(name) << spec;
}

void VolumeFormulaTest::groupsAreParted() {
    QFETCH(SeriesSpec, other);
    const SeriesSpec spec;
    MadeSeries series;
    series.add(other);
    series.add(spec);
    const auto names = series.write().names;
    QCOMPARE(names, (std::vector<std::string>{"1.2.826.0.1.1.1.nii.gz", "1.2.826.0.1.1.1_2.nii.gz"}));
    verifyAll(besideFormula(series.path(names[0]), spec), spec);
    verifyAll(besideFormula(series.path(names[1]), other), other);
}

void VolumeFormulaTest::distancesMayDifferALittle() {
    SeriesSpec spec;
    MadeSeries series;
    for (int slice = 0; slice < spec.depth; ++slice) {
        SeriesSpec one = spec;
        one.first.z += slice == 3 ? 0.009 : 0;
        series.add(*makeSlice(one, slice));
    }
    const auto names = series.write().names;
    QCOMPARE(names.size(), 1U);
    const QJsonObject told = besideFormula(series.path(names[0]), spec);
    QCOMPARE(told[u"different"_s].toInt(-1), 0);
    QVERIFY(told[u"away"_s].toDouble(1) < 0.005);
}

QTEST_GUILESS_MAIN(VolumeFormulaTest)
#include "tst_volumeformula.moc"
