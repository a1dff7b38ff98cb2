#include <QTest>
#include <limits>

#include "archive/StoredPath.h"
#include "db/Query.h"
#include "db/Transaction.h"
#include "db/dialects/Dialect.h"
#include "tests/db/Fault.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;
using db::Query;
using db::ResultSet;

class DbTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        scratch_ = std::make_unique<ScratchDatabase>(ScratchDatabase::Content::Empty);
        scratch_->define(
            u"CREATE TABLE T (K VARCHAR(16) PRIMARY KEY COLLATE NOCASE, N INTEGER, B BIT, L TEXT)"_s);
        connection_ = std::make_unique<db::Connection>();
        connection_->setConnectString("DSN=DicomFDB");
        connection_->setCursorDriver(db::Connection::CursorDriver::DriverFirst);
        connection_->establish();
    }
    void cleanup() {
        connection_.reset();
        scratch_.reset();
    }

    void everyTypeGoesInAndComesBack();
    void textComesBackUnchanged_data();
    void textComesBackUnchanged();
    void nullIsNotEmpty();
    void numbersAreReadAsNumbers();
    void textsAreNumbersWhereTheyLookLikeThem();
    void columnsAreFoundByNameInAnyOrder();
    void columnKindsAreKnownBeforeTheFirstRow();
    void unknownColumnsAndMissingRowsThrow();
    void aQueryRunsAgainWithOtherValues();
    void otherStatementsRunWhileASetIsWalked();
    void aSetThatIsStillReadBlocksItsQueryAlone();
    void onlyADuplicateKeyHasItsNumber();
    void errorsCarryEverything();
    void aTransactionKeepsAllOrNothing();
    void transactionsDoNotNest();
    void aSavepointMendsNoTransaction();
    void aTextWithANulIsRefused_data();
    void aTextWithANulIsRefused();
    void aRollBackSurvivesAnOpenSet();
    void theConnectionClosesAndComesBack();
    void theCatalogueKnowsTheTables();
    void anUnknownDataSourceSaysSo();
    void aStoredPathHasBackslashesAndALocalOneNone();

  private:
    [[nodiscard]] ResultSet select(const std::string& text) const { return Query{*connection_, text}.open(); }

    std::unique_ptr<ScratchDatabase> scratch_;
    std::unique_ptr<db::Connection> connection_;
};

void DbTest::everyTypeGoesInAndComesBack() {
    execute(*connection_, "INSERT INTO T VALUES (?,?,?,?)",
            {db::varchar("key"), db::integer(-7'000'000'000), db::bit(true), db::undeclared("text")});
    execute(*connection_, "INSERT INTO T VALUES (?,?,?,?)",
            {db::varchar("other"), db::undeclared(5), db::bit(false), db::null(db::Type::Varchar)});
    QCOMPARE(scratch_->rows(u"SELECT K, N, %1, B, L FROM T ORDER BY K"_s.arg(scratch_->typeOf(u"N"_s))),
             (QList<QStringList>{{u"key"_s, u"-7000000000"_s, u"integer"_s, u"1"_s, u"text"_s},
                                 {u"other"_s, u"5"_s, u"integer"_s, u"0"_s, QString{}}}));
}

void DbTest::textComesBackUnchanged_data() {
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << u""_s;
    QTest::newRow("one blank") << u" "_s;
    QTest::newRow("blanks at both ends") << u"  a  "_s;
    QTest::newRow("apostrophe") << u"O'Brien''s %_?"_s;
    QTest::newRow("umlauts") << u"Größe"_s;
    QTest::newRow("CJK") << u"放射線科"_s;
    QTest::newRow("four bytes") << u"🩻"_s;
    QTest::newRow("line ends") << u"a\r\nb\tc"_s;
    for (const int length : {1022, 1023, 1024, 2046, 2047, 1'000'000})  // around and beyond one fetched part
        QTest::addRow("%d characters", length) << QString(length, u'x');
    QTest::newRow("a part that ends inside a character") << QString(u"x"_s + QString(2000, u'ü'));
}

void DbTest::textComesBackUnchanged() {
    QFETCH(QString, text);
    execute(*connection_, "INSERT INTO T (K, L) VALUES ('k', ?)", {db::varchar(text.toStdString())});
    QVERIFY(scratch_->value(u"SELECT L FROM T"_s) == text);
    ResultSet rows = select("SELECT L FROM T");
    QVERIFY(rows.next());
    QVERIFY(!rows.isNull("L"));
    QVERIFY(QString::fromStdString(rows.text("L")) == text);
    QVERIFY(QString::fromStdString(rows.text("L")) == text);  // a second read gives the same
    QVERIFY(!rows.next());
}

void DbTest::nullIsNotEmpty() {
    scratch_->run(u"INSERT INTO T VALUES ('a', NULL, NULL, NULL), ('b', 0, 0, '')"_s);
    ResultSet rows = select("SELECT * FROM T ORDER BY K");
    QVERIFY(rows.next());
    QVERIFY(rows.isNull("L"));
    QVERIFY(!rows.optionalText("L"));
    QVERIFY(rows.value(3) == nullptr);
    QCOMPARE(rows.text("L"), std::string{});
    QVERIFY(!rows.flag("B"));
    QVERIFY_EXCEPTION_THROWN((void)rows.integer("N"), db::Error);
    QVERIFY(rows.next());
    QVERIFY(!rows.isNull("L"));
    QCOMPARE(rows.optionalText("L"), std::optional{std::string{}});
    QVERIFY(rows.value(3) != nullptr && rows.value(3)->empty());
    QVERIFY(rows.value(0) != nullptr && *rows.value(0) == "b");  // to the left of what was read
    QVERIFY_EXCEPTION_THROWN((void)rows.value(4), db::Error);
    QCOMPARE(rows.integer("N"), 0);
}

void DbTest::numbersAreReadAsNumbers() {
    scratch_->define(u"CREATE TABLE V (K VARCHAR(16), N INTEGER, B BIT, F DOUBLE PRECISION)"_s);
    scratch_->run(
        u"INSERT INTO V VALUES ('a', -1, -1, 2.75), ('b', -9223372036854775808, 2, 0.5),"
        " ('c', 9223372036854775807, 0, 9.3e18)"_s);
    ResultSet rows = select("SELECT * FROM V ORDER BY K");
    QVERIFY(rows.next());
    QCOMPARE(rows.integer("N"), -1);
    QVERIFY(rows.flag("B"));
    QCOMPARE(rows.integer("F"), 2);
    QVERIFY(rows.flag("F"));
    QVERIFY(rows.next());
    QCOMPARE(rows.integer("N"), std::numeric_limits<long long>::min());
    QVERIFY(rows.flag("B"));
    QCOMPARE(rows.integer("F"), 0);
    QVERIFY(rows.flag("F"));
    QVERIFY(rows.next());
    QCOMPARE(rows.integer("N"), std::numeric_limits<long long>::max());
    QVERIFY(!rows.flag("B"));
    QVERIFY_EXCEPTION_THROWN((void)rows.integer("F"), db::Error);
    QVERIFY(rows.flag("F"));
}

void DbTest::textsAreNumbersWhereTheyLookLikeThem() {
    scratch_->run(u"CREATE TABLE V (K VARCHAR(16), N TEXT)"_s);
    scratch_->run(u"INSERT INTO V VALUES ('a', 'x'), ('b', '-2.75'), ('c', ''), ('d', '0')"_s);
    ResultSet rows = select("SELECT * FROM V ORDER BY K");
    QVERIFY(rows.next());
    QVERIFY_EXCEPTION_THROWN((void)rows.integer("N"), db::Error);
    QVERIFY_EXCEPTION_THROWN((void)rows.flag("N"), db::Error);
    QVERIFY(rows.next());
    QCOMPARE(rows.integer("N"), -2);
    QVERIFY(rows.flag("N"));
    QVERIFY(rows.next());
    QVERIFY_EXCEPTION_THROWN((void)rows.flag("N"), db::Error);
    QVERIFY(rows.next());
    QVERIFY(!rows.flag("N"));
}

void DbTest::columnsAreFoundByNameInAnyOrder() {
    scratch_->run(u"INSERT INTO T VALUES ('k', 3, 1, 'long')"_s);
    ResultSet rows = select("SELECT * FROM T");
    QVERIFY(rows.next());
    QCOMPARE(rows.text("l"), std::string{"long"});
    QCOMPARE(rows.text("K"), std::string{"k"});
    QCOMPARE(rows.integer("n"), 3);
}

void DbTest::columnKindsAreKnownBeforeTheFirstRow() {
    const ResultSet rows = select("SELECT * FROM T");
    QCOMPARE(rows.columns().size(), 4U);
    QCOMPARE(QString::fromStdString(rows.columns().at(1).name).toUpper(), u"N"_s);
    QVERIFY(rows.columns().at(0).isText);
    QVERIFY(!rows.columns().at(1).isText);
    QVERIFY(!rows.columns().at(2).isText);
    QVERIFY(rows.columns().at(3).isText);
}

void DbTest::unknownColumnsAndMissingRowsThrow() {
    scratch_->run(u"INSERT INTO T (K) VALUES ('k')"_s);
    ResultSet rows = select("SELECT * FROM T");
    QVERIFY_EXCEPTION_THROWN((void)rows.text("K"), db::Error);  // before the first row
    QVERIFY(rows.next());
    const db::Error fault = faultOf([&] { (void)rows.text("Missing"); });
    QCOMPARE(std::string{fault.what()}, std::string{"Unknown column Missing"});
    QVERIFY(!rows.next());
    QVERIFY_EXCEPTION_THROWN((void)rows.text("K"), db::Error);  // after the last one
}

void DbTest::aQueryRunsAgainWithOtherValues() {
    Query insert{*connection_, "INSERT INTO T (K, N) VALUES (?,?)"};
    for (int i = 0; i < 3; ++i)
        insert.bind(1, db::varchar(std::string(1, static_cast<char>('a' + i))))
            .bind(2, db::integer(i))
            .execute();
    Query count{*connection_, "SELECT COUNT(*) AS Num FROM T WHERE N >= ?"};
    for (const long long expected : {3, 2, 1, 0}) {
        ResultSet rows = count.bind(1, db::integer(3 - expected)).open();
        QVERIFY(rows.next());
        QCOMPARE(rows.integer("Num"), expected);
    }
}

void DbTest::otherStatementsRunWhileASetIsWalked() {
    for (int i = 0; i < 100; ++i)
        scratch_->run(u"INSERT INTO T (K, N) VALUES (?, ?)"_s, {QString::number(i), i});
    Query other{*connection_, "SELECT COUNT(*) AS Num FROM T WHERE N = ?"};
    Query remove{*connection_, "DELETE FROM T WHERE K=?"};
    ResultSet rows = select("SELECT * FROM T");
    int walked = 0;
    for (; rows.next(); ++walked) {
        const long long n = rows.integer("N");
        ResultSet found = other.bind(1, db::integer(n)).open();
        QVERIFY(found.next());
        QCOMPARE(found.integer("Num"), 1);
        if (n % 2 == 0)
            remove.bind(1, db::varchar(rows.text("K"))).execute();
    }
    QCOMPARE(walked, 100);
    QCOMPARE(scratch_->value(u"SELECT count(*) FROM T"_s), u"50"_s);
}

void DbTest::aSetThatIsStillReadBlocksItsQueryAlone() {
    Query query{*connection_, "SELECT * FROM T"};
    {
        const ResultSet rows = query.open();
        QVERIFY_EXCEPTION_THROWN((void)query.open(), db::Error);
        QVERIFY_EXCEPTION_THROWN(query.execute(), db::Error);
    }
    QVERIFY(!query.open().next());
}

void DbTest::onlyADuplicateKeyHasItsNumber() {
    scratch_->run(u"INSERT INTO T (K) VALUES ('key')"_s);
    scratch_->run(u"CREATE TABLE U (K VARCHAR(16) NOT NULL)"_s);
    scratch_->failOn(u"U"_s, u"INSERT"_s, ScratchDatabase::Failure, u"NEW.K = 'bad'"_s);
    const auto insert = [&](const std::string& statement) {
        return faultOf([&] { execute(*connection_, statement); });
    };
    QCOMPARE(insert("INSERT INTO T (K) VALUES ('KEY')").Number(), db::Error::DuplicateKeyNumber);
    QVERIFY(insert("INSERT INTO U VALUES (NULL)").Number() != db::Error::DuplicateKeyNumber);
    const db::Error raised = insert("INSERT INTO U VALUES ('bad')");
    QVERIFY(raised.Number() != db::Error::DuplicateKeyNumber);
    QVERIFY(QString::fromUtf8(raised.what()).contains(ScratchDatabase::Failure));
}

void DbTest::errorsCarryEverything() {
    const db::Error fault = faultOf([&] { execute(*connection_, "SELECT * FROM Nowhere"); });
    QVERIFY(QString::fromUtf8(fault.what()).contains(scratch_->noTable(u"Nowhere"_s)));
    QCOMPARE(fault.statement(), std::string{"SELECT * FROM Nowhere"});
    QCOMPARE(fault.sqlState().size(), 5U);
    QVERIFY(!fault.diagnostics().empty());
    QCOMPARE(fault.diagnostics().front().message, std::string{fault.what()});
}

void DbTest::aTransactionKeepsAllOrNothing() {
    {
        db::Transaction transaction{*connection_};
        execute(*connection_, "INSERT INTO T (K) VALUES ('kept')");
        QCOMPARE(scratch_->value(u"SELECT count(*) FROM T"_s), u"0"_s);  // not seen by others before its end
        transaction.commit();
        QVERIFY_EXCEPTION_THROWN(transaction.commit(), db::Error);
    }
    try {
        const db::Transaction transaction{*connection_};
        execute(*connection_, "INSERT INTO T (K) VALUES ('lost')");
        execute(*connection_, "INSERT INTO T (K) VALUES ('kept')");
    } catch (const db::Error& fault) {
        QCOMPARE(fault.Number(), db::Error::DuplicateKeyNumber);
    }
    execute(*connection_, "INSERT INTO T (K) VALUES ('after')");  // each statement by itself again
    QCOMPARE(scratch_->rows(u"SELECT K FROM T ORDER BY K"_s),
             (QList<QStringList>{{u"after"_s}, {u"kept"_s}}));
}

void DbTest::aSavepointMendsNoTransaction() {
    execute(*connection_, "INSERT INTO T (K) VALUES ('there')");
    {
        db::Transaction transaction{*connection_};
        execute(*connection_, "INSERT INTO T (K) VALUES ('before')");
        execute(*connection_, "SAVEPOINT Mark");
        QVERIFY_EXCEPTION_THROWN(execute(*connection_, "INSERT INTO T (K) VALUES ('there')"), db::Error);
        // PostgreSQL's driver may take the name of the failed statement's plan for it, and fail here too.
        (void)faultOf([&] { execute(*connection_, "ROLLBACK TO SAVEPOINT Mark"); });
        QVERIFY_EXCEPTION_THROWN(transaction.commit(), db::Error);
    }
    QCOMPARE(scratch_->rows(u"SELECT K FROM T"_s), QList<QStringList>{{u"there"_s}});
}

void DbTest::aTextWithANulIsRefused_data() {
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("inside") << QByteArray{"a\0b", 3};
    QTest::newRow("at the beginning") << QByteArray{"\0b", 2};
    QTest::newRow("at the end") << QByteArray{"a\0", 2};
}

void DbTest::aTextWithANulIsRefused() {
    QFETCH(QByteArray, text);
    {
        db::Transaction transaction{*connection_};
        execute(*connection_, "INSERT INTO T (K) VALUES ('before')");
        const db::Error fault = faultOf([&] {
            execute(*connection_, "INSERT INTO T (K) VALUES (?)", {db::varchar(text.toStdString())});
        });
        QCOMPARE(fault.what(), "A text with the character NUL cannot be stored");
        QVERIFY_EXCEPTION_THROWN(transaction.commit(), db::Error);
    }
    QCOMPARE(scratch_->value(u"SELECT count(*) FROM T"_s), u"0"_s);
    // Nothing matches it either, and the query goes on with other values.
    Query query{*connection_, "SELECT * FROM T WHERE K=?"};
    QVERIFY_EXCEPTION_THROWN((void)query.bind(1, db::undeclared(text.toStdString())).open(), db::Error);
    QVERIFY(!query.bind(1, db::varchar("a")).open().next());
}

void DbTest::transactionsDoNotNest() {
    const db::Transaction outer{*connection_};
    QVERIFY_EXCEPTION_THROWN(db::Transaction{*connection_}, db::Error);
    execute(*connection_, "INSERT INTO T (K) VALUES ('inner')");
}

void DbTest::aRollBackSurvivesAnOpenSet() {
    scratch_->run(u"INSERT INTO T (K) VALUES ('a'), ('b')"_s);
    db::Transaction transaction{*connection_};
    ResultSet rows = select("SELECT * FROM T");
    QVERIFY(rows.next());
    execute(*connection_, "DELETE FROM T");
    transaction.rollBack();
    QCOMPARE(scratch_->value(u"SELECT count(*) FROM T"_s), u"2"_s);
}

void DbTest::theConnectionClosesAndComesBack() {
    QVERIFY_EXCEPTION_THROWN(connection_->establish(), db::Error);  // it is open
    {
        const Query alive{*connection_, "SELECT * FROM T"};
        QVERIFY_EXCEPTION_THROWN(connection_->close(), db::Error);
        QVERIFY(connection_->isOpen());
    }
    connection_->close();
    connection_->close();
    QVERIFY(!connection_->isOpen());
    QVERIFY_EXCEPTION_THROWN(execute(*connection_, "SELECT 1"), db::Error);
    connection_->establish();
    execute(*connection_, "INSERT INTO T (K) VALUES ('again')");
}

void DbTest::theCatalogueKnowsTheTables() {
    QVERIFY(connection_->hasTable("t"));
    QVERIFY(!connection_->hasTable("T2"));
    scratch_->run(u"CREATE TABLE T2 (X INTEGER)"_s);
    QVERIFY(connection_->hasTable("T2"));
    QCOMPARE(connection_->dialect().engineName(), ScratchDatabase::isPostgresql() ? "PostgreSQL" : "SQLite");
}

void DbTest::anUnknownDataSourceSaysSo() {
    connection_->close();
    connection_->setConnectString("DSN=Nowhere");
    const db::Error fault = faultOf([&] { connection_->establish(); });
    QVERIFY2(QString::fromUtf8(fault.what()).contains(u"Data source name not found"_s), fault.what());
    QCOMPARE(fault.sqlState(), std::string{"IM002"});
}

void DbTest::aStoredPathHasBackslashesAndALocalOneNone() {
    QCOMPARE(archive::localPath("/a/b\\1.2\\1.2.3"), "/a/b/1.2/1.2.3");
    QCOMPARE(archive::localPath("\\\\host\\share\\"), "//host/share/");
    QCOMPARE(archive::localPath(""), "");
}

QTEST_GUILESS_MAIN(DbTest)
#include "tst_db.moc"
