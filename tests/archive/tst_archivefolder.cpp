#include <fcntl.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "archive/ArchiveFile.h"
#include "archive/Folder.h"
#include "archive/FormerFile.h"
#include "archive/LeftoverCleaner.h"
#include "tests/archive/UnnamedFiles.h"

using namespace Qt::StringLiterals;
using namespace tessaly::archive;
namespace fs = std::filesystem;

/// Folders of the archive that somebody has put there: links, and what stands in an object's place; each on a
/// file system that has files without a name, and on one that has none.
class ArchiveFolderTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase_data();
    void init();
    void noLinkIsFollowedBelowAFolder_data();
    void noLinkIsFollowedBelowAFolder();
    void aRootMayBeALink();
    void noFileIsWrittenBehindALink_data();
    void noFileIsWrittenBehindALink();
    void aFolderThatBecomesALinkGetsNothing();
    void aFileWhoseFolderWasMovedAwayIsNotPublished();
    void noFormerFileBehindALinkIsRemoved();
    void noLeftoverBehindALinkIsRemoved();
    void whatStandsInTheObjectsPlaceIsSetAside_data();
    void whatStandsInTheObjectsPlaceIsSetAside();
    void whatWasSetAsideIsNeverReplaced();

  private:
    [[nodiscard]] fs::path in(const QString& path) const { return scratch_->filePath(path).toStdString(); }
    [[nodiscard]] QStringList names(const QString& folder) const {
        return QDir{scratch_->filePath(folder)}.entryList(
            QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    }
    void write(const QString& path, const QByteArray& text) const {
        QFile file{scratch_->filePath(path)};
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(text);
    }
    [[nodiscard]] QByteArray read(const QString& path) const {
        QFile file{scratch_->filePath(path)};
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray{};
    }
    void link(const QString& name, const QString& target) const { fs::create_symlink(in(target), in(name)); }
    void store(const char* text) const {
        ArchiveFile file{in(u"root/1/2"_s), "3.dcm"};
        file.write({text, std::strlen(text)});
        file.publish();
        file.keep();
    }
    static int faultOf(const auto& work) {
        try {
            work();
        } catch (const std::system_error& error) {
            return error.code().value();
        }
        return 0;
    }

    std::unique_ptr<QTemporaryDir> scratch_;
};

void ArchiveFolderTest::initTestCase_data() {
    QTest::addColumn<bool>("unnamed");
    QTest::newRow("files without a name") << true;
    QTest::newRow("temporary names") << false;
}

void ArchiveFolderTest::init() {
    QFETCH_GLOBAL(const bool, unnamed);
    tessaly::test::allowUnnamedFiles(unnamed);
    scratch_ = std::make_unique<QTemporaryDir>();
    for (const QString& folder : {u"root/1/2"_s, u"elsewhere/2"_s})
        QVERIFY(QDir{scratch_->path()}.mkpath(folder));
}

void ArchiveFolderTest::noLinkIsFollowedBelowAFolder_data() {
    QTest::addColumn<QString>("way");
    QTest::addColumn<QList<int>>("faults");
    const QList<int> link{ELOOP, ENOTDIR};
    QTest::newRow("a file") << u"1/2/file"_s << QList<int>{0};
    QTest::newRow("with more separators") << u"1//2/file"_s << QList<int>{0};
    QTest::newRow("a link in the middle") << u"1/link/file"_s << link;
    QTest::newRow("a link first") << u"outside/2/file"_s << link;
    QTest::newRow("a link last") << u"1/2/linked"_s << link;
    QTest::newRow("nothing") << u"1/3/file"_s << QList<int>{ENOENT};
    QTest::newRow("out of the folder") << u"1/../../elsewhere/2/file"_s << QList<int>{EXDEV};
    QTest::newRow("an absolute one") << u"/etc/passwd"_s << QList<int>{EXDEV};
}

void ArchiveFolderTest::noLinkIsFollowedBelowAFolder() {
    QFETCH(const QString, way);
    QFETCH(const QList<int>, faults);
    write(u"root/1/2/file"_s, "text");
    write(u"elsewhere/2/file"_s, "text");
    link(u"root/1/link"_s, u"root/1/2"_s);
    link(u"root/outside"_s, u"elsewhere"_s);
    link(u"root/1/2/linked"_s, u"elsewhere/2/file"_s);
    const tessaly::base::FileDescriptor root = tessaly::archive::openRoot(in(u"root"_s));
    for (const auto open :
         {tessaly::archive::openBeneath,
          tessaly::archive::openStepByStep}) {  // the kernels with openat2, and those without
        errno = 0;
        const tessaly::base::FileDescriptor file = open(root, way.toStdString(), O_RDONLY);
        QVERIFY2(faults.contains(file.isOpen() ? 0 : errno), std::strerror(errno));
    }
}

void ArchiveFolderTest::aRootMayBeALink() {
    fs::rename(in(u"root"_s), in(u"real"_s));
    link(u"root"_s, u"real"_s);
    store("text");
    QCOMPARE(read(u"real/1/2/3.dcm"_s), QByteArray{"text"});
}

void ArchiveFolderTest::noFileIsWrittenBehindALink_data() {
    QTest::addColumn<QString>("folder");
    QTest::newRow("study") << u"root/1"_s;
    QTest::newRow("series") << u"root/1/2"_s;
}

void ArchiveFolderTest::noFileIsWrittenBehindALink() {
    QFETCH(const QString, folder);
    fs::remove_all(in(folder));
    link(folder, u"elsewhere"_s);
    const int fault = faultOf([this] { store("text"); });
    QVERIFY2(fault == ELOOP || fault == ENOTDIR, std::strerror(fault));
    QCOMPARE(names(u"elsewhere"_s), QStringList{u"2"_s});
    QCOMPARE(names(u"elsewhere/2"_s), QStringList{});
    QVERIFY(fs::is_symlink(in(folder)));
}

void ArchiveFolderTest::aFolderThatBecomesALinkGetsNothing() {
    write(u"elsewhere/2/3.dcm"_s, "another's");
    {
        ArchiveFile file{in(u"root/1/2"_s), "3.dcm"};
        file.write({"text", 4});
        fs::rename(in(u"root/1"_s), in(u"root/moved"_s));
        link(u"root/1"_s, u"elsewhere"_s);
        QCOMPARE(faultOf([&file] { file.publish(); }), ESTALE);
    }
    QCOMPARE(names(u"elsewhere/2"_s), QStringList{u"3.dcm"_s});
    QCOMPARE(read(u"elsewhere/2/3.dcm"_s), QByteArray{"another's"});
    QCOMPARE(names(u"root/moved/2"_s), QStringList{});
}

void ArchiveFolderTest::aFileWhoseFolderWasMovedAwayIsNotPublished() {
    ArchiveFile file{in(u"root/1/2"_s), "3.dcm"};
    fs::rename(in(u"root/1"_s), in(u"moved"_s));
    QCOMPARE(faultOf([&file] { file.publish(); }), ESTALE);
    QCOMPARE(names(u"moved/2"_s), QStringList{});
}

void ArchiveFolderTest::noFormerFileBehindALinkIsRemoved() {
    write(u"elsewhere/2/3.dcm"_s, "another's");
    fs::remove_all(in(u"root/1"_s));
    link(u"root/1"_s, u"elsewhere"_s);
    FormerFile{in(u"root/1/2/3.dcm"_s)}.remove();
    QCOMPARE(read(u"elsewhere/2/3.dcm"_s), QByteArray{"another's"});
}

void ArchiveFolderTest::noLeftoverBehindALinkIsRemoved() {
    for (const QString& name : {u"elsewhere/2/.tessalyd-7-1.part"_s, u"root/1/2/.tessalyd-7-1.part"_s}) {
        write(name, "half");
        fs::last_write_time(in(name), fs::file_time_type::clock::now() - std::chrono::minutes{1});
    }
    link(u"root/link"_s, u"elsewhere"_s);
    LeftoverCleaner{{in(u"root"_s).string()}}.finish();
    QCOMPARE(names(u"elsewhere/2"_s), QStringList{u".tessalyd-7-1.part"_s});
    QCOMPARE(names(u"root/1/2"_s), QStringList{});
}

void ArchiveFolderTest::whatStandsInTheObjectsPlaceIsSetAside_data() {
    QTest::addColumn<QString>("kind");
    for (const auto* kind : {"folder", "full folder", "link", "pipe"})
        QTest::newRow(kind) << QString::fromLatin1(kind);
}

void ArchiveFolderTest::whatStandsInTheObjectsPlaceIsSetAside() {
    QFETCH(const QString, kind);
    const QString place = u"root/1/2/3.dcm"_s;
    if (kind == u"link"_s)
        link(place, u"elsewhere"_s);
    else if (kind == u"pipe"_s)
        QCOMPARE(::mkfifo(in(place).c_str(), 0600), 0);
    else
        QVERIFY(fs::create_directory(in(place)));
    if (kind == u"full folder"_s)
        write(place + u"/inside"_s, "somebody's");
    store("text");
    QCOMPARE(names(u"root/1/2"_s), (QStringList{u"3.dcm"_s, u"3.dcm.aside-1"_s}));
    QCOMPARE(read(place), QByteArray{"text"});
    QVERIFY(!fs::is_regular_file(fs::symlink_status(in(place + u".aside-1"_s))));
    if (kind == u"full folder"_s)
        QCOMPARE(read(place + u".aside-1/inside"_s), QByteArray{"somebody's"});
}

void ArchiveFolderTest::whatWasSetAsideIsNeverReplaced() {
    for (const char* text : {"first", "second"}) {
        fs::remove(in(u"root/1/2/3.dcm"_s));
        fs::create_directory(in(u"root/1/2/3.dcm"_s));
        write(u"root/1/2/3.dcm/inside"_s, text);
        store("text");
    }
    QCOMPARE(read(u"root/1/2/3.dcm.aside-1/inside"_s), QByteArray{"first"});
    QCOMPARE(read(u"root/1/2/3.dcm.aside-2/inside"_s), QByteArray{"second"});
    QCOMPARE(names(u"root/1/2"_s).size(), 3);
}

QTEST_GUILESS_MAIN(ArchiveFolderTest)
#include "tst_archivefolder.moc"
