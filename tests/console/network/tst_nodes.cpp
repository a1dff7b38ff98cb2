#include <QComboBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "tests/dicom/Peers.h"
#include "tests/support/Console.h"
#include "tests/support/ListPage.h"
#include "tests/support/UnusedPort.h"
#include "tests/support/WindowTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const QString PortRemoteNodes = u"SELECT Port, Name FROM PortRemoteNodes ORDER BY Port, Name"_s;

void fillNode(const Form& form, const QString& name) {
    form.type(u"txtName"_s, name);
    form.type(u"txtHost"_s, u"host"_s);
    form.type(u"txtAETitle"_s, u"TITLE"_s);
}

}  // namespace

class NodesTest : public WindowTest {
    Q_OBJECT

  public:
    NodesTest() : WindowTest(Page::Nodes) {}

  protected:
    void seed() const override {
        database().run(u"INSERT INTO Port VALUES ('104', 'STORESCP', 10, '/img', 1, 0, 1)"_s);
        database().run(
            u"INSERT INTO DicomNodes VALUES ('pacs', 'PACS_AE', 'TESSALY', 'p.example', '4242', 1, 0, 0)"_s);
        database().run(
            u"INSERT INTO DicomNodes VALUES ('CT', 'CT_AE', 'STORESCP', 'c.example', '104', 0, 1, 1)"_s);
        for (const auto& port : {u"104"_s, u"11112"_s})
            database().run(u"INSERT INTO PortRemoteNodes VALUES (?, 'CT')"_s, {port});
    }

  private Q_SLOTS:
    void listShowsTheTableInOrder();
    void loadKeepsWhatItReadBeforeAFailure();
    void aNewNodeStartsWithItsDefaults();
    void aNewNodeIsAcceptedOnEveryPort();
    void withoutPortsANodeIsAcceptedNowhere();
    void aPortThatFailsKeepsWhatWasWritten();
    void fieldsAreCheckedInOrder();
    void aNameOfAnFtpNodeIsRefused();
    void aDuplicateShowsTheEnginesDescription();
    void aFaultInTheCheckIsReported();
    void modifyShowsAndWritesTheRow();
    void textComesBackUnchanged_data() { addAwkwardTexts(); }
    void textComesBackUnchanged();
    void boxesHoldTheirLimits();
    void aVanishedNodeLeavesTheDialogInUpdateMode();
    void aTitleThatNoPortHasIsReported();
    void aNodeThatCannotBeReadOpensEmpty();
    void withoutTheTitlesThereIsNoDialog();
    void modifyOfAnEmptyListDoesNothing();
    void deleteRemovesTheNodeAndItsPlaces();
    void deleteWithCancelStillMarksAndReloads();
    void aFailedSecondDeleteTakesTheFirstBack();
    void deleteWithNothingSelectedIsReported();
    void keysAndDoubleClickPressTheButtons();
    void theDialogIsWorkedByKeys();
    void verifyAsksThePeer();
    void verifyOfNobodyIsAnError();
    void verifyOfNonsenseShowsTheDescription();
};

void NodesTest::listShowsTheTableInOrder() {
    QCOMPARE(window().headers(u"lstNodes"_s),
             (QStringList{u"Name"_s, u"Host"_s, u"Port"_s, u"AE_Title"_s, u"Local server"_s, u"Storage"_s,
                          u"Query"_s, u"Print"_s}));
    QCOMPARE(window().rows(u"lstNodes"_s),
             (QList<QStringList>{
                 {u"CT"_s, u"c.example"_s, u"104"_s, u"CT_AE"_s, u"STORESCP"_s, u""_s, u"X"_s, u"X"_s},
                 {u"pacs"_s, u"p.example"_s, u"4242"_s, u"PACS_AE"_s, u"TESSALY"_s, u"X"_s, u""_s, u""_s}}));
    QCOMPARE(window().selectedRows(u"lstNodes"_s), QStringList{u"CT"_s});

    auto& list = window().find<QTreeWidget>(u"lstNodes"_s);
    const QList<int> widths{96, 96, 66, 96, 96, 54, 54, 54};
    for (int column = 0; column < widths.size(); ++column) {
        QCOMPARE(list.columnWidth(column), widths.at(column));
        QCOMPARE((list.topLevelItem(0)->textAlignment(column) & Qt::AlignHCenter) != 0, column >= 5);
    }
    list.header()->resizeSection(0, 200);
    manager().LoadNodes();
    QCOMPARE(list.columnWidth(0), 200);  // as the user left it
}

void NodesTest::loadKeepsWhatItReadBeforeAFailure() {
    // A view under the table's name, of which the second row cannot be computed.
    database().run(u"ALTER TABLE DicomNodes RENAME TO Kept"_s);
    database().run(
        u"CREATE VIEW DicomNodes AS SELECT Name, AETitle, LocalAETitle, "
        "CASE WHEN Name='pacs' THEN CAST(abs(-9223372036854775807 - (length(Name) - 3)) AS VARCHAR(64)) "
        "ELSE Host END AS Host, "
        "Port, Store, Query, Print FROM Kept"_s);
    BoxScript script;
    script.expect(plain(BoxScript::AnyText));
    manager().LoadNodes();
    QVERIFY(script.isDone());
    if (ScratchDatabase::isPostgresql()) {
        // Its rows come together or not at all: the list still has what it had.
        QVERIFY(script.boxes().front().text.contains(u"bigint out of range"_s));
        QCOMPARE(window().rows(u"lstNodes"_s).size(), 2);
    } else {
        QVERIFY(script.boxes().front().text.contains(u"integer overflow"_s));
        QCOMPARE(window().rows(u"lstNodes"_s).size(), 1);
    }
    QCOMPARE(window().selectedRows(u"lstNodes"_s), QStringList{u"CT"_s});
}

void NodesTest::aNewNodeStartsWithItsDefaults() {
    BoxScript script;
    script.drive(u"DicomNode"_s, [](Form form) {
        QCOMPARE(form.window().windowTitle(), u"Dicom Node"_s);
        for (const auto& name : {u"txtName"_s, u"txtAETitle"_s, u"txtHost"_s})
            QCOMPARE(form.text(name), QString{});
        QCOMPARE(form.text(u"txtPort"_s), u"104"_s);
        QCOMPARE(form.text(u"cmbLocalTitle"_s), u"TESSALY"_s);
        QCOMPARE(form.find<QComboBox>(u"cmbLocalTitle"_s).count(), 2);
        QVERIFY(!form.find<QComboBox>(u"cmbLocalTitle"_s).isEditable());
        QVERIFY(!form.find<QLineEdit>(u"txtName"_s).isReadOnly());
        QVERIFY(form.isChecked(u"chkStore"_s));
        QVERIFY(form.isChecked(u"chkQuery"_s));
        QVERIFY(!form.isChecked(u"chkPrint"_s));
        QCOMPARE(form.labels(),
                 (QStringList{u"Name"_s, u"AETitle"_s, u"Host"_s, u"Port"_s, u"Local server"_s}));
        QCOMPARE(form.text(u"chkStore"_s), u"Store"_s);
        QCOMPARE(form.text(u"chkQuery"_s), u"Query"_s);
        QCOMPARE(form.text(u"chkPrint"_s), u"Print"_s);
        QCOMPARE(form.text(u"cmdOk"_s), u"Confirm"_s);
        QCOMPARE(form.text(u"cmdCancel"_s), u"Cancel"_s);
        QCOMPARE(form.text(u"cmdTest"_s), u"Verify"_s);
        QCOMPARE(form.find(u"cmdTest"_s).toolTip(), u"Do a C-ECHO Dicom Verify"_s);
        form.click(u"cmdCancel"_s);
    });
    window().click(u"cmdAddNode"_s);
    QVERIFY(script.isDone());
    QVERIFY(!Globals::ConfigChanged());
}

void NodesTest::aNewNodeIsAcceptedOnEveryPort() {
    BoxScript script;
    script.drive(u"DicomNode"_s, [](Form form) {
        fillNode(form, u" New "_s);
        form.type(u"txtPort"_s, u"not a number"_s);  // nobody checks
        form.choose(u"cmbLocalTitle"_s, u"STORESCP"_s);
        form.check(u"chkQuery"_s, false);
        form.check(u"chkPrint"_s, true);
        form.click(u"cmdOk"_s);
    });
    window().click(u"cmdAddNode"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().rows(u"SELECT * FROM DicomNodes WHERE Name=' New '"_s),
             (QList<QStringList>{{u" New "_s, u"TITLE"_s, u"STORESCP"_s, u"host"_s, u"not a number"_s, u"1"_s,
                                  u"0"_s, u"1"_s}}));
    QCOMPARE(database().rows(u"SELECT Port FROM PortRemoteNodes WHERE Name=' New ' ORDER BY Port"_s),
             (QList<QStringList>{{u"104"_s}, {u"11112"_s}}));
    QCOMPARE(window().rows(u"lstNodes"_s).size(), 3);
    QCOMPARE(window().rows(u"lstPortNodes"_s).size(), 2);  // of the selected port, CT and the new one
    QVERIFY(Globals::ConfigChanged());
}

void NodesTest::withoutPortsANodeIsAcceptedNowhere() {
    database().run(u"DELETE FROM Port"_s);
    BoxScript script;
    script.expect(plain(u"No item is selected"_s));
    manager().LoadPorts();
    script.drive(u"DicomNode"_s, [](Form form) {
        QCOMPARE(form.text(u"cmbLocalTitle"_s), QString{});
        QVERIFY(form.isChecked(u"chkStore"_s));
        fillNode(form, u"new"_s);
        form.click(u"cmdOk"_s);
        form.click(u"cmdCancel"_s);
    });
    // The accepted nodes of which port are to be shown afterwards? The node is written by then.
    script.expect(critical(u"No item is selected"_s));
    window().click(u"cmdAddNode"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM DicomNodes WHERE Name='new'"_s), u"1"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Name='new'"_s), u"0"_s);
    QCOMPARE(window().rows(u"lstNodes"_s).size(), 3);  // reloaded before the fault
    QVERIFY(!Globals::ConfigChanged());                // marked after it
}

void NodesTest::aPortThatFailsKeepsWhatWasWritten() {
    for (const auto& port : {u"2"_s, u"3"_s, u"4"_s})
        database().run(u"INSERT INTO Port VALUES (?, 'X', 1, '/', 0, 0, 0)"_s, {port});
    // Ports come in no stated order; the third one that comes is the third row of the table.
    const QString third = database().rows(u"SELECT Port FROM Port"_s).at(2).first();
    database().failOn(u"PortRemoteNodes"_s, u"INSERT"_s, ScratchDatabase::Failure,
                      u"NEW.Port='%1'"_s.arg(third));
    BoxScript script;
    script.drive(u"DicomNode"_s, [](Form form) {
        fillNode(form, u"new"_s);
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        QCOMPARE(form.text(u"txtName"_s), u"new"_s);
        form.click(u"cmdCancel"_s);
    });
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdAddNode"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(ScratchDatabase::Failure));
    QCOMPARE(database().value(u"SELECT count(*) FROM DicomNodes WHERE Name='new'"_s), u"1"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Name='new'"_s), u"2"_s);
    QCOMPARE(window().rows(u"lstNodes"_s).size(), 2);  // not reloaded
    QVERIFY(!Globals::ConfigChanged());
}

void NodesTest::fieldsAreCheckedInOrder() {
    BoxScript script;
    script.drive(u"DicomNode"_s, [](Form form) {
        form.type(u"txtPort"_s, {});
        for (const auto& name : {u"txtName"_s, u"txtHost"_s, u"txtPort"_s, u"txtAETitle"_s}) {
            form.click(u"cmdOk"_s);
            QVERIFY(form.window().isVisible());
            form.type(name, u" "_s);  // blanks are text
        }
        form.click(u"cmdOk"_s);
    });
    for (const auto& message : {u"Node Name cannot be empty"_s, u"Host name cannot be empty"_s,
                                u"Port cannot be empty"_s, u"AETitle cannot be empty"_s})
        script.expect(plain(message));
    window().click(u"cmdAddNode"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().rows(u"SELECT Host, Port, AETitle FROM DicomNodes WHERE Name=' '"_s),
             (QList<QStringList>{{u" "_s, u" "_s, u" "_s}}));
}

void NodesTest::aNameOfAnFtpNodeIsRefused() {
    database().run(u"INSERT INTO FtpNodes (Name) VALUES ('O''Hara %1')"_s);
    BoxScript script;
    script.drive(u"DicomNode"_s, [](Form form) {
        fillNode(form, u"O'Hara %1"_s);
        form.click(u"cmdOk"_s);
        form.click(u"cmdCancel"_s);
    });
    script.expect(plain(u"Node name 'O'Hara %1' is already defined in FTP Nodes"_s));
    window().click(u"cmdAddNode"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM DicomNodes"_s), u"2"_s);
}

void NodesTest::aDuplicateShowsTheEnginesDescription() {
    BoxScript script;
    script.drive(u"DicomNode"_s, [](Form form) {
        fillNode(form, u"PACS"_s);
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        form.click(u"cmdCancel"_s);
    });
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdAddNode"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(database().twice(u"DicomNodes"_s, u"Name"_s)));
    QCOMPARE(database().value(u"SELECT Host FROM DicomNodes WHERE Name='pacs'"_s), u"p.example"_s);
}

void NodesTest::aFaultInTheCheckIsReported() {
    database().run(u"DROP TABLE FtpNodes"_s);
    BoxScript script;
    script.drive(u"DicomNode"_s, [](Form form) {
        fillNode(form, u"new"_s);
        form.click(u"cmdOk"_s);
        form.click(u"cmdCancel"_s);
    });
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdAddNode"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(database().noTable(u"FTPNodes"_s)));
}

void NodesTest::modifyShowsAndWritesTheRow() {
    window().selectRow(u"lstNodes"_s, u"pacs"_s);
    BoxScript script;
    script.drive(u"DicomNode"_s, [](Form form) {
        QCOMPARE(form.text(u"txtName"_s), u"pacs"_s);
        QVERIFY(form.find<QLineEdit>(u"txtName"_s).isReadOnly());
        QCOMPARE(form.text(u"txtAETitle"_s), u"PACS_AE"_s);
        QCOMPARE(form.text(u"txtHost"_s), u"p.example"_s);
        QCOMPARE(form.text(u"txtPort"_s), u"4242"_s);
        QCOMPARE(form.text(u"cmbLocalTitle"_s), u"TESSALY"_s);
        QVERIFY(form.isChecked(u"chkStore"_s));
        QVERIFY(!form.isChecked(u"chkQuery"_s));
        QVERIFY(!form.isChecked(u"chkPrint"_s));
        form.choose(u"cmbLocalTitle"_s, u"STORESCP"_s);
        form.check(u"chkStore"_s, false);
        form.check(u"chkPrint"_s, true);
        form.click(u"cmdOk"_s);
    });
    window().click(u"cmdModifyNode"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().rows(u"SELECT * FROM DicomNodes WHERE Name='pacs'"_s),
             (QList<QStringList>{{u"pacs"_s, u"PACS_AE"_s, u"STORESCP"_s, u"p.example"_s, u"4242"_s, u"0"_s,
                                  u"0"_s, u"1"_s}}));
    // Its places on the ports are as they were: none.
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Name='pacs'"_s), u"0"_s);
    QCOMPARE(window().rows(u"lstNodes"_s).at(1).at(7), u"X"_s);
    QVERIFY(Globals::ConfigChanged());
}

void NodesTest::textComesBackUnchanged() {
    QFETCH(QString, text);
    BoxScript script;
    script.drive(u"DicomNode"_s, [&](Form form) {
        for (const auto& name : {u"txtName"_s, u"txtAETitle"_s, u"txtHost"_s, u"txtPort"_s})
            form.type(name, text);
        form.click(u"cmdOk"_s);
    });
    window().click(u"cmdAddNode"_s);
    QCOMPARE(database().rows(u"SELECT Name, AETitle, Host, Port FROM DicomNodes WHERE Name=?"_s, {text}),
             (QList<QStringList>{{text, text, text, text}}));
    QCOMPARE(database().rows(u"SELECT DISTINCT Name FROM PortRemoteNodes WHERE Name NOT IN ('CT')"_s),
             (QList<QStringList>{{text}}));

    window().selectRow(u"lstNodes"_s, text);
    script.drive(u"DicomNode"_s, [&](Form form) {
        for (const auto& name : {u"txtName"_s, u"txtAETitle"_s, u"txtHost"_s, u"txtPort"_s})
            QCOMPARE(form.text(name), text);
        form.click(u"cmdOk"_s);
    });
    window().click(u"cmdModifyNode"_s);
    QCOMPARE(database().rows(u"SELECT Name, AETitle, Host, Port FROM DicomNodes WHERE Name=?"_s, {text}),
             (QList<QStringList>{{text, text, text, text}}));

    window().selectRow(u"lstNodes"_s, text);
    script.expect(okCancel(u"Are you sure you want to delete "_s + text + u"?"_s, QMessageBox::Ok));
    window().click(u"cmdDelNode"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM DicomNodes"_s), u"2"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes"_s), u"2"_s);
}

void NodesTest::boxesHoldTheirLimits() {
    BoxScript script;
    script.drive(u"DicomNode"_s, [](Form form) {
        const QList<std::pair<QString, int>> limits{
            {u"txtName"_s, 16}, {u"txtAETitle"_s, 16}, {u"txtHost"_s, 64}, {u"txtPort"_s, 16}};
        for (const auto& [name, limit] : limits) {
            form.type(name, QString{100, u'x'});
            QCOMPARE(form.text(name).size(), limit);
        }
        form.click(u"cmdCancel"_s);
    });
    window().click(u"cmdAddNode"_s);
    QVERIFY(script.isDone());
}

void NodesTest::aVanishedNodeLeavesTheDialogInUpdateMode() {
    database().run(u"DELETE FROM DicomNodes WHERE Name='CT'"_s);
    const auto confirm = [](const QString& name) {
        return [name](Form form) {
            for (const auto& box : {u"txtName"_s, u"txtAETitle"_s, u"txtHost"_s, u"txtPort"_s})
                QCOMPARE(form.text(box), QString{});
            QVERIFY(!form.find<QLineEdit>(u"txtName"_s).isReadOnly());
            QCOMPARE(form.text(u"cmbLocalTitle"_s), QString{});
            for (const auto& box : {u"chkStore"_s, u"chkQuery"_s, u"chkPrint"_s})
                QVERIFY(!form.isChecked(box));
            fillNode(form, name);
            form.type(u"txtPort"_s, u"1"_s);
            form.click(u"cmdOk"_s);
        };
    };
    BoxScript script;
    script.expect(critical(u"Node CT not found"_s));
    script.drive(u"DicomNode"_s, confirm(u"CT"_s));  // an update of nothing
    window().click(u"cmdModifyNode"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM DicomNodes"_s), u"1"_s);
    QVERIFY(Globals::ConfigChanged());

    database().run(u"INSERT INTO DicomNodes (Name) VALUES ('AA')"_s);
    manager().LoadNodes();
    database().run(u"DELETE FROM DicomNodes WHERE Name='AA'"_s);
    script.expect(critical(u"Node AA not found"_s));
    script.drive(u"DicomNode"_s, confirm(u"pacs"_s));  // of another that exists
    window().click(u"cmdModifyNode"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT Host FROM DicomNodes WHERE Name='pacs'"_s), u"host"_s);
}

void NodesTest::aTitleThatNoPortHasIsReported() {
    database().run(u"UPDATE DicomNodes SET LocalAETitle='GONE', Print=1 WHERE Name='CT'"_s);
    BoxScript script;
    script.expect(critical(u"'GONE' is no entry of the list 'Local server'"_s));
    script.drive(u"DicomNode"_s, [](Form form) {
        QCOMPARE(form.text(u"txtName"_s), u"CT"_s);
        QVERIFY(form.find<QLineEdit>(u"txtName"_s).isReadOnly());
        QCOMPARE(form.text(u"txtHost"_s), u"c.example"_s);
        QCOMPARE(form.text(u"cmbLocalTitle"_s), QString{});
        for (const auto& box : {u"chkStore"_s, u"chkQuery"_s, u"chkPrint"_s})
            QVERIFY(!form.isChecked(box));
        form.click(u"cmdCancel"_s);
    });
    window().click(u"cmdModifyNode"_s);
    QVERIFY(script.isDone());
}

void NodesTest::aNodeThatCannotBeReadOpensEmpty() {
    database().run(u"DROP TABLE DicomNodes"_s);
    BoxScript script;
    script.expect(critical(BoxScript::AnyText));
    script.drive(u"DicomNode"_s, [](Form form) {
        QCOMPARE(form.text(u"txtName"_s), QString{});
        form.click(u"cmdCancel"_s);
    });
    window().click(u"cmdModifyNode"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(database().noTable(u"DicomNodes"_s)));
}

void NodesTest::withoutTheTitlesThereIsNoDialog() {
    database().run(u"DROP TABLE Port"_s);
    BoxScript script;
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdAddNode"_s);
    QVERIFY(script.isDone());
}

void NodesTest::modifyOfAnEmptyListDoesNothing() {
    database().run(u"DELETE FROM DicomNodes"_s);
    manager().LoadNodes();
    const BoxScript script;
    window().click(u"cmdModifyNode"_s);
    QVERIFY(script.isDone());
}

void NodesTest::deleteRemovesTheNodeAndItsPlaces() {
    BoxScript script;
    script.expect(okCancel(u"Are you sure you want to delete CT?"_s, QMessageBox::Ok));
    window().click(u"cmdDelNode"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().rows(u"SELECT Name FROM DicomNodes"_s), (QList<QStringList>{{u"pacs"_s}}));
    QCOMPARE(database().rows(PortRemoteNodes), QList<QStringList>{});
    QCOMPARE(window().rows(u"lstNodes"_s).size(), 1);
    QCOMPARE(window().rows(u"lstPortNodes"_s).size(), 0);
    QVERIFY(Globals::ConfigChanged());
}

void NodesTest::deleteWithCancelStillMarksAndReloads() {
    database().run(u"INSERT INTO DicomNodes (Name) VALUES ('AA')"_s);
    database().run(u"INSERT INTO PortRemoteNodes VALUES ('104', 'AA')"_s);
    BoxScript script;
    script.expect(okCancel(u"Are you sure you want to delete CT?"_s, QMessageBox::Cancel));
    window().click(u"cmdDelNode"_s);
    QVERIFY(script.isDone());
    QVERIFY(Globals::ConfigChanged());
    QCOMPARE(window().rows(u"lstNodes"_s).size(), 3);
    QCOMPARE(window().rows(u"lstPortNodes"_s).size(), 2);
    QCOMPARE(database().value(u"SELECT count(*) FROM DicomNodes"_s), u"3"_s);
    // No transaction is left open: others can write.
    database().run(u"DELETE FROM DicomNodes WHERE Name='AA'"_s);
}

void NodesTest::aFailedSecondDeleteTakesTheFirstBack() {
    database().failOn(u"PortRemoteNodes"_s, u"DELETE"_s);
    database().run(u"UPDATE DicomNodes SET Host='changed' WHERE Name='CT'"_s);
    BoxScript script;
    script.expect(okCancel(u"Are you sure you want to delete CT?"_s, QMessageBox::Ok));
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdDelNode"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().back().text.contains(ScratchDatabase::Failure));
    QCOMPARE(database().value(u"SELECT count(*) FROM DicomNodes"_s), u"2"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes"_s), u"2"_s);
    QCOMPARE(window().rows(u"lstNodes"_s).front().at(1), u"changed"_s);  // reloaded
    QVERIFY(!Globals::ConfigChanged());
}

void NodesTest::deleteWithNothingSelectedIsReported() {
    database().run(u"DELETE FROM DicomNodes"_s);
    manager().LoadNodes();
    database().run(u"INSERT INTO DicomNodes (Name) VALUES ('AA')"_s);
    BoxScript script;
    script.expect(critical(u"No item is selected"_s));
    window().click(u"cmdDelNode"_s);
    QVERIFY(script.isDone());
    QCOMPARE(window().rows(u"lstNodes"_s).size(), 1);  // reloaded
    QVERIFY(!Globals::ConfigChanged());
    database().run(u"DELETE FROM DicomNodes"_s);  // nothing holds a lock
}

void NodesTest::keysAndDoubleClickPressTheButtons() {
    checkKeys(manager(),
              {.list = u"lstNodes"_s,
               .dialog = u"DicomNode"_s,
               .keyBox = u"txtName"_s,
               .question = okCancel(u"Are you sure you want to delete CT?"_s, QMessageBox::Cancel)});
}

void NodesTest::theDialogIsWorkedByKeys() {
    BoxScript script;
    script.drive(u"DicomNode"_s, [](Form form) {
        activate(form.window());
        QCOMPARE(form.window().focusWidget(), &form.find(u"txtName"_s));
        QTest::keyClicks(form.window().focusWidget(), u"keys"_s);
        const QStringList order{u"txtAETitle"_s, u"txtHost"_s,  u"txtPort"_s,  u"cmbLocalTitle"_s,
                                u"chkStore"_s,   u"chkQuery"_s, u"chkPrint"_s, u"cmdTest"_s,
                                u"cmdOk"_s,      u"cmdCancel"_s};
        for (const QString& name : order) {
            QTest::keyClick(form.window().focusWidget(), Qt::Key_Tab);
            QCOMPARE(form.window().focusWidget(), &form.find(name));
            if (name == u"txtAETitle"_s || name == u"txtHost"_s)
                QTest::keyClicks(form.window().focusWidget(), u"typed"_s);
        }
        form.find(u"txtPort"_s).setFocus();
        QTest::keyClick(form.window().focusWidget(), Qt::Key_Return);  // Confirm is the default
    });
    window().click(u"cmdAddNode"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT Host FROM DicomNodes WHERE Name='keys'"_s), u"typed"_s);
}

void NodesTest::verifyAsksThePeer() {
    const Peer peer{Peer::Manner::Accepts};
    const Peer refusing{Peer::Manner::Rejects};
    BoxScript script;
    script.drive(u"DicomNode"_s, [&](Form form) {
        form.type(u"txtHost"_s, u"127.0.0.1"_s);  // the name stays empty: nothing else is checked
        form.type(u"txtAETitle"_s, u"REMOTE"_s);
        form.choose(u"cmbLocalTitle"_s, u"STORESCP"_s);
        form.type(u"txtPort"_s, peer.port());
        form.click(u"cmdTest"_s);
        form.type(u"txtPort"_s, refusing.port());
        form.click(u"cmdTest"_s);
        form.click(u"cmdCancel"_s);
    });
    script.expect(plain(u"Verify Succeded"_s));
    script.expect(critical(u"Verify Error"_s));
    window().click(u"cmdAddNode"_s);
    QVERIFY(script.isDone());
    QCOMPARE(peer.callingAETitle(), std::string{"STORESCP"});
    QCOMPARE(peer.calledAETitle(), std::string{"REMOTE"});
    QCOMPARE(refusing.connections(), 1);
    QCOMPARE(database().value(u"SELECT count(*) FROM DicomNodes"_s), u"2"_s);
    QVERIFY(!Globals::ConfigChanged());
}

void NodesTest::verifyOfNobodyIsAnError() {
    BoxScript script;
    script.drive(u"DicomNode"_s, [](Form form) {
        form.type(u"txtHost"_s, u"127.0.0.1"_s);
        form.type(u"txtPort"_s, unusedPort());
        form.click(u"cmdTest"_s);
        form.click(u"cmdCancel"_s);
    });
    script.expect(critical(u"Verify Error"_s));
    window().click(u"cmdModifyNode"_s);
    QVERIFY(script.isDone());
}

void NodesTest::verifyOfNonsenseShowsTheDescription() {
    BoxScript script;
    script.drive(u"DicomNode"_s, [](Form form) {
        form.type(u"txtPort"_s, u"abc"_s);
        form.click(u"cmdTest"_s);
        form.click(u"cmdCancel"_s);
    });
    script.expect(critical(u"Port 'abc' is no number from 1 to 65535"_s));
    window().click(u"cmdModifyNode"_s);
    QVERIFY(script.isDone());
}

QTEST_MAIN(NodesTest)
#include "tst_nodes.moc"
