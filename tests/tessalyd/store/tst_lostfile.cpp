#include <dcmtk/dcmdata/dcdeftag.h>

#include <QDir>
#include <QFile>
#include <QTest>

#include "tessalyd/store/ArchiveIndex.h"
#include "tessalyd/store/StoreFailure.h"
#include "tests/support/Eventually.h"
#include "tests/tessalyd/services/retrieve/RetrieveTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// A database whose file is removed or replaced under the running server.
class LostFileTest : public RetrieveTest {
    Q_OBJECT

  private Q_SLOTS:
    void aRemovedFileRefusesUntilItIsBack();
    void aRemovalIsNoticedWithoutAnObject();
    void anotherDatabaseInItsPlaceIsUsed();
    void aFileThatIsNoDatabaseIsNotUsed();
    void aFileThatIsRemovedBeforeTheCommitKeepsNoRow();
    void aFileThatIsRemovedInTheCommitLeavesTheObjectUndecided();
    void aServerThatWasSuspendedSaysNothing();

  private:
    [[nodiscard]] QString file() const { return daemon_->database.path(); }
    /// With its logs, as somebody does who knows of them.
    static void move(const QString& from, const QString& to) {
        for (const auto* suffix : {"", "-wal", "-shm"})
            QFile::rename(from + QString::fromLatin1(suffix), to + QString::fromLatin1(suffix));
    }
    /// A whole database, as a back-up is.
    [[nodiscard]] QString backUp() const {
        QString copy = scratch(u"copy.mdb"_s);
        daemon_->database.run(u"VACUUM INTO '%1'"_s.arg(copy));
        return copy;
    }
    [[nodiscard]] qsizetype errors() const { return daemon_->log().count(u" ERROR "_s); }
    static ObjectSpec object(int number) { return {.instance = "1.2.9." + std::to_string(number)}; }
    static ObjectHeader header(const std::string& instance) {
        ObjectHeader header;
        header.patientId = "P1";
        header.studyInstanceUid = "1.2";
        header.seriesInstanceUid = "1.2.3";
        header.sopInstanceUid = instance;
        return header;
    }
};

void LostFileTest::aRemovedFileRefusesUntilItIsBack() {
    launch();
    QCOMPARE(store(object(1)).status, 0);
    daemon_->database.release();
    const QString kept = scratch(u"kept.mdb"_s);
    move(file(), kept);
    RequestorAssociation peer{daemon_->port()};
    for (int i = 2; i < 5; ++i)
        QCOMPARE(peer.store(*makeObject(object(i))).status, 0xa700);
    EVENTUALLY(daemon_->log().contains(u"was removed"_s));
    QCOMPARE(peer.store(*makeObject(object(5))).status, 0xa700);
    QVERIFY(!QFile::exists(file()));  // nor was an empty one made
    QCOMPARE(daemon_->files().size(), 1);
    move(kept, file());
    EVENTUALLY(daemon_->log().contains(u"is in its place again"_s));
    QCOMPARE(peer.store(*makeObject(object(6))).status, 0);
    QCOMPARE(daemon_->images().size(), 2);
    QCOMPARE(daemon_->files().size(), 2);
}

void LostFileTest::aRemovalIsNoticedWithoutAnObject() {
    launch();
    daemon_->database.release();
    QCOMPARE(errors(), 0);
    const auto removals = [this] { return daemon_->log().count(u"was removed"_s); };
    QVERIFY(QFile::rename(file(), scratch(u"kept.mdb"_s)));
    EVENTUALLY_COMPARE(removals(), 1);  // the jobs, which look for work on their own, may miss it before
    QVERIFY(QFile::rename(scratch(u"kept.mdb"_s), file()));
    EVENTUALLY(daemon_->log().contains(u"is in its place again"_s));
    QCOMPARE(removals(), 1);
}

void LostFileTest::anotherDatabaseInItsPlaceIsUsed() {
    launchWith();
    QCOMPARE(store(object(1)).status, 0);
    const QString copy = backUp();
    QCOMPARE(store(object(2)).status, 0);
    Retriever viewer{daemon_->port()};  // with a session of its own on the former file
    viewer.ask(Retriever::GetStudyRoot, "STUDY", {{DCM_StudyInstanceUID, Study}});
    QCOMPARE(viewer.collect().objects.size(), 2);
    daemon_->database.release();
    QVERIFY(QFile::remove(file()) && QFile::rename(copy, file()));
    QCOMPARE(store(object(3)).status, 0xa700);
    EVENTUALLY(daemon_->log().contains(u"was replaced"_s));
    EVENTUALLY(daemon_->log().contains(u"is used from now on"_s));
    QCOMPARE(store(object(4)).status, 0);
    QStringList known;
    for (const Daemon::Image& image : daemon_->images())
        known << image.instance;
    QCOMPARE(known, (QStringList{u"1.2.9.1"_s, u"1.2.9.4"_s}));
    QCOMPARE(daemon_->database.value(u"PRAGMA integrity_check"_s), u"ok"_s);
    viewer.ask(Retriever::GetStudyRoot, "STUDY", {{DCM_StudyInstanceUID, Study}});
    QCOMPARE(viewer.collect().objects.size(), 2);
}

void LostFileTest::aFileThatIsNoDatabaseIsNotUsed() {
    launch();
    QCOMPARE(store(object(1)).status, 0);
    daemon_->database.release();
    const QString kept = scratch(u"kept.mdb"_s);
    QVERIFY(QFile::rename(file(), kept));
    for (const QByteArray& text : {QByteArray(8192, 'x'), QByteArray{}}) {
        QFile other{file()};
        QVERIFY(other.open(QIODevice::WriteOnly));
        other.write(text);
        other.close();
        EVENTUALLY(daemon_->log().contains(u"cannot be used yet"_s));
        QCOMPARE(store(object(2)).status, 0xa700);
        QCOMPARE(QFile{file()}.size(), text.size());
        QVERIFY(QFile::remove(file()));
    }
    QVERIFY(QFile::rename(kept, file()));
    EVENTUALLY(daemon_->log().contains(u"is in its place again"_s));
    QCOMPARE(store(object(3)).status, 0);
}

void LostFileTest::aFileThatIsRemovedBeforeTheCommitKeepsNoRow() {
    const ScratchDatabase database;
    ArchiveIndex index;
    const auto placement = index.place(header("1.1"), "/r");
    index.record(header("1.1"), placement->location());
    database.release();
    const QString kept = database.folder() + u"/kept.mdb"_s;
    bool published = false;
    QVERIFY_EXCEPTION_THROWN(
        index.record(header("1.2"), placement->location(),
                     {.publish = [&published] { published = true; },
                      .leave = [&](const auto& /*former*/) { QFile::rename(database.path(), kept); }}),
        StoreFailure);
    QVERIFY(!published);
    QVERIFY(QFile::rename(kept, database.path()));
    QCOMPARE(database.value(u"SELECT COUNT(*) FROM Image"_s), u"1"_s);
}

void LostFileTest::aFileThatIsRemovedInTheCommitLeavesTheObjectUndecided() {
    const ScratchDatabase database;
    ArchiveIndex index;
    const auto placement = index.place(header("1.1"), "/r");
    index.record(header("1.1"), placement->location());
    database.release();
    QVERIFY_EXCEPTION_THROWN(index.record(header("1.2"), placement->location(),
                                          {.publish = [&database] { QFile::remove(database.path()); }}),
                             StoreUndecided);
    QVERIFY_EXCEPTION_THROWN(index.record(header("1.2"), placement->location()), StoreFailure);
    QVERIFY(!QFile::exists(database.path()));
}

void LostFileTest::aServerThatWasSuspendedSaysNothing() {
    launch();
    QCOMPARE(store(object(1)).status, 0);
    const QString copy = backUp();
    QVERIFY(daemon_->succeeds(&OrgTessalyServer1Interface::Stop));
    daemon_->database.release();
    QVERIFY(QFile::rename(copy, scratch(u"other.mdb"_s)));
    for (const auto* suffix : {"", "-wal", "-shm"})
        QFile::remove(file() + QString::fromLatin1(suffix));
    QVERIFY(QFile::rename(scratch(u"other.mdb"_s), file()));
    QVERIFY(daemon_->succeeds(&OrgTessalyServer1Interface::Start));
    QCOMPARE(store(object(2)).status, 0);
    QCOMPARE(errors(), 0);
    QCOMPARE(daemon_->images().size(), 2);
}

QTEST_GUILESS_MAIN(LostFileTest)
#include "tst_lostfile.moc"
