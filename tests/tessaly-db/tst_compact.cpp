#include <QFileInfo>
#include <QTest>

#include "db/Query.h"
#include "db/Transaction.h"
#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

class TestCompact : public ToolTest {
    Q_OBJECT
  private slots:
    void givesTheSpaceOfDeletedRowsBack();
    void saysWhoIsInTheWay();
    void wantsADataSource();

  private:
    void fillAndEmpty() const {
        change(
            u"INSERT INTO Series (SeriesInstanceUID, StudyInstanceUID, SeriesDir) "
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<20000) "
            "SELECT '1.2.'||i, '1.3', 'a folder with a name' FROM n"_s);
        change(u"DELETE FROM Series WHERE SeriesInstanceUID<>'1.2.7'"_s);
    }
    [[nodiscard]] qint64 size() const {
        return test::ScratchDatabase::isPostgresql()
                   ? column("SELECT pg_total_relation_size('series')").first().toLongLong()
                   : QFileInfo{file()}.size();
    }
};

}  // namespace

void TestCompact::givesTheSpaceOfDeletedRowsBack() {
    create();
    fillAndEmpty();
    const qint64 before = size();
    QVERIFY(before > 1'000'000);
    const auto done = run({u"compact"_s});
    QCOMPARE(done.err, QString());
    QCOMPARE(done.out, QString());
    QCOMPARE(done.status, 0);
    QVERIFY2(size() < before / 4, qPrintable(QString::number(size())));
    QCOMPARE(column("SELECT SeriesInstanceUID FROM Series"), QStringList{u"1.2.7"_s});
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
}

void TestCompact::saysWhoIsInTheWay() {
    create();
    fillAndEmpty();
    const qint64 before = size();
    db::Connection other;
    other.setConnectString("DSN=DicomFDB");
    other.establish();
    {
        const db::Transaction writing{other};
        db::execute(other, "UPDATE Series SET SeriesDir='x'");
        const auto done = run({u"compact"_s});
        QCOMPARE(done.status, 1);
        QCOMPARE(done.out, QString());
        QVERIFY2(isOneLine(done.err) && done.err.contains(u"lock"_s), qPrintable(done.err));
        QVERIFY(size() >= before);
    }
    QCOMPARE(column("SELECT SeriesDir FROM Series"), QStringList{u"a folder with a name"_s});
    QCOMPARE(run({u"compact"_s}).status, 0);
}

void TestCompact::wantsADataSource() {
    const auto done = run({u"compact"_s, u"--dsn"_s, u"Nowhere"_s});
    QCOMPARE(done.status, 1);
    QCOMPARE(done.err, u"tessaly-db: ODBC knows no data source Nowhere\n"_s);
}

QTEST_GUILESS_MAIN(TestCompact)
#include "tst_compact.moc"
