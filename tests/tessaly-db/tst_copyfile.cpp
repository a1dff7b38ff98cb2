#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTest>

#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;

namespace {

/// A source in a file is untouched, whatever state it is in.
class TestCopyFile : public ToolTest {
    Q_OBJECT
  private slots:
    void init() {
        ToolTest::init();
        source_ = fileSource(u"Source"_s);
    }
    void cleanup() {
        source_.reset();
        ToolTest::cleanup();
    }
    void leavesTheSourceAsItWas_data();
    void leavesTheSourceAsItWas();
    void readsWhatAWriterHasCommitted();
    void readsAFileThatNobodyMayWrite_data();
    void readsAFileThatNobodyMayWrite();
    void readsAFileWithAnyName();
    void refusesASourceThatIsNoDatabase_data();
    void refusesASourceThatIsNoDatabase();
    void removesTheHalfOfACopyWhenTheFolderFills();

  private:
    std::unique_ptr<FileSource> source_;
    [[nodiscard]] Outcome copy() const {
        return run({u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource, u"--quiet"_s});
    }
};

}  // namespace

void TestCopyFile::leavesTheSourceAsItWas_data() {
    QTest::addColumn<QString>("mode");
    QTest::newRow("write-ahead log") << u"wal"_s;
    QTest::newRow("journal") << u"delete"_s;  // where the data source asks for the log
}

void TestCopyFile::leavesTheSourceAsItWas() {
    QFETCH(QString, mode);
    source_->run(u"PRAGMA journal_mode = "_s + mode);
    source_->release();
    const auto before = source_->fingerprint();
    const auto copied = copy();
    QCOMPARE(copied.err, QString());
    QCOMPARE(copied.status, 0);
    QCOMPARE(source_->fingerprint(), before);
    QCOMPARE(run({u"check"_s}).out, u"DicomFDB: ok\n"_s);
}

/// Its log is not written into the file, nor taken away, though the writer is the only one who uses it.
void TestCopyFile::readsWhatAWriterHasCommitted() {
    source_->run(
        u"UPDATE SiteData SET Organization = 'in the log'; BEGIN; UPDATE SiteData SET BaseUID = 'open'"_s);
    const auto before = source_->fingerprint();
    QVERIFY(before.contains("-wal"));
    const auto copied = copy();
    QCOMPARE(copied.err, QString());
    QCOMPARE(copied.status, 0);
    QCOMPARE(column("SELECT Organization FROM SiteData"), QStringList{u"in the log"_s});
    QCOMPARE(column("SELECT BaseUID FROM SiteData"), QStringList{u"2.25.1234"_s});
    // The index beside the log is the readers' and writers' common memory.
    const auto settled = [](const QByteArray& print) {
        QByteArrayList lines = print.split('\n');
        lines.removeIf([](const QByteArray& line) { return line.contains("-shm"); });
        return lines.join('\n');
    };
    QCOMPARE(settled(source_->fingerprint()), settled(before));
}

void TestCopyFile::readsAFileThatNobodyMayWrite_data() {
    leavesTheSourceAsItWas_data();
}

void TestCopyFile::readsAFileThatNobodyMayWrite() {
    QFETCH(QString, mode);
    source_->run(u"PRAGMA journal_mode = "_s + mode);
    source_->release();
    const QByteArray folder = QFile::encodeName(QFileInfo{source_->file()}.path());
    QCOMPARE(chmod(QFile::encodeName(source_->file()).constData(), 0444), 0);
    QCOMPARE(chmod(folder.constData(), 0555), 0);
    const auto before = source_->fingerprint();
    const auto copied =
        asSomebodyWithoutRights({u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource, u"--quiet"_s});
    QCOMPARE(chmod(folder.constData(), 0755), 0);
    QCOMPARE(copied.err, QString());
    QCOMPARE(copied.status, 0);
    QCOMPARE(source_->fingerprint(), before);
}

void TestCopyFile::readsAFileWithAnyName() {
    const QString odd = path(u"source/50% #1? ä=b.mdb"_s);
    source_->run(u"PRAGMA journal_mode = delete"_s);
    source_->release();
    QVERIFY(QFile::rename(source_->file(), odd));
    addDataSource(u"Odd"_s, FileSource::lines(odd));
    const auto copied = run({u"copy"_s, u"--from"_s, u"Odd"_s, u"--to"_s, DataSource, u"--quiet"_s});
    QCOMPARE(copied.err, QString());
    QCOMPARE(copied.status, 0);
    QCOMPARE(QDir(path(u"source"_s)).entryList(QDir::Files), QStringList{QFileInfo{odd}.fileName()});
}

void TestCopyFile::refusesASourceThatIsNoDatabase_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("missing") << QByteArray();
    QTest::newRow("something else") << QByteArray(10'000, 'x');
}

void TestCopyFile::refusesASourceThatIsNoDatabase() {
    QFETCH(QByteArray, content);
    QVERIFY(QFile::remove(source_->file()));
    if (!content.isEmpty()) {
        QFile file{source_->file()};
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }
    const auto before = source_->fingerprint();
    const auto refused = copy();
    QCOMPARE(refused.status, 1);
    QVERIFY2(isOneLine(refused.err), qPrintable(refused.err));
    QCOMPARE(source_->fingerprint(), before);
    QVERIFY(!hasTables());
}

/// A limit on the size of files is met as a full disk is.
void TestCopyFile::removesTheHalfOfACopyWhenTheFolderFills() {
    source_->run(
        u"WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<20000) INSERT INTO Image "
        "(SOPInstanceUID, SeriesInstanceUID, ImageFile) SELECT '9.'||i, '1.3', 'f'||i FROM n"_s);
    const auto failed =
        runLimited(1 << 20, {u"copy"_s, u"--from"_s, u"Source"_s, u"--to"_s, DataSource, u"--quiet"_s});
    QCOMPARE(failed.status, 1);
    QVERIFY2(isOneLine(failed.err), qPrintable(failed.err));
    QCOMPARE(QDir(path(u"data"_s)).entryList(QDir::Files | QDir::Hidden), QStringList());
}

QTEST_GUILESS_MAIN(TestCopyFile)
#include "tst_copyfile.moc"
