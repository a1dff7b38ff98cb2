#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTest>
#include <algorithm>
#include <utility>

#include "maintenance/FileLease.h"
#include "tests/maintenance/CompactTest.h"
#include "tests/support/Eventually.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

/// True when a process has the file open.
bool hasOpen(const QProcess& process, const QString& file) {
    const QDir descriptors{u"/proc/%1/fd"_s.arg(process.processId())};
    const QFileInfoList all = descriptors.entryInfoList(QDir::Files | QDir::System);
    return std::any_of(all.begin(), all.end(),
                       [&file](const QFileInfo& one) { return one.symLinkTarget() == file; });
}

}  // namespace

/// What the compaction of a file refuses, and that it then has changed nothing.
class CompactRefusalsTest : public CompactTest {
    Q_OBJECT

  private Q_SLOTS:
    void aSecondNameIsRefused();
    void leftoversOfAnEarlierRunAreDeleted();
    void aLinkToTheTemporaryFileIsRefused();
    void whatIsNoDatabaseIsRefused();
    void aDamagedDatabaseIsRefused();
    void aDamagedCopyIsRefused();
    void anybodyElseIsARefusal_data();
    void anybodyElseIsARefusal();
    void aLeaseSeesAnIdleDescriptor();
    void whoeverComesMeanwhileIsARefusal();
    void whoeverComesForAMomentIsWaitedFor();
    void aServerThatComesMeanwhileHasItsTurn_data();
    void aServerThatComesMeanwhileHasItsTurn();
    void aFullDiskIsRefused();
    void aFolderThatCannotBeWrittenIsRefused_data();
    void aFolderThatCannotBeWrittenIsRefused();
    void aDatabaseInUseAtTheTemporaryPathStays_data() { anybodyElseIsARefusal_data(); }
    void aDatabaseInUseAtTheTemporaryPathStays();
    void aDatabaseInUseInPlaceOfALinksCopyStays();
    void somebodyElsesDatabaseAtTheTemporaryPathStays();
    void theDataSourcesDatabaseAtTheTemporaryPathStays();
    void aFileThatMayNotBeWrittenStaysAsItIs();
};

void CompactRefusalsTest::leftoversOfAnEarlierRunAreDeleted() {
    for (const QString& name : {temporary(), temporary() + u"-journal"_s, temporary() + u"-wal"_s}) {
        QFile file{name};
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("left over");
    }
    QCOMPARE(compact(path()), QString{});
    QCOMPARE(companions(), QStringList{});
    checkContent(1000);

    // A log that the engine would believe, with rows that are none of ours.
    QVERIFY(QFile::copy(path(), temporary()));
    {
        const Other killed{temporary()};
        killed.leaveLog();
        QVERIFY(killed.run("DELETE FROM Image"));
    }
    QVERIFY(QFileInfo{temporary() + u"-wal"_s}.size() > 0);
    QCOMPARE(compact(path()), QString{});
    QCOMPARE(companions(), QStringList{});
    checkContent(1000);
}

void CompactRefusalsTest::aLinkToTheTemporaryFileIsRefused() {
    // The file that the steps delete first is here the database itself.
    QVERIFY(QFile::rename(path(), temporary()));
    QVERIFY(QFile::link(temporary(), path()));
    const QByteArray before = contentOf(temporary());
    QVERIFY(compact(path()).contains(u"is the database itself"_s));
    QCOMPARE(contentOf(temporary()), before);
}

void CompactRefusalsTest::whatIsNoDatabaseIsRefused() {
    const QString letter = database().folder() + u"/letter.mdb"_s;
    const QByteArray text = QByteArray("Dear colleague, ").repeated(1000);
    QFile file{letter};
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(text);
    file.close();
    QCOMPARE(compact(letter), u"file is not a database"_s);
    QCOMPARE(contentOf(letter), text);
    QCOMPARE(QDir{database().folder()}.entryList({u"letter*"_s}), QStringList{u"letter.mdb"_s});
}

void CompactRefusalsTest::aDamagedDatabaseIsRefused() {
    QFile file{path()};
    QVERIFY(file.open(QIODevice::ReadWrite));
    const qint64 middle = file.size() / 2 / 4096 * 4096;
    file.seek(middle);
    file.write(QByteArray(8192, '\xa5'));
    file.close();
    const QByteArray damaged = contentOf(path());
    QCOMPARE(compact(path()), u"database disk image is malformed"_s);
    QCOMPARE(contentOf(path()), damaged);
}

void CompactRefusalsTest::aDamagedCopyIsRefused() {
    const QByteArray before = contentOf(path());
    const QString failure = compactInChild({path(), u"spoil"_s});
    QVERIFY2(failure.startsWith(u"*** in database main ***"_s), qPrintable(failure));
    QCOMPARE(contentOf(path()), before);
    QCOMPARE(compact(path()), QString{});
    checkContent(1000);
}

void CompactRefusalsTest::anybodyElseIsARefusal_data() {
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QByteArray>("doing");
    QTest::newRow("log, idle after a read") << u"wal"_s << "SELECT * FROM Users"_ba;
    QTest::newRow("log, in a read") << u"wal"_s << "BEGIN; SELECT * FROM Users"_ba;
    QTest::newRow("log, in a write") << u"wal"_s << "BEGIN IMMEDIATE; DELETE FROM Users"_ba;
    QTest::newRow("log, opened and never read") << u"wal"_s << QByteArray{};
    QTest::newRow("rollback, idle after a read") << u"delete"_s << "SELECT * FROM Users"_ba;
    QTest::newRow("rollback, in a read") << u"delete"_s << "BEGIN; SELECT * FROM Users"_ba;
    QTest::newRow("rollback, in a write") << u"delete"_s << "BEGIN IMMEDIATE; DELETE FROM Users"_ba;
    QTest::newRow("rollback, opened and never read") << u"delete"_s << QByteArray{};
}

void CompactRefusalsTest::anybodyElseIsARefusal() {
    QFETCH(QString, mode);
    QFETCH(QByteArray, doing);
    database().run(u"PRAGMA journal_mode="_s + mode);
    database().release();
    const QByteArray before = contentOf(path());
    {
        const Other other{path()};
        QVERIFY(other.run(doing.constData()));
        QCOMPARE(compactInChild({path()}), u"database is locked"_s);
        QCOMPARE(contentOf(path()), before);
    }
    QCOMPARE(compactInChild({path()}), QString{});
    checkContent(1000);
}

void CompactRefusalsTest::aLeaseSeesAnIdleDescriptor() {
    using maintenance::FileLease;
    QVERIFY(FileLease{nativePath(path())}.state() != FileLease::State::InUse);
    if (!hasLeases())
        return;  // a file system without leases: the locks are all there is
    const Other idle{path()};
    QVERIFY(FileLease{nativePath(path())}.state() == FileLease::State::InUse);
}

void CompactRefusalsTest::whoeverComesMeanwhileIsARefusal() {
    if (!hasLeases())
        return;  // where the kernel gives no leases he waits for the lock, and is not seen
    fillAnew(20'000);
    const ino_t before = statusOf(path()).st_ino;
    QFile newcomer{path()};
    QCOMPARE(compact(path(), opening(newcomer)), u"database is locked"_s);
    QVERIFY(newcomer.isOpen());
    QCOMPARE(statusOf(path()).st_ino, before);
    newcomer.close();
    QCOMPARE(database().value(u"PRAGMA journal_mode"_s), u"wal"_s);
    checkContent(20'000);
}

/// As a server does that looks for jobs, and waits for the lock: he has written nothing when he goes.
void CompactRefusalsTest::whoeverComesForAMomentIsWaitedFor() {
    fillAnew(20'000);
    QFile newcomer{path()};
    QElapsedTimer since;
    const auto open = opening(newcomer);
    const auto openForAMoment = [&] {
        if (!since.isValid()) {
            open();
            since.start();
        } else if (since.hasExpired(500)) {
            newcomer.close();
        }
    };
    QCOMPARE(compact(path(), openForAMoment), QString{});
    QVERIFY(since.isValid() && !newcomer.isOpen());
    checkContent(20'000);
}

void CompactRefusalsTest::aServerThatComesMeanwhileHasItsTurn_data() {
    QTest::addColumn<QStringList>("doing");
    QTest::addColumn<QString>("failure");
    QTest::addColumn<int>("images");
    const QString add =
        u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile, SOPClassUID, TransferSyntaxUID, "
        "InstanceNumber) VALUES ('1.2.new', '1.3.1', 'new.dcm', '', '', 20001)"_s;
    QTest::newRow("looks") << QStringList{u"SELECT count(*) FROM Image"_s} << QString{} << 20'000;
    QTest::newRow("adds an image") << QStringList{add} << u"database is locked"_s << 20'001;
    QTest::newRow("adds an image and is killed")
        << QStringList{add, u"killed"_s} << u"database is locked"_s << 20'001;
}

/// It waits for the engine's lock, and its data source asks for a log, whether there is one or not.
void CompactRefusalsTest::aServerThatComesMeanwhileHasItsTurn() {
    if (!hasLeases())
        return;  // where the kernel gives no leases it waits for the lock, and is not seen
    QFETCH(QStringList, doing);
    QFETCH(QString, failure);
    QFETCH(int, images);
    fillAnew(20'000);
    QProcess newcomer;
    bool hasCome = false;
    const auto come = [&] {
        if (std::exchange(hasCome, true))
            return;
        newcomer.start(QStringLiteral(NEWCOMER_CHILD), doing);
        EVENTUALLY(hasOpen(newcomer, path()));
    };
    QCOMPARE(compact(path(), come), failure);
    QVERIFY(newcomer.waitForFinished(PatienceMs));
    QCOMPARE(newcomer.readAllStandardOutput(), QByteArray{});
    checkContent(images);
    QCOMPARE(database().value(u"PRAGMA journal_mode"_s), u"wal"_s);
}

void CompactRefusalsTest::aFullDiskIsRefused() {
    const QByteArray before = contentOf(path());
    // From the first page that does not fit to the last.
    for (qint64 room = 0; room < QFileInfo{path()}.size() / 2; room += 40'960) {
        QVERIFY(!compactInChild({path(), u"limit"_s, QString::number(room)}).isEmpty());
        QCOMPARE(contentOf(path()), before);
    }
    QCOMPARE(compactInChild({path()}), QString{});
    checkContent(1000);
}

void CompactRefusalsTest::aFolderThatCannotBeWrittenIsRefused_data() {
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QString>("description");
    QTest::newRow("log") << u"wal"_s << u"attempt to write a readonly database"_s;
    QTest::newRow("rollback") << u"delete"_s << u"unable to open database: %1"_s;
}

void CompactRefusalsTest::aFolderThatCannotBeWrittenIsRefused() {
    QFETCH(QString, mode);
    QFETCH(QString, description);
    database().run(u"PRAGMA journal_mode="_s + mode);
    database().release();
    const QByteArray folder = database().folder().toUtf8();
    const QByteArray before = contentOf(path());
    QCOMPARE(chmod(path().toUtf8().constData(), 0666), 0);
    QCOMPARE(chmod(folder.constData(), 0555), 0);
    const QString failure = compactInChild({path(), u"nobody"_s});
    QCOMPARE(chmod(folder.constData(), 0755), 0);
    QCOMPARE(failure, description.replace(u"%1"_s, temporary()));
    QCOMPARE(contentOf(path()), before);
    QCOMPARE(companions(), QStringList{});
}

void CompactRefusalsTest::aSecondNameIsRefused() {
    const QString other = database().folder() + u"/other.mdb"_s;
    QCOMPARE(::link(path().toUtf8().constData(), other.toUtf8().constData()), 0);
    const QByteArray before = contentOf(path());
    QCOMPARE(compact(path()), path() + u" has more than one name"_s);
    QCOMPARE(contentOf(other), before);
    QVERIFY(QFile::remove(other));
    QCOMPARE(compact(path()), QString{});
    checkContent(1000);
}

/// Another site's database may have the very name that the compaction wants for its copy.
void CompactRefusalsTest::aDatabaseInUseAtTheTemporaryPathStays() {
    QFETCH(QString, mode);
    QFETCH(QByteArray, doing);
    QVERIFY(QFile::copy(path(), temporary()));
    const QByteArray before = contentOf(path());
    {
        const Other other{temporary()};
        QVERIFY(other.run(("PRAGMA journal_mode=" + mode.toUtf8()).constData()));
        QVERIFY(other.run("UPDATE Users SET Signature='unsaved'"));
        QVERIFY(other.run(doing.constData()));
        const QStringList beside = companions();
        QCOMPARE(compactInChild({path()}), temporary() + u" is in use"_s);
        QCOMPARE(companions(), beside);
        QCOMPARE(contentOf(path()), before);
        (void)other.run("COMMIT");
        QVERIFY(other.run("UPDATE Users SET Signature='saved'"));
    }
    const Other again{temporary()};
    QVERIFY(
        again.run("SELECT CASE Signature WHEN 'saved' THEN 1 ELSE abs(-9223372036854775808) END FROM Users"));
}

/// Where the database is chosen by a link in another folder, a copy is made beside it under one more name.
void CompactRefusalsTest::aDatabaseInUseInPlaceOfALinksCopyStays() {
    const QTemporaryDir elsewhere;
    const QString link = elsewhere.filePath(u"Link.mdb"_s);
    QVERIFY(QFile::link(path(), link));
    const QString copy = path() + u".compacted"_s;
    QVERIFY(QFile::copy(path(), copy));
    const QByteArray before = contentOf(path());
    {
        const Other other{copy};
        QVERIFY(other.run("BEGIN IMMEDIATE"));
        QVERIFY(other.run("UPDATE Users SET Signature='saved'"));
        QCOMPARE(compactInChild({link}), copy + u" is in use"_s);
        QCOMPARE(contentOf(path()), before);
        QVERIFY(other.run("COMMIT"));
    }
    const Other again{copy};
    QVERIFY(
        again.run("SELECT CASE Signature WHEN 'saved' THEN 1 ELSE abs(-9223372036854775808) END FROM Users"));
    QVERIFY(QFile::remove(copy));
    QCOMPARE(compact(link), QString{});
    checkContent(1000);
}

/// One that its reader may not write to: neither the kernel nor the engine's lock tells whether it is used.
void CompactRefusalsTest::somebodyElsesDatabaseAtTheTemporaryPathStays() {
    if (geteuid() != 0)
        return;  // only root can make a file somebody else's
    QVERIFY(QFile::copy(path(), temporary()));
    QCOMPARE(chmod(path().toUtf8().constData(), 0666), 0);
    QCOMPARE(chmod(temporary().toUtf8().constData(), 0644), 0);
    QCOMPARE(chmod(database().folder().toUtf8().constData(), 0777), 0);
    const QByteArray before = contentOf(path());
    const Other other{temporary()};
    QVERIFY(other.run("PRAGMA journal_mode=delete"));
    QVERIFY(other.run("SELECT * FROM Users"));
    QCOMPARE(compactInChild({path(), u"nobody"_s}), temporary() + u" is in use"_s);
    QCOMPARE(contentOf(path()), before);
    QVERIFY(QFile::exists(temporary()));
    QVERIFY(other.run("UPDATE Users SET Signature='saved'"));
    const Other again{temporary()};
    QVERIFY(
        again.run("SELECT CASE Signature WHEN 'saved' THEN 1 ELSE abs(-9223372036854775808) END FROM Users"));
}

void CompactRefusalsTest::theDataSourcesDatabaseAtTheTemporaryPathStays() {
    QVERIFY(QFile::copy(path(), temporary()));
    const QByteArray before = contentOf(temporary());
    const QString elsewhere = database().folder() + u"/link to it"_s;
    QVERIFY(QFile::link(temporary(), elsewhere));
    for (const QString& dataSource : {temporary(), elsewhere}) {
        QCOMPARE(compact(
                     path(), [] {}, dataSource),
                 temporary() + u" is the database of the data source"_s);
        QCOMPARE(contentOf(temporary()), before);
    }
    // The data source's own database is compacted like any other.
    QVERIFY(QFile::remove(temporary()));
    QCOMPARE(compact(
                 path(), [] {}, path()),
             QString{});
    checkContent(1000);
}

/// Neither owner nor writer: nothing is touched, and nothing of the attempt is left behind.
void CompactRefusalsTest::aFileThatMayNotBeWrittenStaysAsItIs() {
    if (geteuid() != 0)
        return;  // only root can make a file somebody else's
    const QByteArray before = contentOf(path());
    QCOMPARE(chmod(path().toUtf8().constData(), 0644), 0);
    QCOMPARE(chmod(database().folder().toUtf8().constData(), 0777), 0);
    QCOMPARE(compactInChild({path(), u"nobody"_s}), path() + u": Permission denied"_s);
    QCOMPARE(contentOf(path()), before);
    QCOMPARE(companions(), QStringList{});
}

QTEST_GUILESS_MAIN(CompactRefusalsTest)
#include "tst_compactrefusals.moc"
