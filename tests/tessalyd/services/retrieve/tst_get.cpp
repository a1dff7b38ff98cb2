#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QDir>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/services/retrieve/RetrieveTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// Objects over the association that asks for them.
class GetTest : public RetrieveTest {
    Q_OBJECT

  private Q_SLOTS:
    void anotherProductFetchesAStudy();
    void eachLevelIsFetched_data();
    void eachLevelIsFetched();
    void whoMayNotQueryFetchesNothing();
    void anIdentifierThatIsFaultyIsToldSo_data();
    void anIdentifierThatIsFaultyIsToldSo();
    void theSyntaxIsThatOfTheContext_data();
    void theSyntaxIsThatOfTheContext();
    void contextsToReceiveDoNotHinderStoring();
    void whatHasNoContextFails();
    void answersAreCounted();
    void aListOfAThousandIsTaken();
    void nothingFoundIsSuccess();
    void progressIsToldWhileAnObjectIsTaken();
    void aCancelEndsIt();
    void whatIsMissingOrCutOffFails();
    void aLargeObjectGoesAsItLies();
    void aRequestorThatVanishesEndsIt();
    void terminateEndsIt();

  private:
    static const inline std::vector<AskedKey> TheStudy{{DCM_StudyInstanceUID, Study}};
};

void GetTest::anotherProductFetchesAStudy() {
    launchWith();
    storeStudy(6);
    QDir{}.mkpath(scratch(u"got"_s));
    const Outcome peer =
        run(u"getscu"_s,
            {u"-aet"_s, u"VIEWER"_s, u"-aec"_s, u"TESSALY"_s, u"-S"_s, u"+B"_s, u"-od"_s, scratch(u"got"_s),
             u"-k"_s, u"QueryRetrieveLevel=STUDY"_s, u"-k"_s,
             u"StudyInstanceUID=%1"_s.arg(QLatin1StringView{Study}), u"localhost"_s, daemon_->port()});
    QVERIFY2(peer.exitCode == 0, qPrintable(peer.output));
    QCOMPARE(dataSetsIn(scratch(u"got"_s)), storedDataSets());
    EVENTUALLY(daemon_->log().contains(u"C-GET: 6 objects found, 6 sent, 0 failed"_s));
}

void GetTest::eachLevelIsFetched_data() {
    QTest::addColumn<int>("context");
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<QStringList>("keys");  // patient, study, series, image; empty where not asked for
    QTest::addColumn<int>("found");
    const QString study = QString::fromLatin1(Study);
    const QString series = study + u".1"_s;
    const int patientRoot = Retriever::GetPatientRoot;
    const int studyRoot = Retriever::GetStudyRoot;
    QTest::newRow("patient") << patientRoot << QByteArray{"PATIENT"} << QStringList{u"P1"_s} << 5;
    QTest::newRow("study of a patient")
        << patientRoot << QByteArray{"STUDY"} << QStringList{u"P1"_s, study} << 5;
    QTest::newRow("study of another patient")
        << patientRoot << QByteArray{"STUDY"} << QStringList{u"P2"_s, study} << 0;
    QTest::newRow("study") << studyRoot << QByteArray{"STUDY"} << QStringList{{}, study} << 5;
    QTest::newRow("series") << studyRoot << QByteArray{"SERIES"} << QStringList{{}, study, series} << 3;
    QTest::newRow("images") << studyRoot << QByteArray{"IMAGE"}
                            << QStringList{{}, study, series, series + u".1\\"_s + series + u".5"_s} << 2;
}

void GetTest::eachLevelIsFetched() {
    QFETCH(const int, context);
    QFETCH(const QByteArray, level);
    QFETCH(const QStringList, keys);
    QFETCH(const int, found);
    launchWith();
    storeStudy(5);
    const std::array tags{DCM_PatientID, DCM_StudyInstanceUID, DCM_SeriesInstanceUID, DCM_SOPInstanceUID};
    std::vector<AskedKey> asked;
    for (qsizetype i = 0; i < keys.size(); ++i) {
        if (!keys[i].isEmpty())
            asked.emplace_back(tags.at(static_cast<std::size_t>(i)), keys[i].toStdString());
    }
    Retriever viewer{daemon_->port()};
    viewer.ask(static_cast<Retriever::ContextId>(context), level, asked);
    const Retrieved got = viewer.collect();
    QCOMPARE(got.status, 0);
    QCOMPARE(got.objects.size(), found);
    QCOMPARE(got.counters, (Progress{-1, found, 0, 0}));
    const auto stored = storedDataSets();
    for (const QString& uid : got.objects.keys())
        QVERIFY(got.objects[uid] == stored[uid]);
}

void GetTest::whoMayNotQueryFetchesNothing() {
    launchWith({{.aeTitle = u"STORER"_s, .port = u"104"_s}});
    storeStudy(1);
    for (const char* title : {"STRANGER", "STORER", "viewer"}) {
        Retriever stranger{
            daemon_->port(), {Retriever::receiving(UID_LittleEndianExplicitTransferSyntax)}, title};
        stranger.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
        const Retrieved got = stranger.collect();
        QCOMPARE(got.status, 0x0124);
        QVERIFY(!got.comment.empty());
        QVERIFY(got.objects.isEmpty());
        QVERIFY(stranger.echo());
    }
}

void GetTest::anIdentifierThatIsFaultyIsToldSo_data() {
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<QByteArray>("study");
    QTest::addColumn<QByteArray>("series");
    QTest::addColumn<quint32>("offending");
    const auto row = [](const char* name, const char* level, const char* study, const char* series,
                        quint32 offending) {
        QTest::newRow(name) << QByteArray{level} << QByteArray{study} << QByteArray{series} << offending;
    };
    row("no such level", "FILM", Study, "", 0x00080052);
    row("a level that the model has not", "PATIENT", Study, "", 0x00080052);
    row("no key of the level", "STUDY", "", "", 0x0020000d);
    row("a wildcard alone", "STUDY", "*", "", 0x0020000d);
    row("no key above the level", "SERIES", "", "1.2.3", 0x0020000d);
    row("a list above the level", "SERIES", "1.2\\1.3", "1.2.3", 0x0020000d);
}

void GetTest::anIdentifierThatIsFaultyIsToldSo() {
    QFETCH(const QByteArray, level);
    QFETCH(const QByteArray, study);
    QFETCH(const QByteArray, series);
    QFETCH(const quint32, offending);
    launchWith();
    storeStudy(1);
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::GetStudyRoot, level,
               {{DCM_StudyInstanceUID, study.toStdString()}, {DCM_SeriesInstanceUID, series.toStdString()}});
    const Retrieved got = viewer.collect();
    QCOMPARE(got.status, 0xa900);
    QVERIFY(!got.comment.empty());
    QCOMPARE(quint32{got.offending.getGroup()} << 16U | got.offending.getElement(), offending);
    QVERIFY(viewer.echo());
}

void GetTest::theSyntaxIsThatOfTheContext_data() {
    QTest::addColumn<int>("stored");
    QTest::addColumn<QString>("option");
    QTest::addColumn<QList<int>>("taken");  // a context each
    QTest::addColumn<int>("sentIn");        // -1: not at all
    constexpr int Explicit = EXS_LittleEndianExplicit;
    constexpr int Implicit = EXS_LittleEndianImplicit;
    constexpr int Big = EXS_BigEndianExplicit;
    constexpr int Lossless = EXS_JPEGProcess14SV1;
    constexpr int Rle = EXS_RLELossless;
    const auto row = [](const char* name, int stored, const QString& option, const QList<int>& taken,
                        int sentIn) { QTest::newRow(name) << stored << option << taken << sentIn; };
    row("as stored", Explicit, u"-xe"_s, {Implicit, Explicit}, Explicit);
    row("implicit as stored", Implicit, u"-xi"_s, {Explicit, Implicit}, Implicit);
    row("JPEG as stored", Lossless, u"-xs"_s, {Explicit, Lossless}, Lossless);
    row("RLE as stored", Rle, u"-xr"_s, {Rle}, Rle);
    row("JPEG decoded", Lossless, u"-xs"_s, {Implicit, Explicit}, Explicit);
    row("JPEG decoded into implicit", Lossless, u"-xs"_s, {Implicit}, Implicit);
    row("RLE decoded", Rle, u"-xr"_s, {Lossless, Explicit}, Explicit);
    row("JPEG-LS decoded", EXS_JPEGLSLossless, u"-xt"_s, {Explicit}, Explicit);
    row("explicit into implicit", Explicit, u"-xe"_s, {Implicit}, Implicit);
    row("implicit into explicit", Implicit, u"-xi"_s, {Explicit}, Explicit);
    row("big endian into little", Big, u"-xb"_s, {Explicit}, Explicit);
    row("little endian into big", Explicit, u"-xe"_s, {Big}, Big);
    row("nothing is encoded", Explicit, u"-xe"_s, {Lossless}, -1);
    row("nor encoded otherwise", Rle, u"-xr"_s, {Lossless}, -1);
}

void GetTest::theSyntaxIsThatOfTheContext() {
    QFETCH(const int, stored);
    QFETCH(const QString, option);
    QFETCH(const QList<int>, taken);
    QFETCH(const int, sentIn);
    launchWith();
    storeFile(writeObject({.side = 64}, scratch(u"one.dcm"_s), static_cast<E_TransferSyntax>(stored)),
              option);
    std::vector<RequestorAssociation::Context> contexts;
    for (const int syntax : taken)
        contexts.push_back(Retriever::receiving(DcmXfer{static_cast<E_TransferSyntax>(syntax)}.getXferID()));
    Retriever viewer{daemon_->port(), contexts};
    viewer.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
    const QString uid = QString::fromStdString(ObjectSpec{}.instance);
    if (sentIn < 0) {
        const Retrieved got = viewer.collect();
        QCOMPARE(got.status, 0xa702);
        QCOMPARE(got.failed, QStringList{uid});
        QVERIFY(daemon_->log().contains(uid + u" not sent: "_s));
        return;
    }
    const RetrievalMessage store = viewer.hearStore();
    QVERIFY(store.isStore());
    QCOMPARE(int{store.context}, Retriever::FirstToReceive + 2 * static_cast<int>(taken.indexOf(sentIn)));
    viewer.answerStore(store);
    QCOMPARE(viewer.collect().status, 0);
    if (sentIn == stored) {
        QVERIFY(store.dataSet == dataSetOf(fileOf(uid)));
        return;
    }
    // As another product sees it: with a meta header of that syntax before it.
    DcmFileFormat got;
    got.getDataset()->clear();
    DcmInputBufferStream stream;
    stream.setBuffer(store.dataSet.constData(), store.dataSet.size());
    stream.setEos();
    got.getDataset()->transferInit();
    QVERIFY(got.getDataset()->read(stream, static_cast<E_TransferSyntax>(sentIn)).good());
    got.getDataset()->transferEnd();
    QVERIFY(got.saveFile(qPrintable(scratch(u"got.dcm"_s)), static_cast<E_TransferSyntax>(sentIn)).good());
    QCOMPARE(pixelsOf(scratch(u"got.dcm"_s)), pixelsOf(scratch(u"one.dcm"_s)));
    OFString instance;
    got.getDataset()->findAndGetOFString(DCM_SOPInstanceUID, instance);
    QCOMPARE(QString::fromUtf8(instance.c_str()), uid);
}

void GetTest::contextsToReceiveDoNotHinderStoring() {
    launchWith();
    RequestorAssociation sender{
        daemon_->port(),
        "TESTER",
        "TESSALY",
        {{UID_MRImageStorage, {UID_LittleEndianExplicitTransferSyntax}, ASC_SC_ROLE_SCP},
         {UID_CTImageStorage, {UID_LittleEndianExplicitTransferSyntax}, ASC_SC_ROLE_SCUSCP}}};
    QVERIFY(!sender.accepted(0).empty());
    QCOMPARE(sender.acceptedRole(0), ASC_SC_ROLE_SCP);
    QCOMPARE(sender.acceptedRole(1), ASC_SC_ROLE_SCUSCP);
    QCOMPARE(sender.store(*makeObject({})).status, 0);
}

void GetTest::whatHasNoContextFails() {
    launchWith();
    const QStringList uids = storeStudy(3);
    // It offers to send these, not to receive them.
    Retriever viewer{daemon_->port(),
                     {Retriever::receiving(UID_LittleEndianExplicitTransferSyntax, ASC_SC_ROLE_SCU)}};
    viewer.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
    const Retrieved got = viewer.collect();
    QCOMPARE(got.status, 0xa702);
    QCOMPARE(got.counters, (Progress{-1, 0, 3, 0}));
    QCOMPARE(got.failed, uids);
    QVERIFY(viewer.echo());
}

void GetTest::answersAreCounted() {
    launchWith();
    const QStringList uids = storeStudy(4);
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
    const Retrieved got = viewer.collect([&uids](const std::string& uid) -> DIC_US {
        const auto index = uids.indexOf(QString::fromStdString(uid));
        return index == 0   ? STATUS_STORE_Refused_OutOfResources
               : index == 1 ? STATUS_STORE_Warning_CoercionOfDataElements
                            : STATUS_Success;
    });
    QCOMPARE(got.status, 0xb000);
    QCOMPARE(got.counters, (Progress{-1, 2, 1, 1}));
    QCOMPARE(got.failed, QStringList{uids[0]});
    viewer.release();
    EVENTUALLY(daemon_->log().contains(u"C-GET: 4 objects found, 3 sent, 1 failed"_s));
}

void GetTest::aListOfAThousandIsTaken() {
    launchWith();
    storeStudy(6);
    std::string list;
    for (int i = 1; i <= 1000; ++i)
        list.append(i == 1 ? "" : "\\").append(Study).append(".1.").append(std::to_string(i));
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::GetStudyRoot, "IMAGE",
               {{DCM_StudyInstanceUID, Study},
                {DCM_SeriesInstanceUID, std::string{Study} + ".1"},
                {DCM_SOPInstanceUID, list}});
    const Retrieved got = viewer.collect();
    QCOMPARE(got.status, 0);
    QCOMPARE(got.objects.size(), 3);
}

void GetTest::nothingFoundIsSuccess() {
    launchWith();
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::GetStudyRoot, "STUDY", {{DCM_StudyInstanceUID, "1.2.3"}});
    const Retrieved got = viewer.collect();
    QCOMPARE(got.status, 0);
    QCOMPARE(got.counters, (Progress{-1, 0, 0, 0}));
}

void GetTest::progressIsToldWhileAnObjectIsTaken() {
    launchWith();
    storeStudy(3);
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
    const RetrievalMessage first = viewer.hearStore();
    QVERIFY(first.isStore());
    // The object is not answered until the server has told twice how far it is.
    for (int told = 0; told < 2; ++told) {
        const RetrievalMessage pending = viewer.hear();
        QVERIFY(pending.isPending());
        QCOMPARE(pending.progress(), (Progress{3, 0, 0, 0}));
    }
    viewer.answerStore(first);
    const Retrieved got = viewer.collect();
    QCOMPARE(got.status, 0);
    QCOMPARE(got.objects.size(), 2);
    QCOMPARE(got.counters, (Progress{-1, 3, 0, 0}));
}

void GetTest::aCancelEndsIt() {
    launchWith();
    storeStudy(5);
    Retriever viewer{daemon_->port()};
    const DIC_US id = viewer.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
    const RetrievalMessage first = viewer.hearStore();
    QVERIFY(first.isStore());
    viewer.cancel(Retriever::GetStudyRoot, id);
    viewer.answerStore(first);
    const Retrieved got = viewer.collect();
    QCOMPARE(got.status, 0xfe00);
    QVERIFY(got.objects.isEmpty());  // none beyond the one that was under way
    QCOMPARE(got.counters, (Progress{4, 1, 0, 0}));
    QVERIFY(viewer.echo());
    viewer.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
    QCOMPARE(viewer.collect().objects.size(), 5);
}

void GetTest::whatIsMissingOrCutOffFails() {
    launchWith();
    const QStringList uids = storeStudy(5);
    QVERIFY(QFile::remove(fileOf(uids[0])));
    QFile shortened{fileOf(uids[1])};
    QVERIFY(shortened.resize(shortened.size() - 1000));
    QVERIFY(QFile::resize(fileOf(uids[2]), 0));
    QVERIFY(QFile::remove(fileOf(uids[3])));
    QVERIFY(QFile::copy(fileOf(uids[4]), fileOf(uids[3])));
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
    const Retrieved got = viewer.collect();
    QCOMPARE(got.status, 0xb000);
    QCOMPARE(got.failed, uids.first(4));
    QCOMPARE(got.objects.keys(), uids.last(1));
    for (const QString& uid : uids.first(4))
        QVERIFY2(daemon_->log().contains(uid + u" not sent: "_s), qPrintable(uid));
}

void GetTest::aLargeObjectGoesAsItLies() {
    launchWith();
    const QString sent = writeObject({.side = 3000}, scratch(u"large.dcm"_s));  // 18 MB
    storeFile(sent, u"-xe"_s);
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
    const Retrieved got = viewer.collect();
    QCOMPARE(got.status, 0);
    QVERIFY(got.objects.first() == dataSetOf(sent));
    QFile::resize(fileOf(got.objects.firstKey()), 9'000'000);
    viewer.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
    QCOMPARE(viewer.collect().status, 0xa702);
}

void GetTest::aRequestorThatVanishesEndsIt() {
    launchWith();
    storeStudy(20, 512);
    {
        Retriever viewer{daemon_->port()};
        viewer.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
        QVERIFY(viewer.hearStore().isStore());
    }
    EVENTUALLY(!daemon_->isBusy());
    EVENTUALLY(daemon_->log().contains(u"C-GET: 20 objects found, 0 sent, 0 failed"_s));
    Retriever viewer{daemon_->port()};
    QVERIFY(viewer.echo());
}

void GetTest::terminateEndsIt() {
    launchWith();
    storeStudy(3);
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
    QVERIFY(viewer.hearStore().isStore());  // and is never answered
    QVERIFY(daemon_->terminate());
}

QTEST_GUILESS_MAIN(GetTest)
#include "tst_get.moc"
