#include <QComboBox>
#include <QLineEdit>
#include <QTest>
#include <QTreeWidget>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "tests/support/ListPage.h"
#include "tests/support/WindowTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class FtpNodesTest : public WindowTest {
    Q_OBJECT

  public:
    FtpNodesTest() : WindowTest(Page::FtpNodes) {}

  protected:
    void seed() const override {
        database().run(u"INSERT INTO FtpNodes VALUES ('Beta', 'b.example', 'ub', 'pb', '/b', 'Lorvo')"_s);
        database().run(u"INSERT INTO FtpNodes VALUES ('alpha', 'a.example', 'ua', 'pa', '.', 'Quib')"_s);
    }

  private Q_SLOTS:
    void listShowsTheTableInOrder();
    void addWritesTheRowAndReloads();
    void emptyFieldsAreRefusedOneByOne();
    void leavingTheDestinationEmptyFillsInADot();
    void aNameOfADicomNodeIsRefused();
    void aDuplicateShowsTheEnginesDescription();
    void modifyShowsAndWritesTheRow();
    void textComesBackUnchanged_data() { addAwkwardTexts(); }
    void textComesBackUnchanged();
    void boxesHoldTheirLimits();
    void aVanishedNodeLeavesTheDialogInUpdateMode();
    void aTypeThatIsNoneIsReported();
    void aNodeThatCannotBeReadOpensEmpty();
    void modifyOfAnEmptyListDoesNothing();
    void deleteAsksAndReloads();
    void deleteWithNothingSelectedIsReported();
    void keysAndDoubleClickPressTheButtons();
    void aFailedLoadSaysWhy();
};

void FtpNodesTest::listShowsTheTableInOrder() {
    QCOMPARE(window().headers(u"lstFTPNodes"_s),
             (QStringList{u"Name"_s, u"Host"_s, u"User"_s, u"Password"_s, u"Destination"_s, u"Format"_s}));
    QCOMPARE(window().rows(u"lstFTPNodes"_s),
             (QList<QStringList>{{u"alpha"_s, u"a.example"_s, u"ua"_s, u"pa"_s, u"."_s, u"Quib"_s},
                                 {u"Beta"_s, u"b.example"_s, u"ub"_s, u"pb"_s, u"/b"_s, u"Lorvo"_s}}));
    QCOMPARE(window().selectedRows(u"lstFTPNodes"_s), QStringList{u"alpha"_s});
    const QList<int> widths{96, 96, 66, 96, 167};
    for (int column = 0; column < widths.size(); ++column)
        QCOMPARE(window().find<QTreeWidget>(u"lstFTPNodes"_s).columnWidth(column), widths.at(column));
}

void FtpNodesTest::addWritesTheRowAndReloads() {
    BoxScript script;
    script.drive(u"FTPNode"_s, [](Form form) {
        QCOMPARE(form.window().windowTitle(), u"FTP Node"_s);
        QCOMPARE(form.labels(), (QStringList{u"Name"_s, u"Host"_s, u"User"_s, u"Password"_s,
                                             u"Destination dir"_s, u"Type"_s}));
        for (const auto& box :
             {u"txtName"_s, u"txtHost"_s, u"txtUser"_s, u"txtPassword"_s, u"txtDestination"_s})
            QCOMPARE(form.text(box), QString{});
        QVERIFY(!form.find<QLineEdit>(u"txtName"_s).isReadOnly());
        const auto& types = form.find<QComboBox>(u"cmbType"_s);
        QCOMPARE(types.currentText(), u"Quib"_s);
        QVERIFY(!types.isEditable());
        QCOMPARE((QStringList{types.itemText(0), types.itemText(1), types.itemText(2)}),
                 (QStringList{u"Quib"_s, u"Analyze"_s, u"Lorvo"_s}));
        QCOMPARE(types.count(), 3);
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
    QCOMPARE(database().rows(u"SELECT * FROM FtpNodes WHERE Name=' New one'"_s),
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
    QCOMPARE(database().value(u"SELECT count(*) FROM FtpNodes"_s), u"2"_s);
}

void FtpNodesTest::leavingTheDestinationEmptyFillsInADot() {
    BoxScript script;
    script.drive(u"FTPNode"_s, [](Form form) {
        activate(form.window());
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
    QCOMPARE(database().value(u"SELECT Destination FROM FtpNodes WHERE Name='dot'"_s), u"."_s);
    // Confirmed from inside, it has not been left, and is as good as left.
    script.drive(u"FTPNode"_s, [](Form form) {
        form.type(u"txtDestination"_s, {});
        QTest::keyClick(&form.find(u"txtDestination"_s), Qt::Key_Return);
    });
    window().selectRow(u"lstFTPNodes"_s, u"dot"_s);
    window().click(u"cmdFTPModify"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT Destination FROM FtpNodes WHERE Name='dot'"_s), u"."_s);
}

void FtpNodesTest::aNameOfADicomNodeIsRefused() {
    database().run(u"INSERT INTO DicomNodes (Name) VALUES ('PACS')"_s);
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
    QVERIFY(script.boxes().front().text.contains(database().twice(u"FtpNodes"_s, u"Name"_s)));
    QCOMPARE(database().value(u"SELECT Host FROM FtpNodes WHERE Name='alpha'"_s), u"a.example"_s);
}

void FtpNodesTest::modifyShowsAndWritesTheRow() {
    window().selectRow(u"lstFTPNodes"_s, u"Beta"_s);
    BoxScript script;
    script.drive(u"FTPNode"_s, [](Form form) {
        QVERIFY(form.find<QLineEdit>(u"txtName"_s).isReadOnly());
        QCOMPARE(form.text(u"txtName"_s), u"Beta"_s);
        QCOMPARE(form.text(u"txtHost"_s), u"b.example"_s);
        QCOMPARE(form.text(u"txtUser"_s), u"ub"_s);
        QCOMPARE(form.text(u"txtPassword"_s), u"pb"_s);
        QCOMPARE(form.find<QLineEdit>(u"txtPassword"_s).echoMode(), QLineEdit::Normal);
        QCOMPARE(form.text(u"txtDestination"_s), u"/b"_s);
        QCOMPARE(form.text(u"cmbType"_s), u"Lorvo"_s);
        form.type(u"txtHost"_s, u"other"_s);
        form.choose(u"cmbType"_s, u"Analyze"_s);
        form.click(u"cmdOk"_s);
    });
    window().click(u"cmdFTPModify"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().rows(u"SELECT * FROM FtpNodes WHERE Name='Beta'"_s),
             (QList<QStringList>{{u"Beta"_s, u"other"_s, u"ub"_s, u"pb"_s, u"/b"_s, u"Analyze"_s}}));
    QCOMPARE(window().rows(u"lstFTPNodes"_s).at(1).at(1), u"other"_s);
}

void FtpNodesTest::textComesBackUnchanged() {
    QFETCH(QString, text);
    const QStringList boxes{u"txtName"_s, u"txtHost"_s, u"txtUser"_s, u"txtPassword"_s, u"txtDestination"_s};
    BoxScript script;
    script.drive(u"FTPNode"_s, [&](Form form) {
        for (const QString& name : boxes)
            form.type(name, text);
        form.click(u"cmdOk"_s);
    });
    window().click(u"cmdFTPAdd"_s);
    const QList<QStringList> row{{text, text, text, text, text, u"Quib"_s}};
    QCOMPARE(database().rows(u"SELECT * FROM FtpNodes WHERE Name=?"_s, {text}), row);
    QVERIFY(window().rows(u"lstFTPNodes"_s).contains(row.first()));

    window().selectRow(u"lstFTPNodes"_s, text);
    script.drive(u"FTPNode"_s, [&](Form form) {
        for (const QString& name : boxes)
            QCOMPARE(form.text(name), text);
        form.click(u"cmdOk"_s);
    });
    window().click(u"cmdFTPModify"_s);
    QCOMPARE(database().rows(u"SELECT * FROM FtpNodes WHERE Name=?"_s, {text}), row);

    window().selectRow(u"lstFTPNodes"_s, text);
    script.expect(okCancel(u"Are you sure you want to delete "_s + text + u"?"_s, QMessageBox::Ok));
    window().click(u"cmdFTPDelete"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM FtpNodes"_s), u"2"_s);
}

void FtpNodesTest::boxesHoldTheirLimits() {
    BoxScript script;
    script.drive(u"FTPNode"_s, [](Form form) {
        const QList<std::pair<QString, int>> limits{{u"txtName"_s, 16},
                                                    {u"txtHost"_s, 64},
                                                    {u"txtUser"_s, 16},
                                                    {u"txtPassword"_s, 16},
                                                    {u"txtDestination"_s, 128}};
        for (const auto& [name, limit] : limits) {
            form.type(name, QString{200, u'x'});
            QCOMPARE(form.text(name).size(), limit);
        }
        form.click(u"cmdCancel"_s);
    });
    window().click(u"cmdFTPAdd"_s);
    QVERIFY(script.isDone());
}

void FtpNodesTest::aVanishedNodeLeavesTheDialogInUpdateMode() {
    database().run(u"DELETE FROM FtpNodes WHERE Name='alpha'"_s);
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
    QCOMPARE(database().value(u"SELECT count(*) FROM FtpNodes"_s), u"1"_s);
}

void FtpNodesTest::aTypeThatIsNoneIsReported() {
    database().run(u"UPDATE FtpNodes SET NodeType='Other' WHERE Name='alpha'"_s);
    BoxScript script;
    script.expect(critical(u"'Other' is no entry of the list 'Type'"_s));
    script.drive(u"FTPNode"_s, [](Form form) {
        QCOMPARE(form.text(u"txtName"_s), u"alpha"_s);
        QVERIFY(form.find<QLineEdit>(u"txtName"_s).isReadOnly());
        QCOMPARE(form.text(u"cmbType"_s), QString{});
        form.click(u"cmdCancel"_s);
    });
    window().click(u"cmdFTPModify"_s);
    QVERIFY(script.isDone());
}

void FtpNodesTest::aNodeThatCannotBeReadOpensEmpty() {
    database().run(u"DROP TABLE FtpNodes"_s);
    BoxScript script;
    script.expect(critical(BoxScript::AnyText));
    script.drive(u"FTPNode"_s, [](Form form) {
        QCOMPARE(form.text(u"txtName"_s), QString{});
        form.click(u"cmdCancel"_s);
    });
    window().click(u"cmdFTPModify"_s);
    QVERIFY(script.isDone());
}

void FtpNodesTest::modifyOfAnEmptyListDoesNothing() {
    database().run(u"DELETE FROM FtpNodes"_s);
    manager().LoadFTPNodes();
    const BoxScript script;
    window().click(u"cmdFTPModify"_s);
    QVERIFY(script.isDone());
}

void FtpNodesTest::deleteAsksAndReloads() {
    const QString question = u"Are you sure you want to delete alpha?"_s;
    database().run(u"INSERT INTO FtpNodes (Name) VALUES ('zeta')"_s);
    BoxScript script;
    script.expect(okCancel(question, QMessageBox::Cancel));
    window().click(u"cmdFTPDelete"_s);
    QCOMPARE(window().rows(u"lstFTPNodes"_s).size(), 3);  // reloaded, nothing deleted

    database().failOn(u"FtpNodes"_s, u"DELETE"_s);
    script.expect(okCancel(question, QMessageBox::Ok));
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdFTPDelete"_s);
    QVERIFY(script.boxes().back().text.contains(ScratchDatabase::Failure));

    database().allow(u"FtpNodes"_s, u"DELETE"_s);
    script.expect(okCancel(question, QMessageBox::Ok));
    window().click(u"cmdFTPDelete"_s);
    QVERIFY(script.isDone());
    QCOMPARE(window().rows(u"lstFTPNodes"_s).size(), 2);
    QVERIFY(!Globals::ConfigChanged());
}

void FtpNodesTest::deleteWithNothingSelectedIsReported() {
    database().run(u"DELETE FROM FtpNodes"_s);
    manager().LoadFTPNodes();
    BoxScript script;
    script.expect(critical(u"No item is selected"_s));
    window().click(u"cmdFTPDelete"_s);
    QVERIFY(script.isDone());
}

void FtpNodesTest::keysAndDoubleClickPressTheButtons() {
    checkKeys(manager(),
              {.list = u"lstFTPNodes"_s,
               .dialog = u"FTPNode"_s,
               .keyBox = u"txtName"_s,
               .question = okCancel(u"Are you sure you want to delete alpha?"_s, QMessageBox::Cancel)});
}

void FtpNodesTest::aFailedLoadSaysWhy() {
    database().run(u"DROP TABLE FtpNodes"_s);
    BoxScript script;
    script.expect(plain(BoxScript::AnyText));
    manager().LoadFTPNodes();
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(database().noTable(u"FtpNodes"_s)));
}

QTEST_MAIN(FtpNodesTest)
#include "tst_ftpnodes.moc"
