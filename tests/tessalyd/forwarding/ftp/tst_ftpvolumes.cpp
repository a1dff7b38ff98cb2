#include <dcmtk/dcmdata/dcdeftag.h>

#include <QFile>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/forwarding/ftp/DeliveryTest.h"
#include "tests/tessalyd/forwarding/volumes/MadeSeries.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

namespace {

const std::string CtImage = "1.2.840.10008.5.1.4.1.1.2";

}  // namespace

/// Nodes of the types that get volumes.
class FtpVolumesTest : public DeliveryTest {
    Q_OBJECT

  private Q_SLOTS:
    void aSeriesIsDeliveredAsVolumes_data();
    void aSeriesIsDeliveredAsVolumes();
    void aRefusalSaysWhy();
};

void FtpVolumesTest::aSeriesIsDeliveredAsVolumes_data() {
    QTest::addColumn<QString>("type");
    QTest::addColumn<QStringList>("names");
    QTest::newRow("NIfTI-1") << u"Lorvo"_s << QStringList{u".nii.gz"_s};
    QTest::newRow("Analyze 7.5") << u"analyze"_s << QStringList{u".hdr"_s, u".img"_s};
}

void FtpVolumesTest::aSeriesIsDeliveredAsVolumes() {
    QFETCH(QString, type);
    QFETCH(QStringList, names);
    const ScriptedFtp server;
    FtpNode node = nodeOf(server);
    node.type = type;
    launchFor(node, {u"--first-retry"_s, u"3600"_s});
    SeriesSpec spec;
    spec.sopClass = CtImage;
    MadeSeries series;
    series.add(spec);
    RequestorAssociation sender{daemon_->port(), "TESTER", "BACKUP"};
    for (int slice = 0; slice < spec.depth; ++slice)
        QCOMPARE(sender.store(*makeSlice(spec, slice)).status, 0);
    // An hour is over: all of the series is delivered at once, however slowly it came.
    daemon_->database.run(u"UPDATE JobItem SET Added=Added-3601"_s);
    daemon_->database.run(u"UPDATE Job SET NextAttempt=NextAttempt-3601"_s);
    EVENTUALLY_COMPARE(jobStates(), QStringList{Done});
    const auto files = filesOf(server);
    QCOMPARE(files.size(), names.size() + 1);
    const QString folder = files.firstKey().section(u'/', 0, -2) + u'/';
    QVERIFY(folder.endsWith(u"/1.2.826.0.1.1/1.2.826.0.1.1.1/"_s));
    // What the same images make here.
    static_cast<void>(series.write(type == u"Lorvo" ? VolumeFormat::Nifti : VolumeFormat::Analyze));
    qsizetype bytes = 0;
    for (const QString& name : names) {
        QFile made{series.path("1.2.826.0.1.1.1" + name.toStdString())};
        QVERIFY(made.open(QIODevice::ReadOnly));
        const QByteArray delivered = files.value(folder + u"1.2.826.0.1.1.1"_s + name);
        QVERIFY2(delivered == made.readAll(), qPrintable(name));
        bytes += delivered.size();
    }
    QCOMPARE(files.value(folder + u"complete"_s),
             QByteArray::number(names.size()) + ' ' + QByteArray::number(bytes) + '\n');
}

void FtpVolumesTest::aRefusalSaysWhy() {
    const ScriptedFtp server;
    FtpNode node = nodeOf(server);
    node.type = u"Lorvo"_s;
    launchFor(node);
    SeriesSpec spec;
    spec.sopClass = CtImage;
    spec.attributes = {{DCM_PhotometricInterpretation, "PALETTE COLOR"}};
    RequestorAssociation sender{daemon_->port(), "TESTER", "BACKUP"};
    QCOMPARE(sender.store(*makeSlice(spec, 0)).status, 0);
    EVENTUALLY_COMPARE(jobStates(), QStringList{GivenUp});
    QVERIFY2(lastError().contains(u"an image has colours"), qPrintable(lastError()));
    QCOMPARE(filesOf(server).size(), 0);
}

QTEST_GUILESS_MAIN(FtpVolumesTest)
#include "tst_ftpvolumes.moc"
