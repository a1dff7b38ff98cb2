// How the repair looks for the images' files: one by one, and by listing a folder that many images share.

#include <sys/fsuid.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QTest>

#include "tests/console/maintenance/RepairTest.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class RepairFilesTest : public RepairTest {
    Q_OBJECT

  private Q_SLOTS:
    void whatCountsAsAFile_data();
    void whatCountsAsAFile();
    void aFileThatCannotBeLookedUpEndsThePass();
    void aFileThatGoesOrComesMeanwhileCounts();
    void inAFolderOfAnySize_data();
    void inAFolderOfAnySize();

  private:
    [[nodiscard]] QString folder() const { return database().imageRoot() + u"/st/se"_s; }
    /// One series, and that many images of it with their files, named from "0" on.
    void addSeries(int images) const {
        archive().addPatient(1);
        archive().addStudy(u"st"_s, 1);
        archive().addSeries(u"se"_s, u"st"_s);
        QDir{}.mkpath(folder());
        for (int image = 0; image < images; ++image) {
            archive().addImage(QString::number(image), u"se"_s);
            archive().addFile(u"st"_s, u"se"_s, QString::number(image));
        }
    }
};

void RepairFilesTest::whatCountsAsAFile_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("make");
    QTest::addColumn<bool>("kept");
    QTest::newRow("a file") << u"a.dcm"_s << u"touch a.dcm"_s << true;
    QTest::newRow("another case") << u"A.DCM"_s << u"touch a.dcm"_s << false;
    QTest::newRow("blanks and umlauts") << u" Röntgen 1 "_s << u"touch ' Röntgen 1 '"_s << true;
    QTest::newRow("a hidden file") << u".a"_s << u"touch .a"_s << false;
    QTest::newRow("a folder") << u"a"_s << u"mkdir a"_s << false;
    QTest::newRow("no name: the folder itself") << QString{} << u"true"_s << false;
    QTest::newRow("a file in a folder below") << u"b\\a"_s << u"mkdir b; touch b/a"_s << true;
    QTest::newRow("a file in a hidden folder") << u".b\\a"_s << u"mkdir .b; touch .b/a"_s << true;
    QTest::newRow("a hidden file in a folder") << u"b\\.a"_s << u"mkdir b; touch b/.a"_s << false;
    QTest::newRow("a file where a folder is asked") << u"a\\b"_s << u"touch a"_s << false;
    QTest::newRow("a link to a file") << u"l"_s << u"touch a; ln -s a l"_s << true;
    QTest::newRow("a link to nothing") << u"l"_s << u"ln -s a l"_s << false;
    QTest::newRow("a link to itself") << u"l"_s << u"ln -s l l"_s << false;
    QTest::newRow("a pipe") << u"p"_s << u"mkfifo p"_s << false;
    QTest::newRow("a name with a backslash in it") << u"b\\a"_s << uR"(touch 'b\a')"_s << false;
    QTest::newRow("a pattern is a name") << u"*"_s << u"touch a"_s << false;
}

void RepairFilesTest::whatCountsAsAFile() {
    QFETCH(QString, name);
    QFETCH(QString, make);
    QFETCH(bool, kept);
    // Alone in its folder, and after so many others that the folder is listed.
    for (const int others : {0, 10}) {
        cleanup();
        init();
        addSeries(others);
        archive().addImage(name, u"se"_s);
        QCOMPARE(std::system(u"cd '%1' && %2"_s.arg(folder(), make).toUtf8().constData()), 0);
        BoxScript script;
        if (!kept)
            script.expect(plain(Missing));
        script.expect(yesNo(Question, QMessageBox::No));
        repair();
        QVERIFY(script.isDone());
        QCOMPARE(database().value(u"SELECT count(*) FROM Image"_s), QString::number(others + (kept ? 1 : 0)));
    }
}

void RepairFilesTest::aFileThatCannotBeLookedUpEndsThePass() {
    archive().addWholePatient(1, 1);
    const QStringList before = archive().keys();
    const QByteArray folder = database().imageRoot().toUtf8();
    constexpr uid_t Nobody = 65534;
    int user = 0;
    afterFirstRow([&] {
        // Root may look anywhere; nobody may not.
        QCOMPARE(chmod(folder.constData(), 0), 0);
        user = setfsuid(Nobody);
    });
    BoxScript script;
    script.expect(critical(BoxScript::AnyText));
    repair();
    setfsuid(static_cast<uid_t>(user));
    QCOMPARE(chmod(folder.constData(), 0755), 0);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.endsWith(u"1.1.1.2: Permission denied"_s));
    QCOMPARE(takeConsoleEnd(), 1);
    QCOMPARE(archive().keys(), before);
}

void RepairFilesTest::aFileThatGoesOrComesMeanwhileCounts() {
    constexpr int Images = 20;
    addSeries(Images);
    QVERIFY(QFile::remove(folder() + u"/12"_s));
    afterFirstRow([this] {
        archive().addFile(u"st"_s, u"se"_s, u"12"_s);
        QVERIFY(QFile::remove(folder() + u"/15"_s));
    });
    BoxScript script;
    script.expect(plain(Missing)).expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QVERIFY(!archive().keys().contains(u"image 15"_s));
    QCOMPARE(database().value(u"SELECT count(*) FROM Image"_s), QString::number(Images - 1));
}

void RepairFilesTest::inAFolderOfAnySize_data() {
    QTest::addColumn<int>("files");
    for (const int files : {1, 3, 4, 5, 6, 999, 1000, 1001, 1100})
        QTest::addRow("%d", files) << files;
}

void RepairFilesTest::inAFolderOfAnySize() {
    QFETCH(int, files);
    addSeries(files);
    archive().addImage(u"lost"_s, u"se"_s);
    database().run(
        u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile) VALUES ('again', 'se', '0')"_s);
    BoxScript script;
    script.expect(plain(Missing)).expect(yesNo(Question, QMessageBox::No));
    repair();
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM Image"_s), QString::number(files + 1));
    QVERIFY(!archive().keys().contains(u"image lost"_s));
}

QTEST_MAIN(RepairFilesTest)
#include "tst_repairfiles.moc"
