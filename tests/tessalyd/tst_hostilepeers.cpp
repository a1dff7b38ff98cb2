#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdeftag.h>

#include <QElapsedTimer>
#include <QTest>
#include <QThread>

#include "tessalyd/search/QuerySessions.h"
#include "tests/support/Eventually.h"
#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/Finding.h"
#include "tests/tessalyd/HostilePeers.h"
#include "tests/tessalyd/Processes.h"
#include "tests/tessalyd/StockedArchive.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// An honest sender and requestor beside hostile ones of every kind. TESSALY_TEST_SOAK_SECONDS says how long,
/// and that the times of the honest one are limits: 2 s for an object, 1 s for a query.
class HostilePeersTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void theHonestOnesAreServed();

  private:
    struct Resources {
        int threads = 0;
        int descriptors = 0;
        int children = 0;
        long kilobytes = 0;  ///< resident
    };
    [[nodiscard]] Resources resources() const;
    void storeOne(int number);
    void findOne(int number);

    qint64 slowestStoreMs_ = 0;
    qint64 slowestQueryMs_ = 0;
};

namespace {

ObjectSpec honest(int number) {
    return {.patientId = "HONEST",
            .study = "1.2.5",
            .series = "1.2.5.1",
            .instance = "1.2.5.1." + std::to_string(number),
            .seed = number};
}

}  // namespace

HostilePeersTest::Resources HostilePeersTest::resources() const {
    const qint64 process = daemon_->process.processId();
    const QDir descriptors{u"/proc/%1/fd"_s.arg(process)};
    return {.threads = statusOf(process, "Threads").toInt(),
            .descriptors = static_cast<int>(descriptors.entryList(QDir::AllEntries | QDir::System).size()),
            .children = static_cast<int>(childrenOf(process).size()),
            .kilobytes = statusOf(process, "VmRSS").split(u' ').first().toLong()};
}

/// A rejection is tried again, as every sender does: what counts is when the object is there.
void HostilePeersTest::storeOne(int number) {
    QElapsedTimer timer;
    timer.start();
    RequestorAssociation::Answer answer;
    for (int attempt = 0; answer.status != 0 && attempt < 100; ++attempt) {
        RequestorAssociation peer{daemon_->port(), "HONEST"};
        if (peer.isOpen())
            answer = peer.store(*makeObject(honest(number)));
        else
            QThread::msleep(20);
    }
    QCOMPARE(answer.status, 0);
    slowestStoreMs_ = std::max(slowestStoreMs_, timer.elapsed());
}

void HostilePeersTest::findOne(int number) {
    QElapsedTimer timer;
    timer.start();
    int found = -1;
    for (int attempt = 0; found < 0 && attempt < 100; ++attempt) {
        RequestorAssociation peer{daemon_->port(), "HONEST", "TESSALY", Finding::contexts()};
        if (peer.isOpen()) {
            const auto rest =
                findAll(peer, identifier("IMAGE", {{DCM_StudyInstanceUID, "1.2.5"},
                                                   {DCM_SeriesInstanceUID, "1.2.5.1"},
                                                   {DCM_SOPInstanceUID, honest(number).instance}}));
            if (rest.last.status == 0)
                found = rest.pending;
        } else {
            QThread::msleep(20);
        }
    }
    QCOMPARE(found, 1);
    slowestQueryMs_ = std::max(slowestQueryMs_, timer.elapsed());
}

void HostilePeersTest::theHonestOnesAreServed() {
    const int limit = qEnvironmentVariableIntValue("TESSALY_TEST_SOAK_SECONDS");
    const int seconds = limit > 0 ? limit : 5;
    daemon_ = std::make_unique<Daemon>(QList<PortRow>{PortRow{}, PortRow{.saveCompressed = false}});
    for (const QString& name : {u"HONEST"_s, u"HOSTILE"_s}) {
        daemon_->database.run(
            u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port, Store, Query, Print) "
            "VALUES (?, ?, 'TESSALY', 'localhost', '104', 1, 1, 0)"_s,
            {name, name});
    }
    daemon_->database.run(u"INSERT INTO PortRemoteNodes (Port, Name) VALUES (?, 'HONEST')"_s,
                          {daemon_->port()});
    constexpr int Studies = 50'000;  // more than goes into the buffers of a requestor that does not read
    stockMany(daemon_->database, Studies);
    daemon_->launch();
    storeOne(0);
    findOne(0);
    const Resources before = resources();
    int number = 0;
    {
        const HostilePeers peers{daemon_->port(0), daemon_->port(1), "HOSTILE"};
        QElapsedTimer timer;
        for (timer.start(); timer.elapsed() < qint64{1000} * seconds;) {
            storeOne(++number);
            findOne(number);
            if (QTest::currentTestFailed())
                return;
            QTest::qWait(50);  // takes the server's events: with 63 MB of them unread, libdbus reads no more
        }
        for (const auto& tally : peers.tallies())
            qInfo("%s: %d rounds", tally->kind, tally->rounds.load());
    }
    qInfo("%d objects; the slowest was stored in %lld ms and found in %lld ms", number, slowestStoreMs_,
          slowestQueryMs_);
    EVENTUALLY_COMPARE(daemon_->status().open, 0);
    EVENTUALLY(resources().threads <= before.threads + 1);
    // Sessions of the database are kept, each with its file, log and index; and the decoders' sockets.
    constexpr int Kept = 3 * static_cast<int>(tessaly::tessalyd::QuerySessions::Most) + 4;
    EVENTUALLY(resources().descriptors <= before.descriptors + Kept);
    EVENTUALLY(resources().children <= before.children + 2);
    if (limit > 0)  // freed pages are returned every few seconds
        EVENTUALLY(resources().kilobytes <= before.kilobytes + 64L * 1024);
    const Resources after = resources();
    qInfo("threads %d to %d, descriptors %d to %d, resident %ld to %ld KB", before.threads, after.threads,
          before.descriptors, after.descriptors, before.kilobytes, after.kilobytes);
    QCOMPARE(
        daemon_->database.value(u"SELECT COUNT(*) FROM Image WHERE SeriesInstanceUID='1.2.5.1'"_s).toInt(),
        number + 1);
    if (limit > 0) {
        QVERIFY2(slowestStoreMs_ <= 2000, "an honest object was not stored within 2 s");
        QVERIFY2(slowestQueryMs_ <= 1000, "an honest query was not answered within 1 s");
    }
}

QTEST_GUILESS_MAIN(HostilePeersTest)
#include "tst_hostilepeers.moc"
