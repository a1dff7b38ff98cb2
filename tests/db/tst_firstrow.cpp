#include <QTest>

#include "db/Query.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

/// What the embedded driver does for a set only when its rows are fetched.
class FirstRowTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        scratch_ = std::make_unique<ScratchDatabase>(ScratchDatabase::Content::Empty);
        // Without a write-ahead log, so that a lock keeps readers out too.
        scratch_->run(u"PRAGMA journal_mode=DELETE"_s);
        scratch_->run(u"CREATE TABLE T (K VARCHAR(16))"_s);
        scratch_->run(u"INSERT INTO T VALUES ('a'), ('b')"_s);
        connection_ = std::make_unique<db::Connection>();
        connection_->setConnectString("DSN=DicomFDB;JournalMode=DELETE;Timeout=1");
        connection_->establish();
    }
    void cleanup() {
        connection_.reset();
        scratch_.reset();
    }

    void whatFailsAtTheFirstRowFailsToOpen_data();
    void whatFailsAtTheFirstRowFailsToOpen();
    void theFirstRowIsGivenOnce_data();
    void theFirstRowIsGivenOnce();
    void aSetThatIsLeftEarlyIsOver_data();
    void aSetThatIsLeftEarlyIsOver();

  private:
    std::unique_ptr<ScratchDatabase> scratch_;
    std::unique_ptr<db::Connection> connection_;
};

void FirstRowTest::whatFailsAtTheFirstRowFailsToOpen_data() {
    QTest::addColumn<QStringList>("cause");
    QTest::addColumn<QString>("says");
    QTest::addColumn<QStringList>("remedy");
    QTest::newRow("renamed table") << QStringList{u"ALTER TABLE T RENAME TO Kept"_s} << u"no such table: T"_s
                                   << QStringList{u"ALTER TABLE Kept RENAME TO T"_s};
    QTest::newRow("locked database") << QStringList{u"BEGIN EXCLUSIVE"_s} << u"database is locked"_s
                                     << QStringList{u"ROLLBACK"_s};
    QTest::newRow("view that cannot be computed")
        << QStringList{u"ALTER TABLE T RENAME TO Kept"_s,
                       u"CREATE VIEW T AS SELECT abs(-9223372036854775807 - 1) || K AS K FROM Kept"_s}
        << u"integer overflow"_s << QStringList{u"DROP VIEW T"_s, u"ALTER TABLE Kept RENAME TO T"_s};
}

void FirstRowTest::whatFailsAtTheFirstRowFailsToOpen() {
    QFETCH(QStringList, cause);
    QFETCH(QString, says);
    QFETCH(QStringList, remedy);
    db::Query known{*connection_, "SELECT * FROM T ORDER BY K"};
    for (db::ResultSet rows = known.open(); rows.next();)
        ;
    for (const QString& statement : cause)
        scratch_->run(statement);
    // The connection still takes a new statement, too: it has not looked at the file again.
    db::Query fresh{*connection_, "SELECT * FROM T ORDER BY K"};
    for (db::Query* query : {&known, &fresh}) {
        QString fault;
        try {
            const db::ResultSet rows = query->open();
        } catch (const db::Error& error) {
            fault = QString::fromUtf8(error.what());
        }
        QVERIFY2(fault.contains(says), qPrintable(fault));
    }
    for (const QString& statement : remedy)
        scratch_->run(statement);
    for (db::Query* query : {&known, &fresh}) {
        db::ResultSet rows = query->open();  // the failure is over
        QVERIFY(rows.next());
        QCOMPARE(rows.text("K"), "a");
    }
}

void FirstRowTest::theFirstRowIsGivenOnce_data() {
    QTest::addColumn<QString>("where");
    QTest::addColumn<QStringList>("keys");
    QTest::newRow("none") << u"K > 'b'"_s << QStringList{};
    QTest::newRow("one") << u"K > 'a'"_s << QStringList{u"b"_s};
    QTest::newRow("several") << u"1"_s << QStringList{u"a"_s, u"b"_s};
}

void FirstRowTest::theFirstRowIsGivenOnce() {
    QFETCH(QString, where);
    QFETCH(QStringList, keys);
    db::ResultSet rows =
        db::Query{*connection_, "SELECT K FROM T WHERE " + where.toStdString() + " ORDER BY K"}.open();
    QVERIFY_EXCEPTION_THROWN((void)rows.text("K"), db::Error);  // fetched, and still to be gone to
    db::ResultSet taken{std::move(rows)};
    QStringList found;
    while (taken.next())
        found << QString::fromStdString(taken.text("K"));
    QCOMPARE(found, keys);
}

void FirstRowTest::aSetThatIsLeftEarlyIsOver_data() {
    QTest::addColumn<int>("rowsRead");
    QTest::newRow("before the first row") << 0;
    QTest::newRow("after the first row") << 1;
    QTest::newRow("after the last row") << 2;
}

void FirstRowTest::aSetThatIsLeftEarlyIsOver() {
    QFETCH(int, rowsRead);
    db::Query query{*connection_, "SELECT * FROM T ORDER BY K"};
    {
        db::ResultSet rows = query.open();
        for (int i = 0; i < rowsRead; ++i)
            QVERIFY(rows.next());
    }
    scratch_->run(u"BEGIN EXCLUSIVE"_s);  // nobody reads any more
    scratch_->run(u"INSERT INTO T VALUES ('c')"_s);
    scratch_->run(u"COMMIT"_s);
    QStringList keys;
    for (db::ResultSet rows = query.open(); rows.next();)
        keys << QString::fromStdString(rows.text("K"));
    QCOMPARE(keys, (QStringList{u"a"_s, u"b"_s, u"c"_s}));
}

QTEST_GUILESS_MAIN(FirstRowTest)
#include "tst_firstrow.moc"
