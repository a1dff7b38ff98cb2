#include <QTest>

#include "db/Query.h"
#include "db/Transaction.h"
#include "jobs/JobTable.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace tessaly;
using namespace tessaly::test;
using jobs::State;

class JobTableTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void cleanup();
    void aJobIsThereExactlyWhenItsCauseIs();
    void oneJobAKey();
    void aJobIsDueAfterItsDelay();
    void oneJobOfALaneRuns();
    void theOldestOfALaneIsFirst();
    void onlyOneOwnerHasAJob();
    void aLeaseThatEndedIsTakenOver();
    void whoLostAJobWritesNothing();
    void aWaitingJobDoesNotBlockItsLane();
    void retryBeginsAnew();
    void aJobThatEndedIsRenewed();
    void dropTakesItsItemsToo();
    void whatWasDoneIsForgotten();
    void itemsOfAFailedAttemptComeAgain();
    void whatIsAddedToAJobPutsItOff();
    void whatIsAddedToARunningJobIsNotLost();
    void whatIsAddedBeginsAnEndedJobAnew_data();
    void whatIsAddedBeginsAnEndedJobAnew();
    void whatIsAddedAfterAFaultHastensNothing();
    void troublesAreCounted();
    void longTextsAreCutAtACharacter();

  private:
    [[nodiscard]] long long add(const std::string& key, const std::string& target = "PACS",
                                std::chrono::seconds delay = 0s) {
        const bool added = jobs::add(
            *connection_, {.kind = "FTP", .target = target, .key = key, .subject = "s", .delay = delay});
        return added ? jobs::find(*connection_, "FTP", key)->number : 0;
    }
    [[nodiscard]] State stateOf(long long number) { return jobs::find(*connection_, number)->state; }
    void endLease(long long number) {
        database_->run(u"UPDATE Job SET Lease=Lease-61 WHERE Number=%1"_s.arg(number));
    }

    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<db::Connection> connection_;
};

void JobTableTest::init() {
    database_ = std::make_unique<ScratchDatabase>();
    connection_ = std::make_unique<db::Connection>();
    connection_->setConnectString("DSN=DicomFDB");
    connection_->establish();
}

void JobTableTest::cleanup() {
    connection_.reset();
    database_.reset();
}

void JobTableTest::aJobIsThereExactlyWhenItsCauseIs() {
    {
        const db::Transaction transaction{*connection_};
        QVERIFY(add("a") > 0);
    }
    QVERIFY(!jobs::find(*connection_, "FTP", "a"));
    db::Transaction transaction{*connection_};
    QVERIFY(add("a") > 0);
    transaction.commit();
    const auto job = jobs::find(*connection_, "FTP", "a");
    QVERIFY(job.has_value());
    QCOMPARE(job->state, State::Waiting);
    QCOMPARE(job->subject, "s");
    QCOMPARE(job->attempts, 0);
    QVERIFY(job->created <= jobs::now(*connection_) && job->created > jobs::now(*connection_) - 60s);
    QVERIFY(job->begun == job->created);
}

void JobTableTest::oneJobAKey() {
    const long long first = add("a");
    QVERIFY(!jobs::add(*connection_, {.kind = "FTP", .target = "OTHER", .key = "a", .subject = "other"}));
    QCOMPARE(jobs::find(*connection_, first)->target, "PACS");
    QVERIFY(jobs::add(*connection_, {.kind = "PRINT", .target = "PACS", .key = "a"}));
    QVERIFY(jobs::find(*connection_, "PRINT", "a")->number > first);
}

void JobTableTest::aJobIsDueAfterItsDelay() {
    const long long later = add("later", "X", 100s);
    const long long now = add("now", "Y");
    const auto due = jobs::due(*connection_, 8);
    QCOMPARE(due.size(), std::size_t{1});
    QCOMPARE(due.front().number, now);
    QVERIFY(!jobs::claim(*connection_, later, "me"));
}

void JobTableTest::oneJobOfALaneRuns() {
    const long long first = add("a");
    const long long second = add("b");
    const long long other = add("c", "ELSEWHERE");
    QVERIFY(jobs::claim(*connection_, first, "me"));
    // Whoever has looked before that claim.
    QVERIFY(!jobs::claim(*connection_, second, "me"));
    QVERIFY(!jobs::claim(*connection_, second, "you"));
    const auto due = jobs::due(*connection_, 8);
    QCOMPARE(due.size(), std::size_t{1});
    QCOMPARE(due.front().number, other);
    QVERIFY(jobs::claim(*connection_, other, "you"));
    QVERIFY(jobs::finish(*connection_, first, "me", {.state = State::Done}));
    QVERIFY(jobs::claim(*connection_, second, "you"));
    QCOMPARE(jobs::running(*connection_, "you"), (std::vector<long long>{second, other}));
}

void JobTableTest::theOldestOfALaneIsFirst() {
    const long long first = add("a");
    (void)add("b");
    (void)add("c");
    const auto due = jobs::due(*connection_, 8);
    QCOMPARE(due.size(), std::size_t{1});
    QCOMPARE(due.front().number, first);
}

void JobTableTest::onlyOneOwnerHasAJob() {
    const long long job = add("a");
    QVERIFY(jobs::claim(*connection_, job, "me"));
    QVERIFY(!jobs::claim(*connection_, job, "you"));
    QVERIFY(!jobs::extend(*connection_, job, "you"));
    QVERIFY(!jobs::noteProgress(*connection_, job, "you", "x"));
    QVERIFY(!jobs::finish(*connection_, job, "you", {}));
    QVERIFY(jobs::extend(*connection_, job, "me"));
    QVERIFY(jobs::noteProgress(*connection_, job, "me", "half"));
    QCOMPARE(jobs::find(*connection_, job)->progress, "half");
}

void JobTableTest::aLeaseThatEndedIsTakenOver() {
    const long long job = add("a");
    (void)add("b");
    QVERIFY(jobs::claim(*connection_, job, "dead"));
    QVERIFY(jobs::due(*connection_, 8).empty());
    endLease(job);
    const auto due = jobs::due(*connection_, 8);
    QCOMPARE(due.size(), std::size_t{1});
    QCOMPARE(due.front().number, job);
    QVERIFY(jobs::claim(*connection_, job, "heir"));
    QVERIFY(!jobs::claim(*connection_, job, "other"));
}

void JobTableTest::whoLostAJobWritesNothing() {
    const long long job = add("a");
    QVERIFY(jobs::claim(*connection_, job, "slow"));
    endLease(job);
    QVERIFY(jobs::claim(*connection_, job, "heir"));
    QVERIFY(!jobs::finish(*connection_, job, "slow", {.state = State::GivenUp, .error = "slow"}));
    QCOMPARE(stateOf(job), State::Running);
    QCOMPARE(jobs::find(*connection_, job)->lastError, "");
}

void JobTableTest::aWaitingJobDoesNotBlockItsLane() {
    const long long failing = add("a");
    const long long next = add("b");
    QVERIFY(jobs::claim(*connection_, failing, "me"));
    QVERIFY(jobs::finish(*connection_, failing, "me",
                         {.state = State::Waiting, .delay = 60s, .attempts = 1, .error = "no answer"}));
    const auto job = jobs::find(*connection_, failing);
    QCOMPARE(job->attempts, 1);
    QCOMPARE(job->lastError, "no answer");
    QVERIFY(job->nextAttempt >= job->created + 60s);
    QCOMPARE(jobs::due(*connection_, 8).front().number, next);
    QVERIFY(jobs::claim(*connection_, next, "me"));
}

void JobTableTest::retryBeginsAnew() {
    const long long job = add("a");
    QVERIFY(jobs::claim(*connection_, job, "me"));
    QVERIFY(!jobs::retry(*connection_, job));
    for (const State state : {State::GivenUp, State::Uncertain}) {
        QVERIFY(jobs::finish(*connection_, job, "me", {.state = state, .attempts = 9, .error = "why"}));
        database_->run(u"UPDATE Job SET Begun=Begun-100000"_s);
        QVERIFY(jobs::due(*connection_, 8).empty());
        QVERIFY(jobs::retry(*connection_, job));
        const auto again = jobs::find(*connection_, job);
        QCOMPARE(again->attempts, 0);
        QVERIFY(again->begun >= again->created);
        QVERIFY(jobs::claim(*connection_, job, "me"));
    }
    QVERIFY(jobs::finish(*connection_, job, "me", {.state = State::Done}));
    QVERIFY(!jobs::retry(*connection_, job));
    QVERIFY(!jobs::retry(*connection_, 4711));
}

void JobTableTest::aJobThatEndedIsRenewed() {
    const long long job = add("a");
    const jobs::NewJob again{.kind = "FTP", .target = "PACS", .key = "a", .subject = "new", .spool = "/s"};
    QVERIFY(!jobs::renew(*connection_, again));
    QVERIFY(jobs::claim(*connection_, job, "me"));
    QVERIFY(!jobs::renew(*connection_, again));
    QVERIFY(jobs::noteProgress(*connection_, job, "me", "half"));
    QVERIFY(jobs::finish(*connection_, job, "me", {.state = State::Done}));
    QVERIFY(jobs::renew(*connection_, again));
    const auto renewed = jobs::find(*connection_, job);
    QCOMPARE(renewed->state, State::Waiting);
    QCOMPARE(renewed->subject, "new");
    QCOMPARE(renewed->progress, "");
    QVERIFY(jobs::hasSpool(*connection_, "/s"));
    QVERIFY(!jobs::hasSpool(*connection_, "/other"));
    QVERIFY(jobs::claim(*connection_, job, "me"));
    QVERIFY(jobs::finish(*connection_, job, "me", {.state = State::Done}));
    QVERIFY2(!jobs::hasSpool(*connection_, "/s"), "what a killed server did not remove any more");
}

void JobTableTest::dropTakesItsItemsToo() {
    const long long job = add("a");
    jobs::addItem(*connection_, "FTP", "a", "1.2");
    jobs::addItem(*connection_, "FTP", "b", "1.3");
    QVERIFY(jobs::claim(*connection_, job, "me"));
    const auto dropped = jobs::drop(*connection_, job);
    QVERIFY(dropped.has_value());
    QCOMPARE(dropped->key, "a");
    QVERIFY(!jobs::find(*connection_, job));
    QVERIFY(!jobs::drop(*connection_, job));
    QVERIFY(jobs::running(*connection_, "me").empty());
    QCOMPARE(database_->value(u"SELECT Item FROM JobItem"_s), u"1.3"_s);
}

void JobTableTest::whatWasDoneIsForgotten() {
    const long long done = add("a");
    const long long waiting = add("b", "Y", 60s);
    QVERIFY(jobs::claim(*connection_, done, "me"));
    QVERIFY(jobs::finish(*connection_, done, "me", {.state = State::Done}));
    jobs::forget(*connection_, 24h);
    QVERIFY(jobs::find(*connection_, done).has_value());
    database_->run(u"UPDATE Job SET NextAttempt=NextAttempt-86500"_s);
    jobs::forget(*connection_, 24h);
    QVERIFY(!jobs::find(*connection_, done));
    QVERIFY(jobs::find(*connection_, waiting).has_value());
    QVERIFY2(add("c") > waiting, "a number is never given twice");
}

void JobTableTest::itemsOfAFailedAttemptComeAgain() {
    QVERIFY(!jobs::lastAdded(*connection_, "FTP", "a"));
    jobs::addItem(*connection_, "FTP", "a", "1");
    jobs::addItem(*connection_, "FTP", "a", "2");
    QVERIFY(jobs::lastAdded(*connection_, "FTP", "a").has_value());
    QCOMPARE(jobs::takeItems(*connection_, "FTP", "a").size(), std::size_t{2});
    QVERIFY(!jobs::lastAdded(*connection_, "FTP", "a"));
    jobs::addItem(*connection_, "FTP", "a", "3");  // behind those that are under way
    jobs::removeTaken(*connection_, "FTP", "a");
    const auto left = jobs::takeItems(*connection_, "FTP", "a");
    QCOMPARE(left.size(), std::size_t{1});
    QCOMPARE(left.front().item, "3");
    QCOMPARE(jobs::takeItems(*connection_, "FTP", "a").size(), std::size_t{1});
}

void JobTableTest::whatIsAddedToAJobPutsItOff() {
    const jobs::NewJob job{.kind = "FTP", .target = "backup", .key = "backup/1.2", .delay = 100s};
    const auto secondsLeft = [&] {
        return (jobs::find(*connection_, "FTP", job.key)->nextAttempt - jobs::now(*connection_)).count();
    };
    const auto setSecondsLeft = [&](int seconds) {
        database_->run(u"UPDATE Job SET NextAttempt=%1"_s.arg(
            (jobs::now(*connection_).time_since_epoch() + std::chrono::seconds{seconds}).count()));
    };
    jobs::addItemTo(*connection_, job, "a");
    QVERIFY(secondsLeft() > 90);
    setSecondsLeft(70);
    jobs::addItemTo(*connection_, job, "b");  // so long that nobody need wait for anybody
    QVERIFY(secondsLeft() <= 70);
    setSecondsLeft(5);
    jobs::addItemTo(*connection_, job, "c");
    QVERIFY(secondsLeft() > 90);
    QCOMPARE(jobs::takeItems(*connection_, "FTP", job.key).size(), std::size_t{3});
    QCOMPARE(database_->value(u"SELECT COUNT(*) FROM Job"_s), u"1"_s);
}

void JobTableTest::whatIsAddedToARunningJobIsNotLost() {
    const jobs::NewJob job{.kind = "FTP", .target = "backup", .key = "backup/1.2", .delay = 1s};
    jobs::addItemTo(*connection_, job, "a");
    database_->run(u"UPDATE Job SET NextAttempt=NextAttempt-10"_s);
    const jobs::Job claimed = jobs::find(*connection_, "FTP", job.key).value();
    QVERIFY(jobs::claim(*connection_, claimed.number, "me"));
    QCOMPARE(jobs::takeItems(*connection_, "FTP", job.key).size(), std::size_t{1});
    jobs::addItemTo(*connection_, job, "b");
    QCOMPARE(stateOf(claimed.number), State::Running);
    jobs::removeTaken(*connection_, "FTP", job.key);
    const jobs::Ending done{.state = State::Done, .claimedAt = claimed.nextAttempt};
    QVERIFY(jobs::finish(*connection_, claimed.number, "me", done));
    QCOMPARE(stateOf(claimed.number), State::Waiting);
    const auto left = jobs::takeItems(*connection_, "FTP", job.key);
    QCOMPARE(left.size(), std::size_t{1});
    QCOMPARE(left.front().item, "b");
    // The next attempt, during which nothing comes, is the last.
    database_->run(u"UPDATE Job SET NextAttempt=NextAttempt-10"_s);
    const jobs::Job again = jobs::find(*connection_, "FTP", job.key).value();
    QVERIFY(jobs::claim(*connection_, again.number, "me"));
    QVERIFY(jobs::finish(*connection_, again.number, "me",
                         {.state = State::Done, .claimedAt = again.nextAttempt}));
    QCOMPARE(stateOf(again.number), State::Done);
}

void JobTableTest::whatIsAddedBeginsAnEndedJobAnew_data() {
    QTest::addColumn<State>("state");
    QTest::newRow("done") << State::Done;
    QTest::newRow("given up") << State::GivenUp;
}

void JobTableTest::whatIsAddedBeginsAnEndedJobAnew() {
    QFETCH(const State, state);
    const jobs::NewJob job{.kind = "FTP", .target = "backup", .key = "backup/1.2", .delay = 30s};
    const long long number = add(job.key, job.target);
    QVERIFY(jobs::claim(*connection_, number, "me"));
    QVERIFY(jobs::finish(*connection_, number, "me", {.state = state, .attempts = 3, .error = "wrong"}));
    jobs::addItemTo(*connection_, job, "a");
    const jobs::Job found = jobs::find(*connection_, number).value();
    QCOMPARE(found.state, State::Waiting);
    QCOMPARE(found.attempts, 0);
    QCOMPARE(found.lastError, "");
    QVERIFY(found.nextAttempt > jobs::now(*connection_) + 20s);
}

void JobTableTest::whatIsAddedAfterAFaultHastensNothing() {
    const jobs::NewJob job{.kind = "FTP", .target = "backup", .key = "backup/1.2", .delay = 1s};
    const long long number = add(job.key, job.target);
    for (const auto delay : {20s, 2000s}) {
        QVERIFY(jobs::claim(*connection_, number, "me"));
        QVERIFY(jobs::finish(*connection_, number, "me",
                             {.state = State::Waiting, .delay = delay, .attempts = 3, .error = "no answer"}));
        const jobs::Job before = jobs::find(*connection_, number).value();
        jobs::addItemTo(*connection_, job, "a");
        const jobs::Job after = jobs::find(*connection_, number).value();
        QVERIFY(after.nextAttempt == before.nextAttempt);
        QCOMPARE(after.attempts, 3);
        QCOMPARE(after.lastError, "no answer");
        database_->run(u"UPDATE Job SET NextAttempt=NextAttempt-3000"_s);
    }
}

void JobTableTest::troublesAreCounted() {
    const long long late = add("late", "A");
    const long long failed = add("failed", "B");
    const long long unsure = add("unsure", "C");
    (void)add("fresh", "D");
    QVERIFY(jobs::claim(*connection_, failed, "me"));
    QVERIFY(jobs::finish(*connection_, failed, "me", {.state = State::GivenUp}));
    QVERIFY(jobs::claim(*connection_, unsure, "me"));
    QVERIFY(jobs::finish(*connection_, unsure, "me", {.state = State::Uncertain}));
    database_->run(u"UPDATE Job SET Begun=Begun-3700 WHERE Number=%1"_s.arg(late));
    const auto troubles = jobs::troubles(*connection_, 1h);
    QCOMPARE(troubles.late, 1);
    QCOMPARE(troubles.givenUp, 1);
    QCOMPARE(troubles.uncertain, 1);
}

void JobTableTest::longTextsAreCutAtACharacter() {
    const long long job = add("a");
    QVERIFY(jobs::claim(*connection_, job, "me"));
    std::string text;
    for (int i = 0; i < 300; ++i)
        text += "\u00e4";
    QVERIFY(jobs::finish(*connection_, job, "me", {.state = State::GivenUp, .error = text}));
    QCOMPARE(jobs::find(*connection_, job)->lastError, text.substr(0, 510));
}

QTEST_GUILESS_MAIN(JobTableTest)
#include "tst_jobtable.moc"
