#include <QLineEdit>
#include <QTabWidget>
#include <QTest>

#include "app/Globals.h"
#include "app/TessalyManager.h"
#include "tests/support/BoxScript.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class FtpNodesTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        database_ = std::make_unique<ScratchDatabase>();
        database_->run(u"INSERT INTO FtpNodes VALUES ('Beta', 'b.example', 'ub', 'pb', '/b', 'Lorvo')"_s);
        database_->run(u"INSERT INTO FtpNodes VALUES ('alpha', 'a.example', 'ua', 'pa', '.', 'Quib')"_s);
        database_->openConsoleConnection();
        window_ = std::make_unique<TessalyManager>();
        window_->show();
        window_->LoadFTPNodes();
        window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(2);
    }
    void cleanup() {
        window_.reset();
        database_.reset();
    }

    void listShowsTheTableInOrder();
    void addWritesTheRowAndReloads();
    void emptyFieldsAreRefusedOneByOne();
    void leavingTheDestinationEmptyFillsInADot();
    void aNameOfADicomNodeIsRefused();
    void aDuplicateShowsTheEnginesDescription();
    void modifyKeepsEveryCharacter_data();
    void modifyKeepsEveryCharacter();
    void aVanishedNodeLeavesTheDialogInUpdateMode();
    void deleteAsksAndReloads();
    void deleteKeyAndDoubleClickPressTheButtons();
    void aFailedLoadSaysWhy();

  private:
    [[nodiscard]] Form window() const { return Form{*window_}; }

    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<TessalyManager> window_;
};

void FtpNodesTest::listShowsTheTableInOrder() {
    QCOMPARE(window().headers(u"lstFTPNodes"_s),
             (QStringList{u"Name"_s, u"Host"_s, u"User"_s, u"Password"_s, u"Destination"_s, u"Format"_s}));
    QCOMPARE(window().rows(u"lstFTPNodes"_s),
             (QList<QStringList>{{u"alpha"_s, u"a.example"_s, u"ua"_s, u"pa"_s, u"."_s, u"Quib"_s},
                                 {u"Beta"_s, u"b.example"_s, u"ub"_s, u"pb"_s, u"/b"_s, u"Lorvo"_s}}));
    QCOMPARE(window().selectedRows(u"lstFTPNodes"_s), QStringList{u"alpha"_s});
}

void FtpNodesTest::addWritesTheRowAndReloads() {
    BoxScript script;
    script.drive(u"FTPNode"_s, [](Form form) {
        QCOMPARE(form.window().windowTitle(), u"FTP Node"_s);
        QCOMPARE(form.text(u"cmbType"_s), u"Quib"_s);
        form.type(u"txtName"_s, u" New one"_s);
        form.type(u"txtHost"_s, u"host"_s);
        form.type(u"txtUser"_s, u"user"_s);
        form.type(u"txtPassword"_s, u"seventeen letters"_s);
        form.type(u"txtDestination"_s, u"/in"_s);
        form.choose(u"cmbType"_s, u"Analyze"_s);
        form.click(u"cmdOk"_s);
    });
    window().click(u"cmdFTPAdd"_s);
    QVERIFY(script.isDone());
    // The password box holds sixteen characters, and the name keeps its blanks.
    QCOMPARE(database_->rows(u"SELECT * FROM FtpNodes WHERE Name=' New one'"_s),
             (QList<QStringList>{
                 {u" New one"_s, u"host"_s, u"user"_s, u"seventeen letter"_s, u"/in"_s, u"Analyze"_s}}));
    QCOMPARE(window().rows(u"lstFTPNodes"_s).size(), 3);
    QVERIFY(!Globals::ConfigChanged());
}

void FtpNodesTest::emptyFieldsAreRefusedOneByOne() {
    BoxScript script;
    script.drive(u"FTPNode"_s, [](Form form) {
        const QList<std::pair<QString, QString>> boxes{{u"txtName"_s, u"n"_s},
                                                       {u"txtHost"_s, u"h"_s},
                                                       {u"txtUser"_s, u"u"_s},
                                                       {u"txtPassword"_s, u" "_s}};
        for (const auto& [name, value] : boxes) {
            form.click(u"cmdOk"_s);
            form.type(name, value);
        }
        form.click(u"cmdCancel"_s);
    });
    for (const auto* tag : {"Name", "Host", "User", "Password"})
        script.expect(critical(QString::fromLatin1(tag) + u" cannot be empty"_s));
    window().click(u"cmdFTPAdd"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database_->value(u"SELECT count(*) FROM FtpNodes"_s), u"2"_s);
}

void FtpNodesTest::leavingTheDestinationEmptyFillsInADot() {
    BoxScript script;
    script.drive(u"FTPNode"_s, [](Form form) {
        form.window().activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&form.window()));
        form.type(u"txtName"_s, u"dot"_s);
        form.type(u"txtHost"_s, u"h"_s);
        form.type(u"txtUser"_s, u"u"_s);
        form.type(u"txtPassword"_s, u"p"_s);
        form.find(u"txtDestination"_s).setFocus();
        QCOMPARE(form.text(u"txtDestination"_s), QString{});
        form.find(u"txtHost"_s).setFocus();
        QCOMPARE(form.text(u"txtDestination"_s), u"."_s);
        form.click(u"cmdOk"_s);
    });
    window().click(u"cmdFTPAdd"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database_->value(u"SELECT Destination FROM FtpNodes WHERE Name='dot'"_s), u"."_s);
}

void FtpNodesTest::aNameOfADicomNodeIsRefused() {
    database_->run(u"INSERT INTO DicomNodes (Name) VALUES ('PACS')"_s);
    BoxScript script;
    script.drive(u"FTPNode"_s, [](Form form) {
        for (const auto& name :
             {u"txtName"_s, u"txtHost"_s, u"txtUser"_s, u"txtPassword"_s, u"txtDestination"_s})
            form.type(name, u"PACS"_s);
        form.click(u"cmdOk"_s);
        form.click(u"cmdCancel"_s);
    });
    script.expect(plain(u"Node name 'PACS' is already defined in Dicom Nodes"_s));
    window().click(u"cmdFTPAdd"_s);
    QVERIFY(script.isDone());
}

void FtpNodesTest::aDuplicateShowsTheEnginesDescription() {
    BoxScript script;
    script.drive(u"FTPNode"_s, [](Form form) {
        for (const auto& name :
             {u"txtName"_s, u"txtHost"_s, u"txtUser"_s, u"txtPassword"_s, u"txtDestination"_s})
            form.type(name, u"ALPHA"_s);
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        form.click(u"cmdCancel"_s);
    });
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdFTPAdd"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(u"UNIQUE constraint failed: FtpNodes.Name"_s));
    QCOMPARE(database_->value(u"SELECT Host FROM FtpNodes WHERE Name='alpha'"_s), u"a.example"_s);
}

void FtpNodesTest::modifyKeepsEveryCharacter_data() {
    QTest::addColumn<QString>("text");
    QTest::newRow("apostrophe and percent") << u"O'Hara 100%'--"_s;
    QTest::newRow("umlauts") << u"Größe Ä ß"_s;
    QTest::newRow("CJK") << u"東京 서울"_s;
    QTest::newRow("four bytes") << u"🩻🏥"_s;
    QTest::newRow("blanks at both ends") << u"  two  "_s;
}

void FtpNodesTest::modifyKeepsEveryCharacter() {
    QFETCH(QString, text);
    window().selectRow(u"lstFTPNodes"_s, u"Beta"_s);
    BoxScript script;
    script.drive(u"FTPNode"_s, [&](Form form) {
        QVERIFY(form.find<QLineEdit>(u"txtName"_s).isReadOnly());
        QCOMPARE(form.text(u"txtName"_s), u"Beta"_s);
        QCOMPARE(form.text(u"txtPassword"_s), u"pb"_s);
        QCOMPARE(form.text(u"cmbType"_s), u"Lorvo"_s);
        for (const auto& name : {u"txtHost"_s, u"txtUser"_s, u"txtPassword"_s, u"txtDestination"_s})
            form.type(name, text);
        form.click(u"cmdOk"_s);
    });
    window().click(u"cmdFTPModify"_s);
    QVERIFY(script.isDone());
    QCOMPARE(
        database_->rows(u"SELECT Host, UserName, UserPwd, Destination FROM FtpNodes WHERE Name='Beta'"_s),
        (QList<QStringList>{{text, text, text, text}}));
    QCOMPARE(window().rows(u"lstFTPNodes"_s).at(1).at(3), text);
}

void FtpNodesTest::aVanishedNodeLeavesTheDialogInUpdateMode() {
    database_->run(u"DELETE FROM FtpNodes WHERE Name='alpha'"_s);
    BoxScript script;
    script.expect(critical(u"Node alpha not found"_s));
    script.drive(u"FTPNode"_s, [](Form form) {
        QVERIFY(!form.find<QLineEdit>(u"txtName"_s).isReadOnly());
        QCOMPARE(form.text(u"txtName"_s), QString{});
        for (const auto& name : {u"txtHost"_s, u"txtUser"_s, u"txtPassword"_s, u"txtDestination"_s})
            form.type(name, u"x"_s);
        form.type(u"txtName"_s, u"alpha"_s);
        form.click(u"cmdOk"_s);
    });
    window().click(u"cmdFTPModify"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database_->value(u"SELECT count(*) FROM FtpNodes"_s), u"1"_s);
}

void FtpNodesTest::deleteAsksAndReloads() {
    const QString question = u"Are you sure you want to delete alpha?"_s;
    database_->run(u"INSERT INTO FtpNodes (Name) VALUES ('zeta')"_s);
    BoxScript script;
    script.expect(okCancel(question, QMessageBox::Cancel));
    window().click(u"cmdFTPDelete"_s);
    QCOMPARE(window().rows(u"lstFTPNodes"_s).size(), 3);  // reloaded, nothing deleted

    database_->failOn(u"FtpNodes"_s, u"DELETE"_s);
    script.expect(okCancel(question, QMessageBox::Ok));
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdFTPDelete"_s);
    QVERIFY(script.boxes().back().text.contains(ScratchDatabase::Failure));

    database_->allow(u"FtpNodes"_s, u"DELETE"_s);
    script.expect(okCancel(question, QMessageBox::Ok));
    window().click(u"cmdFTPDelete"_s);
    QVERIFY(script.isDone());
    QCOMPARE(window().rows(u"lstFTPNodes"_s).size(), 2);
    QVERIFY(!Globals::ConfigChanged());
}

void FtpNodesTest::deleteKeyAndDoubleClickPressTheButtons() {
    auto& list = window().find<QAbstractItemView>(u"lstFTPNodes"_s);
    BoxScript script;
    script.expect(okCancel(u"Are you sure you want to delete alpha?"_s, QMessageBox::Cancel));
    QTest::keyClick(&list, Qt::Key_Delete);
    script.drive(u"FTPNode"_s, [](Form form) { QTest::keyClick(&form.window(), Qt::Key_Escape); });
    QTest::keyClick(&list, Qt::Key_Return);
    const QPoint cell = list.visualRect(list.model()->index(1, 0)).center();
    QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, cell);
    script.drive(u"FTPNode"_s, [](Form form) {
        QCOMPARE(form.text(u"txtName"_s), u"Beta"_s);
        form.click(u"cmdCancel"_s);
    });
    QTest::mouseDClick(list.viewport(), Qt::LeftButton, {}, cell);
    QVERIFY(script.isDone());
}

void FtpNodesTest::aFailedLoadSaysWhy() {
    database_->run(u"DROP TABLE FtpNodes"_s);
    BoxScript script;
    script.expect(plain(BoxScript::AnyText));
    window_->LoadFTPNodes();
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(u"no such table: FtpNodes"_s));
}

QTEST_MAIN(FtpNodesTest)
#include "tst_ftpnodes.moc"
