// The compaction of the file itself, without any form: what it makes, what it refuses, and what is left when
// it is killed.

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTest>
#include <chrono>
#include <functional>

#include "console/maintenance/Compaction.h"
#include "console/maintenance/FileLease.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

/// Adds that many images with the instance numbers from 1 on.
void fill(const ScratchDatabase& database, int images) {
    database.run(
        u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<%1) INSERT INTO Image "
        "SELECT '1.2.'||i, '1.3.'||(i/100), i||'.dcm', '1.2.840', '', i FROM n"_s.arg(images));
}

QByteArray contentOf(const QString& path) {
    QFile file{path};
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray{};
}

struct stat statusOf(const QString& path) {
    struct stat status {};
    stat(path.toUtf8().constData(), &status);
    return status;
}

std::string nativePath(const QString& path) {
    return path.toStdString();
}

/// The failure of a compaction in this process, empty when it succeeded.
QString compact(
    const QString& path, const std::function<void()>& breathe = [] {}) {
    try {
        maintenance::compactDatabase(nativePath(path), breathe);
        return {};
    } catch (const std::exception& fault) {
        return QString::fromUtf8(fault.what());
    }
}

/// The same, with a newcomer who opens a file while the engine works.
QString compactBeside(QFile& newcomer, const QString& path) {
    return compact(path, [&newcomer] {
        if (!newcomer.isOpen())
            (void)newcomer.open(QIODevice::ReadOnly);
    });
}

/// The failure of a compaction in a process of its own.
QString compactInChild(const QStringList& arguments) {
    QProcess child;
    child.start(QStringLiteral(COMPACT_CHILD), arguments);
    if (!child.waitForFinished())
        return u"the child does not end"_s;
    return QString::fromUtf8(child.readAllStandardOutput());
}

/// Another connection to a database, which the test leaves open or breaks off.
class Other {
  public:
    explicit Other(const QString& path) { sqlite3_open(path.toUtf8().constData(), &handle_); }
    ~Other() { sqlite3_close(handle_); }
    Other(const Other&) = delete;
    Other& operator=(const Other&) = delete;

    [[nodiscard]] bool run(const char* sql) const {
        return sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
    }
    /// Leaves the write-ahead log beside the file when the connection is closed, as a killed process does.
    void leaveLog() const { sqlite3_db_config(handle_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr); }

  private:
    sqlite3* handle_ = nullptr;
};

}  // namespace

class CompactFileTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void cleanup() { database_.reset(); }

    void theTemporaryPath_data();
    void theTemporaryPath();
    void aCompactedDatabaseTakesThePlace();
    void theJournalModeStays_data();
    void theJournalModeStays();
    void anUnfinishedLogIsNotLost();
    void ownerModeAndAttributesStay();
    void theFileBehindALinkIsReplaced();
    void aLinksOwnCopyGoesWhenItWasOfNoUse();
    void aSecondNameIsRefused();
    void everythingIsOnTheDiskBeforeTheRename_data() { theJournalModeStays_data(); }
    void everythingIsOnTheDiskBeforeTheRename();
    void theCopyIsNeverReadableToOthers();
    void leftoversOfAnEarlierRunAreDeleted();
    void aLinkToTheTemporaryFileIsRefused();
    void whatIsNoDatabaseIsRefused();
    void aDamagedDatabaseIsRefused();
    void aDamagedCopyIsRefused();
    void anybodyElseIsARefusal_data();
    void anybodyElseIsARefusal();
    void aLeaseSeesAnIdleDescriptor();
    void whoeverComesMeanwhileIsARefusal();
    void aFullDiskIsRefused();
    void aFolderThatCannotBeWrittenIsRefused_data();
    void aFolderThatCannotBeWrittenIsRefused();
    void aKilledCompactionLeavesOneOrTheOther();

  private:
    [[nodiscard]] QString path() const { return database_->path(); }
    [[nodiscard]] QString temporary() const { return database_->folder() + u"/DicomDB2.mdb"_s; }
    /// Files beside the database that belong to it or to a compaction.
    [[nodiscard]] QStringList companions() const {
        QStringList names = QDir{database_->folder()}.entryList({u"DicomDB*"_s}, QDir::Files);
        names.removeOne(u"DicomDB.mdb"_s);
        return names;
    }
    void checkContent(int images);
    /// As many images instead of those of init(): enough for the engine to call back while it copies them.
    void fillAnew(int images) {
        database_->run(u"DELETE FROM Image"_s);
        fill(*database_, images);
        database_->release();
    }
    [[nodiscard]] bool hasLeases() const {
        using maintenance::FileLease;
        return FileLease{nativePath(path())}.state() != FileLease::State::Unavailable;
    }

    std::unique_ptr<ScratchDatabase> database_;
};

void CompactFileTest::init() {
    database_ = std::make_unique<ScratchDatabase>();
    fill(*database_, 2000);
    database_->run(u"DELETE FROM Image WHERE CAST(InstanceNumber AS INTEGER) > 1000"_s);
    database_->release();
}

/// The database opens, is sound to its last index, and holds these images.
void CompactFileTest::checkContent(int images) {
    QCOMPARE(database_->value(u"PRAGMA integrity_check"_s), u"ok"_s);
    QCOMPARE(database_->value(u"SELECT count(*) FROM Image"_s), QString::number(images));
    QCOMPARE(database_->value(u"SELECT sum(InstanceNumber) FROM Image"_s),
             QString::number(qint64{images} * (images + 1) / 2));
    QCOMPARE(database_->value(u"SELECT UserName FROM Users"_s), ScratchDatabase::Administrator);
    database_->release();
}

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
    QCOMPARE(database_->value(u"PRAGMA freelist_count"_s), u"0"_s);
    checkContent(1000);
}

void CompactFileTest::theJournalModeStays_data() {
    QTest::addColumn<QString>("mode");
    QTest::newRow("log") << u"wal"_s;
    QTest::newRow("rollback") << u"delete"_s;
}

void CompactFileTest::theJournalModeStays() {
    QFETCH(QString, mode);
    database_->run(u"PRAGMA journal_mode="_s + mode);
    database_->release();
    QCOMPARE(compact(path()), QString{});
    QCOMPARE(companions(), QStringList{});
    QCOMPARE(database_->value(u"PRAGMA journal_mode"_s), mode);
    checkContent(1000);
}

void CompactFileTest::anUnfinishedLogIsNotLost() {
    {
        const Other killed{path()};
        killed.leaveLog();
        QVERIFY(killed.run("INSERT INTO Image VALUES ('1.2.new', '1.3.1', 'new.dcm', '', '', 1001)"));
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
    const QString failure = compactBeside(newcomer, link);
    QVERIFY(newcomer.isOpen());
    if (hasLeases())
        QCOMPARE(failure, u"database is locked"_s);
    QCOMPARE(companions(), QStringList{});
    newcomer.close();
    checkContent(20'000);
}

void CompactFileTest::aSecondNameIsRefused() {
    const QString other = database_->folder() + u"/other.mdb"_s;
    QCOMPARE(::link(path().toUtf8().constData(), other.toUtf8().constData()), 0);
    const QByteArray before = contentOf(path());
    QCOMPARE(compact(path()), path() + u" has more than one name"_s);
    QCOMPARE(contentOf(other), before);
    QVERIFY(QFile::remove(other));
    QCOMPARE(compact(path()), QString{});
    checkContent(1000);
}

void CompactFileTest::everythingIsOnTheDiskBeforeTheRename() {
    QFETCH(QString, mode);
    database_->run(u"PRAGMA journal_mode="_s + mode);
    database_->release();
    {
        const Other killed{path()};
        killed.leaveLog();
        QVERIFY(killed.run("INSERT INTO Image VALUES ('1.2.new', '1.3.1', 'new.dcm', '', '', 1001)"));
    }
    const QString folder = u"flush "_s + QFileInfo{database_->folder()}.fileName();
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

void CompactFileTest::leftoversOfAnEarlierRunAreDeleted() {
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

void CompactFileTest::aLinkToTheTemporaryFileIsRefused() {
    // The file that the steps delete first is here the database itself.
    QVERIFY(QFile::rename(path(), temporary()));
    QVERIFY(QFile::link(temporary(), path()));
    const QByteArray before = contentOf(temporary());
    QVERIFY(compact(path()).contains(u"is the database itself"_s));
    QCOMPARE(contentOf(temporary()), before);
}

void CompactFileTest::whatIsNoDatabaseIsRefused() {
    const QString letter = database_->folder() + u"/letter.mdb"_s;
    const QByteArray text = QByteArray("Dear colleague, ").repeated(1000);
    QFile file{letter};
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(text);
    file.close();
    QCOMPARE(compact(letter), u"file is not a database"_s);
    QCOMPARE(contentOf(letter), text);
    QCOMPARE(QDir{database_->folder()}.entryList({u"letter*"_s}), QStringList{u"letter.mdb"_s});
}

void CompactFileTest::aDamagedDatabaseIsRefused() {
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

void CompactFileTest::aDamagedCopyIsRefused() {
    const QByteArray before = contentOf(path());
    const QString failure = compactInChild({path(), u"spoil"_s});
    QVERIFY2(failure.startsWith(u"*** in database main ***"_s), qPrintable(failure));
    QCOMPARE(contentOf(path()), before);
    QCOMPARE(compact(path()), QString{});
    checkContent(1000);
}

void CompactFileTest::anybodyElseIsARefusal_data() {
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

void CompactFileTest::anybodyElseIsARefusal() {
    QFETCH(QString, mode);
    QFETCH(QByteArray, doing);
    database_->run(u"PRAGMA journal_mode="_s + mode);
    database_->release();
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

void CompactFileTest::aLeaseSeesAnIdleDescriptor() {
    using maintenance::FileLease;
    QVERIFY(FileLease{nativePath(path())}.state() != FileLease::State::InUse);
    if (!hasLeases())
        return;  // a file system without leases: the locks are all there is
    const Other idle{path()};
    QVERIFY(FileLease{nativePath(path())}.state() == FileLease::State::InUse);
}

void CompactFileTest::whoeverComesMeanwhileIsARefusal() {
    if (!hasLeases())
        return;  // where the kernel gives no leases he waits for the lock, and is not seen
    fillAnew(20'000);
    const ino_t before = statusOf(path()).st_ino;
    QFile newcomer{path()};
    QCOMPARE(compactBeside(newcomer, path()), u"database is locked"_s);
    QVERIFY(newcomer.isOpen());
    QCOMPARE(statusOf(path()).st_ino, before);
    newcomer.close();
    QCOMPARE(database_->value(u"PRAGMA journal_mode"_s), u"wal"_s);
    checkContent(20'000);
}

void CompactFileTest::aFullDiskIsRefused() {
    const QByteArray before = contentOf(path());
    // From the first page that does not fit to the last.
    for (qint64 room = 0; room < QFileInfo{path()}.size() / 2; room += 40'960) {
        QVERIFY(!compactInChild({path(), u"limit"_s, QString::number(room)}).isEmpty());
        QCOMPARE(contentOf(path()), before);
    }
    QCOMPARE(compactInChild({path()}), QString{});
    checkContent(1000);
}

void CompactFileTest::aFolderThatCannotBeWrittenIsRefused_data() {
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QString>("description");
    QTest::newRow("log") << u"wal"_s << u"attempt to write a readonly database"_s;
    QTest::newRow("rollback") << u"delete"_s << u"unable to open database: %1"_s;
}

void CompactFileTest::aFolderThatCannotBeWrittenIsRefused() {
    QFETCH(QString, mode);
    QFETCH(QString, description);
    database_->run(u"PRAGMA journal_mode="_s + mode);
    database_->release();
    const QByteArray folder = database_->folder().toUtf8();
    const QByteArray before = contentOf(path());
    QCOMPARE(chmod(path().toUtf8().constData(), 0666), 0);
    QCOMPARE(chmod(folder.constData(), 0555), 0);
    const QString failure = compactInChild({path(), u"nobody"_s});
    QCOMPARE(chmod(folder.constData(), 0755), 0);
    QCOMPARE(failure, description.replace(u"%1"_s, temporary()));
    QCOMPARE(contentOf(path()), before);
    QCOMPARE(companions(), QStringList{});
}

void CompactFileTest::aKilledCompactionLeavesOneOrTheOther() {
    constexpr int Kills = 200;
    fillAnew(4000);

    QProcess whole;
    const auto started = std::chrono::steady_clock::now();
    whole.start(QStringLiteral(COMPACT_CHILD), {path()});
    QVERIFY(whole.waitForFinished() && whole.exitCode() == 0);
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
            const QString row = u"INSERT INTO Image VALUES ('1.5.%1', '', '', '', '', %1)"_s.arg(images);
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

QTEST_GUILESS_MAIN(CompactFileTest)
#include "tst_compactfile.moc"
