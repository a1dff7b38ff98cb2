#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmnet/dcmtrans.h>
#include <dcmtk/dcmnet/dul.h>
#include <sys/ioctl.h>

#include <QFile>
#include <QTest>
#include <array>
#include <utility>

#include "tessalyd/search/QuerySessions.h"
#include "tests/support/Eventually.h"
#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/Finding.h"
#include "tests/tessalyd/Processes.h"
#include "tests/tessalyd/StockedArchive.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// What happens while a query is answered: it is cancelled, takes too long, its requestor vanishes, the
/// server is stopped, objects come meanwhile.
class FindUnderWayTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void init();

    void aCancelInTheMiddleEndsTheAnswers();
    void aCancelRightAfterTheRequestEndsIt();
    void aToolCancels();
    void aCancelEndsASearchWithoutAnswers();
    void aRequestorThatStopsInTheMiddleHoldsUpNoOther();
    void aQueryThatTakesTooLongIsRefused();
    void aDatabaseThatFailsIsTold();
    void memoryStaysFlat();
    void storesGoOnMeanwhile();
    void queriesBeyondTheSessionsWaitTheirTurn();
    void requestorsThatDoNotReadHoldNoSession();
    void aRequestorThatVanishesFreesItsSession();
    void aStopEndsAQuery_data();
    void aStopEndsAQuery();

  private:
    static constexpr int Many = 100'000;

    /// So many patients with a study each.
    void stock(int studies) const;
    /// Reading one row of Study takes the engine some milliseconds from now on. For a server that runs
    /// already: it starts with tables alone.
    void makeReadingSlow() const;
    [[nodiscard]] std::unique_ptr<RequestorAssociation> workstation() const {
        return std::make_unique<RequestorAssociation>(daemon_->port(), "WS1", "TESSALY", Finding::contexts());
    }
    [[nodiscard]] static DcmDataset allStudies() {
        return identifier("STUDY", {{DCM_StudyInstanceUID, ""}, {DCM_PatientName, ""}, {DCM_StudyDate, ""}});
    }
    /// Nothing matches, and every row has to be looked at.
    [[nodiscard]] static DcmDataset nothing() {
        return identifier("STUDY", {{DCM_StudyInstanceUID, ""}, {DCM_StudyDescription, "*nothing"}});
    }
    /// Whether so much waits for a peer that does not read it, that nothing more comes.
    [[nodiscard]] bool isStuck(RequestorAssociation& peer);
    /// The peak of the server's memory, in kilobytes.
    [[nodiscard]] long long peakMemory() const;

    int waiting_ = 0;  // bytes for a peer, when it was last looked
    int same_ = 0;     // how often it has been the same
};

void FindUnderWayTest::init() {
    daemon_ = std::make_unique<Daemon>();
    daemon_->database.run(u"INSERT INTO DicomNodes (Name, AETitle, Query) VALUES ('work', 'WS1', 1)"_s);
}

void FindUnderWayTest::stock(int studies) const {
    const QString numbers =
        u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<%1) "_s.arg(studies);
    daemon_->database.run(u"BEGIN"_s);
    daemon_->database.run(numbers +
                          u"INSERT INTO Patient (ID, PatientID, Name, NameAlphabetic) "
                          "SELECT i, 'P'||i, 'Family'||i||'^Given', 'family'||i||'^given' FROM n"_s);
    daemon_->database.run(numbers +
                          u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath, StudyID, StudyDate, "
                          "Description) SELECT '1.2.826.'||i, i, '/archive/'||i, i, "
                          "CAST(20000101+i%28 AS TEXT), 'Thorax' FROM n"_s);
    daemon_->database.run(u"COMMIT"_s);
    daemon_->database.release();
}

void FindUnderWayTest::makeReadingSlow() const {
    makeStudiesSlow(daemon_->database);
    daemon_->database.release();
}

long long FindUnderWayTest::peakMemory() const {
    return peakMemoryOf(daemon_->process.processId());
}

bool FindUnderWayTest::isStuck(RequestorAssociation& peer) {
    constexpr int Much = 100'000;
    int waiting = 0;
    ioctl(peer.socket(), FIONREAD, &waiting);
    same_ = std::exchange(waiting_, waiting) == waiting && waiting > Much ? same_ + 1 : 0;
    constexpr int Often = 20;
    return same_ >= Often;
}

void FindUnderWayTest::aCancelInTheMiddleEndsTheAnswers() {
    stock(Many);
    daemon_->launch();
    const auto peer = workstation();
    Finding finding{*peer, allStudies()};
    for (int i = 0; i < 3; ++i)
        QCOMPARE(finding.next().status, 0xff00);
    finding.cancel();
    const Finding::Rest rest = finding.rest();
    QCOMPARE(rest.last.status, 0xfe00);
    QVERIFY(rest.pending + 3 < Many);
    QCOMPARE(findAll(*peer, identifier("STUDY", {{DCM_StudyInstanceUID, "1.2.826.7"}})).pending, 1);
    QVERIFY(peer->echo());
}

void FindUnderWayTest::aCancelRightAfterTheRequestEndsIt() {
    stock(Many);
    daemon_->launch();
    const auto peer = workstation();
    for (int i = 0; i < 20; ++i) {
        Finding finding{*peer, allStudies()};
        finding.cancel();
        const Finding::Rest rest = finding.rest();
        QCOMPARE(rest.last.status, 0xfe00);
        QVERIFY(rest.pending < Many);
    }
    QVERIFY(peer->echo());
}

void FindUnderWayTest::aToolCancels() {
    stock(Many);
    daemon_->launch();
    const Outcome outcome = run(
        u"findscu"_s, {u"-v"_s, u"-aet"_s, u"WS1"_s, u"-S"_s, u"--cancel"_s, u"5"_s, u"-k"_s,
                       u"0008,0052=STUDY"_s, u"-k"_s, u"0020,000D="_s, daemon_->address(), daemon_->port()});
    QCOMPARE(outcome.exitCode, 0);
    QVERIFY2(outcome.output.contains(u"Cancel"_s), qPrintable(outcome.output.right(2000)));
    QVERIFY(outcome.output.count(u"Find Response:"_s) < Many);
    EVENTUALLY(daemon_->log().contains(u"association ended"_s));
    QVERIFY2(!daemon_->log().contains(u"aborted"_s), qPrintable(daemon_->log()));
}

void FindUnderWayTest::aCancelEndsASearchWithoutAnswers() {
    stock(Many);
    daemon_->launch();
    makeReadingSlow();
    const auto peer = workstation();
    Finding finding{*peer, nothing()};
    finding.cancel();
    const Finding::Rest rest = finding.rest();
    QCOMPARE(rest.last.status, 0xfe00);
    QCOMPARE(rest.pending, 0);
    QVERIFY(peer->echo());
}

void FindUnderWayTest::aRequestorThatStopsInTheMiddleHoldsUpNoOther() {
    stock(Many);
    daemon_->database.run(u"UPDATE DicomServer SET QueryTimeout=0"_s);
    daemon_->database.release();
    daemon_->launch();
    // Readers of the file engine do not wait for writers.
    const bool blocks = ScratchDatabase::isPostgresql();
    if (blocks) {
        daemon_->database.run(u"BEGIN"_s);
        daemon_->database.run(u"LOCK TABLE Study IN ACCESS EXCLUSIVE MODE"_s);
    } else {
        makeReadingSlow();
    }
    const auto stuck = workstation();
    const Finding first{*stuck, nothing()};
    std::array<char, 3> half{4, 0, 0};  // of a PDU's header: there is no length
    QCOMPARE(DUL_getTransportConnection(stuck->raw()->DULassociation)->write(half.data(), half.size()),
             ssize_t{3});
    const auto peer = workstation();
    Finding second{*peer, nothing()};
    second.cancel();
    QCOMPARE(second.rest().last.status, 0xfe00);
    QVERIFY(!ASC_dataWaiting(stuck->raw(), 0));  // nor has it been given up by then
    QVERIFY(peer->echo());
    if (blocks)
        daemon_->database.run(u"COMMIT"_s);
}

void FindUnderWayTest::aQueryThatTakesTooLongIsRefused() {
    stock(Many);
    daemon_->database.run(u"UPDATE DicomServer SET QueryTimeout=1"_s);
    daemon_->database.release();
    daemon_->launch();
    makeReadingSlow();
    const auto peer = workstation();
    const Finding::Rest rest = findAll(*peer, nothing());
    QCOMPARE(rest.pending, 0);
    QCOMPARE(rest.last.status, 0xa700);
    QVERIFY(!rest.last.comment.empty());
    QVERIFY(daemon_->log().contains(u"query not answered"_s));
    QCOMPARE(findAll(*peer, identifier("STUDY", {{DCM_StudyInstanceUID, "1.2.826.7"}})).pending, 1);
}

void FindUnderWayTest::aDatabaseThatFailsIsTold() {
    stock(3);
    daemon_->launch();
    const auto peer = workstation();
    QCOMPARE(findAll(*peer, allStudies()).pending, 3);
    daemon_->database.run(u"ALTER TABLE Study RENAME TO Elsewhere"_s);
    const Finding::Rest rest = findAll(*peer, allStudies());
    QCOMPARE(rest.last.status, 0xa700);
    QCOMPARE(rest.last.comment, "The database cannot be read now");
    QVERIFY2(daemon_->log().contains(ScratchDatabase::isPostgresql() ? u"relation \"study\" does not exist"_s
                                                                     : u"no such table"_s),
             qPrintable(daemon_->log()));
    daemon_->database.run(u"ALTER TABLE Elsewhere RENAME TO Study"_s);
    QCOMPARE(findAll(*peer, allStudies()).pending, 3);
}

void FindUnderWayTest::memoryStaysFlat() {
    stock(Many);
    daemon_->launch();
    const auto peer = workstation();
    {
        Finding some{*peer, allStudies()};
        for (int i = 0; i < Many / 10; ++i)
            QCOMPARE(some.next().status, 0xff00);
        some.cancel();
        QCOMPARE(some.rest().last.status, 0xfe00);
    }
    const long long before = peakMemory();
    const Finding::Rest all = findAll(*peer, allStudies());
    QCOMPARE(all.last.status, 0);
    QCOMPARE(all.pending, Many);
    constexpr long long Slack = 4096;  // the answers have some 20 MB
    QVERIFY2(peakMemory() - before < Slack, qPrintable(QString::number(peakMemory() - before)));
}

void FindUnderWayTest::storesGoOnMeanwhile() {
    stock(Many);
    daemon_->launch();
    const auto peer = workstation();
    Finding finding{*peer, allStudies()};
    int pending = 0;
    for (; pending < 10; ++pending)
        QCOMPARE(finding.next().status, 0xff00);
    // The server waits for this requestor now, in the middle of its rows.
    for (int i = 0; i < 5; ++i)
        QCOMPARE(store({.instance = "1.2.826.0.1.1.1." + std::to_string(i)}).status, 0);
    const Finding::Rest rest = finding.rest();
    QCOMPARE(rest.last.status, 0);
    QVERIFY(pending + rest.pending >= Many);
    QCOMPARE(daemon_->images().size(), 5);
}

void FindUnderWayTest::queriesBeyondTheSessionsWaitTheirTurn() {
    stock(Many);
    daemon_->database.run(u"UPDATE DicomServer SET QueryTimeout=0"_s);
    daemon_->database.release();
    daemon_->launch();
    makeReadingSlow();
    std::vector<std::unique_ptr<RequestorAssociation>> peers;
    std::vector<Finding> findings;
    for (std::size_t i = 0; i < tessaly::tessalyd::QuerySessions::Most; ++i) {
        peers.push_back(workstation());
        findings.emplace_back(*peers.back(), nothing());
    }
    const auto cancelled = workstation();
    Finding waiting{*cancelled, nothing()};
    waiting.cancel();
    QCOMPARE(waiting.rest().last.status, 0xfe00);
    const auto patient = workstation();
    Finding late{*patient, identifier("PATIENT", {{DCM_PatientID, "P7"}}), PatientRootFind};
    findings.front().cancel();
    QCOMPARE(findings.front().rest().last.status, 0xfe00);
    QCOMPARE(late.next().status, 0xff00);
    QVERIFY(peers.front()->echo());
}

void FindUnderWayTest::requestorsThatDoNotReadHoldNoSession() {
    stock(Many);
    daemon_->launch();
    std::vector<std::unique_ptr<RequestorAssociation>> peers;
    std::vector<Finding> findings;
    for (std::size_t i = 0; i < tessaly::tessalyd::QuerySessions::Most; ++i) {
        peers.push_back(workstation());
        findings.emplace_back(*peers.back(), allStudies());
        EVENTUALLY(isStuck(*peers.back()));
    }
    const auto ninth = workstation();
    Finding finding{*ninth, identifier("STUDY", {{DCM_StudyInstanceUID, "1.2.826.7"}})};
    const Finding::Rest rest = finding.rest();
    QCOMPARE(rest.pending, 1);
    QCOMPARE(rest.last.status, 0);
    // It was not answered because they had been given up; and what waited goes on where it was.
    QCOMPARE(daemon_->status().open, static_cast<int>(peers.size()) + 1);
    const Finding::Rest all = findings.back().rest();
    QCOMPARE(all.last.status, 0);
    QCOMPARE(all.pending, Many);
}

void FindUnderWayTest::aRequestorThatVanishesFreesItsSession() {
    stock(Many);
    daemon_->launch();
    makeReadingSlow();
    for (const bool abort : {true, false}) {
        for (std::size_t i = 0; i < 2 * tessaly::tessalyd::QuerySessions::Most; ++i) {
            const auto peer = workstation();
            const Finding finding{*peer, i % 2 == 0 ? nothing() : allStudies()};
            if (abort)
                peer->abort();
        }
        EVENTUALLY_COMPARE(daemon_->status().open, 0);
        const auto peer = workstation();
        QCOMPARE(findAll(*peer, identifier("STUDY", {{DCM_StudyInstanceUID, "1.2.826.7"}})).pending, 1);
    }
}

void FindUnderWayTest::aStopEndsAQuery_data() {
    QTest::addColumn<bool>("answers");
    QTest::newRow("that finds nothing for long") << false;
    QTest::newRow("whose requestor takes no answers") << true;
}

void FindUnderWayTest::aStopEndsAQuery() {
    QFETCH(bool, answers);
    stock(Many);
    daemon_->launch();
    if (!answers)
        makeReadingSlow();
    const auto peer = workstation();
    Finding finding{*peer, answers ? allStudies() : nothing()};
    if (answers)
        EVENTUALLY(isStuck(*peer));
    QVERIFY(daemon_->terminate());
    QVERIFY2(daemon_->log().contains(u"aborted, as the server is being stopped"_s),
             qPrintable(daemon_->log()));
}

QTEST_GUILESS_MAIN(FindUnderWayTest)
#include "tst_findunderway.moc"
