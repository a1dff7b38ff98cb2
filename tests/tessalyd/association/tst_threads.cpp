#include <QTest>
#include <QThread>
#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "tessalyd/association/AssociationThreads.h"
#include "tessalyd/control/CommandThread.h"
#include "tessalyd/control/Mailbox.h"
#include "tests/tessalyd/Daemon.h"

using namespace tessaly::tessalyd;

/// What passes work from one thread to another: order, thread, and what is left at the end.
class ThreadsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void commandsRunInOrderInAThreadOfTheirOwn();
    void waitingForCommandsHasAnEnd();
    void whatIsLeftIsRunAtTheEnd();
    void callsAreMadeInTheMailboxsThread();
    void callsThatAreNotMadeAreDropped();
    void associationsAreStoppedWhileTheirEndIsAwaited();
};

void ThreadsTest::commandsRunInOrderInAThreadOfTheirOwn() {
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    CommandThread commands;
    for (int i = 0; i < 3; ++i) {
        commands.add([&, i] {
            order.push_back(i);
            threads.push_back(std::this_thread::get_id());
        });
    }
    commands.waitUntilIdle(std::chrono::milliseconds{tessaly::test::PatienceMs});
    QCOMPARE(order, (std::vector{0, 1, 2}));
    QVERIFY(threads.front() != std::this_thread::get_id());
    QCOMPARE(threads, std::vector(3, threads.front()));
}

void ThreadsTest::waitingForCommandsHasAnEnd() {
    std::mutex held;
    std::unique_lock lock{held};
    bool done = false;
    CommandThread commands;
    commands.add([&] {
        const std::lock_guard mine{held};
        done = true;
    });
    commands.waitUntilIdle(std::chrono::milliseconds{1});
    QVERIFY(!done);
    lock.unlock();
    commands.waitUntilIdle(std::chrono::milliseconds{tessaly::test::PatienceMs});
    QVERIFY(done);
}

void ThreadsTest::whatIsLeftIsRunAtTheEnd() {
    constexpr int Many = 100;
    int runs = 0;
    {
        CommandThread commands;
        for (int i = 0; i < Many; ++i)
            commands.add([&runs] { ++runs; });
    }
    QCOMPARE(runs, Many);
}

void ThreadsTest::callsAreMadeInTheMailboxsThread() {
    constexpr int Many = 100;
    std::vector<int> order;
    QThread* const mine = QThread::currentThread();
    Mailbox mailbox;
    CommandThread commands;
    for (int i = 0; i < Many; ++i) {
        commands.add([&, i] {
            mailbox.post([&, i] {
                QCOMPARE(QThread::currentThread(), mine);
                order.push_back(i);
            });
        });
    }
    EVENTUALLY_COMPARE(order.size(), std::size_t{Many});
    QVERIFY(std::is_sorted(order.begin(), order.end()));
}

void ThreadsTest::callsThatAreNotMadeAreDropped() {
    bool made = false;
    {
        Mailbox mailbox;
        mailbox.post([&made] { made = true; });
    }
    QCoreApplication::processEvents();
    QVERIFY(!made);
}

void ThreadsTest::associationsAreStoppedWhileTheirEndIsAwaited() {
    constexpr std::size_t Many = 200;
    AssociationThreads threads;
    threads.setLimit(Many);
    for (std::size_t i = 0; i < Many; ++i) {
        const auto started = threads.start(0, [](AssociationThreads::Connection& connection) {
            while (!connection.stop.stop_requested())
                std::this_thread::sleep_for(std::chrono::milliseconds{1});
        });
        QVERIFY(started == AssociationThreads::Started::Yes);
    }
    std::atomic<bool> isOver = false;
    std::thread stopping{[&] {
        while (!isOver)
            threads.stopThrough(Many);
    }};
    threads.finish();
    isOver = true;
    stopping.join();
}

QTEST_GUILESS_MAIN(ThreadsTest)
#include "tst_threads.moc"
