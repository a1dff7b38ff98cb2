#include <QTest>

#include "db/Error.h"
#include "db/Retrying.h"
#include "db/dialects/Registry.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using db::Diagnostic;
using db::Dialect;
using db::Naming;

namespace {

const Dialect& sqlite() {
    return db::dialectOf("SQLite", {.quote = "\"", .folding = Naming::Folding::None});
}
const Dialect& postgres() {
    return db::dialectOf("PostgreSQL", {.quote = "\"", .folding = Naming::Folding::Lower});
}
const Dialect& other() {
    return db::dialectOf("Other", {});
}

/// The type that a failure of that kind is thrown as.
QString thrownAs(db::FaultKind kind, const std::vector<Diagnostic>& records) {
    try {
        db::throwError(kind, records, "SELECT 1");
    } catch (const db::DuplicateKey&) {
        return u"duplicate"_s;
    } catch (const db::LostSession&) {
        return u"lost"_s;
    } catch (const db::Conflict&) {
        return u"conflict"_s;
    } catch (const db::StalePlan&) {
        return u"stale"_s;
    } catch (const db::Error&) {
        return {};
    }
}

}  // namespace

/// What differs from engine to engine: text alone, no engine is asked.
class DialectsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void statementsAreRewritten_data();
    void statementsAreRewritten();
    void sqliteReadsUserAsItStands();
    void whatIsReadIsLockedWhereOthersCouldWriteIt();
    void rowsAreWrittenTogether();
    void bracketsFollowTheEnginesWayWithNames();
    void namesOfTheCatalogueAreQuoted();
    void serversAndEncodingsAreRefused_data();
    void serversAndEncodingsAreRefused();
    void failuresAreSorted_data();
    void failuresAreSorted();
    void aDuplicateKeyHasItsNumber();
    void aTransactionThatOthersStoppedIsTriedAgain();
    void enginesAreFoundByTheirDrivers();
    void everyConnectStringKeepsLogsOff();
    void eachEngineCompactsInItsOwnWords();
};

void DialectsTest::statementsAreRewritten_data() {
    QTest::addColumn<QString>("statement");
    QTest::addColumn<QString>("postgresql");
    const auto row = [](const char* name, const QString& statement, const QString& expected) {
        QTest::newRow(name) << statement << expected;
    };
    const auto same = [&](const char* name, const QString& statement) { row(name, statement, statement); };
    row("brackets", u"SELECT COUNT(*) AS NumStudies FROM [Study] WHERE IDPatient=?"_s,
        u"SELECT COUNT(*) AS NumStudies FROM \"study\" WHERE IDPatient=?"_s);
    row("several", u"SELECT [A].[B c] FROM [A]"_s, u"SELECT \"a\".\"b c\" FROM \"a\""_s);
    row("order by user", u"SELECT * FROM Users ORDER BY User"_s, u"SELECT * FROM Users ORDER BY \"user\""_s);
    row("user in any case", u"SELECT USER, user FROM Users"_s, u"SELECT \"user\", \"user\" FROM Users"_s);
    row("user of a table", u"SELECT Users.User FROM Users"_s, u"SELECT Users.\"user\" FROM Users"_s);
    row("user in brackets", u"SELECT [User] FROM Users"_s, u"SELECT \"user\" FROM Users"_s);
    same("words with user in them", u"SELECT UserName, UserPwd, Users, a_user, user2, üuser FROM Users"_s);
    same("in apostrophes", u"SELECT * FROM Users WHERE UserName='User [x]'"_s);
    same("doubled apostrophes", u"SELECT 'it''s User' FROM T"_s);
    same("in quotes", u"SELECT \"User\", \"[x]\" FROM T"_s);
    same("comments", u"SELECT 1 -- User [x]\n, 2 /* User [x] */ FROM T"_s);
    row("behind a comment", u"SELECT 1 -- x\n, User"_s, u"SELECT 1 -- x\n, \"user\""_s);
    same("an element of an array", u"SELECT a[i], (ARRAY[b])[i], c[1], d::int[] FROM T"_s);
    same("no name in brackets", u"SELECT [1], [], [a-b], [x"_s);
    same("an open apostrophe", u"SELECT * FROM Users WHERE UserName='O'Hara'"_s);
    same("a question mark", u"SELECT ? FROM T WHERE a='?'"_s);
    same("nothing", QString{});
}

void DialectsTest::statementsAreRewritten() {
    QFETCH(QString, statement);
    QFETCH(QString, postgresql);
    QCOMPARE(QString::fromStdString(postgres().rewritten(statement.toStdString())), postgresql);
}

void DialectsTest::sqliteReadsUserAsItStands() {
    QCOMPARE(sqlite().rewritten("SELECT * FROM Users ORDER BY User"), "SELECT * FROM Users ORDER BY User");
}

void DialectsTest::whatIsReadIsLockedWhereOthersCouldWriteIt() {
    using db::OnLockedRow;
    using db::RowLock;
    QCOMPARE(postgres().rowLock(RowLock::Removal), " FOR KEY SHARE");
    QCOMPARE(postgres().rowLock(RowLock::Removal, "T"), " FOR KEY SHARE OF T");
    QCOMPARE(postgres().rowLock(RowLock::Change), " FOR UPDATE");
    QCOMPARE(postgres().rowLock(RowLock::Change, {}, OnLockedRow::Skip), " FOR UPDATE SKIP LOCKED");
    QCOMPARE(postgres().rowLock(RowLock::Change, "T", OnLockedRow::Skip), " FOR UPDATE OF T SKIP LOCKED");
    for (const Dialect* dialect : {&sqlite(), &other()})
        for (const auto onLocked : {OnLockedRow::Wait, OnLockedRow::Skip})
            QCOMPARE(dialect->rowLock(RowLock::Change, "T", onLocked), "");
    // Whoever writes the words himself has them as they stand.
    const std::string skipping = "SELECT A FROM T FOR UPDATE SKIP LOCKED";
    QCOMPARE(postgres().rewritten(skipping), skipping);
    QCOMPARE(sqlite().rewritten(skipping), skipping);
}

void DialectsTest::rowsAreWrittenTogether() {
    for (const Dialect* dialect : {&sqlite(), &postgres()}) {
        QCOMPARE(dialect->insertNew("T", "A, B", "(?,?),(?,?)"),
                 "INSERT INTO T (A, B) VALUES (?,?),(?,?) ON CONFLICT DO NOTHING");
        QCOMPARE(dialect->updateEach("T", "A", "B", 2),
                 "UPDATE T SET A=Given.column1 FROM (VALUES (?,?),(?,?)) AS Given WHERE T.B=Given.column2");
    }
}

void DialectsTest::bracketsFollowTheEnginesWayWithNames() {
    QCOMPARE(sqlite().rewritten("FROM [Study]"), "FROM \"Study\"");
    const Dialect& upper = db::dialectOf("Other", {.quote = "`", .folding = Naming::Folding::Upper});
    QCOMPARE(upper.rewritten("FROM [Study]"), "FROM `STUDY`");
    const Dialect& without = db::dialectOf("Other", {.quote = " "});  // ODBC's way to say: no quotes
    QCOMPARE(without.rewritten("FROM [Study]"), "FROM Study");
}

void DialectsTest::namesOfTheCatalogueAreQuoted() {
    QCOMPARE(postgres().quoted("Mixed case"), "\"Mixed case\"");
    QCOMPARE(postgres().quoted("a\"b"), "\"a\"\"b\"");
}

void DialectsTest::serversAndEncodingsAreRefused_data() {
    QTest::addColumn<long long>("version");
    QTest::addColumn<QString>("encoding");
    QTest::addColumn<QString>("reason");
    QTest::newRow("the oldest") << 150'000LL << u"UTF8"_s << QString{};
    QTest::newRow("a newer one") << 170'002LL << u"UTF8"_s << QString{};
    QTest::newRow("too old")
        << 140'011LL << u"UTF8"_s
        << u"The server is PostgreSQL 14; 15 is the oldest that the database can be used with"_s;
    QTest::newRow("numbered in the old way")
        << 90'624LL << u"UTF8"_s
        << u"The server is PostgreSQL 9; 15 is the oldest that the database can be used with"_s;
    QTest::newRow("another encoding")
        << 150'018LL << u"LATIN1"_s << u"The database has the encoding LATIN1; it has to be UTF8"_s;
    QTest::newRow("no encoding") << 150'018LL << u"SQL_ASCII"_s
                                 << u"The database has the encoding SQL_ASCII; it has to be UTF8"_s;
}

void DialectsTest::serversAndEncodingsAreRefused() {
    QFETCH(long long, version);
    QFETCH(QString, encoding);
    QFETCH(QString, reason);
    const Dialect::Row row = [&](std::string_view column) {
        return column == "Version" ? std::to_string(version) : encoding.toStdString();
    };
    QCOMPARE(QString::fromStdString(postgres().refusal(row).value_or("")), reason);
    QVERIFY(!sqlite().refusal(row));
}

void DialectsTest::failuresAreSorted_data() {
    QTest::addColumn<QString>("state");
    QTest::addColumn<int>("native");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("engine");  // the only one for which it is so; empty: all
    const auto row = [](const char* name, const QString& state, int native, const QString& text,
                        const QString& kind, const QString& engine = {}) {
        QTest::newRow(name) << state << native << text << kind << engine;
    };
    row("duplicate key", u"23505"_s, 1, u"duplicate key value"_s, u"duplicate"_s);
    row("duplicate key of other drivers", u"23000"_s, 2627, {}, u"duplicate"_s);
    row("duplicate key of SQLite", u"HY000"_s, 19, u"UNIQUE constraint failed: T.K (19)"_s, u"duplicate"_s,
        u"SQLite"_s);
    row("NULL in SQLite", u"HY000"_s, 19, u"NOT NULL constraint failed: T.K (19)"_s, {});
    row("NULL", u"23502"_s, 19, u"UNIQUE constraint failed"_s, {});
    row("ended by an administrator", u"57P01"_s, 1, {}, u"lost"_s, u"PostgreSQL"_s);
    row("ended by a crash", u"57P02"_s, 1, {}, u"lost"_s, u"PostgreSQL"_s);
    row("starting up", u"57P03"_s, 1, {}, u"lost"_s, u"PostgreSQL"_s);
    row("cancelled", u"57014"_s, 1, {}, {});
    row("no link", u"08S01"_s, 35, {}, u"lost"_s);
    row("no server", u"08001"_s, 101, {}, u"lost"_s);
    row("tables changed", u"0A000"_s, 1, {}, u"stale"_s, u"PostgreSQL"_s);
    row("failed transaction", u"25P02"_s, 1, {}, {});
    row("lock", u"55P03"_s, 1, {}, {});
    row("deadlock", u"40P01"_s, 1, {}, u"conflict"_s);
    row("others were first", u"40001"_s, 1, {}, u"conflict"_s);
    row("anything", u"HY000"_s, 1, {}, {});
}

void DialectsTest::failuresAreSorted() {
    QFETCH(QString, state);
    QFETCH(int, native);
    QFETCH(QString, text);
    QFETCH(QString, kind);
    QFETCH(QString, engine);
    const std::vector<Diagnostic> records{{.sqlState = "01000", .message = "a warning before"},
                                          {state.toStdString(), native, text.toStdString()}};
    for (const Dialect* dialect : {&sqlite(), &postgres(), &other()}) {
        const bool knows = engine.isEmpty() || engine.toStdString() == dialect->engineName();
        QCOMPARE(thrownAs(dialect->kindOf(records), records), knows ? kind : QString{});
    }
    QCOMPARE(thrownAs(db::kindOfConnectFault(records), records), kind);
}

void DialectsTest::aDuplicateKeyHasItsNumber() {
    const std::vector<Diagnostic> records{{.sqlState = "23505", .nativeCode = 1, .message = "twice"}};
    QCOMPARE((db::DuplicateKey{records, {}}.Number()), 40002);
    QCOMPARE((db::Conflict{records, {}}.Number()), 1);
}

void DialectsTest::aTransactionThatOthersStoppedIsTriedAgain() {
    int attempts = 0;
    int sessions = 0;
    const auto failing = [&](int times, auto fault) {
        attempts = 0;
        sessions = 0;
        return db::retrying(
            [&, times] {
                if (++attempts <= times)
                    throw fault;
                return attempts;
            },
            [&] { ++sessions; });
    };
    QCOMPARE(failing(0, db::Error{"none"}), 1);
    QCOMPARE(failing(db::MostAttempts - 1, db::Conflict{"others"}), db::MostAttempts);
    QCOMPARE(sessions, 0);
    QVERIFY_THROWS_EXCEPTION(db::Conflict, failing(db::MostAttempts, db::Conflict{"others"}));
    QCOMPARE(attempts, db::MostAttempts);
    QCOMPARE(failing(1, db::LostSession{"gone"}), 2);
    QCOMPARE(sessions, 1);
    QVERIFY_THROWS_EXCEPTION(db::LostSession, failing(2, db::LostSession{"gone"}));
    QCOMPARE(sessions, 1);
    QCOMPARE(failing(1, db::OutcomeUnknown{db::LostSession{"gone"}}), 2);
    QVERIFY_THROWS_EXCEPTION(db::Error, failing(1, db::Error{"full"}));
    QCOMPARE(attempts, 1);
}

void DialectsTest::enginesAreFoundByTheirDrivers() {
    QCOMPARE(db::dialectOfDriver("libsqlite3odbc.so").engineName(), "SQLite");
    QCOMPARE(db::dialectOfDriver("psqlodbcw.so").engineName(), "PostgreSQL");
    QCOMPARE(db::dialectOfDriver("libmdbodbc.so").engineName(), "");
    QCOMPARE(&sqlite(), &sqlite());  // one for each engine and its way with names, however often it is asked
    QVERIFY(&other() != &db::dialectOf("Other", {.quote = "`"}));
}

void DialectsTest::everyConnectStringKeepsLogsOff() {
    using db::Purpose;
    for (const auto purpose : {Purpose::General, Purpose::Walk, Purpose::DurableWrites, Purpose::Queries,
                               Purpose::Snapshot, Purpose::Load}) {
        const bool walks =
            purpose == Purpose::Walk || purpose == Purpose::Snapshot || purpose == Purpose::Load;
        const QStringList words = QString::fromStdString(db::connectWords(purpose)).split(u';');
        QVERIFY(words.contains(u"CommLog=0"_s));
        QVERIFY(words.contains(u"Debug=0"_s));
        QVERIFY(words.contains(u"NoCreat=1"_s));
        QCOMPARE(words.contains(u"UseDeclareFetch=1"_s), walks);
        QCOMPARE(words.contains(u"SyncPragma=FULL"_s), purpose == Purpose::DurableWrites);
        QCOMPARE(words.filter(u"plan_cache_mode"_s).size(), purpose == Purpose::Queries ? 1 : 0);
        QVERIFY(words.filter(u"Timeout"_s).isEmpty());
    }
    QVERIFY(QString::fromStdString(db::connectWords(Purpose::General, std::chrono::milliseconds{40}))
                .split(u';')
                .contains(u"Timeout=40"_s));
}

void DialectsTest::eachEngineCompactsInItsOwnWords() {
    const std::vector<std::string> tables{"Image", "we\"ird"};
    QCOMPARE(sqlite().compaction(tables), std::vector<std::string>{"VACUUM"});
    QCOMPARE(sqlite().compactionCheck(tables), "");
    const auto statements = postgres().compaction(tables);
    QCOMPARE(statements.size(), 3U);
    QCOMPARE(statements[1], "VACUUM (FULL, ANALYZE) \"image\"");
    QCOMPARE(statements[2], "VACUUM (FULL, ANALYZE) \"we\"\"ird\"");
    QVERIFY(postgres().compactionCheck(tables).find("('\"image\"'::regclass, '\"we\"\"ird\"'::regclass)") !=
            std::string::npos);
    QCOMPARE(other().compaction(tables).size(), 0U);
    QCOMPARE(other().withoutCompaction(), "There is no compaction for databases of Other");
}

QTEST_APPLESS_MAIN(DialectsTest)
#include "tst_dialects.moc"
