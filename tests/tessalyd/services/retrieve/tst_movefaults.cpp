#include <QSet>
#include <latch>

#include "tessalyd/association/OutboundSlots.h"
#include "tests/dicom/net/Peers.h"
#include "tests/support/Eventually.h"
#include "tests/tessalyd/services/retrieve/MoveTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// Moves whose destination, requestor, files or server fail.
class MoveFaultsTest : public MoveTest {
    Q_OBJECT

  private Q_SLOTS:
    void aDestinationThatFailsIsCounted_data();
    void aDestinationThatFailsIsCounted();
    void aDestinationThatBreaksOffFailsWhatIsLeft();
    void aDestinationThatDelaysIsWaitedFor();
    void whatIsMissingOrCutOffFails();
    void aRequestorThatVanishesEndsIt();
    void terminateEndsIt();
    void aStopLetsItGoOnForTheGrace();
    void aKilledServerLeavesNothingBehind();
    void movesTakeTurns();
};

void MoveFaultsTest::aDestinationThatFailsIsCounted_data() {
    QTest::addColumn<QString>("option");  // of the destination; empty: nobody is there
    QTest::addColumn<QString>("host");
    QTest::addColumn<int>("sent");
    QTest::newRow("nobody listens") << QString{} << u"127.0.0.1"_s << 0;
    QTest::newRow("no such host") << QString{} << u"nowhere.invalid"_s << 0;
    QTest::newRow("refuses") << u"--refuse"_s << u"127.0.0.1"_s << 0;
    QTest::newRow("aborts during the first") << u"--abort-during"_s << u"127.0.0.1"_s << 0;
    QTest::newRow("aborts after the first") << u"--abort-after"_s << u"127.0.0.1"_s << 0;
}

void MoveFaultsTest::aDestinationThatFailsIsCounted() {
    QFETCH(const QString, option);
    QFETCH(const QString, host);
    QFETCH(const int, sent);
    std::unique_ptr<Receiver> receiver;
    if (!option.isEmpty())
        receiver = std::make_unique<Receiver>(QStringList{option});
    Node node = destination(receiver ? receiver->port : unusedPort());
    node.host = host;
    launchWith({node});
    const QStringList uids = storeStudy(4);
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xa702);
    QCOMPARE(moved.counters, (Progress{-1, sent, 4 - sent, 0}));
    QCOMPARE(moved.failed, uids);
    QVERIFY(daemon_->log().contains(u" not sent: "_s));
    QVERIFY(daemon_->log().contains(u": 3 more objects not sent"_s));
    QVERIFY(viewer.echo());
    viewer.release();
    EVENTUALLY(daemon_->log().contains(u"C-MOVE: 4 objects found, 0 sent, 4 failed"_s));
}

void MoveFaultsTest::aDestinationThatBreaksOffFailsWhatIsLeft() {
    ScriptedServer server;
    std::atomic<int> taken = 0;
    server.on(CommandField::CStore, [&](const Request& request, Association& association) {
        if (++taken == 3)
            throw AssociationEnded{DIMSE_BADCOMMANDTYPE};
        take(request, association);
    });
    launchWith({destination(server.port())});
    const QStringList uids = storeStudy(6);
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xb000);
    QCOMPARE(moved.counters, (Progress{-1, 2, 4, 0}));
    QCOMPARE(moved.failed.size(), 4);
    QVERIFY(QSet<QString>(uids.begin(), uids.end()).contains({moved.failed.begin(), moved.failed.end()}));
    QVERIFY(viewer.echo());
}

void MoveFaultsTest::aDestinationThatDelaysIsWaitedFor() {
    const Receiver receiver{{u"--sleep-after"_s, u"1"_s}};
    launchWith({destination(receiver.port)});
    storeStudy(2);
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0);
    QVERIFY(!moved.pending.isEmpty());
    for (const Progress& one : moved.pending)
        QCOMPARE(one.remaining + one.completed + one.failed + one.warned, 2);
    QCOMPARE(dataSetsIn(receiver.folder.path()), storedDataSets());
}

void MoveFaultsTest::whatIsMissingOrCutOffFails() {
    const Receiver receiver;
    launchWith({destination(receiver.port)});
    const QStringList uids = storeStudy(4);
    QVERIFY(QFile::remove(fileOf(uids[0])));
    QFile shortened{fileOf(uids[1])};
    QVERIFY(shortened.resize(shortened.size() - 1000));
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xb000);
    QCOMPARE(moved.failed, uids.first(2));
    QCOMPARE(moved.counters, (Progress{-1, 2, 2, 0}));
    QCOMPARE(dataSetsIn(receiver.folder.path()).keys(), uids.last(2));
    for (const QString& uid : uids.first(2))
        QVERIFY2(daemon_->log().contains(uid + u" not sent: "_s), qPrintable(uid));
}

void MoveFaultsTest::aRequestorThatVanishesEndsIt() {
    ScriptedServer server;
    std::latch begun{1};
    std::latch over{1};
    server.on(CommandField::CStore, [&](const Request&, Association&) {
        begun.count_down();
        over.wait();
        throw AssociationEnded{DIMSE_NODATAAVAILABLE};
    });
    launchWith({destination(server.port())});
    storeStudy(3);
    {
        Retriever viewer{daemon_->port()};
        askForMove(viewer);
        begun.wait();
    }
    EVENTUALLY(!daemon_->isBusy());  // the destination has not answered yet
    over.count_down();
    EVENTUALLY(daemon_->log().contains(u"C-MOVE: 3 objects found, 0 sent, 0 failed"_s));
    EVENTUALLY_COMPARE(server.ended.load(), 1);
}

void MoveFaultsTest::terminateEndsIt() {
    const FullPort hanging;
    launchWith({destination(hanging.port())});
    storeStudy(3);
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    QVERIFY(viewer.hear().isPending());
    QVERIFY(daemon_->terminate());
    QVERIFY(viewer.waitForEnd());
}

void MoveFaultsTest::aStopLetsItGoOnForTheGrace() {
    ScriptedServer server;
    std::latch begun{1};
    std::latch stopped{1};
    server.on(CommandField::CStore, [&](const Request& request, Association& association) {
        begun.count_down();
        stopped.wait();
        take(request, association);
    });
    launchWith({destination(server.port())});
    storeStudy(1);
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    begun.wait();
    QVERIFY(daemon_->succeeds(&OrgTessalyServer1Interface::Stop));
    stopped.count_down();
    QCOMPARE(viewer.collect().status, 0);
}

void MoveFaultsTest::aKilledServerLeavesNothingBehind() {
    ScriptedServer server;
    std::latch begun{1};
    std::latch over{1};
    server.on(CommandField::CStore, [&](const Request&, Association&) {
        begun.count_down();
        over.wait();
        throw AssociationEnded{DIMSE_NODATAAVAILABLE};
    });
    launchWith({destination(server.port())});
    storeStudy(3);
    const QStringList before = daemon_->entries();
    const auto stored = storedDataSets();
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    begun.wait();
    daemon_->kill();
    over.count_down();
    QCOMPARE(daemon_->entries(), before);
    QCOMPARE(storedDataSets(), stored);
    server.on(CommandField::CStore,
              [](const Request& request, Association& association) { take(request, association); });
    daemon_->launch();
    Retriever again{daemon_->port()};
    askForMove(again);
    QCOMPARE(again.collect().counters, (Progress{-1, 3, 0, 0}));
}

/// More moves than may go out at a time: all come to their end, and objects are stored meanwhile.
void MoveFaultsTest::movesTakeTurns() {
    constexpr int Moves = 12;
    ScriptedServer server;
    std::latch go{1};
    std::atomic<int> atOnce = 0;
    server.on(CommandField::CStore, [&](const Request& request, Association& association) {
        ++atOnce;
        go.wait();
        take(request, association);
    });
    launchWith({destination(server.port())});
    storeStudy(1);
    std::vector<std::unique_ptr<Retriever>> viewers;
    for (int i = 0; i < Moves; ++i) {
        viewers.push_back(std::make_unique<Retriever>(daemon_->port()));
        askForMove(*viewers.back());
    }
    EVENTUALLY_COMPARE(atOnce.load(), static_cast<int>(OutboundSlots::Most));
    QCOMPARE(store({.study = "1.2.9", .series = "1.2.9.1", .instance = "1.2.9.1.1"}).status, 0);
    QCOMPARE(atOnce.load(), static_cast<int>(OutboundSlots::Most));
    go.count_down();
    for (const auto& viewer : viewers)
        QCOMPARE(viewer->collect().status, 0);
    QCOMPARE(atOnce.load(), Moves);
}

QTEST_GUILESS_MAIN(MoveFaultsTest)
#include "tst_movefaults.moc"
