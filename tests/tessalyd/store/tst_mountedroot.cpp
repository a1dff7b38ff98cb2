#include <dcmtk/dcmdata/dcdeftag.h>

#include <QDir>
#include <QFile>
#include <QTest>
#include <filesystem>

#include "tests/tessalyd/services/retrieve/RetrieveTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
namespace fs = std::filesystem;

/// A root that is not the archive's as things are, and folders in it that are links.
class MountedRootTest : public RetrieveTest {
    Q_OBJECT

  private Q_SLOTS:
    void aRootThatIsNotMountedGetsNothing();
    void aFreshArchiveIsStoredInto();
    void theRootOfARelocatedStudyIsLookedAt();
    void linkedFoldersTakeNoObject_data();
    void linkedFoldersTakeNoObject();
    void linkedFoldersGiveNoObject_data();
    void linkedFoldersGiveNoObject();
    void aLinkedRootIsUsed();

  private:
    [[nodiscard]] QString root() const { return daemon_->database.imageRoot(); }
    static void byLink() {
        QTest::addColumn<QString>("folder");
        QTest::newRow("study") << u"/1.2.826.0.1.1"_s;
        QTest::newRow("series") << u"/1.2.826.0.1.1/1.2.826.0.1.1.1"_s;
    }
    /// Puts a link to the folder, moved elsewhere, in its place.
    void replaceByLink(const QString& folder) const {
        const fs::path original{(root() + folder).toStdString()};
        const fs::path moved{scratch(u"moved"_s).toStdString()};
        fs::rename(original, moved);
        fs::create_symlink(moved, original);
    }
};

void MountedRootTest::aRootThatIsNotMountedGetsNothing() {
    launch();
    QCOMPARE(store({}).status, 0);
    const QString archive = scratch(u"archive"_s);
    QVERIFY(QFile::rename(root(), archive) && QDir{}.mkpath(root()));
    {
        RequestorAssociation peer{daemon_->port()};
        QCOMPARE(peer.store(*makeObject({.instance = "1.2.1"})).status, 0xa700);
        for (const std::string study : {"1.2.2", "1.2.3"})
            QCOMPARE(
                peer.store(*makeObject({.study = study, .series = study + ".1", .instance = study + ".1.1"}))
                    .status,
                0xa700);
    }
    QCOMPARE(daemon_->entries(), QStringList{});
    QCOMPARE(daemon_->images().size(), 1);
    QCOMPARE(daemon_->log().count(u" ERROR "_s), 1);
    QVERIFY2(daemon_->log().contains(u"taken for not mounted"_s), qPrintable(daemon_->log()));
    QVERIFY(QDir{}.rmdir(root()) && QFile::rename(archive, root()));
    QCOMPARE(store({.instance = "1.2.1"}).status, 0);
    QCOMPARE(daemon_->files().size(), 2);
    QVERIFY2(daemon_->log().contains(u"available again"_s), qPrintable(daemon_->log()));
}

void MountedRootTest::aFreshArchiveIsStoredInto() {
    QTemporaryDir other;
    launch({PortRow{}, PortRow{.root = other.path()}});
    QCOMPARE(store({}).status, 0);
    // Its studies are no sign for a root whose name begins as theirs does, nor for another one.
    QCOMPARE(store({.study = "1.3", .series = "1.3.1", .instance = "1.3.1.1"}, 1).status, 0);
    QCOMPARE(QDir{other.path()}.entryList(QDir::Dirs | QDir::NoDotAndDotDot), QStringList{u"1.3"_s});
}

void MountedRootTest::theRootOfARelocatedStudyIsLookedAt() {
    launch();
    QCOMPARE(store({}).status, 0);
    QTemporaryDir other;
    const QString study = u"/1.2.826.0.1.1"_s;
    QVERIFY(QFile::rename(root() + study, other.path() + study));
    daemon_->database.run(u"UPDATE Study SET StudyPath=?"_s, {other.path() + u"\\1.2.826.0.1.1"_s});
    QCOMPARE(store({.instance = "1.2.1"}).status, 0);
    const QString kept = scratch(u"kept"_s);
    fs::copy(other.path().toStdString(), kept.toStdString(), fs::copy_options::recursive);
    QVERIFY(QDir{other.path() + study}.removeRecursively());
    QCOMPARE(store({.instance = "1.2.2"}).status, 0xa700);
    QCOMPARE(QDir{other.path()}.entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{});
    // The port's own root is empty too, and no study is known there any more.
    QCOMPARE(store({.study = "1.3", .series = "1.3.1", .instance = "1.3.1.1"}).status, 0);
    fs::copy(kept.toStdString(), other.path().toStdString(), fs::copy_options::recursive);
    QCOMPARE(store({.instance = "1.2.2"}).status, 0);
}

void MountedRootTest::linkedFoldersTakeNoObject_data() {
    byLink();
}

void MountedRootTest::linkedFoldersTakeNoObject() {
    QFETCH(const QString, folder);
    launch();
    QCOMPARE(store({}).status, 0);
    replaceByLink(folder);
    QCOMPARE(store({.instance = "1.2.1"}).status, 0xa700);
    QCOMPARE(store({.seed = 2}).status, 0xa700);
    int files = 0;
    for (const auto& entry : fs::recursive_directory_iterator{scratch(u"moved"_s).toStdString()})
        files += entry.is_regular_file() ? 1 : 0;
    QCOMPARE(files, 1);
    QCOMPARE(daemon_->images().size(), 1);
}

void MountedRootTest::linkedFoldersGiveNoObject_data() {
    byLink();
}

void MountedRootTest::linkedFoldersGiveNoObject() {
    QFETCH(const QString, folder);
    launchWith();
    QCOMPARE(store({}).status, 0);
    QCOMPARE(store({.series = "1.2.5", .instance = "1.2.5.1"}).status, 0);
    replaceByLink(folder);
    const bool isStudy = folder.count(u'/') == 1;
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::GetStudyRoot, "STUDY", {{DCM_StudyInstanceUID, Study}});
    const Retrieved got = viewer.collect();
    QCOMPARE(got.failed.size(), isStudy ? 2 : 1);
    QCOMPARE(got.objects.size(), isStudy ? 0 : 1);
    QVERIFY2(daemon_->log().contains(u"1.2.826.0.1.1.1.1 not sent: a symbolic link leads to it"_s),
             qPrintable(daemon_->log()));
}

void MountedRootTest::aLinkedRootIsUsed() {
    launchWith();
    const QString real = scratch(u"real"_s);
    QVERIFY(QFile::rename(root(), real) && QFile::link(real, root()));
    QCOMPARE(store({}).status, 0);
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::GetStudyRoot, "STUDY", {{DCM_StudyInstanceUID, Study}});
    QCOMPARE(viewer.collect().objects.size(), 1);
}

QTEST_GUILESS_MAIN(MountedRootTest)
#include "tst_mountedroot.moc"
