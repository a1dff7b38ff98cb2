#include <QFile>
#include <QTest>

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

  private:
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

QTEST_GUILESS_MAIN(DatabaseFileTest)
#include "tst_databasefile.moc"
