#include <QTest>
#include <chrono>
#include <future>
#include <stop_token>
#include <thread>

#include "db/Error.h"
#include "db/Transaction.h"
#include "jobs/JobTable.h"
#include "tessalyd/services/JobSessions.h"
#include "tests/support/ScratchDatabase.h"

using namespace std::chrono_literals;
using namespace tessaly;
using namespace tessaly::test;

class JobSessionsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void aStopEndsAWaitForALock_data();
    void aStopEndsAWaitForALock();
};

void JobSessionsTest::aStopEndsAWaitForALock_data() {
    QTest::addColumn<bool>("isOpen");
    QTest::newRow("on a new connection") << false;
    QTest::newRow("on one that others have used") << true;
}

/// The one who has the lock lets it go when the stop is over, and no sooner.
void JobSessionsTest::aStopEndsAWaitForALock() {
    QFETCH(const bool, isOpen);
    const ScratchDatabase database;
    tessalyd::JobSessions sessions;
    if (isOpen)
        sessions.run([](const db::Connection& connection) { (void)jobs::now(connection); }, {});
    db::Connection other;
    other.setConnectString("DSN=DicomFDB");
    other.establish();
    const auto add = [](const db::Connection& connection) {
        jobs::add(connection, {.kind = "TEST", .target = "X", .key = "a"});
    };
    const db::Transaction lock{other};
    add(other);
    std::stop_source stop;
    auto writing = std::async(std::launch::async, [&] { sessions.write(add, stop.get_token()); });
    std::this_thread::sleep_for(300ms);
    stop.request_stop();
    QVERIFY_EXCEPTION_THROWN(writing.get(), db::Stopped);
}

QTEST_GUILESS_MAIN(JobSessionsTest)
#include "tst_jobsessions.moc"
