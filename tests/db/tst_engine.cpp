#include <QTest>

#include "db/Engine.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using db::Diagnostic;
using db::detail::Engine;

namespace {

Engine sqlite() {
    return {.name = "SQLite", .quote = "\"", .folding = Engine::Folding::None};
}
Engine postgres() {
    return {.name = "PostgreSQL", .quote = "\"", .folding = Engine::Folding::Lower};
}

}  // namespace

/// What db/ knows of engines by their names: text alone, no engine is asked.
class EngineTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void statementsAreRewritten_data();
    void statementsAreRewritten();
    void sqliteReadsUserAsItStands();
    void whatIsReadIsLockedWhereOthersCouldWriteIt();
    void bracketsFollowTheEnginesWayWithNames();
    void namesOfTheCatalogueAreQuoted();
    void serversAndEncodingsAreRefused_data();
    void serversAndEncodingsAreRefused();
    void failuresAreSorted_data();
    void failuresAreSorted();
    void everyConnectStringKeepsLogsOff();
    void eachEngineCompactsInItsOwnWords();
};

void EngineTest::statementsAreRewritten_data() {
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

void EngineTest::statementsAreRewritten() {
    QFETCH(QString, statement);
    QFETCH(QString, postgresql);
    QCOMPARE(QString::fromStdString(postgres().rewritten(statement.toStdString())), postgresql);
}

void EngineTest::sqliteReadsUserAsItStands() {
    QCOMPARE(sqlite().rewritten("SELECT * FROM Users ORDER BY User"), "SELECT * FROM Users ORDER BY User");
}

void EngineTest::whatIsReadIsLockedWhereOthersCouldWriteIt() {
    for (const std::string lock : {"FOR KEY SHARE", "FOR UPDATE"}) {
        QCOMPARE(postgres().rewritten("SELECT A FROM T WHERE B=? " + lock),
                 "SELECT A FROM T WHERE B=? " + lock);
        QCOMPARE(sqlite().rewritten("SELECT A FROM T WHERE B=? " + lock), "SELECT A FROM T WHERE B=? ");
        QCOMPARE(sqlite().rewritten("UPDATE T SET A=A WHERE B=(SELECT B FROM T WHERE B=? " + lock + ')'),
                 "UPDATE T SET A=A WHERE B=(SELECT B FROM T WHERE B=? )");
        QCOMPARE(sqlite().rewritten("SELECT A FROM T, U " + lock + " OF T"), "SELECT A FROM T, U ");
        std::string quoted = "SELECT '";
        quoted.append(lock).append("', \"").append(lock).append("\"");
        QCOMPARE(sqlite().rewritten(quoted), quoted);
    }
}

void EngineTest::bracketsFollowTheEnginesWayWithNames() {
    QCOMPARE(sqlite().rewritten("FROM [Study]"), "FROM \"Study\"");
    const Engine upper{.name = "Other", .quote = "`", .folding = Engine::Folding::Upper};
    QCOMPARE(upper.rewritten("FROM [Study]"), "FROM `STUDY`");
    const Engine without{.name = "Other", .quote = " "};  // ODBC's way to say that there are no quotes
    QCOMPARE(without.rewritten("FROM [Study]"), "FROM Study");
}

void EngineTest::namesOfTheCatalogueAreQuoted() {
    QCOMPARE(postgres().quoted("Mixed case"), "\"Mixed case\"");
    QCOMPARE(postgres().quoted("a\"b"), "\"a\"\"b\"");
}

void EngineTest::serversAndEncodingsAreRefused_data() {
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

void EngineTest::serversAndEncodingsAreRefused() {
    QFETCH(long long, version);
    QFETCH(QString, encoding);
    QFETCH(QString, reason);
    QCOMPARE(QString::fromStdString(db::detail::refusal(version, encoding.toStdString()).value_or("")),
             reason);
}

void EngineTest::failuresAreSorted_data() {
    QTest::addColumn<QString>("state");
    QTest::addColumn<int>("native");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("kinds");
    const auto row = [](const char* name, const QString& state, int native, const QString& text,
                        const QString& kinds) { QTest::newRow(name) << state << native << text << kinds; };
    row("duplicate key", u"23505"_s, 1, u"duplicate key value"_s, u"duplicate"_s);
    row("duplicate key of other drivers", u"23000"_s, 2627, {}, u"duplicate"_s);
    row("duplicate key of SQLite", u"HY000"_s, 19, u"UNIQUE constraint failed: T.K (19)"_s, u"duplicate"_s);
    row("NULL in SQLite", u"HY000"_s, 19, u"NOT NULL constraint failed: T.K (19)"_s, {});
    row("NULL", u"23502"_s, 19, u"UNIQUE constraint failed"_s, {});
    row("ended by an administrator", u"57P01"_s, 1, {}, u"lost"_s);
    row("ended by a crash", u"57P02"_s, 1, {}, u"lost"_s);
    row("starting up", u"57P03"_s, 1, {}, u"lost"_s);
    row("cancelled", u"57014"_s, 1, {}, {});
    row("no link", u"08S01"_s, 35, {}, u"lost"_s);
    row("no server", u"08001"_s, 101, {}, u"lost"_s);
    row("tables changed", u"0A000"_s, 1, {}, u"stale"_s);
    row("failed transaction", u"25P02"_s, 1, {}, {});
    row("lock", u"55P03"_s, 1, {}, {});
    row("deadlock", u"40P01"_s, 1, {}, u"conflict"_s);
    row("others were first", u"40001"_s, 1, {}, u"conflict"_s);
    row("anything", u"HY000"_s, 1, {}, {});
}

void EngineTest::failuresAreSorted() {
    QFETCH(QString, state);
    QFETCH(int, native);
    QFETCH(QString, text);
    QFETCH(QString, kinds);
    const Diagnostic record{state.toStdString(), native, text.toStdString()};
    QStringList found;
    if (db::detail::isDuplicateKey(record))
        found << u"duplicate"_s;
    if (db::detail::isLostSession(record))
        found << u"lost"_s;
    if (db::detail::isConflict(record))
        found << u"conflict"_s;
    if (db::detail::isStalePlan(record))
        found << u"stale"_s;
    QCOMPARE(found.join(u' '), kinds);
}

void EngineTest::everyConnectStringKeepsLogsOff() {
    for (const bool walks : {false, true}) {
        const QStringList words = QString::fromStdString(db::detail::connectWords(walks)).split(u';');
        QVERIFY(words.contains(u"CommLog=0"_s));
        QVERIFY(words.contains(u"Debug=0"_s));
        QCOMPARE(words.contains(u"UseDeclareFetch=1"_s), walks);
    }
}

void EngineTest::eachEngineCompactsInItsOwnWords() {
    const std::vector<std::string> tables{"Image", "we\"ird"};
    QCOMPARE(sqlite().compaction(tables), std::vector<std::string>{"VACUUM"});
    QCOMPARE(sqlite().compactionCheck(tables), "");
    const auto statements = postgres().compaction(tables);
    QCOMPARE(statements.size(), 3U);
    QCOMPARE(statements[1], "VACUUM (FULL, ANALYZE) \"image\"");
    QCOMPARE(statements[2], "VACUUM (FULL, ANALYZE) \"we\"\"ird\"");
    QVERIFY(postgres().compactionCheck(tables).find("('\"image\"'::regclass, '\"we\"\"ird\"'::regclass)") !=
            std::string::npos);
    QCOMPARE(Engine{.name = "Other"}.compaction(tables).size(), 0U);
}

QTEST_APPLESS_MAIN(EngineTest)
#include "tst_engine.moc"
