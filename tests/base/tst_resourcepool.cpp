#include <QTest>
#include <atomic>
#include <chrono>
#include <thread>

#include "base/ResourcePool.h"
#include "tests/support/Eventually.h"

using namespace std::chrono_literals;

namespace {

std::atomic<int> alive = 0;
std::atomic<int> made = 0;

struct Resource {
    Resource() : number(++made) { ++alive; }
    ~Resource() { --alive; }
    Resource(const Resource&) = delete;
    Resource& operator=(const Resource&) = delete;

    const int number;  // no other one's
};

using Pool = tessaly::base::ResourcePool<Resource>;

Pool::Lease opened(Pool& pool) {
    auto lease = pool.take(1h);
    if (lease->isEmpty())
        lease->set(std::make_unique<Resource>());
    return std::move(*lease);
}

}  // namespace

/// What is lent to one at a time and kept.
class ResourcePoolTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void cleanup() { QCOMPARE(alive.load(), 0); }

    void whatComesBackIsKept();
    void thereAreNoMoreThanTheLimit();
    void oneIsOpenedAtATime();
    void anotherGenerationIsClosedWhenItComesBack();
    void whatIsDiscardedIsNotKept();
    void aWaitIsStopped();
};

void ResourcePoolTest::whatComesBackIsKept() {
    Pool pool{2};
    int first = 0;
    {
        const auto lease = opened(pool);
        first = lease->number;
    }
    QCOMPARE(alive.load(), 1);
    const auto again = opened(pool);
    QCOMPARE(again->number, first);
}

void ResourcePoolTest::thereAreNoMoreThanTheLimit() {
    Pool pool{2};
    const auto one = opened(pool);
    auto two = std::make_optional(opened(pool));
    QVERIFY(!pool.take(1ms));
    std::atomic<bool> taken = false;
    std::jthread waiting{[&] { taken = !opened(pool).isEmpty(); }};
    two.reset();
    EVENTUALLY(taken);
    waiting.join();
    QCOMPARE(alive.load(), 2);
    pool.setMost(1);
    QVERIFY(!pool.take(1ms));
}

void ResourcePoolTest::oneIsOpenedAtATime() {
    Pool pool{3};
    auto opening = pool.take(1h);
    QVERIFY(opening->isEmpty());
    QVERIFY(!pool.take(1ms));  // although there is room
    opening->set(std::make_unique<Resource>());
    auto next = pool.take(1h);
    QVERIFY(next->isEmpty());
    next.reset();  // its opening has failed
    QVERIFY(pool.take(1h)->isEmpty());
}

void ResourcePoolTest::anotherGenerationIsClosedWhenItComesBack() {
    Pool pool{2};
    {
        const auto inUse = opened(pool);
        static_cast<void>(opened(pool));
        QCOMPARE(alive.load(), 2);
        pool.close();
        QCOMPARE(alive.load(), 1);  // the one in use
    }
    QCOMPARE(alive.load(), 0);
    QVERIFY(pool.take(1h)->isEmpty());
}

void ResourcePoolTest::whatIsDiscardedIsNotKept() {
    Pool pool{1};
    {
        auto lease = opened(pool);
        lease.discard();
        QCOMPARE(alive.load(), 0);
    }
    QVERIFY(pool.take(1h)->isEmpty());
}

void ResourcePoolTest::aWaitIsStopped() {
    Pool pool{1};
    const auto lease = opened(pool);
    std::atomic<bool> stopped = false;
    std::atomic<bool> ended = false;
    const std::jthread waiting{[&] {
        QVERIFY(!pool.take(1h, [&] { return stopped.load(); }));
        ended = true;
    }};
    stopped = true;
    pool.wake();
    EVENTUALLY(ended);
}

QTEST_APPLESS_MAIN(ResourcePoolTest)
#include "tst_resourcepool.moc"
