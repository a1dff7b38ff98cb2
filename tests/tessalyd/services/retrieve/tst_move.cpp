#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QFile>
#include <latch>
#include <mutex>

#include "tests/dicom/net/Peers.h"
#include "tests/support/Eventually.h"
#include "tests/tessalyd/services/retrieve/MoveTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// Objects to another node, and what the requestor is told of it.
class MovesTest : public MoveTest {
    Q_OBJECT

  private Q_SLOTS:
    void anotherProductHasAStudyMoved();
    void anotherArchiveTakesWhatIsMoved();
    void theDestinationIsToldWhoAsked();
    void oneAssociationTakesAll();
    void rowsThatDoNotSayWhatTheirFilesAre_data();
    void rowsThatDoNotSayWhatTheirFilesAre();
    void aRowWithoutAClassWhoseFileIsGoneFailsAlone();
    void destinationsThatAreNone_data();
    void destinationsThatAreNone();
    void nothingFoundCallsNobody();
    void whoMayNotQueryMovesNothing();
    void whatTheDestinationSaysIsCounted();
    void progressIsToldWhileTheDestinationIsReached();
    void progressIsToldWhileAnObjectIsTaken();
    void aCancelEndsIt();
    void aCancelInTheMiddleOfAnObjectEndsIt();
    void moreContextsThanOneAssociationHas();
    void whatTheDestinationCannotTakeIsDecoded();
    void dumpsShowWhatGoesOut();
};

void MovesTest::anotherProductHasAStudyMoved() {
    const Receiver receiver;
    launchWith({destination(receiver.port)});
    storeStudy(6);
    const Outcome peer = run(u"movescu"_s, {u"-aet"_s, u"VIEWER"_s, u"-aec"_s, u"TESSALY"_s, u"-aem"_s,
                                            u"DEST"_s, u"-S"_s, u"-k"_s, u"QueryRetrieveLevel=STUDY"_s,
                                            u"-k"_s, u"StudyInstanceUID=%1"_s.arg(QLatin1StringView{Study}),
                                            u"localhost"_s, daemon_->port()});
    QVERIFY2(peer.exitCode == 0, qPrintable(peer.output));
    QCOMPARE(dataSetsIn(receiver.folder.path()), storedDataSets());
    EVENTUALLY(daemon_->log().contains(u"C-MOVE: 6 objects found, 6 sent, 0 failed"_s));
}

void MovesTest::anotherArchiveTakesWhatIsMoved() {
    const QString port = unusedPort();
    launchWith({destination(port)});
    const OtherArchive archive{scratch(u"orthanc"_s), u"DEST"_s, daemon_->port(), port};
    storeFile(writeObject({.instance = "1.2.5.1"}, scratch(u"1.dcm"_s)), u"-xe"_s);
    storeFile(writeObject({.instance = "1.2.5.2", .side = 64}, scratch(u"2.dcm"_s), EXS_JPEGProcess14SV1),
              u"-xs"_s);
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0);
    QCOMPARE(moved.counters, (Progress{-1, 2, 0, 0}));
    QCOMPARE(dataSetsOf(archive, scratch(u"got"_s)), storedDataSets());
}

void MovesTest::theDestinationIsToldWhoAsked() {
    ScriptedServer server;
    std::mutex mutex;
    std::vector<tessaly::dicom::Command> heard;
    QStringList titles;
    server.on(CommandField::CStore, [&](const Request& request, Association& association) {
        const std::lock_guard lock{mutex};
        heard.push_back(request.command);
        titles << QString::fromStdString(association.names().callingAeTitle);
        take(request, association);
    });
    launchWith({{.aeTitle = u"DEST"_s, .port = server.port(), .localAeTitle = u"OURNAME"_s}});
    storeStudy(2);
    Retriever viewer{daemon_->port()};
    QVERIFY(viewer.echo());  // so that the message's ID is not the first
    const DIC_US id = askForMove(viewer);
    QCOMPARE(viewer.collect().status, 0);
    const std::lock_guard lock{mutex};
    QCOMPARE(heard.size(), std::size_t{2});
    for (const tessaly::dicom::Command& store : heard) {
        QVERIFY(store.value(DCM_MoveOriginatorApplicationEntityTitle) == "VIEWER");
        QCOMPARE(store.number(DCM_MoveOriginatorMessageID).value_or(0), std::uint16_t{id});
    }
    QCOMPARE(titles, (QStringList{u"OURNAME"_s, u"OURNAME"_s}));
}

void MovesTest::oneAssociationTakesAll() {
    ScriptedServer server;
    server.on(CommandField::CStore,
              [](const Request& request, Association& association) { take(request, association); });
    launchWith({destination(server.port())});
    storeStudy(5);
    Retriever viewer{daemon_->port()};
    for (int moves = 1; moves <= 2; ++moves) {
        askForMove(viewer);
        QCOMPARE(viewer.collect().counters, (Progress{-1, 5, 0, 0}));
        EVENTUALLY_COMPARE(server.ended.load(), moves);
    }
}

void MovesTest::rowsThatDoNotSayWhatTheirFilesAre_data() {
    QTest::addColumn<QString>("unknown");
    QTest::newRow("no class") << u"SOPClassUID=NULL"_s;
    QTest::newRow("no syntax") << u"TransferSyntaxUID=NULL"_s;
    QTest::newRow("neither") << u"SOPClassUID=NULL, TransferSyntaxUID=NULL"_s;
    QTest::newRow("both empty") << u"SOPClassUID='', TransferSyntaxUID=''"_s;
}

void MovesTest::rowsThatDoNotSayWhatTheirFilesAre() {
    QFETCH(const QString, unknown);
    const Receiver receiver;
    launchWith({destination(receiver.port)});
    const QStringList uids = storeStudy(3);
    daemon_->database.run(u"UPDATE Image SET %1 WHERE SOPInstanceUID=?"_s.arg(unknown), {uids.first()});
    daemon_->database.release();
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0);
    QCOMPARE(moved.counters, (Progress{-1, 3, 0, 0}));
    QCOMPARE(dataSetsIn(receiver.folder.path()), storedDataSets());
}

void MovesTest::aRowWithoutAClassWhoseFileIsGoneFailsAlone() {
    const Receiver receiver;
    launchWith({destination(receiver.port)});
    const QStringList uids = storeStudy(3);
    QVERIFY(QFile::remove(fileOf(uids.first())));
    daemon_->database.run(u"UPDATE Image SET SOPClassUID=NULL WHERE SOPInstanceUID=?"_s, {uids.first()});
    daemon_->database.release();
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xb000);
    QCOMPARE(moved.counters, (Progress{-1, 2, 1, 0}));
    QCOMPARE(moved.failed, QStringList{uids.first()});
}

void MovesTest::destinationsThatAreNone_data() {
    QTest::addColumn<QByteArray>("title");
    QTest::newRow("nobody") << QByteArray{"NOBODY"};
    QTest::newRow("one that nothing is sent to") << QByteArray{"VIEWER"};
    QTest::newRow("in other letters") << QByteArray{"dest"};
}

void MovesTest::destinationsThatAreNone() {
    QFETCH(const QByteArray, title);
    launchWith({destination(unusedPort())});
    storeStudy(1);
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::MoveStudyRoot, "STUDY", TheStudy, title.toStdString());
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xa801);
    QVERIFY(!moved.comment.empty());
    QVERIFY(viewer.echo());
    QVERIFY(daemon_->log().contains(QString::fromUtf8(title)));
}

void MovesTest::nothingFoundCallsNobody() {
    ScriptedServer server;
    launchWith({destination(server.port())});
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0);
    QCOMPARE(moved.counters, (Progress{-1, 0, 0, 0}));
    QCOMPARE(server.ended.load(), 0);
}

void MovesTest::whoMayNotQueryMovesNothing() {
    launchWith({destination(unusedPort())});
    storeStudy(1);
    Retriever stranger{daemon_->port(), {}, "DEST"};
    askForMove(stranger);
    QCOMPARE(stranger.collect().status, 0x0124);
    QVERIFY(stranger.echo());
}

void MovesTest::whatTheDestinationSaysIsCounted() {
    ScriptedServer server;
    const std::string prefix = std::string{Study} + ".1.";
    server.on(CommandField::CStore, [&](const Request& request, Association& association) {
        const std::string uid = request.command.sopInstanceUid();
        take(request, association,
             uid == prefix + "1"   ? STATUS_STORE_Refused_OutOfResources
             : uid == prefix + "3" ? STATUS_STORE_Warning_CoercionOfDataElements
                                   : STATUS_Success);
    });
    launchWith({destination(server.port())});
    storeStudy(5);
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xb000);
    QCOMPARE(moved.counters, (Progress{-1, 3, 1, 1}));
    QCOMPARE(moved.failed, QStringList{QString::fromStdString(prefix + "1")});
    QVERIFY(daemon_->log().contains(u"1 not sent: status A700"_s));
}

void MovesTest::progressIsToldWhileTheDestinationIsReached() {
    const FullPort hanging;
    launchWith({destination(hanging.port())});
    storeStudy(3);
    Retriever viewer{daemon_->port()};
    const DIC_US id = askForMove(viewer);
    for (int told = 0; told < 2; ++told) {
        const RetrievalMessage pending = viewer.hear();
        QVERIFY(pending.isPending());
        QCOMPARE(pending.progress(), (Progress{3, 0, 0, 0}));
    }
    viewer.cancel(Retriever::MoveStudyRoot, id);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xfe00);
    QCOMPARE(moved.counters, (Progress{3, 0, 0, 0}));
    QVERIFY(viewer.echo());
}

void MovesTest::progressIsToldWhileAnObjectIsTaken() {
    ScriptedServer server;
    std::latch told{1};
    server.on(CommandField::CStore, [&](const Request& request, Association& association) {
        told.wait();
        take(request, association);
    });
    launchWith({destination(server.port())});
    storeStudy(3);
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    const RetrievalMessage pending = viewer.hear();
    told.count_down();
    QVERIFY(pending.isPending());
    QCOMPARE(pending.progress(), (Progress{3, 0, 0, 0}));
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0);
    QCOMPARE(moved.counters, (Progress{-1, 3, 0, 0}));
}

void MovesTest::aCancelEndsIt() {
    ScriptedServer server;
    std::latch begun{1};
    std::atomic<int> taken = 0;
    server.on(CommandField::CStore, [&](const Request& request, Association& association) {
        if (++taken < 2)
            return take(request, association);
        // The second one is never answered: what comes then is the association's end.
        QVERIFY(association.receiveDataSet([](std::span<const char>) {}));
        begun.count_down();
        static_cast<void>(association.receiveRequest());
    });
    launchWith({destination(server.port())});
    storeStudy(5);
    Retriever viewer{daemon_->port()};
    const DIC_US id = askForMove(viewer);
    begun.wait();
    viewer.cancel(Retriever::MoveStudyRoot, id);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xfe00);
    QCOMPARE(moved.counters, (Progress{4, 1, 0, 0}));
    QCOMPARE(taken.load(), 2);
    QVERIFY(viewer.echo());
}

void MovesTest::aCancelInTheMiddleOfAnObjectEndsIt() {
    ScriptedServer server;
    std::latch begun{1};
    std::latch over{1};
    server.on(CommandField::CStore, [&](const Request&, Association&) {
        begun.count_down();
        over.wait();  // the answer never comes
        throw AssociationEnded{DIMSE_NODATAAVAILABLE};
    });
    launchWith({destination(server.port())});
    storeStudy(3);
    Retriever viewer{daemon_->port()};
    const DIC_US id = askForMove(viewer);
    begun.wait();
    viewer.cancel(Retriever::MoveStudyRoot, id);
    const Retrieved moved = viewer.collect();  // comes although the destination is still silent
    over.count_down();
    QCOMPARE(moved.status, 0xfe00);
    QCOMPARE(moved.counters, (Progress{3, 0, 0, 0}));
    QVERIFY(viewer.echo());
}

void MovesTest::moreContextsThanOneAssociationHas() {
    const Receiver receiver;
    launchWith({destination(receiver.port)});
    std::vector<RequestorAssociation::Context> contexts{
        {UID_VerificationSOPClass, {UID_LittleEndianImplicitTransferSyntax}}};
    std::vector<std::string> classes;
    for (int i = 0; i < numberOfDcmLongSCUStorageSOPClassUIDs && classes.size() < 80; ++i) {
        if (dcmIsaStorageSOPClassUID(dcmLongSCUStorageSOPClassUIDs[i]))
            classes.emplace_back(dcmLongSCUStorageSOPClassUIDs[i]);
    }
    for (std::size_t i = 0; i < classes.size(); ++i) {  // the context of this kit's C-STOREs is the second
        RequestorAssociation sender{daemon_->port(),
                                    "TESTER",
                                    "TESSALY",
                                    {contexts[0], {classes[i], {UID_LittleEndianExplicitTransferSyntax}}}};
        const auto object = makeObject({.instance = "1.2.7." + std::to_string(i)});
        object->getDataset()->putAndInsertString(DCM_SOPClassUID, classes[i].c_str());
        QCOMPARE(sender.store(*object).status, 0);
        sender.release();
    }
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    const Retrieved moved = viewer.collect();
    QVERIFY(classes.size() * 2 > 128);
    QCOMPARE(moved.counters, (Progress{-1, static_cast<int>(classes.size()), 0, 0}));
    QCOMPARE(dataSetsIn(receiver.folder.path()), storedDataSets());
}

void MovesTest::whatTheDestinationCannotTakeIsDecoded() {
    const Receiver receiver{{u"+xi"_s}};  // implicit little endian alone
    launchWith({destination(receiver.port)});
    const QString sent = writeObject({.side = 64}, scratch(u"one.dcm"_s), EXS_JPEGProcess14SV1);
    storeFile(sent, u"-xs"_s);
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    QCOMPARE(viewer.collect().status, 0);
    const auto files = QDir{receiver.folder.path()}.entryInfoList(QDir::Files);
    QCOMPARE(files.size(), 1);
    QCOMPARE(syntaxOf(files.first().filePath()), EXS_LittleEndianImplicit);
    QCOMPARE(pixelsOf(files.first().filePath()), pixelsOf(sent));
}

void MovesTest::dumpsShowWhatGoesOut() {
    const Receiver receiver;
    launchWith({destination(receiver.port)}, 1 + 4 + 16);
    storeStudy(1);
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    QCOMPARE(viewer.collect().status, 0);
    const QString log = daemon_->log();
    QVERIFY(log.contains(u"association to a destination"_s));
    const QString afterMove = log.section(u"C-MOVE RQ"_s, 1);
    QVERIFY(afterMove.contains(u"C-STORE RQ"_s));
    QVERIFY(afterMove.contains(u"C-STORE RSP"_s));
    QVERIFY(afterMove.contains(u": sent "_s));
}

QTEST_GUILESS_MAIN(MovesTest)
#include "tst_move.moc"
