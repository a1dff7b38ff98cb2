#include <QComboBox>
#include <QLineEdit>
#include <QTest>
#include <QTreeWidget>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "tests/console/network/FtpNodeEditor.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

/// The same text in every box.
Fields everywhere(const QString& text) {
    return {{u"txtName"_s, u"Name"_s, text},
            {u"txtHost"_s, u"Host"_s, text},
            {u"txtUser"_s, u"UserName"_s, text},
            {u"txtPassword"_s, u"UserPwd"_s, text},
            {u"txtDestination"_s, u"Destination"_s, text}};
}

}  // namespace

class FtpNodesTest : public FtpNodeEditorTest {
    Q_OBJECT

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
    checkList({u"Name"_s, u"Host"_s, u"User"_s, u"Password"_s, u"Destination"_s, u"Format"_s},
              {{u"alpha"_s, u"a.example"_s, u"ua"_s, u"pa"_s, u"."_s, u"Quib"_s},
               {u"Beta"_s, u"b.example"_s, u"ub"_s, u"pb"_s, u"/b"_s, u"Lorvo"_s}});
    const QList<int> widths{96, 96, 66, 96, 167};
    for (int column = 0; column < widths.size(); ++column)
        QCOMPARE(window().find<QTreeWidget>(u"lstFTPNodes"_s).columnWidth(column), widths.at(column));
}

void FtpNodesTest::addWritesTheRowAndReloads() {
    edit({}, [](Form form) {
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
        fill(form, {{u"txtName"_s, u" New one"_s},
                    {u"txtHost"_s, u"host"_s},
                    {u"txtUser"_s, u"user"_s},
                    {u"txtPassword"_s, u"seventeen letters"_s},
                    {u"txtDestination"_s, u"/in"_s},
                    {u"cmbType"_s, u"Analyze"_s}});
        form.click(u"cmdOk"_s);
    });
    // The password box holds sixteen characters, and the name keeps its blanks.
    QCOMPARE(database().rows(u"SELECT * FROM FtpNodes WHERE Name=' New one'"_s),
             (QList<QStringList>{
                 {u" New one"_s, u"host"_s, u"user"_s, u"seventeen letter"_s, u"/in"_s, u"Analyze"_s}}));
    QCOMPARE(listed().size(), 3);
    QVERIFY(!Globals::ConfigChanged());
}

void FtpNodesTest::emptyFieldsAreRefusedOneByOne() {
    checkRefusals({}, {{{}, critical(u"Name cannot be empty"_s)},
                       {{{u"txtName"_s, u"n"_s}}, critical(u"Host cannot be empty"_s)},
                       {{{u"txtHost"_s, u"h"_s}}, critical(u"User cannot be empty"_s)},
                       {{{u"txtUser"_s, u"u"_s}}, critical(u"Password cannot be empty"_s)}});
}

void FtpNodesTest::leavingTheDestinationEmptyFillsInADot() {
    edit({}, [](Form form) {
        activate(form.window());
        fill(form, {{u"txtName"_s, u"dot"_s},
                    {u"txtHost"_s, u"h"_s},
                    {u"txtUser"_s, u"u"_s},
                    {u"txtPassword"_s, u"p"_s}});
        form.find(u"txtDestination"_s).setFocus();
        QCOMPARE(form.text(u"txtDestination"_s), QString{});
        form.find(u"txtHost"_s).setFocus();
        QCOMPARE(form.text(u"txtDestination"_s), u"."_s);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(stored(u"dot"_s, u"Destination"_s), u"."_s);
    // Confirmed from inside, it has not been left, and is as good as left.
    edit(u"dot"_s, [](Form form) {
        form.type(u"txtDestination"_s, {});
        QTest::keyClick(&form.find(u"txtDestination"_s), Qt::Key_Return);
    });
    QCOMPARE(stored(u"dot"_s, u"Destination"_s), u"."_s);
}

void FtpNodesTest::aNameOfADicomNodeIsRefused() {
    database().run(u"INSERT INTO DicomNodes (Name) VALUES ('PACS')"_s);
    checkRefusals({}, {{valuesOf(everywhere(u"PACS"_s)),
                        plain(u"Node name 'PACS' is already defined in Dicom Nodes"_s)}});
}

void FtpNodesTest::aDuplicateShowsTheEnginesDescription() {
    checkRefusals({}, {{valuesOf(everywhere(u"ALPHA"_s)),
                        critical(containing(database().twice(u"FtpNodes"_s, u"Name"_s)))}});
    QCOMPARE(stored(u"alpha"_s, u"Host"_s), u"a.example"_s);
}

void FtpNodesTest::modifyShowsAndWritesTheRow() {
    edit(u"Beta"_s, [](Form form) {
        QVERIFY(form.find<QLineEdit>(u"txtName"_s).isReadOnly());
        checkShown(form, {{u"txtName"_s, u"Beta"_s},
                          {u"txtHost"_s, u"b.example"_s},
                          {u"txtUser"_s, u"ub"_s},
                          {u"txtPassword"_s, u"pb"_s}});
        QCOMPARE(form.find<QLineEdit>(u"txtPassword"_s).echoMode(), QLineEdit::Normal);
        checkShown(form, {{u"txtDestination"_s, u"/b"_s}, {u"cmbType"_s, u"Lorvo"_s}});
        form.type(u"txtHost"_s, u"other"_s);
        form.choose(u"cmbType"_s, u"Analyze"_s);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(database().rows(u"SELECT * FROM FtpNodes WHERE Name='Beta'"_s),
             (QList<QStringList>{{u"Beta"_s, u"other"_s, u"ub"_s, u"pb"_s, u"/b"_s, u"Analyze"_s}}));
    QCOMPARE(listed().at(1).at(1), u"other"_s);
}

void FtpNodesTest::textComesBackUnchanged() {
    QFETCH(QString, text);
    checkComesBack({}, everywhere(text) << Field{u"cmbType"_s, u"NodeType"_s, u"Quib"_s});
    QVERIFY(listed().contains(QStringList{text, text, text, text, text, u"Quib"_s}));
    window().selectRow(u"lstFTPNodes"_s, text);
    remove(text, QMessageBox::Ok);
    QCOMPARE(count(), 2);
}

void FtpNodesTest::boxesHoldTheirLimits() {
    edit({}, [](Form form) {
        checkLimits(form, {{u"txtName"_s, 16},
                           {u"txtHost"_s, 64},
                           {u"txtUser"_s, 16},
                           {u"txtPassword"_s, 16},
                           {u"txtDestination"_s, 128}});
        form.click(u"cmdCancel"_s);
    });
}

void FtpNodesTest::aVanishedNodeLeavesTheDialogInUpdateMode() {
    database().run(u"DELETE FROM FtpNodes WHERE Name='alpha'"_s);
    editAfter(critical(u"Node alpha not found"_s), u"alpha"_s, [](Form form) {
        QVERIFY(!form.find<QLineEdit>(u"txtName"_s).isReadOnly());
        QCOMPARE(form.text(u"txtName"_s), QString{});
        for (const auto& name : {u"txtHost"_s, u"txtUser"_s, u"txtPassword"_s, u"txtDestination"_s})
            form.type(name, u"x"_s);
        form.type(u"txtName"_s, u"alpha"_s);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(count(), 1);
}

void FtpNodesTest::aTypeThatIsNoneIsReported() {
    database().run(u"UPDATE FtpNodes SET NodeType='Other' WHERE Name='alpha'"_s);
    editAfter(critical(u"'Other' is no entry of the list 'Type'"_s), u"alpha"_s, [](Form form) {
        QCOMPARE(form.text(u"txtName"_s), u"alpha"_s);
        QVERIFY(form.find<QLineEdit>(u"txtName"_s).isReadOnly());
        QCOMPARE(form.text(u"cmbType"_s), QString{});
        form.click(u"cmdCancel"_s);
    });
}

void FtpNodesTest::aNodeThatCannotBeReadOpensEmpty() {
    database().run(u"DROP TABLE FtpNodes"_s);
    editAfter(critical(BoxScript::AnyText), u"alpha"_s, [](Form form) {
        QCOMPARE(form.text(u"txtName"_s), QString{});
        form.click(u"cmdCancel"_s);
    });
}

void FtpNodesTest::modifyOfAnEmptyListDoesNothing() {
    database().run(u"DELETE FROM FtpNodes"_s);
    reload();
    const BoxScript script;
    window().click(u"cmdFTPModify"_s);
    QVERIFY(script.isDone());
}

void FtpNodesTest::deleteAsksAndReloads() {
    checkDeleteAsks(true);
}

void FtpNodesTest::deleteWithNothingSelectedIsReported() {
    database().run(u"DELETE FROM FtpNodes"_s);
    reload();
    answering({critical(u"No item is selected"_s)}, [&] { window().click(u"cmdFTPDelete"_s); });
}

void FtpNodesTest::keysAndDoubleClickPressTheButtons() {
    checkKeys();
}

void FtpNodesTest::aFailedLoadSaysWhy() {
    database().run(u"DROP TABLE FtpNodes"_s);
    checkFailedLoad();
}

QTEST_MAIN(FtpNodesTest)
#include "tst_ftpnodes.moc"
