#include <dcmtk/dcmdata/dcdeftag.h>

#include <QTest>
#include <chrono>
#include <csignal>
#include <thread>

#include "tessalyd/search/QuerySessions.h"
#include "tests/support/Eventually.h"
#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/Finding.h"
#include "tests/tessalyd/StockedArchive.h"
#include "tests/tessalyd/services/retrieve/Retriever.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// Queries and retrievals whose statement the engine would work on for ever, without a row. One that does not
/// end fails by the time-out of the whole test.
class EndlessQueryTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void init();

    void theTimeoutEndsIt();
    void aCancelEndsIt();
    void aRequestorThatVanishesEndsIt_data();
    void aRequestorThatVanishesEndsIt();
    void theEndOfTheServerEndsIt_data();
    void theEndOfTheServerEndsIt();
    void theTimeoutEndsARetrieval_data() { retrievals(); }
    void theTimeoutEndsARetrieval();
    void aCancelEndsARetrieval_data() { retrievals(); }
    void aCancelEndsARetrieval();
    void theEndOfTheServerEndsARetrieval_data() { retrievals(); }
    void theEndOfTheServerEndsARetrieval();

  private:
    void launchWithTimeout(int seconds) const;
    [[nodiscard]] std::unique_ptr<RequestorAssociation> workstation() const {
        return std::make_unique<RequestorAssociation>(daemon_->port(), "WS1", "TESSALY", Finding::contexts());
    }
    [[nodiscard]] static DcmDataset allStudies() {
        return identifier("STUDY", {{DCM_StudyInstanceUID, ""}, {DCM_StudyDate, ""}});
    }
    [[nodiscard]] std::unique_ptr<Retriever> retriever() const {
        return std::make_unique<Retriever>(daemon_->port(),
                                           std::vector{Retriever::receiving("1.2.840.10008.1.2.1")}, "WS1");
    }
    static void retrievals() {
        QTest::addColumn<Retriever::ContextId>("context");
        QTest::newRow("C-GET") << Retriever::GetStudyRoot;
        QTest::newRow("C-MOVE") << Retriever::MoveStudyRoot;
    }
    /// Asks for the study; returns the message ID.
    static DIC_US ask(Retriever& peer, Retriever::ContextId context) {
        return peer.ask(context, "STUDY", {{DCM_StudyInstanceUID, "1.2.826.1"}},
                        context == Retriever::MoveStudyRoot ? "WS2" : "");
    }
    /// By then the engine is at the statement, most likely. Where it is not, what follows holds as well.
    static void letTheEngineBegin() { std::this_thread::sleep_for(std::chrono::milliseconds{300}); }
};

void EndlessQueryTest::init() {
    daemon_ = std::make_unique<Daemon>();
    daemon_->database.run(u"INSERT INTO DicomNodes (Name, AETitle, Query) VALUES ('work', 'WS1', 1)"_s);
    daemon_->database.run(
        u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port, Store) "
        "VALUES ('other', 'WS2', 'TESSALY', '127.0.0.1', '1', 1)"_s);
    daemon_->database.run(u"INSERT INTO Patient (ID, PatientID, Name) VALUES (1, 'P1', 'One')"_s);
    daemon_->database.run(
        u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath) VALUES ('1.2.826.1', 1, '/archive/1')"_s);
}

void EndlessQueryTest::launchWithTimeout(int seconds) const {
    daemon_->database.run(u"UPDATE DicomServer SET QueryTimeout=%1"_s.arg(seconds));
    daemon_->database.release();
    daemon_->launch();
    makeStudiesEndless(daemon_->database);
    daemon_->database.release();
}

void EndlessQueryTest::theTimeoutEndsIt() {
    launchWithTimeout(1);
    const auto peer = workstation();
    for (int i = 0; i < 2; ++i) {
        const Finding::Rest rest = findAll(*peer, allStudies());
        QCOMPARE(rest.pending, 0);
        QCOMPARE(rest.last.status, 0xa700);
        QCOMPARE(rest.last.comment, "The query took longer than its time-out");
    }
    makeStudiesFast(daemon_->database);
    QCOMPARE(findAll(*peer, allStudies()).pending, 1);
}

void EndlessQueryTest::aCancelEndsIt() {
    launchWithTimeout(0);
    const auto peer = workstation();
    for (int i = 0; i < 2; ++i) {
        Finding finding{*peer, allStudies()};
        letTheEngineBegin();
        finding.cancel();
        const Finding::Rest rest = finding.rest();
        QCOMPARE(rest.pending, 0);
        QCOMPARE(rest.last.status, 0xfe00);
    }
    makeStudiesFast(daemon_->database);
    QCOMPARE(findAll(*peer, allStudies()).pending, 1);
}

void EndlessQueryTest::aRequestorThatVanishesEndsIt_data() {
    QTest::addColumn<bool>("aborts");
    QTest::newRow("by an abort") << true;
    QTest::newRow("without a word") << false;
}

void EndlessQueryTest::aRequestorThatVanishesEndsIt() {
    QFETCH(const bool, aborts);
    launchWithTimeout(0);
    for (std::size_t i = 0; i < 2 * tessaly::tessalyd::QuerySessions::Most; ++i) {
        const auto peer = workstation();
        const Finding finding{*peer, allStudies()};
        if (i == 0)
            letTheEngineBegin();
        if (aborts)
            peer->abort();
    }
    EVENTUALLY_COMPARE(daemon_->status().open, 0);
    makeStudiesFast(daemon_->database);
    QCOMPARE(findAll(*workstation(), allStudies()).pending, 1);
}

void EndlessQueryTest::theEndOfTheServerEndsIt_data() {
    QTest::addColumn<int>("way");
    QTest::newRow("Terminate") << 0;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("Stop") << -1;
}

void EndlessQueryTest::theEndOfTheServerEndsIt() {
    QFETCH(const int, way);
    launchWithTimeout(0);
    const auto first = workstation();
    const Finding one{*first, allStudies()};
    const auto second = workstation();
    const Finding another{*second, allStudies()};
    letTheEngineBegin();
    if (way > 0) {
        QCOMPARE(::kill(static_cast<pid_t>(daemon_->process.processId()), way), 0);
        EVENTUALLY_COMPARE(daemon_->process.state(), QProcess::NotRunning);
        QCOMPARE(daemon_->process.exitCode(), 0);
    } else if (way < 0) {
        QVERIFY(daemon_->succeeds(&OrgTessalyServer1Interface::Stop));
        EVENTUALLY_COMPARE(daemon_->status().open, 0);
    } else {
        QVERIFY(daemon_->terminate());
    }
    QVERIFY2(daemon_->log().contains(u"aborted, as the server is being stopped"_s),
             qPrintable(daemon_->log()));
}

void EndlessQueryTest::theTimeoutEndsARetrieval() {
    QFETCH(const Retriever::ContextId, context);
    launchWithTimeout(1);
    const auto peer = retriever();
    ask(*peer, context);
    QCOMPARE(peer->collect().status, 0xa701);
    QVERIFY(peer->echo());
}

void EndlessQueryTest::aCancelEndsARetrieval() {
    QFETCH(const Retriever::ContextId, context);
    launchWithTimeout(0);
    const auto peer = retriever();
    const auto request = ask(*peer, context);
    letTheEngineBegin();
    peer->cancel(context, request);
    QCOMPARE(peer->collect().status, 0xfe00);
    QVERIFY(peer->echo());
}

void EndlessQueryTest::theEndOfTheServerEndsARetrieval() {
    QFETCH(const Retriever::ContextId, context);
    launchWithTimeout(0);
    const auto peer = retriever();
    ask(*peer, context);
    letTheEngineBegin();
    QVERIFY(daemon_->terminate());
}

QTEST_GUILESS_MAIN(EndlessQueryTest)
#include "tst_endlessquery.moc"
