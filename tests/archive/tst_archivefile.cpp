#include <fcntl.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <memory>
#include <semaphore>
#include <thread>

#include "archive/ArchiveFile.h"
#include "archive/FileLock.h"
#include "archive/FormerFile.h"
#include "archive/LeftoverCleaner.h"
#include "tests/archive/UnnamedFiles.h"
#include "tests/support/Eventually.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::archive;
using namespace tessaly::test;

/// A file on its way into the archive, and those that are left on it; each on a file system that has files
/// without a name, and on one that has none.
class ArchiveFileTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase_data();
    void init();
    void aFileOnItsWayHasNoName();
    void aFolderThatGoesMeanwhileIsMadeAgain();
    void aFileIsReadBackBeforeItHasItsName();
    void aFileThatIsNotKeptLeavesNothing();
    void aFileThatIsKeptStays();
    void aReplacedFileComesBackUnlessKept();
    void leftoversAreTakenAway();
    void nobodyElsesFilesAreTakenAway();
    void whatIsBeingStoredIsNotTakenAway();
    void whatNobodyCanSayOfStaysUnlessItReplaced();
    void whatIsUndecidedIsNotReplaced_data();
    void whatIsUndecidedIsNotReplaced();
    void aPublishedFileKnowsItsName();
    void aFormerFileGoesOnlyIfItIsStillThere();
    void aCopyIsWhole();

  private:
    void write(const QString& file, const QByteArray& text) {
        QFile target{file};
        QVERIFY(target.open(QIODevice::WriteOnly));
        target.write(text);
    }
    void makeOld(const QString& file) {
        QFile target{file};
        QVERIFY(target.open(QIODevice::ReadWrite));
        QVERIFY(
            target.setFileTime(QDateTime::currentDateTime().addSecs(-60), QFileDevice::FileModificationTime));
    }
    [[nodiscard]] static QByteArray read(const QString& file) {
        QFile source{file};
        return source.open(QIODevice::ReadOnly) ? source.readAll() : QByteArray{};
    }
    [[nodiscard]] static QStringList names(const QString& folder) {
        return QDir{folder}.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    }
    [[nodiscard]] static std::span<const char> bytes(const char* text) { return {text, std::strlen(text)}; }
    static void store(const QString& folder, const char* text) {
        ArchiveFile file{folder.toStdString(), "1.dcm"};
        file.write(bytes(text));
        file.publish();
        file.keep();
    }
};

void ArchiveFileTest::initTestCase_data() {
    QTest::addColumn<bool>("unnamed");
    QTest::newRow("files without a name") << true;
    QTest::newRow("temporary names") << false;
}

void ArchiveFileTest::init() {
    QFETCH_GLOBAL(const bool, unnamed);
    allowUnnamedFiles(unnamed);
}

void ArchiveFileTest::aFileOnItsWayHasNoName() {
    const QTemporaryDir root;
    const QString folder = root.filePath(u"1.2/1.2.3"_s);
    for (const char* text : {"first", "second"}) {  // the second replaces the first
        ArchiveFile file{folder.toStdString(), "1.dcm"};
        file.write(bytes(text));
        file.flush();
        QCOMPARE(names(folder).filter(u".part"_s).size(), allowsUnnamedFiles() ? 0 : 1);
        file.publish();
        QCOMPARE(read(folder + u"/1.dcm"_s), QByteArray{text});
        file.keep();
        QCOMPARE(names(folder), QStringList{u"1.dcm"_s});
    }
}

void ArchiveFileTest::aFolderThatGoesMeanwhileIsMadeAgain() {
    const QTemporaryDir root;
    const QString folder = root.filePath(u"1.2/1.2.3"_s);
    ArchiveFile file{folder.toStdString(), "1.dcm"};
    file.write(bytes("text"));
    { const ArchiveFile dropped{folder.toStdString(), "2.dcm"}; }  // takes it away where nothing is in it
    QCOMPARE(QDir{folder}.exists(), !allowsUnnamedFiles());
    file.publish();
    file.keep();
    QCOMPARE(read(folder + u"/1.dcm"_s), QByteArray{"text"});
    QCOMPARE(names(folder), QStringList{u"1.dcm"_s});
}

void ArchiveFileTest::aFileIsReadBackBeforeItHasItsName() {
    const QTemporaryDir root;
    ArchiveFile file{root.filePath(u"1.2/1.2.3"_s).toStdString(), "1.dcm"};
    file.write(bytes("text"));
    QFile reader;
    const base::FileDescriptor again = file.openForReading();
    QVERIFY(reader.open(again.get(), QIODevice::ReadOnly));
    QCOMPARE(reader.readAll(), QByteArray{"text"});
    QVERIFY(::write(again.get(), "x", 1) < 0);
}

void ArchiveFileTest::aFileThatIsNotKeptLeavesNothing() {
    const QTemporaryDir root;
    const std::filesystem::path folder{root.filePath(u"1.2/1.2.3"_s).toStdString()};
    {
        ArchiveFile file{folder, "1.dcm"};
        file.write(bytes("text"));
        QCOMPARE(names(root.filePath(u"1.2"_s)), QStringList{u"1.2.3"_s});
    }
    QCOMPARE(names(root.path()), QStringList{});
    {
        ArchiveFile file{folder, "1.dcm"};
        file.write(bytes("text"));
        file.publish();
        QCOMPARE(names(root.filePath(u"1.2/1.2.3"_s)), QStringList{u"1.dcm"_s});
    }
    QCOMPARE(names(root.path()), QStringList{});
    QVERIFY_EXCEPTION_THROWN((ArchiveFile{"/nowhere/1.2/1.2.3", "1.dcm"}), std::system_error);
}

void ArchiveFileTest::aFileThatIsKeptStays() {
    const QTemporaryDir root;
    const QString folder = root.filePath(u"1.2/1.2.3"_s);
    for (const char* name : {"1.dcm", "2.dcm"}) {
        ArchiveFile file{folder.toStdString(), name};
        file.write(bytes("te"));
        file.write(bytes("xt"));
        file.publish();
        file.keep();
    }
    { const ArchiveFile dropped{folder.toStdString(), "3.dcm"}; }
    QCOMPARE(names(folder), (QStringList{u"1.dcm"_s, u"2.dcm"_s}));
    QCOMPARE(read(folder + u"/2.dcm"_s), QByteArray{"text"});
}

void ArchiveFileTest::aReplacedFileComesBackUnlessKept() {
    const QTemporaryDir root;
    const QString folder = root.filePath(u"1.2/1.2.3"_s);
    const auto replace = [&folder](const char* text, bool keep) {
        ArchiveFile file{folder.toStdString(), "1.dcm"};
        file.write(bytes(text));
        file.publish();
        if (keep)
            file.keep();
    };
    replace("first", true);
    replace("second", false);
    QCOMPARE(read(folder + u"/1.dcm"_s), QByteArray{"first"});
    replace("third", true);
    QCOMPARE(read(folder + u"/1.dcm"_s), QByteArray{"third"});
    QCOMPARE(names(folder), QStringList{u"1.dcm"_s});
}

void ArchiveFileTest::leftoversAreTakenAway() {
    const QTemporaryDir root;
    QDir{root.path()}.mkpath(u"1.2/1.2.3"_s);
    const QString left = root.filePath(u"1.2/1.2.3/.tessalyd-7-1.part"_s);
    write(left, "half");
    makeOld(left);
    const LeftoverCleaner cleaner{{"/nowhere", root.path().toStdString()}};
    EVENTUALLY(!QFile::exists(left));
}

void ArchiveFileTest::nobodyElsesFilesAreTakenAway() {
    const QTemporaryDir root;
    QDir{root.path()}.mkpath(u"1.2/1.2.3"_s);
    const QString folder = root.filePath(u"1.2/1.2.3"_s);
    const QString left = folder + u"/.tessalyd-7-1.part"_s;
    const QString locked = folder + u"/.tessalyd-7-2.part"_s;  // another server writes it
    const QString young = folder + u"/.tessalyd-7-3.part"_s;
    const QString elsewhere = root.filePath(u".tessalyd-7-4.part"_s);
    const QString other = folder + u"/other.part"_s;
    for (const QString& file : {left, locked, elsewhere, other, folder + u"/1.dcm"_s}) {
        write(file, "text");
        makeOld(file);
    }
    const base::FileDescriptor writer{::open(qPrintable(locked), O_RDWR | O_CLOEXEC)};
    QCOMPARE(archive::lockFile(writer), archive::FileLock::Held);
    write(young, "text");
    QFile target{young};
    QVERIFY(target.open(QIODevice::ReadWrite));
    QVERIFY(target.setFileTime(QDateTime::currentDateTime().addSecs(60), QFileDevice::FileModificationTime));
    {
        LeftoverCleaner cleaner{{root.path().toStdString()}};
        cleaner.finish();
    }
    QVERIFY(!QFile::exists(left));
    QCOMPARE(names(folder),
             (QStringList{u".tessalyd-7-2.part"_s, u".tessalyd-7-3.part"_s, u"1.dcm"_s, u"other.part"_s}));
    QVERIFY(QFile::exists(elsewhere));
}

void ArchiveFileTest::whatIsBeingStoredIsNotTakenAway() {
    const QTemporaryDir root;
    const QString folder = root.filePath(u"1.2/1.2.3"_s);
    const auto clean = [&] {  // as another server does when it starts
        for (const QString& name : names(folder))
            makeOld(folder + u'/' + name);
        LeftoverCleaner{{root.path().toStdString()}}.finish();
    };
    {
        ArchiveFile file{folder.toStdString(), "1.dcm"};
        file.write(bytes("first"));
        clean();
        file.publish();
        file.keep();
    }
    {
        ArchiveFile file{folder.toStdString(), "1.dcm"};
        file.write(bytes("second"));
        file.publish();
        clean();  // of the file that was replaced
    }
    QCOMPARE(names(folder), QStringList{u"1.dcm"_s});
    QCOMPARE(read(folder + u"/1.dcm"_s), QByteArray{"first"});
}

void ArchiveFileTest::whatNobodyCanSayOfStaysUnlessItReplaced() {
    const QTemporaryDir root;
    const QString folder = root.filePath(u"1.2/1.2.3"_s);
    for (const char* text : {"first", "second"}) {
        ArchiveFile file{folder.toStdString(), "1.dcm"};
        file.write(bytes(text));
        file.publish();
        file.leave();
    }
    QCOMPARE(read(folder + u"/1.dcm"_s), QByteArray{"first"});
    QCOMPARE(names(folder), QStringList{u"1.dcm"_s});
}

void ArchiveFileTest::whatIsUndecidedIsNotReplaced_data() {
    QTest::addColumn<bool>("first");
    QTest::addColumn<bool>("keeps");
    QTest::newRow("the first of its name, kept") << true << true;
    QTest::newRow("the first of its name, withdrawn") << true << false;
    QTest::newRow("one that replaced another, kept") << false << true;
    QTest::newRow("one that replaced another, withdrawn") << false << false;
}

void ArchiveFileTest::whatIsUndecidedIsNotReplaced() {
    QFETCH(bool, first);
    QFETCH(bool, keeps);
    const QTemporaryDir root;
    const QString folder = root.filePath(u"1.2/1.2.3"_s);
    const QString named = folder + u"/1.dcm"_s;
    if (!first)
        store(folder, "before");
    auto file = std::make_unique<ArchiveFile>(folder.toStdString(), "1.dcm");
    file->write(bytes("undecided"));
    file->publish();
    std::atomic<bool> otherIsDone = false;
    std::binary_semaphore otherMayDecide{0};
    {
        const std::jthread other{[&] {  // as another server does
            ArchiveFile theirs{folder.toStdString(), "1.dcm"};
            theirs.write(bytes("theirs"));
            theirs.publish();
            otherIsDone = true;
            otherMayDecide.acquire();
        }};
        const auto withdraws = qScopeGuard([&] { otherMayDecide.release(); });
        QVERIFY(!QTest::qWaitFor([&] { return otherIsDone.load(); }, 100));
        QCOMPARE(read(named), QByteArray{"undecided"});
        if (keeps)
            file->keep();
        file.reset();
        EVENTUALLY(otherIsDone);
        QCOMPARE(read(named), QByteArray{"theirs"});
    }
    const QByteArray left = keeps ? "undecided" : first ? "" : "before";
    QCOMPARE(read(named), left);
    QCOMPARE(names(left.isEmpty() ? root.path() : folder).size(), left.isEmpty() ? 0 : 1);
}

void ArchiveFileTest::aPublishedFileKnowsItsName() {
    const QTemporaryDir root;
    const QString folder = root.filePath(u"1.2/1.2.3"_s);
    ArchiveFile file{folder.toStdString(), "1.dcm"};
    QVERIFY(!file.replaces());
    file.write(bytes("text"));
    file.publish();
    file.publish();
    QVERIFY(file.replaces());
    write(folder + u"/other"_s, "by somebody who locks nothing");
    std::filesystem::rename((folder + u"/other"_s).toStdString(), (folder + u"/1.dcm"_s).toStdString());
    QVERIFY_EXCEPTION_THROWN(file.publish(), std::system_error);
    QCOMPARE(read(folder + u"/1.dcm"_s), QByteArray{"by somebody who locks nothing"});
}

void ArchiveFileTest::aFormerFileGoesOnlyIfItIsStillThere() {
    const QTemporaryDir root;
    const QString folder = root.filePath(u"1.2/1.2.3"_s);
    const std::filesystem::path named{(folder + u"/1.dcm"_s).toStdString()};
    store(folder, "first");
    std::atomic<bool> otherIsDone = false;
    {
        std::jthread other;
        {
            const FormerFile former{named};
            other = std::jthread{[&] {  // its row is free again: another server stores the instance there
                store(folder, "second");
                otherIsDone = true;
            }};
            QVERIFY(!QTest::qWaitFor([&] { return otherIsDone.load(); }, 100));
            former.remove();
            QCOMPARE(names(folder).filter(u"1.dcm"_s), QStringList{});
        }
        EVENTUALLY(otherIsDone);
    }
    QCOMPARE(read(folder + u"/1.dcm"_s), QByteArray{"second"});
    {
        const FormerFile former{named};
        write(folder + u"/other"_s, "by somebody who locks nothing");
        std::filesystem::rename((folder + u"/other"_s).toStdString(), named);
        former.remove();
    }
    QCOMPARE(read(folder + u"/1.dcm"_s), QByteArray{"by somebody who locks nothing"});
    FormerFile{"/nowhere/1.dcm"}.remove();
}

void ArchiveFileTest::aCopyIsWhole() {
    const QTemporaryDir root;
    const std::string big(3'000'000, 'x');
    {
        ArchiveFile file{root.filePath(u"1/2"_s).toStdString(), "1.dcm"};
        file.write(bytes("begins "));
        file.write(big);
        ArchiveFile copy{root.filePath(u"3/4"_s).toStdString(), "1.dcm"};
        file.copyTo(copy);
        copy.publish();
        copy.keep();
    }
    QCOMPARE(read(root.filePath(u"3/4/1.dcm"_s)), "begins " + QByteArray::fromStdString(big));
    QCOMPARE(names(root.path()), QStringList{u"3"_s});
}

QTEST_GUILESS_MAIN(ArchiveFileTest)
#include "tst_archivefile.moc"
