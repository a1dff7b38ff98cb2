#include "tests/tessalyd/forwarding/ftp/DeliveryTest.h"
#include "tests/tessalyd/forwarding/volumes/MadeSeries.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// Nodes that get volumes instead of the objects' files.
class FtpVolumesTest : public DeliveryTest {
    Q_OBJECT

  private Q_SLOTS:
    void aSeriesIsDeliveredAsAVolume_data();
    void aSeriesIsDeliveredAsAVolume();
    void whatCannotBeAVolumeIsGivenUp();

  private:
    /// Sends the series' slices, but for one.
    void storeSlices(const SeriesSpec& spec, int skipped = -1) const {
        MadeSeries files;
        for (int slice = 0; slice < spec.depth; ++slice)
            if (slice != skipped)
                files.add(*makeSlice(spec, slice));
        const Outcome sent = run(u"storescu"_s, {u"+sd"_s, u"localhost"_s, daemon_->port(), files.objects()});
        QVERIFY2(sent.exitCode == 0, qPrintable(sent.output));
    }
    [[nodiscard]] static QString folderOf(const SeriesSpec& spec) {
        const auto object = makeSlice(spec, 0);
        OFString study;
        object->getDataset()->findAndGetOFString(DCM_StudyInstanceUID, study);
        return u"in/"_s + QString::fromUtf8(study.c_str()) + u'/' + QString::fromStdString(spec.series) +
               u'/';
    }
};

void FtpVolumesTest::aSeriesIsDeliveredAsAVolume_data() {
    QTest::addColumn<QString>("type");
    QTest::addColumn<QStringList>("names");
    const QString uid = QString::fromStdString(SeriesSpec{}.series);
    QTest::newRow("NIfTI-1") << u"Lorvo"_s << QStringList{uid + u".nii.gz"_s};
    QTest::newRow("Analyze 7.5") << u"Analyze"_s << QStringList{uid + u".hdr"_s, uid + u".img"_s};
}

void FtpVolumesTest::aSeriesIsDeliveredAsAVolume() {
    QFETCH(QString, type);
    QFETCH(QStringList, names);
    ScriptedFtp ftp;
    FtpNode node = nodeOf(ftp);
    node.type = type;
    launchFor(node);
    const SeriesSpec spec;
    storeSlices(spec);
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    const Retrieved answer = viewer.collect();
    QCOMPARE(answer.status, 0);
    QCOMPARE(answer.counters, (Progress{-1, spec.depth, 0, 0}));
    const auto files = filesOf(ftp);
    const QString folder = folderOf(spec);
    qsizetype bytes = 0;
    for (const QString& name : names) {
        QVERIFY2(files.contains(folder + name), qPrintable(files.keys().join(u'\n')));
        bytes += files[folder + name].size();
    }
    QCOMPARE(files[folder + u"complete"_s], u"%1 %2\n"_s.arg(names.size()).arg(bytes).toUtf8());
    QCOMPARE(files.size(), names.size() + 1);
    // The same as is made of the same objects without a server.
    MadeSeries here;
    here.add(spec);
    here.write(type == u"Analyze" ? VolumeFormat::Analyze : VolumeFormat::Nifti);
    for (const QString& name : names) {
        QFile made{here.path(name.toStdString())};
        QVERIFY(made.open(QIODevice::ReadOnly));
        QCOMPARE(files[folder + name], made.readAll());
    }
    EVENTUALLY_COMPARE(jobStates(), QStringList{Done});
    EVENTUALLY(spooled().isEmpty());
}

void FtpVolumesTest::whatCannotBeAVolumeIsGivenUp() {
    ScriptedFtp ftp;
    FtpNode node = nodeOf(ftp);
    node.type = u"Lorvo"_s;
    launchFor(node);
    const SeriesSpec spec;
    storeSlices(spec, 3);  // one is missing: the distances differ
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    const Retrieved answer = viewer.collect();
    QCOMPARE(answer.status, 0xA702);
    QCOMPARE(jobStates(), QStringList{GivenUp});
    QVERIFY2(lastError().startsWith(u"6 of 6 objects: the series cannot be a volume: "_s),
             qPrintable(lastError()));
    QVERIFY(filesOf(ftp).isEmpty());
    QVERIFY2(daemon_->log().contains(u"given up: 6 of 6 objects: the series cannot be a volume"_s),
             qPrintable(daemon_->log()));
}

QTEST_GUILESS_MAIN(FtpVolumesTest)
#include "tst_ftpvolumes.moc"
