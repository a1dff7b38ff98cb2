#include <QTest>
#include <atomic>
#include <future>
#include <latch>
#include <thread>
#include <vector>

#include "archive/SharedFlush.h"

using namespace tessaly::archive;

/// Stores into one folder share its flushes.
class SharedFlushTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void whatIsUnderWayServesNobodyWhoComesLater();
    void eachChangeIsFlushedAfterItWasMade();
    void aFailureIsToldToAllThatItServed();
    void foldersDoNotWaitForEachOther();
};

void SharedFlushTest::whatIsUnderWayServesNobodyWhoComesLater() {
    SharedFlush flushes;
    constexpr int Later = 6;
    std::promise<void> begun;
    std::promise<void> go;
    std::atomic<int> more{0};
    std::latch called{Later};
    std::vector<std::jthread> threads;
    threads.emplace_back([&] {
        (void)flushes.run({1, 1}, [&] {
            begun.set_value();
            go.get_future().wait();
            return true;
        });
    });
    begun.get_future().wait();
    for (int i = 0; i < Later; ++i) {
        threads.emplace_back([&] {
            called.count_down();
            QVERIFY(flushes.run({1, 1}, [&more] {
                std::this_thread::sleep_for(std::chrono::milliseconds{20});  // in which the late ones come
                return ++more > 0;
            }));
        });
    }
    called.wait();
    std::this_thread::sleep_for(std::chrono::milliseconds{50});
    QCOMPARE(more.load(), 0);  // one at a time, and none that has ended
    go.set_value();
    threads.clear();
    QVERIFY(more.load() >= 1);
    QVERIFY2(more.load() < Later, "nobody shared a flush");
}

void SharedFlushTest::eachChangeIsFlushedAfterItWasMade() {
    SharedFlush flushes;
    constexpr int Threads = 8;
    constexpr int Turns = 500;
    std::atomic<int> changes{0};
    std::atomic<int> flushed{0};
    std::atomic<int> early{0};
    std::vector<std::jthread> threads;
    threads.reserve(Threads);
    for (int i = 0; i < Threads; ++i) {
        threads.emplace_back([&] {
            for (int turn = 0; turn < Turns; ++turn) {
                const int own = ++changes;
                const bool isDone = flushes.run({1, 2}, [&] {
                    const int seen = changes;
                    std::this_thread::yield();
                    flushed = std::max(flushed.load(), seen);
                    return true;
                });
                if (!isDone || flushed < own)
                    ++early;
            }
        });
    }
    threads.clear();
    QCOMPARE(early.load(), 0);
}

void SharedFlushTest::aFailureIsToldToAllThatItServed() {
    SharedFlush flushes;
    constexpr int Threads = 8;
    constexpr int Turns = 200;
    std::atomic<int> failedFlushes{0};
    std::atomic<int> told{0};
    std::vector<std::jthread> threads;
    threads.reserve(Threads);
    for (int i = 0; i < Threads; ++i) {
        threads.emplace_back([&] {
            for (int turn = 0; turn < Turns; ++turn) {
                const bool isDone = flushes.run({1, 3}, [&] {
                    std::this_thread::yield();
                    ++failedFlushes;
                    return false;
                });
                if (!isDone)
                    ++told;
            }
        });
    }
    threads.clear();
    QCOMPARE(told.load(), Threads * Turns);
    QVERIFY(failedFlushes.load() <= Threads * Turns);
    QVERIFY(flushes.run({1, 3}, [] { return true; }));
}

void SharedFlushTest::foldersDoNotWaitForEachOther() {
    SharedFlush flushes;
    std::promise<void> begun;
    std::promise<void> go;
    std::jthread other{[&] {
        (void)flushes.run({1, 4}, [&] {
            begun.set_value();
            go.get_future().wait();
            return true;
        });
    }};
    begun.get_future().wait();
    QVERIFY(flushes.run({1, 5}, [] { return true; }));
    QVERIFY(flushes.run({2, 4}, [] { return true; }));
    go.set_value();
}

QTEST_GUILESS_MAIN(SharedFlushTest)
#include "tst_sharedflush.moc"
