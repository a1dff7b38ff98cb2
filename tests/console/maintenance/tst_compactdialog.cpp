// The compaction of a database that is a file: the file dialog, the file and its copy.

#include <QFileDialog>
#include <QTest>

#include "console/session/Globals.h"
#include "tests/console/maintenance/CompactFormTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class CompactDialogTest : public CompactFormTest {
    Q_OBJECT

  private Q_SLOTS:
    void theFileDialogIsPreset();
    void cancellingTheFileDialogBringsAllBack();
    void theCopyHasTheFilesPlace();
    void anUpperCaseNameIsRefused();
    void aDatabaseInUseIsRefused();
    void theDataSourcesOwnDatabaseIsNotDeleted();
    void reconnectingMayFail();
    void reconnectingIsTriedTwice();
};

void CompactDialogTest::theFileDialogIsPreset() {
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, [this](Form form) {
        auto& dialog = static_cast<QFileDialog&>(form.window());
        QCOMPARE(dialog.objectName(), u"cmnDlg"_s);
        QCOMPARE(dialog.parentWidget(), &repair());
        QCOMPARE(dialog.acceptMode(), QFileDialog::AcceptOpen);
        QCOMPARE(dialog.fileMode(), QFileDialog::ExistingFile);
        QCOMPARE(dialog.nameFilters(), QStringList{u"Database Access (*.mdb)"_s});
        QCOMPARE(dialog.directory().absolutePath(), QCoreApplication::applicationDirPath());
        QCOMPARE(form.text(u"fileNameEdit"_s), u"DicomDB.mdb"_s);
        // One click from the program's folder to that of the database.
        QCOMPARE(dialog.sidebarUrls().count(QUrl::fromLocalFile(database().folder())), 1);
        QVERIFY(dialog.isModal());
        QCOMPARE(window().calls, (QStringList{u"terminate, open"_s, u"timer off, open"_s, u"drop, open"_s}));
        QVERIFY(!Globals::DbConnection().isOpen());
        dialog.reject();
    });
    repair().CompactDB();
    QVERIFY(script.isDone());
}

void CompactDialogTest::cancellingTheFileDialogBringsAllBack() {
    const qint64 size = QFileInfo{database().path()}.size();
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, [](Form form) {
        static_cast<QFileDialog&>(form.window()).reject();
    });
    repair().CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window().calls, Bracket);
    QVERIFY(form().find(u"prgBar"_s).isVisible());
    QVERIFY(!form().find(u"lblWait"_s).isVisible());
    QCOMPARE(QFileInfo{database().path()}.size(), size);
}

void CompactDialogTest::theCopyHasTheFilesPlace() {
    const QString temporary = database().folder() + u"/DicomDB2.mdb"_s;
    QFile stale{temporary};
    QVERIFY(stale.open(QIODevice::WriteOnly) && stale.write("left over") > 0);
    stale.close();
    BoxScript script;
    sayYes(script);
    repair().CompactDB();
    QVERIFY(script.isDone());
    QVERIFY(!QFileInfo::exists(temporary));
    QCOMPARE(database().value(u"PRAGMA integrity_check"_s), u"ok"_s);
    QCOMPARE(database().value(u"PRAGMA journal_mode"_s), u"wal"_s);
}

void CompactDialogTest::anUpperCaseNameIsRefused() {
    const QString upper = database().folder() + u"/DB.MDB"_s;
    QVERIFY(QFile::copy(database().path(), upper));
    const qint64 before = QFileInfo{upper}.size();
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, choose(upper));
    script.expect(plain(u"DBRepair: The name of the database file has no \".mdb\": "_s + upper));
    repair().CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window().calls, Bracket);
    QCOMPARE(QFileInfo{upper}.size(), before);
}

void CompactDialogTest::aDatabaseInUseIsRefused() {
    (void)database().value(u"SELECT count(*) FROM Users"_s);  // and stays open
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, choose(database().path()));
    script.expect(plain(u"DBRepair: database is locked"_s));
    repair().CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window().calls, Bracket);
    QCOMPARE(database().value(u"SELECT count(*) FROM Series"_s), u"1"_s);
}

void CompactDialogTest::theDataSourcesOwnDatabaseIsNotDeleted() {
    // The console works on Site2.mdb; a copy for Site.mdb would have that name.
    const QString site = database().folder() + u"/Site.mdb"_s;
    const QString own = database().folder() + u"/Site2.mdb"_s;
    QVERIFY(QFile::copy(database().path(), site) && QFile::copy(database().path(), own));
    Globals::DbConnection().close();
    database().writeDataSource(own);
    database().openConsoleConnection();
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, choose(site));
    script.expect(plain(u"DBRepair: "_s + own + u" is the database of the data source"_s));
    repair().CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window().calls, Bracket);
    QVERIFY(QFile::exists(own));
}

void CompactDialogTest::reconnectingMayFail() {
    // The file is gone when the connection is to come back: nothing is said, the rest goes on.
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, [this](Form form) {
        QVERIFY(QFile::remove(database().path()));
        static_cast<QFileDialog&>(form.window()).reject();
    });
    repair().CompactDB();
    QVERIFY(script.isDone());
    QVERIFY(!Globals::DbConnection().isOpen());
    QCOMPARE(window().calls, (QStringList{u"terminate, open"_s, u"timer off, open"_s, u"drop, open"_s,
                                          u"timer on, closed"_s, u"refresh, closed"_s}));
}

void CompactDialogTest::reconnectingIsTriedTwice() {
    const QString away = database().folder() + u"/away.mdb"_s;
    window().onTimer = [&] { QVERIFY(QFile::rename(away, database().path())); };
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, [&](Form form) {
        QVERIFY(QFile::rename(database().path(), away));
        static_cast<QFileDialog&>(form.window()).reject();
    });
    repair().CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window().calls.mid(3), (QStringList{u"timer on, closed"_s, u"refresh, open"_s}));
}

QTEST_MAIN(CompactDialogTest)
#include "tst_compactdialog.moc"
