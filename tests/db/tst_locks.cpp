#include <QTest>
#include <atomic>
#include <future>
#include <latch>
#include <stdexcept>
#include <thread>

#include "db/Query.h"
#include "db/Transaction.h"
#include "tests/db/Fault.h"
#include "tests/support/Eventually.h"
#include "tests/support/ScratchCluster.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;
using db::Query;

/// Waiting for others' locks on a database server, and its ends.
class LocksTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        scratch_ = std::make_unique<ScratchDatabase>(ScratchDatabase::Content::Empty);
        scratch_->run(u"CREATE TABLE T (K VARCHAR(16) PRIMARY KEY, N INTEGER, L VARCHAR(8))"_s);
        connection_ = std::make_unique<db::Connection>();
        connection_->setConnectString("DSN=DicomFDB");
        connection_->establish();
    }
    void cleanup() {
        connection_.reset();
        scratch_.reset();
    }

    void aVictimOfADeadlockIsRolledBackAtOnce();
    void aLockIsWaitedForAndNotForEver();
    void aQuerysOwnLimitEndsItsWait();
    void theDataSourcesOwnLimitStands();
    void aStatementThatNobodyWantsEnds();
    void aQuestionThatTakesLongHoldsUpNoOther();
    void whatTheQuestionThrowsComesThrough();

  private:
    void fill(int rows) const {
        scratch_->run(u"INSERT INTO T SELECT i, i FROM generate_series(1, %1) AS i"_s.arg(rows));
    }

    std::unique_ptr<ScratchDatabase> scratch_;
    std::unique_ptr<db::Connection> connection_;
};

void LocksTest::aVictimOfADeadlockIsRolledBackAtOnce() {
    fill(2);
    ScratchCluster::instance().administer(
        u"GRANT SET ON PARAMETER deadlock_timeout TO %1"_s.arg(ScratchCluster::Owner));
    const auto update = [](const db::Connection& connection, const char* key, const char* value) {
        execute(connection, "UPDATE T SET L=? WHERE K=?", {db::varchar(value), db::varchar(key)});
    };
    // Only the one under test looks for a deadlock.
    execute(*connection_, "SET deadlock_timeout TO 20");
    db::Connection other;
    other.setConnectString("DSN=DicomFDB");
    other.establish();
    execute(other, "SET deadlock_timeout TO 600000");
    execute(other, "SET lock_timeout TO 600000");
    {
        db::Transaction transaction{*connection_};
        update(*connection_, "1", "victim");
        auto survivor = std::async(std::launch::async, [&] {
            db::Transaction surviving{other};
            update(other, "2", "other");
            update(other, "1", "other");
            surviving.commit();
        });
        EVENTUALLY_COMPARE(scratch_->value(u"SELECT count(*) FROM pg_locks WHERE NOT granted"_s), u"1"_s);
        QCOMPARE(faultOf([&] { update(*connection_, "2", "victim"); }).sqlState(), "40P01");
        survivor.get();  // which waits for no end of the victim's
        QVERIFY_EXCEPTION_THROWN(transaction.commit(), db::Error);
    }
    QCOMPARE(scratch_->rows(u"SELECT K, L FROM T ORDER BY K"_s),
             (QList<QStringList>{{u"1"_s, u"other"_s}, {u"2"_s, u"other"_s}}));
    update(*connection_, "1", "again");
}

void LocksTest::aLockIsWaitedForAndNotForEver() {
    Query limit{*connection_, "SHOW lock_timeout"};
    db::ResultSet row = limit.open();
    QVERIFY(row.next());
    QCOMPARE(row.text("lock_timeout"), "5s");
}

void LocksTest::aQuerysOwnLimitEndsItsWait() {
    fill(1);
    scratch_->run(u"BEGIN"_s);
    scratch_->run(u"LOCK TABLE T"_s);
    Query query{*connection_, "SELECT * FROM T"};
    query.setTimeout(std::chrono::seconds{1});  // less than a lock is waited for
    QCOMPARE(faultOf([&] { (void)query.open(); }).sqlState(), "57014");
    scratch_->run(u"COMMIT"_s);
    QVERIFY(query.open().next());
    // It was that query's alone.
    QCOMPARE(Query(*connection_, "SELECT pg_sleep(1.2)").open().next(), true);
}

void LocksTest::theDataSourcesOwnLimitStands() {
    connection_->close();
    scratch_->setDataSource(scratch_->dataSource({u"ConnSettings=SET lock_timeout TO 50"_s}));
    connection_->establish();
    scratch_->run(u"INSERT INTO T (K) VALUES ('k')"_s);
    scratch_->run(u"BEGIN"_s);
    scratch_->run(u"UPDATE T SET N=1"_s);
    QCOMPARE(faultOf([&] { execute(*connection_, "UPDATE T SET N=2"); }).sqlState(), "55P03");
    scratch_->run(u"COMMIT"_s);
    QCOMPARE(scratch_->value(u"SELECT N FROM T"_s), u"1"_s);
    execute(*connection_, "UPDATE T SET N=2");
}

void LocksTest::aStatementThatNobodyWantsEnds() {
    fill(1);
    Query query{*connection_, "SELECT N FROM T"};
    std::atomic<int> asked = 0;
    const auto owner = std::this_thread::get_id();
    bool isElsewhere = true;
    query.setStop([&] {
        isElsewhere = isElsewhere && std::this_thread::get_id() != owner;
        return ++asked == 3;
    });
    {
        db::Connection other;
        other.setConnectString("DSN=DicomFDB");
        other.establish();
        db::Transaction transaction{other};
        execute(other, "LOCK TABLE T IN ACCESS EXCLUSIVE MODE");
        QVERIFY_THROWS_EXCEPTION(db::Stopped, (void)query.open());
        QCOMPARE(asked.load(), 3);
        QVERIFY(isElsewhere);
    }
    for (int i = 0; i < 100; ++i) {  // nothing of it is left for those that come after
        auto rows = query.open();
        QVERIFY(rows.next());
    }
    QCOMPARE(asked.load(), 3);  // who does not wait is not asked
    db::Transaction transaction{*connection_};
    Query sleeping{*connection_, "SELECT pg_sleep(3600)"};
    sleeping.setStop([] { return true; });
    QVERIFY_THROWS_EXCEPTION(db::Stopped, (void)sleeping.open());
    QVERIFY_THROWS_EXCEPTION(db::Error, transaction.commit());
}

void LocksTest::aQuestionThatTakesLongHoldsUpNoOther() {
    std::latch asked{1};
    std::latch answered{1};
    auto first = std::async(std::launch::async, [&] {
        db::Connection other;
        other.setConnectString("DSN=DicomFDB");
        other.establish();
        Query sleeping{other, "SELECT pg_sleep(3600)"};
        sleeping.setStop([&] {
            asked.count_down();
            answered.wait();
            return true;
        });
        try {
            return sleeping.open().next();
        } catch (const db::Stopped&) {
            return true;
        }
    });
    asked.wait();
    Query second{*connection_, "SELECT pg_sleep(3600)"};
    second.setStop([] { return true; });
    QVERIFY_THROWS_EXCEPTION(db::Stopped, (void)second.open());
    answered.count_down();
    QVERIFY(first.get());
}

void LocksTest::whatTheQuestionThrowsComesThrough() {
    Query sleeping{*connection_, "SELECT pg_sleep(3600)"};
    sleeping.setStop([]() -> bool { throw std::out_of_range("gone"); });
    QVERIFY_THROWS_EXCEPTION(std::out_of_range, (void)sleeping.open());
    execute(*connection_, "SELECT 1");
}

QTEST_GUILESS_MAIN(LocksTest)
#include "tst_locks.moc"
