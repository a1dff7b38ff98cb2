#include <dcmtk/dcmdata/dcdeftag.h>

#include <QSet>
#include <latch>

#include "tessalyd/search/QuerySessions.h"
#include "tessalyd/services/query/QueryIdentifier.h"
#include "tessalyd/services/retrieve/MoveJob.h"
#include "tests/dicom/net/StorePeer.h"
#include "tests/support/Eventually.h"
#include "tests/tessalyd/services/retrieve/MoveTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// Retrievals whose tables, files or destination fail in ways that take some doing.
class RetrieveFaultsTest : public MoveTest {
    Q_OBJECT

  private Q_SLOTS:
    void tablesThatCannotBeAskedAreTold_data();
    void tablesThatCannotBeAskedAreTold();
    void bytesThatAreNoIdentifierAreRefused_data();
    void bytesThatAreNoIdentifierAreRefused();
    void aRequestWithoutAnIdentifierEndsTheAssociation_data();
    void aRequestWithoutAnIdentifierEndsTheAssociation();
    void aDiskThatFailsTheReadIsCounted();
    void aFileThatEndsWhileItIsSentCostsItsAssociationAlone();
    void aDestinationThatSaysNothingHasFailed();

  private:
    static void byModel() {
        QTest::addColumn<int>("context");
        QTest::newRow("C-GET") << int{Retriever::GetStudyRoot};
        QTest::newRow("C-MOVE") << int{Retriever::MoveStudyRoot};
    }
    static DIC_US ask(Retriever& viewer, int context) {
        return viewer.ask(static_cast<Retriever::ContextId>(context), "STUDY",
                          {{DCM_StudyInstanceUID, Study}}, context == Retriever::MoveStudyRoot ? "DEST" : "");
    }
};

void RetrieveFaultsTest::tablesThatCannotBeAskedAreTold_data() {
    byModel();
}

void RetrieveFaultsTest::tablesThatCannotBeAskedAreTold() {
    QFETCH(const int, context);
    launchWith({destination(unusedPort())});
    storeStudy(2);
    daemon_->database.run(u"ALTER TABLE Study RENAME TO Elsewhere"_s);
    Retriever viewer{daemon_->port()};
    ask(viewer, context);
    const Retrieved refused = viewer.collect();
    QCOMPARE(refused.status, 0xa701);
    QCOMPARE(refused.comment, "The database cannot be asked");
    QVERIFY(daemon_->log().contains(u"the tables cannot be asked"_s));
    daemon_->database.run(u"ALTER TABLE Elsewhere RENAME TO Study"_s);
    ask(viewer, Retriever::GetStudyRoot);
    QCOMPARE(viewer.collect().objects.size(), 2);
}

void RetrieveFaultsTest::bytesThatAreNoIdentifierAreRefused_data() {
    byModel();
}

void RetrieveFaultsTest::bytesThatAreNoIdentifierAreRefused() {
    QFETCH(const int, context);
    launchWith({destination(unusedPort())});
    storeStudy(1);
    Retriever viewer{daemon_->port()};
    const std::string claims{
        "\x08\0\x52\0\x43\x53\xff\x7f"
        "STUDY ",
        14};  // longer than what there is
    viewer.askWithBytes(static_cast<Retriever::ContextId>(context), claims,
                        context == Retriever::MoveStudyRoot ? "DEST" : "");
    const Retrieved refused = viewer.collect();
    QCOMPARE(refused.status, 0xc000);
    QVERIFY(!refused.comment.empty());
    ask(viewer, Retriever::GetStudyRoot);
    QCOMPARE(viewer.collect().objects.size(), 1);
}

/// Of a folder's name every read fails, as of a file on a disk that is broken.
void RetrieveFaultsTest::aRequestWithoutAnIdentifierEndsTheAssociation_data() {
    byModel();
}

void RetrieveFaultsTest::aRequestWithoutAnIdentifierEndsTheAssociation() {
    QFETCH(const int, context);
    launchWith({destination(unusedPort())});
    Retriever viewer{daemon_->port()};
    const bool isMove = context == Retriever::MoveStudyRoot;
    viewer.askWithBytes(static_cast<Retriever::ContextId>(context), {}, isMove ? "DEST" : "");
    QVERIFY(viewer.waitForEnd());  // the toolkit takes such a message for a broken one
}

void RetrieveFaultsTest::aDiskThatFailsTheReadIsCounted() {
    const Receiver receiver;
    launchWith({destination(receiver.port)});
    const QStringList uids = storeStudy(4);
    QVERIFY(QFile::remove(fileOf(uids[1])) && QDir{}.mkpath(fileOf(uids[1])));
    for (const int context : {int{Retriever::GetStudyRoot}, int{Retriever::MoveStudyRoot}}) {
        Retriever viewer{daemon_->port()};
        ask(viewer, context);
        const Retrieved got = viewer.collect();
        QCOMPARE(got.status, 0xb000);
        QCOMPARE(got.failed, QStringList{uids[1]});
        QCOMPARE(got.counters, (Progress{-1, 3, 1, 0}));
        QVERIFY(viewer.echo());
    }
    QCOMPARE(dataSetsIn(receiver.folder.path()).size(), 3);
    QVERIFY2(daemon_->log().contains(uids[1] + u" not sent: "_s), qPrintable(daemon_->log()));
    QVERIFY2(daemon_->log().contains(u"Is a directory"_s), qPrintable(daemon_->log()));
}

void RetrieveFaultsTest::aFileThatEndsWhileItIsSentCostsItsAssociationAlone() {
    constexpr int Side = 4096;  // more than what is on its way can be: 32 MB
    ScriptedServer server;
    std::latch begun{1};
    std::latch shortened{1};
    std::atomic<int> whole = 0;
    server.on(CommandField::CStore, [&](const Request& request, Association& association) {
        begun.count_down();
        shortened.wait();
        take(request, association);
        ++whole;
    });
    launchWith({destination(server.port())});
    QCOMPARE(store({.study = Study, .series = "1.2.5.1", .instance = "1.2.5.1.1", .side = Side}).status, 0);
    QCOMPARE(store({.study = Study, .series = "1.2.5.1", .instance = "1.2.5.1.2", .seed = 2}).status, 0);
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    begun.wait();
    QVERIFY(QFile::resize(fileOf(u"1.2.5.1.1"_s), 20'000'000));
    shortened.count_down();
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xb000);
    QCOMPARE(moved.failed, QStringList{u"1.2.5.1.1"_s});
    QCOMPARE(moved.counters, (Progress{-1, 1, 1, 0}));
    EVENTUALLY_COMPARE(server.ended.load(), 2);
    QCOMPARE(whole.load(), 1);
    QVERIFY2(daemon_->log().contains(u"1.2.5.1.1 not sent: "_s), qPrintable(daemon_->log()));
}

/// The bound is a minute for a server; here it is what does not make the test wait.
void RetrieveFaultsTest::aDestinationThatSaysNothingHasFailed() {
    const StorePeer peer{{"1.2.840.10008.1.2.1"},
                         [](int number) { return number == 0 ? 0 : StorePeer::Nothing; }};
    QCOMPARE(MoveJob::Order{}.limits.silence, std::chrono::milliseconds{60'000});
    daemon_ = std::make_unique<Daemon>();
    daemon_->launch();
    storeStudy(4);
    QuerySessions sessions;
    const auto lease = sessions.take([] { return false; });
    DcmDataset question = identifier("STUDY", TheStudy);
    InstanceList instances{lease->statements(), readRetrieval(question, InformationModel::StudyRoot)};
    QCOMPARE(instances.size(), std::size_t{4});
    OutboundSlots turns;
    tessaly::decoder::Pool decoders{{}};
    PeerLog log;
    MoveJob job{{.destination = {.host = "127.0.0.1",
                                 .port = peer.port(),
                                 .callingAeTitle = "TESSALY",
                                 .calledAeTitle = "DEST"},
                 .originator = {.aeTitle = "VIEWER", .messageId = 1},
                 .name = "a test",
                 .limits = {.connect = std::chrono::seconds{10}, .silence = std::chrono::milliseconds{500}}},
                std::move(instances),
                turns,
                decoders,
                log};
    EVENTUALLY(job.waitForEnd(std::chrono::milliseconds{100}));
    const SubOperations done = job.progress();
    QCOMPARE(done.sent(), std::size_t{1});
    QCOMPARE(done.failed(), std::size_t{3});
    QCOMPARE(done.remaining(), std::size_t{0});
    QCOMPARE(peer.associations(), 1);  // what was still to go is not tried
}

QTEST_GUILESS_MAIN(RetrieveFaultsTest)
#include "tst_retrievefaults.moc"
