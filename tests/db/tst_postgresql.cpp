#include <QDir>
#include <QTest>

#include "db/Query.h"
#include "db/StreamedQuery.h"
#include "db/Transaction.h"
#include "tests/db/Fault.h"
#include "tests/support/ScratchCluster.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;
using db::Query;

namespace {

/// Of this process, in the driver's folder, whatever TMPDIR says.
QStringList driversLogs() {
    const QString process = QString::number(QCoreApplication::applicationPid());
    return QDir{u"/tmp"_s}.entryList(
        {u"psqlodbc_*"_s + process + u".log"_s, u"mylog_*"_s + process + u".log"_s}, QDir::Files);
}

}  // namespace

/// What PostgreSQL's driver does that would be believed otherwise, and how db/ meets it.
class PostgresqlTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        scratch_ = std::make_unique<ScratchDatabase>(ScratchDatabase::Content::Empty);
        scratch_->define(
            u"CREATE TABLE T (K VARCHAR(16) PRIMARY KEY COLLATE NOCASE, N INTEGER, L VARCHAR(8))"_s);
        connection_ = std::make_unique<db::Connection>();
        connection_->setConnectString("DSN=DicomFDB");
        connection_->setCursorDriver(db::Connection::CursorDriver::DriverFirst);
        connection_->establish();
    }
    void cleanup() {
        connection_.reset();
        scratch_.reset();
    }

    void aCaughtFailureKeepsATransactionFromCommitting();
    void aFailureAtTheFirstStatementToo();
    void aCommitAfterTheBackendIsGoneIsNoSuccess_data();
    void aCommitAfterTheBackendIsGoneIsNoSuccess();
    void theNextOperationConnectsAnew_data();
    void theNextOperationConnectsAnew();
    void aQueryMadeBeforeGoesOn();
    void nothingConnectsAnewInsideATransaction();
    void aServerThatIsDownIsReportedUntilItIsBack();
    void aWalkOfThePastIsOver();
    void aStatementIsPreparedAnewWhenItsTablesChange();
    void aChangedTableInsideATransactionIsAFailure();
    void whatDoesNotFitIsRefusedWhole_data();
    void whatDoesNotFitIsRefusedWhole();
    void aLongWalkOutlivesFailuresBesideIt();
    void aLongWalkThatIsCutOffSaysSo();
    void aLongWalkHasRowsOfAnyLength();
    void namesDifferInMoreThanCase();
    void noLogFileIsLeft_data();
    void noLogFileIsLeft();

  private:
    [[nodiscard]] QString count() const { return scratch_->value(u"SELECT count(*) FROM T"_s); }
    void insert(const char* key) const {
        execute(*connection_, "INSERT INTO T (K) VALUES (?)", {db::varchar(key)});
    }
    void fill(int rows) const {
        scratch_->run(u"INSERT INTO T SELECT i, i FROM generate_series(1, %1) AS i"_s.arg(rows));
    }
    /// Ends the sessions of the code under test, as an administrator would.
    void endSessions() const {
        scratch_->run(
            u"SELECT pg_terminate_backend(pid, 10000) FROM pg_stat_activity "
            "WHERE datname = current_database() AND pid <> pg_backend_pid()"_s);
    }
    static void addWaysToGo() {
        QTest::addColumn<bool>("restart");
        QTest::newRow("ended by an administrator") << false;
        QTest::newRow("the server was restarted") << true;
    }
    void endBy(bool restart) const {
        scratch_->release();
        if (restart)
            ScratchCluster::instance().restart();
        else
            endSessions();
    }

    std::unique_ptr<ScratchDatabase> scratch_;
    std::unique_ptr<db::Connection> connection_;
};

void PostgresqlTest::aCaughtFailureKeepsATransactionFromCommitting() {
    db::Transaction transaction{*connection_};
    insert("before");
    QCOMPARE(faultOf([&] { insert("before"); }).Number(), db::Error::DuplicateKeyNumber);
    // The engine has failed the whole transaction, and says so of every further statement.
    QCOMPARE(faultOf([&] { insert("after"); }).sqlState(), "25P02");
    QCOMPARE(faultOf([&] { transaction.commit(); }).what(),
             "The transaction cannot be committed: one of its statements failed");
    transaction.rollBack();
    QCOMPARE(count(), u"0"_s);
    insert("by itself again");
    QCOMPARE(count(), u"1"_s);
}

void PostgresqlTest::aFailureAtTheFirstStatementToo() {
    db::Transaction transaction{*connection_};
    QVERIFY(faultOf([&] { execute(*connection_, "SELECT * FROM Nowhere"); }).sqlState() == "42P01");
    QVERIFY_EXCEPTION_THROWN(transaction.commit(), db::Error);
}

void PostgresqlTest::aCommitAfterTheBackendIsGoneIsNoSuccess_data() {
    QTest::addColumn<bool>("told");
    QTest::newRow("a statement has met it") << true;
    QTest::newRow("the commit meets it") << false;
}

void PostgresqlTest::aCommitAfterTheBackendIsGoneIsNoSuccess() {
    QFETCH(bool, told);
    {
        db::Transaction transaction{*connection_};
        insert("lost");
        endSessions();
        if (told)
            QVERIFY_EXCEPTION_THROWN(insert("more"), db::Error);
        if (told)
            QVERIFY_EXCEPTION_THROWN(transaction.commit(), db::Error);
        else
            QVERIFY_EXCEPTION_THROWN(transaction.commit(), db::OutcomeUnknown);
    }
    QCOMPARE(count(), u"0"_s);
    insert("again");
    QCOMPARE(count(), u"1"_s);
}

void PostgresqlTest::theNextOperationConnectsAnew_data() {
    addWaysToGo();
}

void PostgresqlTest::theNextOperationConnectsAnew() {
    QFETCH(bool, restart);
    insert("before");
    endBy(restart);
    const db::Error met = faultOf([&] { insert("met"); });
    QVERIFY2(QString::fromUtf8(met.what()).contains(u"terminating connection due to administrator command"_s),
             met.what());
    insert("after");
    QVERIFY(connection_->hasTable("T"));
    QCOMPARE(scratch_->rows(u"SELECT K FROM T ORDER BY K"_s),
             (QList<QStringList>{{u"after"_s}, {u"before"_s}}));
}

void PostgresqlTest::aQueryMadeBeforeGoesOn() {
    Query query{*connection_, "INSERT INTO T (K) VALUES (?)"};
    query.bind(1, db::varchar("before")).execute();
    endSessions();
    QVERIFY_EXCEPTION_THROWN(query.bind(1, db::varchar("met")).execute(), db::Error);
    query.bind(1, db::varchar("after")).execute();
    QCOMPARE(count(), u"2"_s);
    QVERIFY_EXCEPTION_THROWN(connection_->close(), db::Error);  // the query is still there
}

void PostgresqlTest::nothingConnectsAnewInsideATransaction() {
    {
        const db::Transaction transaction{*connection_};
        insert("lost");
        endSessions();
        QVERIFY_EXCEPTION_THROWN(insert("met"), db::Error);
        QVERIFY_EXCEPTION_THROWN(insert("alone"), db::Error);
        QVERIFY_EXCEPTION_THROWN((void)connection_->hasTable("T"), db::Error);
        QCOMPARE(count(), u"0"_s);
    }
    db::Transaction transaction{*connection_};
    insert("kept");
    transaction.commit();
    QCOMPARE(count(), u"1"_s);
}

void PostgresqlTest::aServerThatIsDownIsReportedUntilItIsBack() {
    scratch_->release();
    ScratchCluster::instance().stop();
    for (int i = 0; i < 3; ++i)
        QVERIFY_EXCEPTION_THROWN(insert("down"), db::Error);
    ScratchCluster::instance().start();
    insert("back");
    QCOMPARE(count(), u"1"_s);
}

void PostgresqlTest::aWalkOfThePastIsOver() {
    fill(3);
    Query query{*connection_, "SELECT * FROM T ORDER BY N"};
    {
        db::ResultSet rows = query.open();
        QVERIFY(rows.next());
        endSessions();
        QVERIFY_EXCEPTION_THROWN(insert("met"), db::Error);
        insert("after");
        QVERIFY_EXCEPTION_THROWN((void)rows.next(), db::Error);  // no end of the data
    }
    db::ResultSet rows = query.open();
    QVERIFY(rows.next());
    QCOMPARE(rows.integer("N"), 1);
}

void PostgresqlTest::aStatementIsPreparedAnewWhenItsTablesChange() {
    fill(1);
    Query query{*connection_, "SELECT * FROM T WHERE K=?"};
    query.bind(1, db::varchar("1"));
    for (int i = 0; i < 10; ++i)  // often enough for the driver to have it prepared
        QVERIFY(query.open().next());
    scratch_->run(u"ALTER TABLE T ADD COLUMN Fresh VARCHAR(8) DEFAULT 'new'"_s);
    db::ResultSet rows = query.open();
    QVERIFY(rows.next());
    QCOMPARE(rows.text("Fresh"), "new");
    QCOMPARE(rows.columns().size(), 4U);
}

void PostgresqlTest::aChangedTableInsideATransactionIsAFailure() {
    fill(1);
    Query query{*connection_, "SELECT * FROM T WHERE K=?"};
    query.bind(1, db::varchar("1"));
    for (int i = 0; i < 10; ++i)
        QVERIFY(query.open().next());
    scratch_->run(u"ALTER TABLE T ADD COLUMN Fresh VARCHAR(8)"_s);
    {
        db::Transaction transaction{*connection_};
        QCOMPARE(faultOf([&] { (void)query.open(); }).sqlState(), "0A000");
        QVERIFY_EXCEPTION_THROWN(transaction.commit(), db::Error);
    }
    QVERIFY(query.open().next());
}

void PostgresqlTest::whatDoesNotFitIsRefusedWhole_data() {
    QTest::addColumn<QString>("statement");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QString>("state");
    const auto row = [](const char* name, const char* statement, const QByteArray& value, const char* state) {
        QTest::newRow(name) << QString::fromLatin1(statement) << value << QString::fromLatin1(state);
    };
    const char* text = "INSERT INTO T (K, L) VALUES ('k', ?)";
    const char* number = "INSERT INTO T (K, N) VALUES ('k', ?)";
    row("nine characters into eight", text, "123456789", "22001");
    row("bytes that are no text", text, "a\xFF", "22021");
    row("a character that is cut off", text, "a\xC3", "22021");
    row("Latin 1", text, "M\xFCller", "22021");
    row("nothing into a number", number, "", "22P02");
    row("no number", number, "many", "22P02");
    row("more than fits", number, "9223372036854775808", "22003");
}

void PostgresqlTest::whatDoesNotFitIsRefusedWhole() {
    QFETCH(QString, statement);
    QFETCH(QByteArray, value);
    QFETCH(QString, state);
    const auto refused = [&] {
        return faultOf(
            [&] { execute(*connection_, statement.toStdString(), {db::varchar(value.toStdString())}); });
    };
    QCOMPARE(QString::fromStdString(refused().sqlState()), state);
    QCOMPARE(count(), u"0"_s);
    {
        db::Transaction transaction{*connection_};
        insert("before");
        QCOMPARE(QString::fromStdString(refused().sqlState()), state);
        QVERIFY_EXCEPTION_THROWN(transaction.commit(), db::Error);
    }
    QCOMPARE(count(), u"0"_s);
}

void PostgresqlTest::aLongWalkOutlivesFailuresBesideIt() {
    constexpr int Rows = 5000;
    fill(Rows);
    db::StreamedQuery walk{*connection_, "SELECT * FROM T ORDER BY N"};
    int walked = 0;
    while (walk.next()) {
        QCOMPARE(walk.row().integer("N"), ++walked);
        if (walked % 100 == 0)
            QCOMPARE(faultOf([&] { insert("2"); }).Number(), db::Error::DuplicateKeyNumber);
        if (walked % 1000 == 1)
            execute(*connection_, "DELETE FROM T WHERE K=?", {db::varchar(walk.row().text("K"))});
    }
    QCOMPARE(walked, Rows);
    QCOMPARE(count(), QString::number(Rows - 5));
}

void PostgresqlTest::aLongWalkThatIsCutOffSaysSo() {
    constexpr int Rows = 5000;
    fill(Rows);
    db::StreamedQuery walk{*connection_, "SELECT * FROM T"};
    QVERIFY(walk.next());
    endSessions();
    int walked = 1;
    QVERIFY_EXCEPTION_THROWN(while (walk.next())++ walked, db::Error);
    QVERIFY2(walked < Rows, qPrintable(QString::number(walked)));
}

void PostgresqlTest::aLongWalkHasRowsOfAnyLength() {
    scratch_->run(u"CREATE TABLE Long (L TEXT)"_s);
    scratch_->run(u"INSERT INTO Long SELECT repeat('x', i * 10) FROM generate_series(1, 2500) AS i"_s);
    db::StreamedQuery walk{*connection_, "SELECT * FROM Long ORDER BY length(L)"};
    std::size_t length = 0;
    while (walk.next()) {
        length += 10;
        QCOMPARE(walk.row().text("L").size(), length);
    }
    QCOMPARE(length, 25'000U);
}

void PostgresqlTest::namesDifferInMoreThanCase() {
    insert("AE");
    QCOMPARE(faultOf([&] { insert("ae"); }).Number(), db::Error::DuplicateKeyNumber);
    insert("AE ");
    insert("Ä");
    QCOMPARE(faultOf([&] { insert("ä"); }).Number(), db::Error::DuplicateKeyNumber);
    insert("A");
    QCOMPARE(count(), u"4"_s);
    // A pattern wants a collation that knows patterns.
    QCOMPARE(faultOf([&] { execute(*connection_, "SELECT * FROM T WHERE K LIKE 'A%'"); }).sqlState(),
             "0A000");
    db::ResultSet rows = Query{*connection_, "SELECT K FROM T WHERE K COLLATE \"C\" LIKE 'AE%'"}.open();
    QVERIFY(rows.next() && rows.next() && !rows.next());
}

void PostgresqlTest::noLogFileIsLeft_data() {
    QTest::addColumn<QString>("line");
    QTest::newRow("as we write it") << u"CommLog=0"_s;
    QTest::newRow("a data source that wants one") << u"CommLog=1"_s;
    QTest::newRow("one that wants a longer one") << u"Debug=1"_s;
}

void PostgresqlTest::noLogFileIsLeft() {
    QFETCH(QString, line);
    connection_.reset();
    scratch_->setDataSource(scratch_->dataSource({line}));
    for (int i = 0; i < 2; ++i) {
        db::Connection connection;
        connection.setConnectString("DSN=DicomFDB");
        connection.establish();
        db::StreamedQuery walk{connection, "SELECT * FROM T"};
        QVERIFY(!walk.next());
    }
    scratch_->setDataSource(scratch_->dataSource({line, u"Servername=/nowhere"_s}));
    db::Connection refused;
    refused.setConnectString("DSN=DicomFDB");
    QVERIFY_EXCEPTION_THROWN(refused.establish(), db::Error);
    QCOMPARE(driversLogs(), QStringList{});
}

QTEST_GUILESS_MAIN(PostgresqlTest)
#include "tst_postgresql.moc"
