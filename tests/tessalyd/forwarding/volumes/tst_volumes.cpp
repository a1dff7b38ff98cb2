#include <dcmtk/dcmdata/dcdeftag.h>

#include <QJsonArray>
#include <QTest>
#include <cmath>

#include "tests/tessalyd/forwarding/volumes/MadeSeries.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

/// Around the patient's axes, in this order, in degrees.
std::array<Vector, 3> turned(double aboutX, double aboutY, double aboutZ) {
    const auto turn = [](Vector v, double degrees, int axis) {
        const double c = std::cos(degrees * M_PI / 180);
        const double s = std::sin(degrees * M_PI / 180);
        if (axis == 0)
            return Vector{v.x, c * v.y - s * v.z, s * v.y + c * v.z};
        if (axis == 1)
            return Vector{c * v.x + s * v.z, v.y, c * v.z - s * v.x};
        return Vector{c * v.x - s * v.y, s * v.x + c * v.y, v.z};
    };
    std::array<Vector, 3> axes{Vector{1, 0, 0}, Vector{0, 1, 0}, Vector{0, 0, 1}};
    for (Vector& axis : axes)
        axis = turn(turn(turn(axis, aboutX, 0), aboutY, 1), aboutZ, 2);
    return axes;
}

SeriesSpec oblique(double aboutX, double aboutY, double aboutZ) {
    const auto [row, column, normal] = turned(aboutX, aboutY, aboutZ);
    SeriesSpec spec;
    spec.orientation = {row, column};
    spec.step = normal * 2.5;
    return spec;
}

SeriesSpec sagittal() {
    SeriesSpec spec;
    spec.orientation = {Vector{0, 1, 0}, Vector{0, 0, -1}};
    spec.step = {3, 0, 0};
    return spec;
}

SeriesSpec coronal() {
    SeriesSpec spec;
    spec.orientation = {Vector{1, 0, 0}, Vector{0, 0, -1}};
    spec.step = {0, 1.5, 0};
    return spec;
}

}  // namespace

/// Volumes beside those of another converter, read by another reader.
class VolumesTest : public QObject {
    Q_OBJECT

  private slots:
    void aVolumeIsThatOfAnotherConverter_data();
    void aVolumeIsThatOfAnotherConverter();
    void anAnalyzeVolumeIsTurnedToTheAnatomy_data();
    void anAnalyzeVolumeIsTurnedToTheAnatomy();
    void twoEchoesAreTwoVolumes();
    void timesAreAFourthDimension();
};

void VolumesTest::aVolumeIsThatOfAnotherConverter_data() {
    QTest::addColumn<SeriesSpec>("spec");
    QTest::addColumn<E_TransferSyntax>("syntax");
    SeriesSpec downwards;
    downwards.step = {0, 0, -2.5};
    SeriesSpec rescaled;
    rescaled.attributes = {{DCM_RescaleSlope, "0.5"}, {DCM_RescaleIntercept, "-1024"}};
    SeriesSpec negative;
    negative.isSigned = true;
    negative.stored = 16;
    SeriesSpec full;
    full.stored = 16;
    QTest::newRow("axial") << SeriesSpec{} << EXS_LittleEndianExplicit;
    QTest::newRow("axial, downwards") << downwards << EXS_LittleEndianExplicit;
    QTest::newRow("sagittal") << sagittal() << EXS_LittleEndianExplicit;
    QTest::newRow("coronal") << coronal() << EXS_LittleEndianExplicit;
    QTest::newRow("oblique") << oblique(10, -20, 15) << EXS_LittleEndianExplicit;
    QTest::newRow("oblique, nearly sagittal") << oblique(80, 5, 85) << EXS_LittleEndianExplicit;
    QTest::newRow("oblique, upside down") << oblique(170, 25, -140) << EXS_LittleEndianExplicit;
    QTest::newRow("rescaled") << rescaled << EXS_LittleEndianExplicit;
    QTest::newRow("signed") << negative << EXS_LittleEndianExplicit;
    QTest::newRow("16 bits") << full << EXS_LittleEndianExplicit;
    QTest::newRow("implicit") << SeriesSpec{} << EXS_LittleEndianImplicit;
    QTest::newRow("big endian") << SeriesSpec{} << EXS_BigEndianExplicit;
    QTest::newRow("lossless JPEG") << oblique(10, -20, 15) << EXS_JPEGProcess14SV1;
}

void VolumesTest::aVolumeIsThatOfAnotherConverter() {
    QFETCH(SeriesSpec, spec);
    QFETCH(E_TransferSyntax, syntax);
    MadeSeries series;
    series.add(spec, syntax);
    const auto volumes = series.write();
    QCOMPARE(volumes.names, std::vector<std::string>{"1.2.826.0.1.1.1.nii.gz"});
    const QTemporaryDir other;
    const QStringList theirs = converted(series.objects(), other.path());
    QCOMPARE(theirs.size(), 1);
    const QJsonObject told = asked({u"compare"_s, series.path(volumes.names[0]), theirs[0]});
    QCOMPARE(told[u"count"_s].toInt(), spec.rows * spec.columns * spec.depth);
    QCOMPARE(told[u"voxels"_s], told[u"count"_s]);
    QCOMPARE(told[u"outside"_s].toInt(-1), 0);
    QCOMPARE(told[u"different"_s].toInt(-1), 0);
    QVERIFY2(told[u"away"_s].toDouble(1) < 1e-3, qPrintable(QString::number(told[u"away"_s].toDouble(1))));
    QCOMPARE(told[u"qform"_s].toInt(), 1);
    QCOMPARE(told[u"sform"_s].toInt(), 1);
    QCOMPARE(told[u"units"_s].toInt(), 10);
    QVERIFY(told[u"between"_s].toDouble(1) < 1e-3);
}

void VolumesTest::anAnalyzeVolumeIsTurnedToTheAnatomy_data() {
    QTest::addColumn<SeriesSpec>("spec");
    QTest::addColumn<bool>("isOblique");
    QTest::newRow("axial") << SeriesSpec{} << false;
    QTest::newRow("sagittal") << sagittal() << false;
    QTest::newRow("coronal") << coronal() << false;
    QTest::newRow("oblique") << oblique(10, -20, 15) << true;
    QTest::newRow("columns to the head") << oblique(90, 90, 0) << false;
    QTest::newRow("oblique, upside down") << oblique(170, 25, -140) << true;
}

void VolumesTest::anAnalyzeVolumeIsTurnedToTheAnatomy() {
    QFETCH(SeriesSpec, spec);
    QFETCH(bool, isOblique);
    MadeSeries series;
    series.add(spec);
    const auto volumes = series.write(VolumeFormat::Analyze);
    QCOMPARE(volumes.names, (std::vector<std::string>{"1.2.826.0.1.1.1.img", "1.2.826.0.1.1.1.hdr"}));
    QCOMPARE(volumes.notes.size(), isOblique ? 1U : 0U);
    const QTemporaryDir other;
    const QStringList theirs = converted(series.objects(), other.path());
    QCOMPARE(theirs.size(), 1);
    const QJsonObject told = asked({u"reoriented"_s, series.path(volumes.names[1]), theirs[0]});
    QCOMPARE(told[u"different"_s].toInt(-1), 0);
    QVERIFY(told[u"apart"_s][0].toDouble(1) < 1e-5);
    QCOMPARE(told[u"type"_s].toString(), u"int16"_s);
    QFile header{series.path(volumes.names[1])};
    QVERIFY(header.open(QIODevice::ReadOnly));
    const QByteArray bytes = header.readAll();
    QCOMPARE(bytes.size(), 348);
    QCOMPARE(bytes.first(4).toHex(), "5c010000"_ba);     // 348, little endian
    QCOMPARE(bytes.at(252), '\0');                       // transverse
    QCOMPARE(bytes.mid(283, 10), QByteArray(10, '\0'));  // the patient
}

void VolumesTest::twoEchoesAreTwoVolumes() {
    MadeSeries series;
    SeriesSpec early;
    early.attributes = {{DCM_EchoTime, "4.76"}};
    early.firstInstance = 101;
    SeriesSpec late;
    late.attributes = {{DCM_EchoTime, "9.52"}};
    late.columns = 16;
    series.add(early);
    series.add(late);
    const auto volumes = series.write();
    QCOMPARE(volumes.names, (std::vector<std::string>{"1.2.826.0.1.1.1.nii.gz", "1.2.826.0.1.1.1_2.nii.gz"}));
    // In the order of the first instance numbers.
    for (const auto& [name, spec] : {std::pair{volumes.names[0], late}, {volumes.names[1], early}}) {
        const QJsonObject told = besideFormula(series.path(name), spec);
        QCOMPARE(told[u"count"_s], told[u"voxels"_s]);
        QCOMPARE(told[u"different"_s].toInt(-1), 0);
        QCOMPARE(told[u"outside"_s].toInt(-1), 0);
    }
}

void VolumesTest::timesAreAFourthDimension() {
    MadeSeries series;
    SeriesSpec spec;
    spec.times = 4;
    // Neither by the instance numbers nor by the times of a day alone.
    spec.differing = [](int slice, int time) -> std::vector<Attribute> {
        return {{DCM_AcquisitionDate, time < 2 ? "20240131" : "20240201"},
                {DCM_AcquisitionTime, time < 2 ? "23595" + std::to_string(5 + 2 * time)
                                               : "00000" + std::to_string(2 * time - 3) + ".000"},
                {DCM_InstanceNumber, std::to_string(1 + slice + 7 * (3 - time))}};
    };
    series.add(spec);
    const auto volumes = series.write();
    QCOMPARE(volumes.names.size(), 1U);
    const QJsonObject told = besideFormula(series.path(volumes.names[0]), spec);
    QCOMPARE(told[u"shape"_s].toArray().size(), 4);
    QCOMPARE(told[u"count"_s], told[u"voxels"_s]);
    QCOMPARE(told[u"different"_s].toInt(-1), 0);
    QVERIFY(std::abs(told[u"zooms"_s][3].toDouble() - 8.0 / 3) < 1e-6);
}

QTEST_GUILESS_MAIN(VolumesTest)
#include "tst_volumes.moc"
