#include <QTest>

#include "jobs/Schedule.h"

using namespace std::chrono_literals;
using namespace tessaly::jobs;
using Kind = Outcome::Kind;

class ScheduleTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theDelaysKeepTheirProportion();
    void aPermanentFaultIsNotTriedAgain();
    void aTransientFaultIsGivenUpAtTheEnd();
    void whatWasStoppedLostNothing();
    void whatIsPutOffBeginsAnew();
};

void ScheduleTest::theDelaysKeepTheirProportion() {
    const std::array expected{1min, 2min, 5min, 10min, 30min, 60min, 60min};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        QCOMPARE(retryDelay(static_cast<int>(i) + 1, 60s), expected[i]);
        QCOMPARE(retryDelay(static_cast<int>(i) + 1, 1s) * 60, std::chrono::seconds{expected[i]});
    }
    QCOMPARE(retryDelay(1'000'000, 60s), 60min);
}

void ScheduleTest::aPermanentFaultIsNotTriedAgain() {
    const Ending ending = endingOf({.attempts = 2}, {.kind = Kind::GiveUp, .reason = "wrong"}, Time{}, {});
    QCOMPARE(ending.state, State::GivenUp);
    QCOMPARE(ending.error, "wrong");
    QCOMPARE(endingOf({}, {.kind = Kind::Uncertain}, Time{}, {}).state, State::Uncertain);
    QCOMPARE(endingOf({}, {}, Time{}, {}).state, State::Done);
}

void ScheduleTest::aTransientFaultIsGivenUpAtTheEnd() {
    const Time begun{1'000'000s};
    const RunnerOptions options{};
    const Outcome fault{.kind = Kind::Retry, .reason = "no answer"};
    const auto after = [&](std::chrono::seconds time, int attempts) {
        return endingOf({.attempts = attempts, .begun = begun}, fault, begun + time, options);
    };
    QCOMPARE(after(0s, 0).state, State::Waiting);
    QCOMPARE(after(0s, 0).delay, 60s);
    QCOMPARE(after(0s, 0).attempts, 1);
    QCOMPARE(after(10h, 14).delay, 3600s);
    // The last one is at the end, not after it.
    QCOMPARE(after(72h - 10min, 70).delay, 600s);
    QCOMPARE(after(72h - 10min, 70).state, State::Waiting);
    QCOMPARE(after(72h, 71).state, State::GivenUp);
    QCOMPARE(after(72h, 71).error, "no answer");
}

void ScheduleTest::whatWasStoppedLostNothing() {
    const Ending ending =
        endingOf({.attempts = 3, .lastError = "before"}, {.kind = Kind::Stopped}, Time{}, {});
    QCOMPARE(ending.state, State::Waiting);
    QCOMPARE(ending.delay, 0s);
    QCOMPARE(ending.attempts, 3);
    QCOMPARE(ending.error, "before");
    QVERIFY(!ending.beginsAnew);
}

void ScheduleTest::whatIsPutOffBeginsAnew() {
    const Ending ending = endingOf({.attempts = 3}, {.kind = Kind::Postpone, .delay = 20s}, Time{}, {});
    QCOMPARE(ending.state, State::Waiting);
    QCOMPARE(ending.delay, 20s);
    QCOMPARE(ending.attempts, 0);
    QVERIFY(ending.beginsAnew);
}

QTEST_GUILESS_MAIN(ScheduleTest)
#include "tst_schedule.moc"
