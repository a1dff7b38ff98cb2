#include <QDir>
#include <QFile>
#include <QTest>

#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;

class TestJobs : public ToolTest {
    Q_OBJECT
  private slots:
    void listsEachOnALine();
    void showsNothingOfAPatient();
    void retriesOne();
    void retriesAllButTheUncertain();
    void dropsOneWithItsSpool();
    void refusesWhatIsNone_data();
    void refusesWhatIsNone();
    void checkSaysWhatWasNotDone();
    void aCopyLeavesThemOut();

  private:
    static void add(int number, int state, int attempts, const QString& error = {},
                    const QString& spool = {}) {
        const QString quoted = error.isEmpty() ? u"NULL"_s : u"'%1'"_s.arg(error);
        change(
            u"INSERT INTO Job (Number, Kind, Target, JobKey, Subject, Spool, State, Attempts, NextAttempt, "
            "LastError, Created, Begun) VALUES (%1, 'FTP', 'pacs%1', 'k%1', 'secret subject', '%5', %2, %3, "
            "4000000000, %4, 1000000000, 1000000000)"_s.arg(number)
                .arg(state)
                .arg(attempts)
                .arg(quoted, spool));
    }
    [[nodiscard]] static QStringList states() { return column("SELECT State FROM Job ORDER BY Number"); }
};

void TestJobs::listsEachOnALine() {
    create();
    QCOMPARE(run({u"jobs"_s}).out, QString());
    add(7, 0, 3, u"no answer"_s);
    add(12, 3, 15, u"two\nlines"_s);
    const auto listed = run({u"jobs"_s});
    QCOMPARE(listed.err, QString());
    QCOMPARE(listed.status, 0);
    const QStringList lines = listed.out.split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 2);
    QStringList first = lines[0].split(u"  "_s, Qt::SkipEmptyParts);
    for (QString& word : first)
        word = word.trimmed();
    QCOMPARE(first.size(), 8);
    QCOMPARE(first.mid(0, 5), (QStringList{u"7"_s, u"FTP"_s, u"pacs7"_s, u"waiting"_s, u"3"_s}));
    QVERIFY2(first[5].trimmed().startsWith(u"2096-10-02"_s), qPrintable(first[5]));
    QCOMPARE(first[6].trimmed(), u"no answer"_s);
    QVERIFY2(first[7].trimmed().endsWith(u" d"_s), qPrintable(first[7]));
    QVERIFY(lines[1].startsWith(u"12"_s));
    QVERIFY2(lines[1].contains(u"given up"_s) && lines[1].contains(u"two lines"_s), qPrintable(lines[1]));
}

void TestJobs::showsNothingOfAPatient() {
    create();
    add(1, 0, 0);
    QVERIFY(!run({u"jobs"_s}).out.contains(u"secret"_s));
}

void TestJobs::retriesOne() {
    create();
    add(1, 3, 9);
    add(2, 4, 1);
    add(3, 0, 1);
    for (const auto* number : {"1", "2", "3"})
        QCOMPARE(run({u"jobs"_s, u"retry"_s, QString::fromLatin1(number)}).status, 0);
    QCOMPARE(states(), (QStringList{u"0"_s, u"0"_s, u"0"_s}));
    QCOMPARE(column("SELECT Attempts FROM Job"), (QStringList{u"0"_s, u"0"_s, u"0"_s}));
    QCOMPARE(column("SELECT COUNT(*) FROM Job WHERE NextAttempt<4000000000 AND Begun>1000000000"),
             QStringList{u"3"_s});
}

void TestJobs::retriesAllButTheUncertain() {
    create();
    add(1, 3, 9);
    add(2, 4, 1);
    add(3, 0, 1);
    add(4, 2, 0);
    QCOMPARE(run({u"jobs"_s, u"retry"_s, u"all"_s}).status, 0);
    QCOMPARE(states(), (QStringList{u"0"_s, u"4"_s, u"0"_s, u"2"_s}));
}

void TestJobs::dropsOneWithItsSpool() {
    create();
    const QString spool = path(u"spooled"_s);
    QVERIFY(QDir{}.mkpath(spool));
    add(1, 0, 0, {}, spool);
    add(2, 0, 0);
    QCOMPARE(run({u"jobs"_s, u"drop"_s, u"1"_s}).status, 0);
    QCOMPARE(column("SELECT Number FROM Job"), QStringList{u"2"_s});
    QVERIFY(!QDir{spool}.exists());
}

void TestJobs::refusesWhatIsNone_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("why");
    QTest::newRow("no number") << QStringList{u"retry"_s, u"abc"_s} << u"Not a job's number: abc"_s;
    QTest::newRow("none of that number")
        << QStringList{u"retry"_s, u"4"_s} << u"There is no job 4 that waits, was given up or is uncertain"_s;
    QTest::newRow("nothing to drop") << QStringList{u"drop"_s, u"4"_s} << u"There is no job 4"_s;
    QTest::newRow("all is no number") << QStringList{u"drop"_s, u"all"_s} << u"Not a job's number: all"_s;
}

void TestJobs::refusesWhatIsNone() {
    QFETCH(QStringList, arguments);
    QFETCH(QString, why);
    create();
    add(1, 0, 0);
    const auto refused = run(QStringList{u"jobs"_s} + arguments);
    QCOMPARE(refused.status, 1);
    QCOMPARE(refused.err, u"tessaly-db: "_s + why + u'\n');
    QCOMPARE(states(), QStringList{u"0"_s});
}

void TestJobs::checkSaysWhatWasNotDone() {
    create();
    add(1, 2, 0);
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
    add(2, 0, 3);
    add(3, 3, 15);
    add(4, 3, 15);
    add(5, 4, 1);
    const auto checked = run({u"check"_s});
    QCOMPARE(checked.status, 1);
    QCOMPARE(checked.out,
             u"1 job waiting for longer than an hour: see tessaly-db jobs\n"
             "2 jobs given up: see tessaly-db jobs\n"
             "1 job of which it is not known whether it was done: see tessaly-db jobs\n"_s);
}

void TestJobs::aCopyLeavesThemOut() {
    create();
    change(u"INSERT INTO SiteData (Organization, BaseUID) VALUES ('copied', '1.2')"_s);
    add(1, 0, 0);
    addDataSource(u"Copy"_s, u"Driver=SQLite3\nDatabase="_s + path(u"copy.mdb"_s));
    const auto copied = run({u"copy"_s, u"--from"_s, DataSource, u"--to"_s, u"Copy"_s});
    QCOMPARE(copied.err, QString());
    QCOMPARE(copied.status, 0);
    QVERIFY2(copied.out.contains(u"The server's jobs are left out: 1"_s), qPrintable(copied.out));
    QCOMPARE(column("SELECT COUNT(*) FROM Job", u"Copy"_s), QStringList{u"0"_s});
    QVERIFY(column("SELECT Organization FROM SiteData", u"Copy"_s).contains(u"copied"_s));
}

QTEST_GUILESS_MAIN(TestJobs)
#include "tst_jobs.moc"
