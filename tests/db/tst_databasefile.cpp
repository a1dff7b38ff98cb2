#include <QFile>
#include <QTest>

#include "db/DatabaseFile.h"
#include "db/Query.h"
#include "tests/db/Fault.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

/// What an engine alone has that keeps its database in a file.
class DatabaseFileTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() { connection_.setConnectString("DSN=DicomFDB"); }
    void cleanup() { connection_.close(); }

    void nothingIsLeftBesideAClosedFile();
    void aMissingFileIsNotCreated();
    void whatIsNoDatabaseIsRefused();
    void aFileThatLosesItsPlaceIsNoticed_data();
    void aFileThatLosesItsPlaceIsNoticed();
    void anotherFileIsNotOpenedBesideTheFormer();
    void closingTheFormerFileKeepsTheOthersLog();

  private:
    void establish() {
        scratch_.writeDataSource(scratch_.path());
        scratch_.run(u"PRAGMA journal_mode=WAL"_s);
        scratch_.run(u"CREATE TABLE IF NOT EXISTS T (K INTEGER)"_s);
        scratch_.run(u"DELETE FROM T"_s);
        connection_.establish();
        execute(connection_, "INSERT INTO T VALUES (1)");
        scratch_.release();
    }
    void removeFiles() const {
        for (const auto* suffix : {"", "-wal", "-shm"})
            QFile::remove(scratch_.path() + QString::fromLatin1(suffix));
    }

    ScratchDatabase scratch_{ScratchDatabase::Content::Empty};
    db::Connection connection_;
};

void DatabaseFileTest::nothingIsLeftBesideAClosedFile() {
    scratch_.run(u"CREATE TABLE T (K INTEGER)"_s);
    connection_.establish();
    execute(connection_, "INSERT INTO T VALUES (1)");
    connection_.close();
    scratch_.release();
    QVERIFY(QFile::exists(scratch_.path()));
    for (const auto* leftover : {"-journal", "-wal", "-shm"})
        QVERIFY2(!QFile::exists(scratch_.path() + QString::fromLatin1(leftover)), leftover);
}

void DatabaseFileTest::aMissingFileIsNotCreated() {
    const QString missing = scratch_.folder() + u"/mistyped.mdb"_s;
    // Not even by a data source that would let the driver do it.
    scratch_.setDataSource(u"Driver=SQLite3\nDatabase=%1\nNoCreat=0\n"_s.arg(missing));
    QVERIFY_EXCEPTION_THROWN(connection_.establish(), db::Error);
    QVERIFY(!QFile::exists(missing));
    QVERIFY(!connection_.isOpen());
}

void DatabaseFileTest::whatIsNoDatabaseIsRefused() {
    const QString path = scratch_.folder() + u"/text.mdb"_s;
    QFile file{path};
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(8192, 'x'));
    file.close();
    scratch_.writeDataSource(path);
    const db::Error fault = faultOf([&] { connection_.establish(); });
    QVERIFY2(QString::fromUtf8(fault.what()).contains(u"not a database"_s), fault.what());
    QCOMPARE(QFile{path}.size(), 8192);
}

void DatabaseFileTest::aFileThatLosesItsPlaceIsNoticed_data() {
    QTest::addColumn<bool>("replaced");
    QTest::newRow("removed") << false;
    QTest::newRow("replaced") << true;
}

void DatabaseFileTest::aFileThatLosesItsPlaceIsNoticed() {
    QFETCH(const bool, replaced);
    establish();
    QCOMPARE(db::fileOf(connection_)->path(), scratch_.path().toStdString());
    QVERIFY(db::isInPlace(connection_));
    const QString kept = scratch_.folder() + u"/kept.mdb"_s;
    QVERIFY(QFile::rename(scratch_.path(), kept));
    QVERIFY(!replaced || QFile::copy(kept, scratch_.path()));
    QVERIFY(!db::isInPlace(connection_));
    QVERIFY(!replaced || QFile::remove(scratch_.path()));
    QVERIFY(QFile::rename(kept, scratch_.path()));
    QVERIFY(db::isInPlace(connection_));
}

/// It would take the former one's log for its own.
void DatabaseFileTest::anotherFileIsNotOpenedBesideTheFormer() {
    establish();
    const QString copy = scratch_.folder() + u"/copy.mdb"_s;
    scratch_.run(u"VACUUM INTO '%1'"_s.arg(copy));
    scratch_.release();
    QVERIFY(QFile::remove(scratch_.path()) && QFile::rename(copy, scratch_.path()));
    db::Connection other;
    other.setConnectString("DSN=DicomFDB");
    const db::Error fault = faultOf([&] { other.establish(); });
    QVERIFY2(QString::fromUtf8(fault.what()).contains(u"was replaced"_s), fault.what());
    connection_.close();
    other.establish();
    QVERIFY(QFile::exists(scratch_.path() + u"-wal.former-1"_s));
    execute(other, "INSERT INTO T VALUES (2)");
    other.close();
    QCOMPARE(scratch_.value(u"PRAGMA integrity_check"_s), u"ok"_s);
    QCOMPARE(scratch_.value(u"SELECT SUM(K) FROM T"_s), u"3"_s);
}

void DatabaseFileTest::closingTheFormerFileKeepsTheOthersLog() {
    establish();
    removeFiles();
    scratch_.run(u"PRAGMA journal_mode=WAL"_s);  // another program, with a log of its own
    scratch_.run(u"CREATE TABLE Other (K INTEGER)"_s);
    QVERIFY(QFile::exists(scratch_.path() + u"-wal"_s));
    connection_.close();
    QVERIFY(QFile::exists(scratch_.path() + u"-wal"_s));
    scratch_.run(u"INSERT INTO Other VALUES (1)"_s);
    scratch_.release();
    QCOMPARE(scratch_.value(u"SELECT COUNT(*) FROM Other"_s), u"1"_s);
}

QTEST_GUILESS_MAIN(DatabaseFileTest)
#include "tst_databasefile.moc"
