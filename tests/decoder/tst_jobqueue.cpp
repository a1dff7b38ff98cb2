#include <QTest>
#include <algorithm>
#include <atomic>
#include <future>
#include <list>
#include <stdexcept>
#include <thread>
#include <utility>

#include "decoder/JobQueue.h"
#include "tests/support/Eventually.h"

using namespace std::chrono_literals;
using namespace tessaly;
using decoder::JobQueue;

namespace {

constexpr std::uint64_t Hog = 1;
constexpr std::uint64_t Other = 2;
constexpr JobQueue::Need Small{.memory = 10};
constexpr JobQueue::Need Large{.memory = 30, .isLarge = true};

/// A job that runs until it is ended, in a thread of its own.
class Job {
  public:
    Job(JobQueue& queue, std::uint64_t requestor, const JobQueue::Need& need = Small)
        : thread_([this, &queue, requestor, need](const std::stop_token& stop) {
              try {
                  const JobQueue::Turn turn{queue, need, {.stop = stop, .requestor = requestor}};
                  begun_ = true;
                  ended_.get_future().wait();
              } catch (const decoder::Abandoned&) {
                  isAbandoned_ = true;
              }
          }) {}
    ~Job() {
        thread_.request_stop();
        end();
    }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    void end() {
        if (!std::exchange(isEnded_, true))
            ended_.set_value();
        if (begun_ && thread_.joinable())
            thread_.join();
    }
    void abandon() { thread_.request_stop(); }
    [[nodiscard]] bool begun() const { return begun_; }
    [[nodiscard]] bool isAbandoned() const { return isAbandoned_; }

  private:
    std::atomic<bool> begun_ = false;
    std::atomic<bool> isAbandoned_ = false;
    bool isEnded_ = false;
    std::promise<void> ended_;
    std::jthread thread_;
};

}  // namespace

/// Whose object is decoded next.
class JobQueueTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void manyJobsOfOneDoNotKeepAnotherWaiting();
    void whoHasFewerRunningIsNext();
    void largeJobsLeaveAProcessToSmallOnes();
    void largeJobsLeaveMemoryToSmallOnes();
    void oneThatLacksMemoryIsNotPassed();
    void oneThatGivesUpIsNobodysObstacle();
};

void JobQueueTest::manyJobsOfOneDoNotKeepAnotherWaiting() {
    JobQueue queue{{.processes = 1, .memory = 100}};
    std::list<Job> jobs;
    jobs.emplace_back(queue, Hog);
    EVENTUALLY(jobs.front().begun());  // nobody waits before it has come to the queue, either
    for (std::size_t i = 1; i < 6; ++i) {
        jobs.emplace_back(queue, Hog);
        EVENTUALLY_COMPARE(queue.waiting(), i);
    }
    Job other{queue, Other};
    EVENTUALLY_COMPARE(queue.waiting(), std::size_t{6});
    jobs.front().end();
    EVENTUALLY(other.begun());
    QCOMPARE(std::count_if(jobs.begin(), jobs.end(), [](const Job& one) { return one.begun(); }), 1);
    other.end();
    EVENTUALLY_COMPARE(std::count_if(jobs.begin(), jobs.end(), [](const Job& one) { return one.begun(); }),
                       2);
    Job again{queue, Other};  // its last began before the hog's
    EVENTUALLY_COMPARE(queue.waiting(), std::size_t{5});
    std::next(jobs.begin())->end();
    EVENTUALLY(again.begun());
}

void JobQueueTest::whoHasFewerRunningIsNext() {
    JobQueue queue{{.processes = 3, .memory = 100}};
    Job first{queue, Hog};
    EVENTUALLY(first.begun());
    Job second{queue, Hog};
    EVENTUALLY(second.begun());
    Job third{queue, Other};
    EVENTUALLY(third.begun());
    Job fourth{queue, Hog};
    EVENTUALLY_COMPARE(queue.waiting(), std::size_t{1});
    Job fifth{queue, Other};
    EVENTUALLY_COMPARE(queue.waiting(), std::size_t{2});
    third.end();
    EVENTUALLY(fifth.begun());
    QVERIFY(!fourth.begun());
    first.end();
    EVENTUALLY(fourth.begun());
}

void JobQueueTest::largeJobsLeaveAProcessToSmallOnes() {
    JobQueue queue{{.processes = 2, .memory = 100}};
    Job large{queue, Hog, Large};
    EVENTUALLY(large.begun());
    Job next{queue, Other, Large};
    EVENTUALLY_COMPARE(queue.waiting(), std::size_t{1});
    Job small{queue, Hog};
    EVENTUALLY(small.begun());
    QVERIFY(!next.begun());
    large.end();
    EVENTUALLY(next.begun());
}

void JobQueueTest::largeJobsLeaveMemoryToSmallOnes() {
    JobQueue queue{{.processes = 8, .memory = 100}};
    QCOMPARE(queue.granted({.memory = 1'000, .isLarge = true}), std::uint64_t{75});
    QCOMPARE(queue.granted({.memory = 1'000}), std::uint64_t{100});
    Job huge{queue, Hog, {.memory = 1'000, .isLarge = true}};
    EVENTUALLY(huge.begun());
    Job large{queue, Other, Large};
    EVENTUALLY_COMPARE(queue.waiting(), std::size_t{1});
    Job small{queue, Other};
    EVENTUALLY(small.begun());
    Job another{queue, Other};
    EVENTUALLY(another.begun());
    Job third{queue, Other};  // beyond all
    EVENTUALLY_COMPARE(queue.waiting(), std::size_t{2});
    QVERIFY(!large.begun() && !third.begun());
    small.end();
    EVENTUALLY(third.begun());
    huge.end();
    EVENTUALLY(large.begun());
}

void JobQueueTest::oneThatLacksMemoryIsNotPassed() {
    JobQueue queue{{.processes = 8, .memory = 100}};
    Job first{queue, Hog, {.memory = 60}};
    EVENTUALLY(first.begun());
    Job second{queue, Other, {.memory = 60}};
    EVENTUALLY_COMPARE(queue.waiting(), std::size_t{1});
    Job third{queue, Other};
    EVENTUALLY_COMPARE(queue.waiting(), std::size_t{2});
    QTest::qWait(250);
    QVERIFY(!third.begun());
    first.end();
    EVENTUALLY(second.begun());
    EVENTUALLY(third.begun());
}

void JobQueueTest::oneThatGivesUpIsNobodysObstacle() {
    JobQueue queue{{.processes = 1, .memory = 100}};
    Job first{queue, Hog};
    EVENTUALLY(first.begun());
    Job second{queue, Other};
    EVENTUALLY_COMPARE(queue.waiting(), std::size_t{1});
    Job third{queue, Hog};
    EVENTUALLY_COMPARE(queue.waiting(), std::size_t{2});
    second.abandon();
    EVENTUALLY(second.isAbandoned());
    EVENTUALLY_COMPARE(queue.waiting(), std::size_t{1});
    first.end();
    EVENTUALLY(third.begun());
    const auto faulty = [&queue] {
        const JobQueue::Turn turn{
            queue, Small, {.stop = {}, .isGivenUp = []() -> bool { throw std::out_of_range{"gone"}; }}};
    };
    QVERIFY_THROWS_EXCEPTION(std::out_of_range, faulty());
    QCOMPARE(queue.waiting(), std::size_t{0});
}

QTEST_GUILESS_MAIN(JobQueueTest)
#include "tst_jobqueue.moc"
