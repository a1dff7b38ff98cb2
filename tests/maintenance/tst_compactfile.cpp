#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTest>
#include <cerrno>
#include <chrono>

#include "maintenance/FileCompaction.h"
#include "tests/maintenance/CompactTest.h"
#include "tests/support/Eventually.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

/// What the compaction of a file makes, and what is left when it is killed.
class CompactFileTest : public CompactTest {
    Q_OBJECT

  private Q_SLOTS:
    void theTemporaryPath_data();
    void theTemporaryPath();
    void aCompactedDatabaseTakesThePlace();
    void theJournalModeStays_data();
    void theJournalModeStays();
    void anUnfinishedLogIsNotLost();
    void ownerModeAndAttributesStay();
    void aFoldersAccessListIsNotTaken();
    void theFileBehindALinkIsReplaced();
    void aLinksOwnCopyGoesWhenItWasOfNoUse();
    void whoWorksOnItForAMomentIsWaitedFor();
    void everythingIsOnTheDiskBeforeTheRename_data() { theJournalModeStays_data(); }
    void everythingIsOnTheDiskBeforeTheRename();
    void theCopyIsNeverReadableToOthers();
    void aKilledCompactionLeavesOneOrTheOther();
    void aUserWhoMayNotGiveAwayWritesIntoTheFile_data() { theJournalModeStays_data(); }
    void aUserWhoMayNotGiveAwayWritesIntoTheFile();
    void aKilledWriteIntoTheFileLeavesOneOrTheOther();
};

void CompactFileTest::theTemporaryPath_data() {
    QTest::addColumn<QString>("database");
    QTest::addColumn<QString>("expected");
    QTest::newRow("plain") << u"/data/DicomDB.mdb"_s << u"/data/DicomDB2.mdb"_s;
    QTest::newRow("the last of two") << u"/data/a.mdb.mdb"_s << u"/data/a.mdb2.mdb"_s;
    QTest::newRow("what follows goes") << u"/data/a.mdb.old"_s << u"/data/a2.mdb"_s;
    QTest::newRow("upper case") << u"/data/DB.MDB"_s << QString{};
    QTest::newRow("none") << u"/data/DB"_s << QString{};
}

void CompactFileTest::theTemporaryPath() {
    QFETCH(QString, database);
    QFETCH(QString, expected);
    if (expected.isEmpty())
        QVERIFY_EXCEPTION_THROWN((void)maintenance::temporaryPathOf(nativePath(database)),
                                 std::runtime_error);
    else
        QCOMPARE(maintenance::temporaryPathOf(nativePath(database)).native(), nativePath(expected));
}

void CompactFileTest::aCompactedDatabaseTakesThePlace() {
    const qint64 before = QFileInfo{path()}.size();
    QCOMPARE(compact(path()), QString{});
    QVERIFY(QFileInfo{path()}.size() < before * 3 / 4);
    QCOMPARE(companions(), QStringList{});
    QCOMPARE(database().value(u"PRAGMA freelist_count"_s), u"0"_s);
    checkContent(1000);
}

void CompactFileTest::theJournalModeStays_data() {
    QTest::addColumn<QString>("mode");
    QTest::newRow("log") << u"wal"_s;
    QTest::newRow("rollback") << u"delete"_s;
}

void CompactFileTest::theJournalModeStays() {
    QFETCH(QString, mode);
    database().run(u"PRAGMA journal_mode="_s + mode);
    database().release();
    QCOMPARE(compact(path()), QString{});
    QCOMPARE(companions(), QStringList{});
    QCOMPARE(database().value(u"PRAGMA journal_mode"_s), mode);
    checkContent(1000);
}

void CompactFileTest::anUnfinishedLogIsNotLost() {
    {
        const Other killed{path()};
        killed.leaveLog();
        QVERIFY(killed.run(
            "INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile, SOPClassUID, "
            "TransferSyntaxUID, InstanceNumber) VALUES ('1.2.new', '1.3.1', 'new.dcm', '', '', 1001)"));
    }
    QVERIFY(QFileInfo{path() + u"-wal"_s}.size() > 0);
    QCOMPARE(compact(path()), QString{});
    QCOMPARE(companions(), QStringList{});
    checkContent(1001);
}

void CompactFileTest::ownerModeAndAttributesStay() {
    const QByteArray file = path().toUtf8();
    // Root gives the file away; a user can only keep it.
    const bool root = geteuid() == 0;
    QCOMPARE(chown(file.constData(), root ? 1234 : geteuid(), root ? 4321 : getegid()), 0);
    QCOMPARE(chmod(file.constData(), 0640), 0);
    const bool hasAttributes = setxattr(file.constData(), "user.site", "ward 3", 6, 0) == 0;
    const struct stat before = statusOf(path());
    QCOMPARE(compact(path()), QString{});
    const struct stat after = statusOf(path());
    QCOMPARE(after.st_mode, before.st_mode);
    QCOMPARE(after.st_uid, before.st_uid);
    QCOMPARE(after.st_gid, before.st_gid);
    QVERIFY(after.st_ino != before.st_ino);
    QByteArray value(6, ' ');
    if (hasAttributes) {
        QCOMPARE(getxattr(file.constData(), "user.site", value.data(), 6), 6);
        QCOMPARE(value, "ward 3"_ba);
    }
    checkContent(1000);
}

/// The folder would have each new file read and written by one more user; the database came before that.
void CompactFileTest::aFoldersAccessListIsNotTaken() {
    constexpr quint16 Owner = 1;
    constexpr quint16 User = 2;
    constexpr quint16 Group = 4;
    constexpr quint16 Mask = 16;
    constexpr quint16 Others = 32;
    QByteArray list;
    const auto add = [&list](auto number) {  // as the kernel reads it: little-endian
        for (std::size_t byte = 0; byte < sizeof number; ++byte)
            list.append(static_cast<char>(number >> 8 * byte));
    };
    add(quint32{2});  // the list's version
    const auto entry = [&](quint16 whose, quint16 rights, quint32 id = 0xFFFFFFFF) {
        add(whose);
        add(rights);
        add(id);
    };
    entry(Owner, 7);
    entry(User, 6, 65534);
    entry(Group, 7);
    entry(Mask, 7);
    entry(Others, 0);
    const QByteArray folder = database().folder().toUtf8();
    const QByteArray file = path().toUtf8();
    QCOMPARE(chmod(file.constData(), 0660), 0);
    if (setxattr(folder.constData(), "system.posix_acl_default", list.constData(),
                 static_cast<std::size_t>(list.size()), 0) != 0)
        QCOMPARE(errno, ENOTSUP);  // a file system without such lists has none to give
    const auto hasList = [](const QByteArray& name) {
        return getxattr(name.constData(), "system.posix_acl_access", nullptr, 0) > 0;
    };
    QFile fresh{database().folder() + u"/fresh"_s};
    QVERIFY(fresh.open(QIODevice::WriteOnly));
    const bool folderGives = hasList(fresh.fileName().toUtf8());
    QCOMPARE(folderGives, getxattr(folder.constData(), "system.posix_acl_default", nullptr, 0) > 0);
    const struct stat before = statusOf(path());
    QVERIFY(!hasList(file));
    QCOMPARE(compact(path()), QString{});
    QVERIFY(statusOf(path()).st_ino != before.st_ino);
    QCOMPARE(statusOf(path()).st_mode, before.st_mode);
    QVERIFY(!hasList(file));
    checkContent(1000);
}

void CompactFileTest::theFileBehindALinkIsReplaced() {
    QTemporaryDir elsewhere;
    const QString link = elsewhere.filePath(u"Link.mdb"_s);
    QVERIFY(QFile::link(path(), link));
    const struct stat before = statusOf(path());
    QCOMPARE(compact(link), QString{});
    QCOMPARE(QFile::symLinkTarget(link), path());
    QVERIFY(statusOf(path()).st_ino != before.st_ino);
    QCOMPARE(companions(), QStringList{});
    QCOMPARE(QDir{elsewhere.path()}.entryList(QDir::Files), QStringList{u"Link.mdb"_s});
    checkContent(1000);
}

void CompactFileTest::aLinksOwnCopyGoesWhenItWasOfNoUse() {
    QTemporaryDir elsewhere;
    const QString link = elsewhere.filePath(u"Link.mdb"_s);
    QVERIFY(QFile::link(path(), link));
    const QString bystander = elsewhere.filePath(u"bystander"_s);
    QFile file{bystander};
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("mine") > 0);
    file.close();
    // In the copy's place stands what a killed run left, and by now it leads elsewhere.
    QVERIFY(QFile::link(bystander, path() + u".compacted"_s));
    QCOMPARE(compact(link), QString{});
    QCOMPARE(companions(), QStringList{});
    QCOMPARE(contentOf(bystander), "mine"_ba);
    checkContent(1000);

    // A newcomer makes the copy useless.
    fillAnew(20'000);
    QFile newcomer{path()};
    const QString failure = compact(link, opening(newcomer));
    QVERIFY(newcomer.isOpen());
    if (hasLeases())
        QCOMPARE(failure, u"database is locked"_s);
    QCOMPARE(companions(), QStringList{});
    newcomer.close();
    checkContent(20'000);
}

void CompactFileTest::whoWorksOnItForAMomentIsWaitedFor() {
    auto other = std::make_unique<Other>(path());
    QVERIFY(other->run("BEGIN; SELECT COUNT(*) FROM Image"));
    QCOMPARE(compact(path(), [&other] { other.reset(); }), QString{});
    QVERIFY(!other);
    checkContent(1000);
    const Other stays{path()};
    QVERIFY(stays.run("BEGIN; SELECT COUNT(*) FROM Image"));
    QCOMPARE(compact(path()), u"database is locked"_s);
    checkContent(1000);
}

void CompactFileTest::everythingIsOnTheDiskBeforeTheRename() {
    QFETCH(QString, mode);
    database().run(u"PRAGMA journal_mode="_s + mode);
    database().release();
    {
        const Other killed{path()};
        killed.leaveLog();
        QVERIFY(killed.run(
            "INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile, SOPClassUID, "
            "TransferSyntaxUID, InstanceNumber) VALUES ('1.2.new', '1.3.1', 'new.dcm', '', '', 1001)"));
    }
    const QString folder = u"flush "_s + QFileInfo{database().folder()}.fileName();
    const QStringList steps = compactInChild({path(), u"watch"_s}).split(u'\n', Qt::SkipEmptyParts);
    const auto rename = steps.indexOf(u"rename DicomDB2.mdb to DicomDB.mdb"_s);
    QVERIFY2(rename > 1 && rename + 2 == steps.size(), qPrintable(steps.join(u'|')));
    QVERIFY(steps.mid(0, rename).contains(u"flush DicomDB2.mdb"_s));
    QCOMPARE(steps.at(rename - 1), folder);
    QCOMPARE(steps.at(rename + 1), folder);
    if (mode == u"wal"_s) {
        // The old file has all of its log, and the log is gone for good.
        const auto logGone = steps.indexOf(u"remove DicomDB.mdb-wal"_s);
        QVERIFY(logGone > 0 && logGone < rename - 1);
        QVERIFY(steps.mid(0, logGone).contains(u"flush DicomDB.mdb"_s));
    }
    checkContent(1001);
}

void CompactFileTest::theCopyIsNeverReadableToOthers() {
    // The limit breaks the copy off, so that it can be looked at as it was being written.
    QVERIFY(!compactInChild({path(), u"limit"_s, u"8192"_s}).isEmpty());
    QCOMPARE(statusOf(temporary()).st_mode & 0777U, 0600U);
}

void CompactFileTest::aKilledCompactionLeavesOneOrTheOther() {
    constexpr int Kills = 200;
    fillAnew(4000);

    QProcess whole;
    const auto started = std::chrono::steady_clock::now();
    whole.start(QStringLiteral(COMPACT_CHILD), {path()});
    QVERIFY(whole.waitForFinished(PatienceMs) && whole.exitCode() == 0);
    const auto needed =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started);

    QRandomGenerator random{20061};
    int images = 4000;
    int replaced = 0;
    for (int kill = 0; kill < Kills; ++kill) {
        // A log that nobody has brought home, so that every run has something to lose.
        {
            const Other writer{path()};
            writer.leaveLog();
            ++images;
            const QString row =
                u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile, SOPClassUID, TransferSyntaxUID, InstanceNumber) VALUES ('1.5.%1', '', '', '', '', %1)"_s
                    .arg(images);
            QVERIFY(writer.run(row.toUtf8().constData()));
        }
        const ino_t before = statusOf(path()).st_ino;
        QProcess child;
        child.start(QStringLiteral(COMPACT_CHILD), {path()});
        QVERIFY(child.waitForStarted());
        QThread::usleep(random.bounded(static_cast<int>(needed.count()) + 1));
        child.kill();
        QVERIFY(child.waitForFinished());
        replaced += statusOf(path()).st_ino != before ? 1 : 0;
        checkContent(images);
        if (QTest::currentTestFailed())
            return;
    }
    // Both ends of the range were met, or the instants were not random.
    QVERIFY2(replaced > 0 && replaced < Kills, qPrintable(QString::number(replaced)));
    QCOMPARE(compact(path()), QString{});
    QCOMPARE(companions(), QStringList{});
    checkContent(images);
}

/// Whoever may write the file need not own it: the file itself stays, and with it everybody's rights.
void CompactFileTest::aUserWhoMayNotGiveAwayWritesIntoTheFile() {
    QFETCH(QString, mode);
    if (geteuid() != 0)
        return;  // only root can make a file somebody else's
    database().run(u"PRAGMA journal_mode="_s + mode);
    database().release();
    const QByteArray file = path().toUtf8();
    constexpr uid_t Owner = 1234;
    constexpr gid_t Group = 4321;
    QCOMPARE(chown(file.constData(), Owner, Group), 0);
    QCOMPARE(chmod(file.constData(), 0666), 0);
    QCOMPARE(chmod(database().folder().toUtf8().constData(), 0777), 0);
    const struct stat before = statusOf(path());
    QCOMPARE(compactInChild({path(), u"nobody"_s}), QString{});
    const struct stat after = statusOf(path());
    QCOMPARE(after.st_ino, before.st_ino);
    QCOMPARE(after.st_mode, before.st_mode);
    QCOMPARE(after.st_uid, before.st_uid);
    QCOMPARE(after.st_gid, before.st_gid);
    QVERIFY(after.st_size < before.st_size * 3 / 4);
    QCOMPARE(companions().join(u'|'), QString{});
    QCOMPARE(database().value(u"PRAGMA journal_mode"_s), mode);
    QCOMPARE(database().value(u"PRAGMA freelist_count"_s), u"0"_s);
    checkContent(1000);
}

void CompactFileTest::aKilledWriteIntoTheFileLeavesOneOrTheOther() {
    constexpr int Kills = 60;
    if (geteuid() != 0)
        return;  // only root can make a file somebody else's
    database().run(u"PRAGMA journal_mode=delete"_s);
    fillAnew(4000);
    QCOMPARE(chown(path().toUtf8().constData(), 1234, 4321), 0);
    QCOMPARE(chmod(path().toUtf8().constData(), 0666), 0);
    QCOMPARE(chmod(database().folder().toUtf8().constData(), 0777), 0);
    const auto started = std::chrono::steady_clock::now();
    QCOMPARE(compactInChild({path(), u"nobody"_s}), QString{});
    const auto needed =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started);
    QRandomGenerator random{61020};
    for (int kill = 0; kill < Kills; ++kill) {
        QProcess child;
        child.start(QStringLiteral(COMPACT_CHILD), {path(), u"nobody"_s});
        QVERIFY(child.waitForStarted());
        QThread::usleep(random.bounded(static_cast<int>(needed.count()) + 1));
        child.kill();
        QVERIFY(child.waitForFinished());
        checkContent(4000);
        if (QTest::currentTestFailed())
            return;
    }
}

QTEST_GUILESS_MAIN(CompactFileTest)
#include "tst_compactfile.moc"
