#include "tests/maintenance/CompactTest.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>

#include "db/Connection.h"
#include "maintenance/FileCompaction.h"
#include "maintenance/FileLease.h"
#include "tests/support/Eventually.h"
#include "tests/support/PassProgress.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

namespace {

/// Adds that many images with the instance numbers from 1 on.
void fill(const ScratchDatabase& database, int images) {
    database.run(
        u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<%1) INSERT INTO Image "
        "(SOPInstanceUID, SeriesInstanceUID, ImageFile, SOPClassUID, TransferSyntaxUID, InstanceNumber) "
        "SELECT '1.2.'||i, '1.3.'||(i/100), i||'.dcm', '1.2.840', '', i FROM n"_s.arg(images));
}

}  // namespace

CompactTest::CompactTest() = default;
CompactTest::~CompactTest() = default;

void CompactTest::init() {
    database_ = std::make_unique<ScratchDatabase>();
    fill(*database_, 3000);  // the tables alone have some forty pages
    database_->run(u"DELETE FROM Image WHERE CAST(InstanceNumber AS INTEGER) > 1000"_s);
    database_->release();
}

void CompactTest::checkContent(int images) const {
    QCOMPARE(database_->value(u"PRAGMA integrity_check"_s), u"ok"_s);
    QCOMPARE(database_->value(u"SELECT count(*) FROM Image"_s), QString::number(images));
    QCOMPARE(database_->value(u"SELECT sum(InstanceNumber) FROM Image"_s),
             QString::number(qint64{images} * (images + 1) / 2));
    QCOMPARE(database_->value(u"SELECT UserName FROM Users"_s), ScratchDatabase::Administrator);
    database_->release();
}

QStringList CompactTest::companions() const {
    QStringList names = QDir{database_->folder()}.entryList({u"DicomDB*"_s}, QDir::Files);
    names.removeOne(u"DicomDB.mdb"_s);
    return names;
}

void CompactTest::fillAnew(int images) {
    database_->run(u"DELETE FROM Image"_s);
    fill(*database_, images);
    database_->release();
}

bool CompactTest::hasLeases() const {
    using maintenance::FileLease;
    return FileLease{nativePath(path())}.state() != FileLease::State::Unavailable;
}

QByteArray CompactTest::contentOf(const QString& path) {
    QFile file{path};
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray{};
}

struct stat CompactTest::statusOf(const QString& path) {
    struct stat status {};
    stat(path.toUtf8().constData(), &status);
    return status;
}

QString CompactTest::compact(const QString& path, const std::function<void()>& keepAlive,
                             const QString& dataSource) {
    try {
        PassProgress progress;
        progress.breathing = keepAlive;
        maintenance::FileCompaction{nativePath(path), nativePath(dataSource)}.run(db::Connection{}, progress);
        return {};
    } catch (const std::exception& fault) {
        return QString::fromUtf8(fault.what());
    }
}

std::function<void()> CompactTest::opening(QFile& newcomer) {
    return [&newcomer] {
        if (!newcomer.isOpen())
            (void)newcomer.open(QIODevice::ReadOnly);
    };
}

QString CompactTest::compactInChild(const QStringList& arguments) {
    QProcess child;
    child.start(QStringLiteral(COMPACT_CHILD), arguments);
    if (!child.waitForFinished(PatienceMs))
        return u"the child does not end"_s;
    return QString::fromUtf8(child.readAllStandardOutput());
}

CompactTest::Other::Other(const QString& path) {
    sqlite3_open(path.toUtf8().constData(), &handle_);
}

CompactTest::Other::~Other() {
    sqlite3_close(handle_);
}

bool CompactTest::Other::run(const char* sql) const {
    return sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

void CompactTest::Other::leaveLog() const {
    sqlite3_db_config(handle_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

}  // namespace tessaly::test
