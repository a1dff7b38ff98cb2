// The compaction of a database that is a server's: table by table, by a process that can be ended.

#include <QAbstractButton>
#include <QFile>
#include <QProcess>
#include <QTest>

#include "console/session/Globals.h"
#include "console/ui/ConsoleEnd.h"
#include "tests/console/maintenance/CompactFormTest.h"
#include "tests/support/Console.h"
#include "tests/support/Eventually.h"
#include "tests/support/ScratchCluster.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class CompactTablesTest : public CompactFormTest {
    Q_OBJECT

  private Q_SLOTS:
    void everyTableOfOursIsCompacted();
    void theWindowGoesOn();
    void theWindowBehindTakesNoInput();
    void stopEndsIt_data();
    void stopEndsIt();
    void theEndOfTheConsoleEndsIt();
    void aConsoleThatIsKilledTakesItAlong();
    void aLockOfAnotherSessionIsReported();
    void atATableOfSomebodyElsesNothingHappens();
    void aFailureLeavesTheTableAsItWas();
    void aServerThatIsDownIsReported();
    void aToolThatIsNotThereIsReported();

  private:
    [[nodiscard]] QString fileOf(const QString& table) const {
        return database().value(u"SELECT pg_relation_filenode('%1')"_s.arg(table));
    }
    /// A session is in the midst of a VACUUM like that.
    [[nodiscard]] bool isAtWork(const QString& what = u"VACUUM%"_s) const {
        database().run(u"SELECT pg_stat_clear_snapshot()"_s);  // which a transaction keeps to
        return database().value(
                   u"SELECT count(*) FROM pg_stat_activity WHERE query LIKE ? AND state = 'active'"_s,
                   {what}) != u"0"_s;
    }
    /// Ways to keep the compaction from coming to its end.
    static void addWaysToTakeLong() {
        QTest::addColumn<bool>("locked");
        QTest::newRow("it waits for another session") << true;
        QTest::newRow("it writes a table") << false;
    }
    void makeLong(bool locked) const {
        Globals::DbConnection().close();
        database().setDataSource(database().dataSource({u"ConnSettings=SET lock_timeout TO 600000"_s}));
        database().openConsoleConnection();
        if (locked) {
            database().run(u"BEGIN"_s);
            database().run(u"LOCK TABLE Series IN ACCESS SHARE MODE"_s);
            return;
        }
        // An index whose entries take a minute each to make, and only then.
        database().run(
            u"CREATE FUNCTION slow(t TEXT) RETURNS TEXT LANGUAGE plpgsql IMMUTABLE AS $$ BEGIN "
            "IF current_query() LIKE 'VACUUM%' THEN PERFORM pg_sleep(60); END IF; RETURN t; END $$"_s);
        database().run(u"CREATE INDEX ON Series (public.slow(SeriesDir))"_s);
    }
    [[nodiscard]] bool isAtSeries() const { return isAtWork(u"VACUUM%series%"_s); }
    /// Runs the body when the compaction has come to the table that takes long.
    void whenAtSeries(std::function<void()> body) const {
        auto* turn = new QTimer(&repair());
        connect(turn, &QTimer::timeout, turn, [this, turn, body = std::move(body)] {
            if (!isAtSeries())
                return;
            turn->stop();
            body();
        });
        turn->start(20);
    }
    /// The whole, or without the question, the server's end and the wait for it.
    enum class Part { Whole, Database };
    void compact(Part part, const QList<Box>& boxes = {}) const {
        BoxScript script;
        if (part == Part::Whole)
            sayYes(script);
        for (const Box& box : boxes)
            script.expect(box);
        part == Part::Whole ? repair().CompactDB() : repair().CompactDatabaseFile();
        QVERIFY(script.isDone());
        if (part == Part::Whole)
            QCOMPARE(window().calls, Bracket);
    }
};

void CompactTablesTest::everyTableOfOursIsCompacted() {
    const QStringList tables =
        database()
            .value(
                u"SELECT string_agg(relname, ' ') FROM pg_class WHERE relkind = 'r' AND relnamespace = "
                "'public'::regnamespace"_s)
            .split(u' ');
    QVERIFY(tables.size() > 10);
    database().run(u"CREATE TABLE NotOurs (K INTEGER)"_s);
    const QString notOurs = fileOf(u"NotOurs"_s);
    QStringList before;
    for (const QString& table : tables)
        before << fileOf(table);
    compact(Part::Database);
    for (int i = 0; i < tables.size(); ++i)
        QVERIFY2(fileOf(tables[i]) != before[i], qPrintable(tables[i]));
    QCOMPARE(fileOf(u"NotOurs"_s), notOurs);
    QCOMPARE(database().value(u"SELECT reltuples FROM pg_class WHERE oid = 'series'::regclass"_s), u"1"_s);
}

void CompactTablesTest::theWindowGoesOn() {
    makeLong(true);
    QTimer ticking;
    int ticks = 0;
    connect(&ticking, &QTimer::timeout, this, [&] {
        if (!isAtWork())
            return;
        QVERIFY(form().find(u"lblWait"_s).isVisible());
        QVERIFY(!form().find(u"prgBar"_s).isVisible());
        QVERIFY(!Globals::DbConnection().isOpen());
        if (++ticks == 100)  // which a window that does not handle its events never gets to
            database().run(u"COMMIT"_s);
    });
    ticking.start(0);
    const qint64 before = size();
    compact(Part::Whole);
    QVERIFY(ticks >= 100);
    QVERIFY(size() < before / 2);
}

void CompactTablesTest::theWindowBehindTakesNoInput() {
    makeLong(true);
    QWidget behind;
    behind.show();
    maintenance::frmRepairDB own{window(), &behind};
    own.show();
    auto& stop = *own.findChild<QAbstractButton*>(u"cmdStop"_s);
    bool met = false;
    QTimer turn;
    connect(&turn, &QTimer::timeout, this, [&] {
        if (!isAtSeries())
            return;
        turn.stop();
        met = !behind.isEnabled() && stop.isEnabled() && own.focusWidget() == &stop;
        stop.click();
    });
    turn.start(20);
    own.CompactDatabaseFile();
    QVERIFY(met);
    QVERIFY(behind.isEnabled());
    QVERIFY(stop.isEnabled());
}

void CompactTablesTest::stopEndsIt_data() {
    addWaysToTakeLong();
}

void CompactTablesTest::stopEndsIt() {
    QFETCH(bool, locked);
    makeLong(locked);
    const QString file = fileOf(u"series"_s);
    whenAtSeries([this] { form().click(u"cmdStop"_s); });
    compact(locked ? Part::Whole : Part::Database);
    // The server breaks off too, while nothing lets it go on.
    EVENTUALLY(!isAtWork());
    QCOMPARE(fileOf(u"series"_s), file);
    QCOMPARE(database().rows(u"SELECT SeriesInstanceUID FROM Series"_s), QList<QStringList>{{u"1.2.7"_s}});
}

void CompactTablesTest::theEndOfTheConsoleEndsIt() {
    makeLong(false);
    const QString file = fileOf(u"series"_s);
    whenAtSeries([] { ui::endConsole(0); });
    compact(Part::Database);
    QCOMPARE(takeConsoleEnd(), 0);
    EVENTUALLY(!isAtWork());
    QCOMPARE(fileOf(u"series"_s), file);
}

void CompactTablesTest::aConsoleThatIsKilledTakesItAlong() {
    makeLong(false);
    const QString file = fileOf(u"series"_s);
    QProcess console;
    console.start(QStringLiteral(COMPACT_TABLES_CHILD));
    QVERIFY(console.waitForStarted());
    EVENTUALLY(isAtSeries());
    console.kill();
    QVERIFY(console.waitForFinished());
    EVENTUALLY(!isAtWork());
    QCOMPARE(fileOf(u"series"_s), file);
}

void CompactTablesTest::aLockOfAnotherSessionIsReported() {
    Globals::DbConnection().close();
    database().setDataSource(database().dataSource({u"ConnSettings=SET lock_timeout TO 300"_s}));
    database().openConsoleConnection();
    database().run(u"BEGIN"_s);
    database().run(u"LOCK TABLE Series IN ACCESS SHARE MODE"_s);
    const QString file = fileOf(u"series"_s);
    compact(Part::Database,
            {plain(u"DBRepair: "_s + containing(u"canceling statement due to lock timeout"_s))});
    QCOMPARE(fileOf(u"series"_s), file);
    database().run(u"COMMIT"_s);
}

void CompactTablesTest::atATableOfSomebodyElsesNothingHappens() {
    const QString mine = fileOf(u"users"_s);
    const QString name = database().value(u"SELECT current_database()"_s);
    database().run(u"ALTER TABLE Series RENAME TO SeriesOfOurs"_s);
    database().release();
    ScratchCluster::instance().administer(u"ALTER DATABASE %1 OWNER TO postgres"_s.arg(name));
    ScratchCluster::instance().administer(u"CREATE TABLE public.series (i INTEGER)"_s, name);
    compact(Part::Database,
            {plain(u"DBRepair: The table series cannot be compacted: it belongs to postgres"_s)});
    QCOMPARE(fileOf(u"users"_s), mine);
}

void CompactTablesTest::aFailureLeavesTheTableAsItWas() {
    database().run(
        u"CREATE FUNCTION broken(t TEXT) RETURNS TEXT LANGUAGE plpgsql IMMUTABLE AS $$ BEGIN "
        "IF current_query() LIKE 'VACUUM%' THEN RAISE 'the disk of the test is full'; END IF; RETURN t; END $$"_s);
    database().run(u"CREATE INDEX ON Series (public.broken(SeriesDir))"_s);
    const QString file = fileOf(u"series"_s);
    compact(Part::Database, {plain(u"DBRepair: "_s + containing(u"the disk of the test is full"_s))});
    QCOMPARE(fileOf(u"series"_s), file);
    QCOMPARE(database().rows(u"SELECT SeriesInstanceUID FROM Series"_s), QList<QStringList>{{u"1.2.7"_s}});
}

void CompactTablesTest::aServerThatIsDownIsReported() {
    database().release();
    whenWaiting([] { ScratchCluster::instance().stop(); });
    BoxScript script;
    sayYes(script);
    script.expect(plain(u"DBRepair: "_s + containing(u"connection"_s)));
    repair().CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window().calls.mid(3), (QStringList{u"timer on, closed"_s, u"refresh, closed"_s}));
    ScratchCluster::instance().start();
}

void CompactTablesTest::aToolThatIsNotThereIsReported() {
    const QString lonely = database().folder() + u"/console"_s;
    QVERIFY(QFile::copy(QStringLiteral(COMPACT_TABLES_CHILD), lonely));
    const QString file = fileOf(u"series"_s);
    QProcess console;
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"PATH"_s, database().folder());
    console.setProcessEnvironment(environment);
    console.start(lonely);
    QVERIFY(console.waitForFinished(PatienceMs));
    QCOMPARE(console.exitCode(), 1);
    const QString said = QString::fromUtf8(console.readAllStandardOutput());
    QVERIFY2(said.startsWith(u"tessaly-db: "_s), qPrintable(said));
    QCOMPARE(fileOf(u"series"_s), file);
}

QTEST_MAIN(CompactTablesTest)
#include "tst_compacttables.moc"
