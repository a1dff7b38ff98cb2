#include <QTest>
#include <atomic>
#include <future>
#include <optional>
#include <stdexcept>
#include <thread>

#include "db/Query.h"
#include "db/Transaction.h"
#include "tests/db/Fault.h"
#include "tests/support/Eventually.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace tessaly;
using namespace tessaly::test;
using db::Query;

/// Statements that the engine would work on for ever, each of which somebody ends. One that does not end
/// fails by the time-out of the whole test.
class EndingTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        scratch_ = std::make_unique<ScratchDatabase>(ScratchDatabase::Content::Empty);
        scratch_->run(u"CREATE TABLE T (N INTEGER)"_s);
        scratch_->run(u"INSERT INTO T VALUES (1), (2), (3)"_s);
        scratch_->run(
            u"CREATE VIEW Endless AS WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT 1 FROM n) "
            "SELECT i AS N FROM n"_s);
        scratch_->release();
        connection_ = connect();
    }
    void cleanup() {
        connection_.reset();
        scratch_.reset();
    }

    void aStatementEndsThatNobodyWants_data();
    void aStatementEndsThatNobodyWants();
    void theNextRowIsNotWaitedForEither();
    void whatTheQuestionThrowsComesThrough();
    void aStatementEndsAtItsTimeout_data();
    void aStatementEndsAtItsTimeout();
    void aWaitForALockEndsToo_data();
    void aWaitForALockEndsToo();
    void theTimeOfTheQuestionDoesNotCount();
    void theOtherSetsOfTheConnectionGoOn();
    void theOtherConnectionsGoOn();
    void aConnectionsQuestionIsForItsStatements();
    void aConnectionsQuestionMayChangeWhileItIsOpen();
    void aStatementsOwnQuestionComesFirst();
    void aTransactionWithAnEndedStatementIsRolledBack();
    void aStatementThatIsWantedIsComplete();

  private:
    [[nodiscard]] static std::unique_ptr<db::Connection> connect(db::Purpose purpose = db::Purpose::General,
                                                                 std::function<bool()> isUnwanted = {}) {
        auto connection = std::make_unique<db::Connection>();
        connection->setConnectString("DSN=DicomFDB");
        connection->setCursorDriver(db::Connection::CursorDriver::DriverFirst);
        connection->setPurpose(purpose);
        connection->setStop(std::move(isUnwanted));
        connection->establish();
        return connection;
    }
    /// Yes from the third time on.
    [[nodiscard]] std::function<bool()> impatience() {
        asked_ = 0;
        return [this] { return ++asked_ >= 3; };
    }
    [[nodiscard]] QString numbers() const { return scratch_->value(u"SELECT COUNT(*) FROM T"_s); }

    std::unique_ptr<ScratchDatabase> scratch_;
    std::unique_ptr<db::Connection> connection_;
    int asked_ = 0;
};

void EndingTest::aStatementEndsThatNobodyWants_data() {
    QTest::addColumn<std::string>("text");
    QTest::addColumn<bool>("hasParameter");
    QTest::newRow("that finds nothing") << std::string{"SELECT N FROM Endless WHERE N=2"} << false;
    QTest::newRow("with a parameter") << std::string{"SELECT N FROM Endless WHERE N=?"} << true;
    QTest::newRow("that counts") << std::string{"SELECT COUNT(*) AS N FROM Endless"} << false;
    QTest::newRow("that sorts") << std::string{"SELECT N FROM Endless WHERE N=2 ORDER BY N DESC"} << false;
    QTest::newRow("that writes") << std::string{"INSERT INTO T SELECT N FROM Endless WHERE N=2"} << false;
    QTest::newRow("that changes rows")
        << std::string{"UPDATE T SET N=7 WHERE (SELECT COUNT(*) FROM Endless)=1"} << false;
}

void EndingTest::aStatementEndsThatNobodyWants() {
    QFETCH(const std::string, text);
    QFETCH(const bool, hasParameter);
    Query query{*connection_, text};
    if (hasParameter)
        query.bind(1, db::integer(2));
    for (int i = 0; i < 2; ++i) {  // and the query may run again
        query.setStop(impatience());
        if (text.starts_with("SELECT"))
            QVERIFY_EXCEPTION_THROWN((void)query.open(), db::Stopped);
        else
            QVERIFY_EXCEPTION_THROWN(query.execute(), db::Stopped);
        QCOMPARE(asked_, 3);
        QCOMPARE(scratch_->rows(u"SELECT N FROM T ORDER BY N"_s),
                 (QList<QStringList>{{u"1"_s}, {u"2"_s}, {u"3"_s}}));
    }
    db::execute(*connection_, "INSERT INTO T VALUES (4)");
    QCOMPARE(numbers(), u"4"_s);
}

void EndingTest::theNextRowIsNotWaitedForEither() {
    for (const auto purpose : {db::Purpose::General, db::Purpose::Walk, db::Purpose::Queries}) {
        const auto connection = connect(purpose);
        Query query{*connection, "SELECT N FROM Endless WHERE N=0"};  // which is the first row alone
        query.setStop(impatience());
        int rows = 0;
        const auto walk = [&] {
            auto set = query.open();
            while (set.next())
                ++rows;
        };
        QVERIFY_EXCEPTION_THROWN(walk(), db::Stopped);
        QVERIFY(rows <= 1);
        QCOMPARE(asked_, 3);
        db::execute(*connection, "UPDATE T SET N=N");
    }
}

void EndingTest::whatTheQuestionThrowsComesThrough() {
    Query query{*connection_, "SELECT N FROM Endless WHERE N=2"};
    query.setStop([]() -> bool { throw std::out_of_range("the question"); });
    QVERIFY_EXCEPTION_THROWN((void)query.open(), std::out_of_range);
    db::execute(*connection_, "INSERT INTO T VALUES (4)");
    QCOMPARE(numbers(), u"4"_s);
}

void EndingTest::aStatementEndsAtItsTimeout_data() {
    QTest::addColumn<bool>("isAsked");
    QTest::newRow("that is all") << false;
    QTest::newRow("while somebody is asked") << true;
}

void EndingTest::aStatementEndsAtItsTimeout() {
    QFETCH(const bool, isAsked);
    Query query{*connection_, "SELECT COUNT(*) AS N FROM Endless"};
    query.setTimeout(1s);
    if (isAsked)
        query.setStop([] { return false; });
    const auto begun = std::chrono::steady_clock::now();
    const auto fault = faultOf([&query] {
        try {
            (void)query.open();
        } catch (const db::Stopped&) {
            throw std::logic_error("nobody has stopped it");
        }
    });
    QVERIFY(fault.what() != std::string{"nothing was thrown"});
    QVERIFY(std::chrono::steady_clock::now() - begun >= 1s);
    db::execute(*connection_, "INSERT INTO T VALUES (4)");
    QCOMPARE(numbers(), u"4"_s);
}

void EndingTest::aWaitForALockEndsToo_data() {
    QTest::addColumn<bool>("hasTimeout");
    QTest::addColumn<bool>("isInTransaction");
    QTest::newRow("nobody wants it") << false << false;
    QTest::newRow("it has a time-out") << true << false;
    QTest::newRow("nobody wants it, in a transaction") << false << true;
    QTest::newRow("it has a time-out, in a transaction") << true << true;
}

void EndingTest::aWaitForALockEndsToo() {
    QFETCH(const bool, hasTimeout);
    QFETCH(const bool, isInTransaction);
    connection_->close();
    connection_->setLockWait(1h);
    connection_->establish();
    const auto other = connect();
    {
        db::Transaction transaction{*other};
        db::execute(*other, "UPDATE T SET N=N+10");
        std::optional<db::Transaction> own;
        if (isInTransaction)
            own.emplace(*connection_);
        Query query{*connection_, "UPDATE T SET N=N+100"};
        if (hasTimeout)
            query.setTimeout(1s);
        else
            query.setStop(impatience());
        QVERIFY_EXCEPTION_THROWN(query.execute(), db::Error);
        QVERIFY(hasTimeout || asked_ == 3);
        own.reset();
        // What is not ended waits until the others are done.
        asked_ = 0;
        std::atomic<bool> isWaiting{false};
        auto updated = std::async(std::launch::async, [this, &isWaiting] {
            const auto third = connect();
            Query patient{*third, "UPDATE T SET N=N+100"};
            patient.setStop([&isWaiting] {
                isWaiting = true;
                return false;
            });
            patient.execute();
        });
        EVENTUALLY(isWaiting.load());
        transaction.rollBack();
        updated.get();
    }
    QCOMPARE(scratch_->value(u"SELECT SUM(N) FROM T"_s), u"306"_s);
}

void EndingTest::theTimeOfTheQuestionDoesNotCount() {
    if (ScratchDatabase::isPostgresql())
        return;  // the engine works on meanwhile, and keeps to the limit by itself
    Query query{*connection_, "SELECT COUNT(*) AS N FROM Endless"};
    query.setTimeout(3s);
    int asked = 0;
    query.setStop([&asked] {
        if (asked == 0)
            std::this_thread::sleep_for(3100ms);
        return ++asked == 2;
    });
    QVERIFY_EXCEPTION_THROWN((void)query.open(), db::Stopped);
}

void EndingTest::theOtherSetsOfTheConnectionGoOn() {
    Query numbers{*connection_, "SELECT N FROM T ORDER BY N"};
    auto rows = numbers.open();
    QVERIFY(rows.next());
    Query query{*connection_, "SELECT COUNT(*) AS N FROM Endless"};
    query.setStop(impatience());
    QVERIFY_EXCEPTION_THROWN((void)query.open(), db::Stopped);
    QVERIFY(rows.next());
    Query write{*connection_, "INSERT INTO T SELECT N FROM Endless WHERE N=2"};
    write.setStop(impatience());
    QVERIFY_EXCEPTION_THROWN(write.execute(), db::Stopped);
    QVERIFY(rows.next());
    QCOMPARE(rows.integer("N"), 3);
    QVERIFY(!rows.next());
}

void EndingTest::theOtherConnectionsGoOn() {
    std::atomic<bool> isUnwanted = false;
    std::atomic<int> asked = 0;
    auto other = std::async(std::launch::async, [&] {
        const auto connection = connect();
        Query query{*connection, "SELECT COUNT(*) AS N FROM Endless"};
        query.setStop([&] {
            ++asked;
            return isUnwanted.load();
        });
        try {
            (void)query.open();
            return false;
        } catch (const db::Stopped&) {
            return true;
        }
    });
    const auto end = qScopeGuard([&] { isUnwanted = true; });
    EVENTUALLY(asked > 0);
    for (int i = 0; i < 3; ++i) {
        Query query{*connection_, "SELECT COUNT(*) AS N FROM Endless"};
        query.setStop(impatience());
        QVERIFY_EXCEPTION_THROWN((void)query.open(), db::Stopped);
        const int before = asked;
        EVENTUALLY(asked > before);  // it is still worked on
    }
    isUnwanted = true;
    QVERIFY(other.get());
}

void EndingTest::aConnectionsQuestionIsForItsStatements() {
    const auto connection = connect(db::Purpose::General, impatience());
    QVERIFY_EXCEPTION_THROWN(db::execute(*connection, "INSERT INTO T SELECT N FROM Endless WHERE N=2"),
                             db::Stopped);
    QCOMPARE(asked_, 3);
    const auto walker = connection->walker();
    QVERIFY_EXCEPTION_THROWN((void)Query(*walker, "SELECT N FROM Endless WHERE N=2").open(), db::Stopped);
    QCOMPARE(asked_, 4);
    asked_ = 0;
    Query again{*connection, "SELECT N FROM Endless WHERE N=2"};
    QVERIFY_EXCEPTION_THROWN((void)again.open(), db::Stopped);
    QCOMPARE(asked_, 3);
}

void EndingTest::aConnectionsQuestionMayChangeWhileItIsOpen() {
    connection_->setStop(impatience());
    QVERIFY_EXCEPTION_THROWN((void)Query(*connection_, "SELECT N FROM Endless WHERE N=2").open(),
                             db::Stopped);
    QCOMPARE(asked_, 3);
    connection_->setStop({});
    db::execute(*connection_, "UPDATE T SET N=N+10");
    QCOMPARE(asked_, 3);
}

void EndingTest::aStatementsOwnQuestionComesFirst() {
    bool isWrong = false;
    const auto connection = connect(db::Purpose::General, [&isWrong] { return isWrong = true; });
    Query query{*connection, "SELECT N FROM Endless WHERE N=2"};
    query.setStop(impatience());
    QVERIFY_EXCEPTION_THROWN((void)query.open(), db::Stopped);
    QVERIFY(!isWrong);
    QCOMPARE(asked_, 3);
}

/// An engine may roll back by itself, and would keep each of the statements that follow.
void EndingTest::aTransactionWithAnEndedStatementIsRolledBack() {
    for (const char* text :
         {"INSERT INTO T SELECT N FROM Endless WHERE N=2", "SELECT COUNT(*) AS N FROM Endless"}) {
        {
            db::Transaction transaction{*connection_};
            db::execute(*connection_, "INSERT INTO T VALUES (4)");
            Query query{*connection_, text};
            query.setStop(impatience());
            QVERIFY_EXCEPTION_THROWN(query.execute(), db::Stopped);
            QVERIFY_EXCEPTION_THROWN(db::execute(*connection_, "INSERT INTO T VALUES (5)"), db::Error);
            QVERIFY_EXCEPTION_THROWN(transaction.commit(), db::Error);
        }
        QCOMPARE(numbers(), u"3"_s);
        {
            db::Transaction transaction{*connection_};
            db::execute(*connection_, "INSERT INTO T VALUES (6)");
        }
        QCOMPARE(numbers(), u"3"_s);
    }
    {
        db::Transaction transaction{*connection_};
        db::execute(*connection_, "INSERT INTO T VALUES (7)");
        transaction.commit();
    }
    db::execute(*connection_, "INSERT INTO T VALUES (8)");
    QCOMPARE(numbers(), u"5"_s);
}

void EndingTest::aStatementThatIsWantedIsComplete() {
    constexpr int Many = 200'000;
    scratch_->run(
        u"INSERT INTO T SELECT 4 FROM (WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE "
        u"i<%1) "
        "SELECT i FROM n) AS Numbers"_s.arg(Many));
    scratch_->release();
    for (const auto purpose : {db::Purpose::General, db::Purpose::Walk}) {
        const auto connection = connect(purpose, [] { return false; });
        Query query{*connection, "SELECT N FROM T WHERE N=4"};
        query.setTimeout(3600s);
        auto rows = query.open();
        int count = 0;
        while (rows.next())
            ++count;
        QCOMPARE(count, Many);
    }
}

QTEST_GUILESS_MAIN(EndingTest)
#include "tst_ending.moc"
