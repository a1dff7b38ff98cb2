#include <QDir>
#include <QTest>
#include <chrono>
#include <csignal>
#include <thread>

#include "tests/support/Eventually.h"
#include "tests/tessaly-db/Terminal.h"
#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

/// Copying as somebody watches it, and loses patience.
class TestCopyTerminal : public ToolTest {
    Q_OBJECT
  private slots:
    void init() {
        ToolTest::init();
        source_ = fileSource(u"Source"_s);
        source_->run(
            u"WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<99999) INSERT INTO Image "
            "(SOPInstanceUID, SeriesInstanceUID, ImageFile) SELECT '9.'||i, '1.3', 'f'||i FROM n"_s);
        source_->release();
    }
    void cleanup() {
        source_.reset();
        ToolTest::cleanup();
    }
    void showsABarAndClearsIt();
    void showsNoBarWhenQuiet();
    void writesNothingAfterCtrlC();
    void ctrlCEndsAStatementWithoutAnEnd();
    void goesOnAfterItsUserHasLoggedOut();

  private:
    std::unique_ptr<FileSource> source_;
    const QStringList copying_{u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource};
};

}  // namespace

void TestCopyTerminal::showsABarAndClearsIt() {
    Terminal copying(TESSALY_DB, copying_);
    QCOMPARE(copying.finish(), 0);
    const QString screen = QString::fromUtf8(copying.screen());
    QVERIFY2(screen.contains(u"[###############...............] 5"_s), qPrintable(screen.left(2000)));
    QVERIFY(screen.contains(u"[##############################] 100% 100004 rows, Image\r\x1b[K"_s));
    QVERIFY(screen.contains(u"\x1b[KTable "_s));
    QVERIFY(!screen.section(u"Table "_s, 1).contains(u'['));
}

void TestCopyTerminal::showsNoBarWhenQuiet() {
    Terminal copying(TESSALY_DB, copying_ + QStringList{u"--quiet"_s});
    QCOMPARE(copying.finish(), 0);
    QCOMPARE(copying.screen(), QByteArray());
    QVERIFY(hasTables());
}

void TestCopyTerminal::writesNothingAfterCtrlC() {
    const auto before = source_->fingerprint();
    Terminal copying(TESSALY_DB, copying_);
    QVERIFY(copying.waitFor(" rows, Image"));
    copying.type("\x03");
    QCOMPARE(copying.finish(), 1);
    QVERIFY2(copying.screen().endsWith("tessaly-db: Broken off: nothing was written\r\n"),
             copying.screen().right(200).constData());
    QVERIFY(!hasTables());
    QCOMPARE(QDir(path(u"data"_s)).entryList(QDir::Files | QDir::Hidden), QStringList());
    QCOMPARE(source_->fingerprint(), before);

    QCOMPARE(run(copying_ + QStringList{u"--quiet"_s}).status, 0);  // nothing is in the way
    QCOMPARE(column("SELECT COUNT(*) AS x FROM Image"), QStringList{u"100000"_s});
}

void TestCopyTerminal::ctrlCEndsAStatementWithoutAnEnd() {
    create();
    change(u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile) VALUES ('1', '2', 'f')"_s);
    change(u"ALTER TABLE Image RENAME TO ImageRows"_s);
    // Its rows can be counted, and none of them read.
    change(
        u"CREATE VIEW Image AS SELECT (SELECT COUNT(*) FROM (WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL "
        "SELECT i FROM n) SELECT i FROM n) AS Numbers) AS SOPInstanceUID FROM ImageRows"_s);
    const QString folder = path(u"copies"_s);
    QVERIFY(QDir{}.mkpath(folder));
    addDataSource(u"Copy"_s, FileSource::lines(folder + u"/copy.mdb"_s));
    Terminal copying(TESSALY_DB, {u"copy"_s, u"--from"_s, DataSource, u"--to"_s, u"Copy"_s});
    const auto files = [&folder] { return QDir(folder).entryList(QDir::Files | QDir::Hidden); };
    EVENTUALLY(!files().isEmpty());
    // By then it is at that table, most likely. Where it is not, what follows holds as well.
    std::this_thread::sleep_for(std::chrono::milliseconds{500});
    copying.type("\x03");
    QCOMPARE(copying.finish(), 1);
    QVERIFY2(copying.screen().endsWith("tessaly-db: Broken off: nothing was written\r\n"),
             copying.screen().right(200).constData());
    QCOMPARE(files(), QStringList());
}

/// Started with `nohup`, as whoever does not want to wait for it.
void TestCopyTerminal::goesOnAfterItsUserHasLoggedOut() {
    Terminal copying(
        "/bin/sh",
        QStringList{u"-c"_s, u"trap '' HUP; exec \"$0\" \"$@\""_s, QStringLiteral(TESSALY_DB)} + copying_);
    QVERIFY(copying.waitFor(" rows, Image"));
    copying.send(SIGHUP);
    QCOMPARE(copying.finish(), 0);
    QCOMPARE(column("SELECT COUNT(*) AS x FROM Image"), QStringList{u"100000"_s});
}

QTEST_GUILESS_MAIN(TestCopyTerminal)
#include "tst_copyterminal.moc"
