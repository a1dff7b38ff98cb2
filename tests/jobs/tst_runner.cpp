#include <QTest>
#include <atomic>
#include <mutex>
#include <set>
#include <stdexcept>

#include "db/Query.h"
#include "db/Transaction.h"
#include "jobs/JobTable.h"
#include "jobs/Runner.h"
#include "tests/support/Eventually.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace tessaly;
using namespace tessaly::test;
using jobs::Outcome;
using jobs::State;
using Kind = jobs::Outcome::Kind;

namespace {

void connectTo(db::Connection& connection) {
    connection.setConnectString("DSN=DicomFDB");
    connection.setPurpose(db::Purpose::DurableWrites);
    connection.establish();
}

/// Waits for the stop, as a handler that is at something long does.
Outcome untilStopped(jobs::Attempt& attempt) {
    while (!attempt.stop().stop_requested())
        std::this_thread::sleep_for(5ms);
    return {.kind = Kind::Stopped};
}

}  // namespace

class RunnerTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void cleanup();
    void aJobIsDoneAndItsSpoolIsGone();
    void aTransientFaultIsTriedAgain();
    void aFaultThatIsThrownIsTransient();
    void aPermanentFaultIsSaid();
    void eightRunAtATime();
    void twoRunnersDoEachJobOnce();
    void aStopGivesJobsBack();
    void aDroppedJobEnds();
    void aJobOfADeadServerIsTakenOver();
    void aJobOfAnotherKindIsLeftAlone();
    void theDatabaseMayComeLater();
    void aNoteIsKept();
    void aNoteThatWaitsForALockIsEndedByAStop();
    void whatNoJobHasLeavesTheSpool();

  private:
    long long add(const std::string& key, const std::string& target, const std::string& spool = {}) {
        if (!jobs::add(*connection_, {.kind = "TEST", .target = target, .key = key, .spool = spool}))
            throw std::logic_error{"twice"};
        return jobs::find(*connection_, "TEST", key)->number;
    }
    [[nodiscard]] jobs::Job job(long long number) const { return jobs::find(*connection_, number).value(); }
    [[nodiscard]] State state(long long number) const { return job(number).state; }
    [[nodiscard]] std::unique_ptr<jobs::Runner> runner(jobs::Handler handler) {
        return std::make_unique<jobs::Runner>(
            std::map<std::string, jobs::Handler>{{"TEST", std::move(handler)}}, connectTo,
            [this](jobs::Severity severity, const std::string& line) {
                const std::lock_guard lock{mutex_};
                lines_.append(QString::number(static_cast<int>(severity)) + u' ' +
                              QString::fromStdString(line));
            },
            jobs::RunnerOptions{.firstRetry = 1s, .giveUp = 60s});
    }
    [[nodiscard]] QString lines() {
        const std::lock_guard lock{mutex_};
        return lines_.join(u'\n');
    }

    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<db::Connection> connection_;
    std::mutex mutex_;
    QStringList lines_;
};

void RunnerTest::init() {
    database_ = std::make_unique<ScratchDatabase>();
    connection_ = std::make_unique<db::Connection>();
    connectTo(*connection_);
    lines_.clear();
}

void RunnerTest::cleanup() {
    connection_.reset();
    database_.reset();
}

void RunnerTest::aJobIsDoneAndItsSpoolIsGone() {
    const jobs::Spool spool{database_->imageRoot().toStdString()};
    const std::filesystem::path file = spool.makeFile("TEST").path;
    const long long number = add("a", "X", file.native());
    const auto running = runner([](jobs::Attempt&) { return Outcome{}; });
    running->start();
    EVENTUALLY(state(number) == State::Done);
    running->stop();
    QVERIFY(!std::filesystem::exists(file));
    QVERIFY2(lines().contains(u"(TEST, X): done"_s), qPrintable(lines()));
}

void RunnerTest::aTransientFaultIsTriedAgain() {
    std::atomic<int> attempts = 0;
    const long long number = add("a", "X");
    const auto running = runner([&](jobs::Attempt& attempt) {
        if (attempt.job().attempts != attempts++)
            return Outcome{.kind = Kind::GiveUp, .reason = "miscounted"};
        return attempts < 3 ? Outcome{.kind = Kind::Retry, .reason = "not yet"} : Outcome{};
    });
    running->start();
    EVENTUALLY(state(number) == State::Done);
    QCOMPARE(attempts.load(), 3);
    QVERIFY2(lines().contains(u"1 job %1 (TEST, X): not yet; tried again in 1 s"_s.arg(number)),
             qPrintable(lines()));
    QVERIFY2(lines().contains(u"not yet; tried again in 2 s"_s), qPrintable(lines()));
}

void RunnerTest::aFaultThatIsThrownIsTransient() {
    const long long number = add("a", "X");
    const auto running = runner([](jobs::Attempt&) -> Outcome { throw std::runtime_error{"broken"}; });
    running->start();
    EVENTUALLY(job(number).attempts > 0);
    QCOMPARE(job(number).lastError, "broken");
}

void RunnerTest::aPermanentFaultIsSaid() {
    const long long number = add("a", "X");
    const auto running =
        runner([](jobs::Attempt&) { return Outcome{.kind = Kind::GiveUp, .reason = "no such node"}; });
    running->start();
    EVENTUALLY(state(number) == State::GivenUp);
    running->stop();
    QVERIFY2(lines().contains(u"2 job %1 (TEST, X): given up: no such node"_s.arg(number)),
             qPrintable(lines()));
}

void RunnerTest::eightRunAtATime() {
    for (int i = 0; i < 12; ++i)
        (void)add(std::to_string(i), "lane" + std::to_string(i));
    std::atomic<int> begun = 0;
    std::atomic<bool> mayEnd = false;
    const auto running = runner([&](jobs::Attempt& attempt) {
        ++begun;
        while (!mayEnd && !attempt.stop().stop_requested())
            std::this_thread::sleep_for(5ms);
        return Outcome{};
    });
    running->start();
    EVENTUALLY(begun == 8);
    QTest::qSleep(1500);  // longer than it takes to look for more
    QCOMPARE(begun.load(), 8);
    mayEnd = true;
    EVENTUALLY_COMPARE(database_->value(u"SELECT COUNT(*) FROM Job WHERE State=2"_s), u"12"_s);
}

void RunnerTest::twoRunnersDoEachJobOnce() {
    constexpr int Jobs = 40;
    for (int i = 0; i < Jobs; ++i)
        (void)add(std::to_string(i), "lane" + std::to_string(i % 5));
    std::mutex mutex;
    std::multiset<std::string> done;
    std::set<std::string> lanes;
    std::atomic<bool> clashed = false;
    const auto handler = [&](jobs::Attempt& attempt) {
        {
            const std::lock_guard lock{mutex};
            done.insert(attempt.job().key);
            clashed = clashed || !lanes.insert(attempt.job().target).second;
        }
        std::this_thread::sleep_for(2ms);
        const std::lock_guard lock{mutex};
        lanes.erase(attempt.job().target);
        return Outcome{};
    };
    const auto one = runner(handler);
    const auto other = runner(handler);
    one->start();
    other->start();
    EVENTUALLY_COMPARE(database_->value(u"SELECT COUNT(*) FROM Job WHERE State=2"_s), QString::number(Jobs));
    one->stop();
    other->stop();
    QCOMPARE(done.size(), std::size_t{Jobs});
    QCOMPARE(std::set<std::string>(done.begin(), done.end()).size(), std::size_t{Jobs});
    QVERIFY(!clashed);
}

void RunnerTest::aStopGivesJobsBack() {
    const long long number = add("a", "X");
    const auto running = runner(untilStopped);
    running->start();
    EVENTUALLY(state(number) == State::Running);
    running->stop();
    QCOMPARE(state(number), State::Waiting);
    QCOMPARE(job(number).attempts, 0);
    QCOMPARE(jobs::due(*connection_, 1).size(), std::size_t{1});
    running->start();
    EVENTUALLY(state(number) == State::Running);
}

void RunnerTest::aDroppedJobEnds() {
    const long long number = add("a", "X");
    std::atomic<bool> ended = false;
    const auto running = runner([&](jobs::Attempt& attempt) {
        Outcome outcome = untilStopped(attempt);
        ended = true;
        return outcome;
    });
    running->start();
    EVENTUALLY(state(number) == State::Running);
    QVERIFY(jobs::drop(*connection_, number).has_value());
    running->wake();
    EVENTUALLY(ended);
    running->stop();
    QCOMPARE(database_->value(u"SELECT COUNT(*) FROM Job"_s), u"0"_s);
}

void RunnerTest::aJobOfADeadServerIsTakenOver() {
    const long long number = add("a", "X");
    QVERIFY(jobs::claim(*connection_, number, "dead"));
    const auto running = runner([](jobs::Attempt&) { return Outcome{}; });
    running->start();
    QTest::qSleep(1500);
    QCOMPARE(state(number), State::Running);  // nobody knows yet that it is dead
    database_->run(u"UPDATE Job SET Lease=Lease-61"_s);
    EVENTUALLY(state(number) == State::Done);
}

void RunnerTest::aJobOfAnotherKindIsLeftAlone() {
    QVERIFY(jobs::add(*connection_, {.kind = "NEWER", .target = "X", .key = "a"}));
    const long long number = add("b", "X");
    const auto running = runner([](jobs::Attempt&) { return Outcome{}; });
    running->start();
    EVENTUALLY(state(number) == State::Done);
    QCOMPARE(jobs::find(*connection_, "NEWER", "a")->state, State::Waiting);
}

void RunnerTest::theDatabaseMayComeLater() {
    const long long number = add("a", "X");
    connection_.reset();
    database_->run(u"ALTER TABLE Job RENAME TO Elsewhere"_s);
    const auto running = runner([](jobs::Attempt&) { return Outcome{}; });
    running->start();
    EVENTUALLY(lines().contains(u"; trying again"_s));
    database_->run(u"ALTER TABLE Elsewhere RENAME TO Job"_s);
    connection_ = std::make_unique<db::Connection>();
    connectTo(*connection_);
    EVENTUALLY(state(number) == State::Done);
    QCOMPARE(lines().count(u"; trying again"_s), 1);
    QVERIFY(lines().contains(u"the database is there again"_s));
}

void RunnerTest::aNoteIsKept() {
    const long long number = add("a", "X");
    const auto running = runner([](jobs::Attempt& attempt) {
        if (attempt.job().progress == "first film")
            return Outcome{};
        attempt.noteProgress("first film");
        return Outcome{.kind = Kind::Retry, .reason = "paper"};
    });
    running->start();
    EVENTUALLY(state(number) == State::Done);
    QCOMPARE(job(number).progress, "first film");
}

/// The one who has the row locked lets it go when the stop is over, and no sooner.
void RunnerTest::aNoteThatWaitsForALockIsEndedByAStop() {
    const long long number = add("a", "X");
    std::atomic<bool> notes = false;
    std::atomic<bool> ended = false;
    const auto running = runner([&](jobs::Attempt& attempt) {
        while (!notes)
            std::this_thread::sleep_for(5ms);
        try {
            attempt.noteProgress("never kept");
        } catch (const db::Error&) {
            ended = attempt.stop().stop_requested();
        }
        return Outcome{.kind = Kind::Stopped};
    });
    running->start();
    EVENTUALLY(state(number) == State::Running);
    {
        const db::Transaction lock{*connection_};
        db::execute(*connection_, "UPDATE Job SET LastError=? WHERE Number=?",
                    {db::varchar("locked"), db::integer(number)});
        notes = true;
        QTest::qSleep(300);
        running->stop();
    }
    QVERIFY(ended);
    QCOMPARE(job(number).progress, std::string{});
}

void RunnerTest::whatNoJobHasLeavesTheSpool() {
    const jobs::Spool spool{database_->imageRoot().toStdString()};
    const std::filesystem::path left = spool.makeFolder("TEST").path;
    const std::filesystem::path kept = spool.makeFile("TEST").path;
    QVERIFY(jobs::add(*connection_,
                      {.kind = "OTHER", .target = "X", .key = "a", .spool = kept.native(), .delay = 1h}));
    const auto running = runner([](jobs::Attempt&) { return Outcome{}; });
    running->start({spool});
    EVENTUALLY(!std::filesystem::exists(left));
    running->stop();
    QVERIFY(std::filesystem::exists(kept));
}

QTEST_GUILESS_MAIN(RunnerTest)
#include "tst_runner.moc"
