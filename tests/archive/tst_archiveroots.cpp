#include <QDir>
#include <QTemporaryDir>
#include <QTest>
#include <filesystem>

#include "archive/ArchiveRoots.h"

using namespace Qt::StringLiterals;
using namespace tessaly::archive;
namespace fs = std::filesystem;

/// Whether a root is taken for the archive's.
class ArchiveRootsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void anEmptyRootOfKnownStudiesIsRefused();
    void anEmptyRootOfAFreshArchiveIsTaken();
    void aFileSystemsOwnFolderIsNoStudy();
    void aRootThatWasMountedAfterTheStartIsTaken();
    void anotherDeviceIsRefusedUntilTheFormerIsBack();
    void aMissingRootIsLeftToTheFile();
    void aStudyThatComesMeanwhileIsNoSign();

  private:
    [[nodiscard]] bool takes(const std::function<bool()>& hasStudies = [] { return true; }) {
        return roots_->isAvailable(root_.string(), "1.2", hasStudies);
    }
    [[nodiscard]] qsizetype lines(const char* text) const { return reported_.count(QString::fromUtf8(text)); }

    std::unique_ptr<QTemporaryDir> scratch_;
    QString reported_;
    std::unique_ptr<ArchiveRoots> roots_;
    fs::path root_;
};

void ArchiveRootsTest::init() {
    scratch_ = std::make_unique<QTemporaryDir>();
    reported_.clear();
    root_ = scratch_->filePath(u"root"_s).toStdString();
    fs::create_directories(root_ / "1.1");
    roots_ = std::make_unique<ArchiveRoots>([this](Severity severity, const std::string& line) {
        reported_ +=
            (severity == Severity::Error ? u" ERROR "_s : u" INFO "_s) + QString::fromStdString(line);
    });
    roots_->remember({root_.string() + '/'});
}

void ArchiveRootsTest::anEmptyRootOfKnownStudiesIsRefused() {
    QVERIFY(takes());
    fs::rename(root_ / "1.1", scratch_->filePath(u"kept"_s).toStdString());
    for (int i = 0; i < 3; ++i)
        QVERIFY(!takes());
    fs::rename(scratch_->filePath(u"kept"_s).toStdString(), root_ / "1.1");
    for (int i = 0; i < 3; ++i)
        QVERIFY(takes());
    QCOMPARE(lines(" ERROR "), 1);
    QCOMPARE(lines("not mounted"), 1);
    QCOMPARE(lines("available again"), 1);
}

void ArchiveRootsTest::anEmptyRootOfAFreshArchiveIsTaken() {
    fs::remove(root_ / "1.1");
    QVERIFY(takes([] { return false; }));
    QCOMPARE(lines("root"), 0);
}

void ArchiveRootsTest::aFileSystemsOwnFolderIsNoStudy() {
    fs::rename(root_ / "1.1", root_ / "lost+found");
    QVERIFY(!takes());
}

void ArchiveRootsTest::aRootThatWasMountedAfterTheStartIsTaken() {
    fs::remove(root_ / "1.1");
    roots_->remember({root_.string()});
    QVERIFY(!takes());
    fs::remove(root_);
    fs::create_symlink("/proc/self", root_);  // not empty, and never of the device of files
    QVERIFY(takes());
}

void ArchiveRootsTest::anotherDeviceIsRefusedUntilTheFormerIsBack() {
    QVERIFY(takes());
    const fs::path kept{scratch_->filePath(u"kept"_s).toStdString()};
    fs::rename(root_, kept);
    fs::create_symlink("/proc/self", root_);  // not empty, and never of the device of files
    for (const bool known : {true, false})
        QVERIFY(!takes([known] { return known; }));
    fs::remove(root_);
    fs::rename(kept, root_);
    QVERIFY(takes());
    QCOMPARE(lines(" ERROR "), 1);
    QCOMPARE(lines("another file system"), 1);
    QCOMPARE(lines("available again"), 1);
}

void ArchiveRootsTest::aMissingRootIsLeftToTheFile() {
    fs::remove_all(root_);
    QVERIFY(takes());
    QCOMPARE(lines("root"), 0);
}

void ArchiveRootsTest::aStudyThatComesMeanwhileIsNoSign() {
    fs::remove(root_ / "1.1");
    QVERIFY(takes([this] { return fs::create_directory(root_ / "1.3"); }));
}

QTEST_GUILESS_MAIN(ArchiveRootsTest)
#include "tst_archiveroots.moc"
