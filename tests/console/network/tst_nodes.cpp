#include <QHeaderView>
#include <QLineEdit>
#include <QTest>
#include <QTreeWidget>

#include "console/session/Globals.h"
#include "tests/console/network/NodeEditor.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const QString PortRemoteNodes = u"SELECT Port, Name FROM PortRemoteNodes ORDER BY Port, Name"_s;

}  // namespace

class NodesTest : public NodeEditorTest {
    Q_OBJECT

  private Q_SLOTS:
    void listShowsTheTableInOrder();
    void loadKeepsWhatItReadBeforeAFailure();
    void aNewNodeIsAcceptedOnEveryPort();
    void aNodeIsAddedOverLeftOverPlaces();
    void leftOverPlacesStayWhenTheSaveFails();
    void leftOverPlacesStayWhenAPortFails();
    void withoutPortsANodeIsAcceptedNowhere();
    void aPortThatFailsKeepsWhatWasWritten();
    void aDuplicateShowsTheEnginesDescription();
    void modifyShowsAndWritesTheRow();
    void textComesBackUnchanged_data() { addAwkwardTexts(); }
    void textComesBackUnchanged();
    void modifyOfAnEmptyListDoesNothing();
    void deleteRemovesTheNodeAndItsPlaces();
    void deleteWithCancelStillMarksAndReloads();
    void aFailedSecondDeleteTakesTheFirstBack();
    void deleteWithNothingSelectedIsReported();
    void keysAndDoubleClickPressTheButtons();
};

void NodesTest::listShowsTheTableInOrder() {
    checkList({u"Name"_s, u"Host"_s, u"Port"_s, u"AE_Title"_s, u"Local server"_s, u"Storage"_s, u"Query"_s,
               u"Print"_s},
              {{u"CT"_s, u"c.example"_s, u"104"_s, u"CT_AE"_s, u"STORESCP"_s, u""_s, u"X"_s, u"X"_s},
               {u"pacs"_s, u"p.example"_s, u"4242"_s, u"PACS_AE"_s, u"TESSALY"_s, u"X"_s, u""_s, u""_s}});

    auto& list = window().find<QTreeWidget>(u"lstNodes"_s);
    const QList<int> widths{96, 96, 66, 96, 96, 54, 54, 54};
    for (int column = 0; column < widths.size(); ++column) {
        QCOMPARE(list.columnWidth(column), widths.at(column));
        QCOMPARE((list.topLevelItem(0)->textAlignment(column) & Qt::AlignHCenter) != 0, column >= 5);
    }
    list.header()->resizeSection(0, 200);
    reload();
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
    const bool together = ScratchDatabase::isPostgresql();
    answering({plain(containing(together ? u"bigint out of range"_s : u"integer overflow"_s))},
              [this] { reload(); });
    // Where its rows come together or not at all, the list still has what it had.
    QCOMPARE(listed().size(), together ? 2 : 1);
    QCOMPARE(window().selectedRows(u"lstNodes"_s), QStringList{u"CT"_s});
}

void NodesTest::aNewNodeIsAcceptedOnEveryPort() {
    edit({}, [](Form form) {
        fill(form, node(u" New "_s));
        form.type(u"txtPort"_s, u"not a number"_s);  // nobody checks
        fill(form, {{u"cmbLocalTitle"_s, u"STORESCP"_s}, {u"chkQuery"_s, u"0"_s}, {u"chkPrint"_s, u"1"_s}});
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(database().rows(u"SELECT * FROM DicomNodes WHERE Name=' New '"_s),
             (QList<QStringList>{{u" New "_s, u"TITLE"_s, u"STORESCP"_s, u"host"_s, u"not a number"_s, u"1"_s,
                                  u"0"_s, u"1"_s}}));
    QCOMPARE(database().rows(u"SELECT Port FROM PortRemoteNodes WHERE Name=' New ' ORDER BY Port"_s),
             (QList<QStringList>{{u"104"_s}, {u"11112"_s}}));
    QCOMPARE(listed().size(), 3);
    QCOMPARE(window().rows(u"lstPortNodes"_s).size(), 2);  // of the selected port, CT and the new one
    QVERIFY(Globals::ConfigChanged());
}

void NodesTest::aNodeIsAddedOverLeftOverPlaces() {
    database().run(u"INSERT INTO PortRemoteNodes VALUES ('104', 'new'), ('gone', 'new')"_s);
    edit({}, [](Form form) {
        fill(form, node(u"New"_s));
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(stored(u"new"_s, u"Host"_s), u"host"_s);
    QCOMPARE(database().rows(u"SELECT Port, Name FROM PortRemoteNodes WHERE Name='New' ORDER BY Port"_s),
             (QList<QStringList>{{u"104"_s, u"New"_s}, {u"11112"_s, u"New"_s}, {u"gone"_s, u"new"_s}}));
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Name='CT'"_s), u"2"_s);
    QVERIFY(Globals::ConfigChanged());
}

void NodesTest::leftOverPlacesStayWhenTheSaveFails() {
    database().run(u"INSERT INTO PortRemoteNodes VALUES ('104', 'new'), ('gone', 'new')"_s);
    database().failOn(u"DicomNodes"_s, u"INSERT"_s);
    edit({}, {critical(containing(ScratchDatabase::Failure))}, [](Form form) {
        fill(form, node(u"new"_s));
        form.click(u"cmdOk"_s);
        form.click(u"cmdCancel"_s);
    });
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Name='new'"_s), u"2"_s);
}

void NodesTest::leftOverPlacesStayWhenAPortFails() {
    database().run(u"INSERT INTO PortRemoteNodes VALUES ('104', 'new'), ('11112', 'new'), ('gone', 'new')"_s);
    for (const auto* operation : {"INSERT", "UPDATE", "DELETE"})
        database().failOn(u"PortRemoteNodes"_s, QString::fromLatin1(operation));
    const auto before = database().rows(PortRemoteNodes);
    edit({}, {critical(containing(ScratchDatabase::Failure))}, [](Form form) {
        fill(form, node(u"new"_s));
        form.click(u"cmdOk"_s);
        form.click(u"cmdCancel"_s);
    });
    QCOMPARE(database().rows(PortRemoteNodes), before);
}

void NodesTest::withoutPortsANodeIsAcceptedNowhere() {
    database().run(u"DELETE FROM Port"_s);
    const QString noItem = u"No item is selected"_s;
    answering({plain(noItem)}, [this] { manager().LoadPorts(); });
    // The accepted nodes of which port are to be shown afterwards? The node is written by then.
    edit({}, {critical(noItem)}, [](Form form) {
        checkShown(form, {{u"cmbLocalTitle"_s, {}}, {u"chkStore"_s, u"1"_s}});
        fill(form, node(u"new"_s));
        form.click(u"cmdOk"_s);
        form.click(u"cmdCancel"_s);
    });
    QCOMPARE(database().value(u"SELECT count(*) FROM DicomNodes WHERE Name='new'"_s), u"1"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Name='new'"_s), u"0"_s);
    QCOMPARE(listed().size(), 3);        // reloaded before the fault
    QVERIFY(!Globals::ConfigChanged());  // marked after it
}

void NodesTest::aPortThatFailsKeepsWhatWasWritten() {
    for (const auto& port : {u"2"_s, u"3"_s, u"4"_s})
        database().run(u"INSERT INTO Port VALUES (?, 'X', 1, '/', 0, 0, 0)"_s, {port});
    // Ports come in no stated order; the third one that comes is the third row of the table.
    const QString third = database().rows(u"SELECT Port FROM Port"_s).at(2).first();
    database().failOn(u"PortRemoteNodes"_s, u"INSERT"_s, ScratchDatabase::Failure,
                      u"NEW.Port='%1'"_s.arg(third));
    edit({}, {critical(containing(ScratchDatabase::Failure))}, [](Form form) {
        fill(form, node(u"new"_s));
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        QCOMPARE(form.text(u"txtName"_s), u"new"_s);
        form.click(u"cmdCancel"_s);
    });
    QCOMPARE(database().value(u"SELECT count(*) FROM DicomNodes WHERE Name='new'"_s), u"1"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Name='new'"_s), u"2"_s);
    QCOMPARE(listed().size(), 2);  // not reloaded
    QVERIFY(!Globals::ConfigChanged());
}

void NodesTest::aDuplicateShowsTheEnginesDescription() {
    checkRefusals({},
                  {{node(u"PACS"_s), critical(containing(database().twice(u"DicomNodes"_s, u"Name"_s)))}});
    QCOMPARE(stored(u"pacs"_s, u"Host"_s), u"p.example"_s);
}

void NodesTest::modifyShowsAndWritesTheRow() {
    edit(u"pacs"_s, [](Form form) {
        QCOMPARE(form.text(u"txtName"_s), u"pacs"_s);
        QVERIFY(form.find<QLineEdit>(u"txtName"_s).isReadOnly());
        checkShown(form, {{u"txtAETitle"_s, u"PACS_AE"_s},
                          {u"txtHost"_s, u"p.example"_s},
                          {u"txtPort"_s, u"4242"_s},
                          {u"cmbLocalTitle"_s, u"TESSALY"_s},
                          {u"chkStore"_s, u"1"_s},
                          {u"chkQuery"_s, u"0"_s},
                          {u"chkPrint"_s, u"0"_s}});
        fill(form, {{u"cmbLocalTitle"_s, u"STORESCP"_s}, {u"chkStore"_s, u"0"_s}, {u"chkPrint"_s, u"1"_s}});
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(database().rows(u"SELECT * FROM DicomNodes WHERE Name='pacs'"_s),
             (QList<QStringList>{{u"pacs"_s, u"PACS_AE"_s, u"STORESCP"_s, u"p.example"_s, u"4242"_s, u"0"_s,
                                  u"0"_s, u"1"_s}}));
    // Its places on the ports are as they were: none.
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Name='pacs'"_s), u"0"_s);
    QCOMPARE(listed().at(1).at(7), u"X"_s);
    QVERIFY(Globals::ConfigChanged());
}

void NodesTest::textComesBackUnchanged() {
    QFETCH(QString, text);
    checkComesBack({}, {{u"txtName"_s, u"Name"_s, text},
                        {u"txtAETitle"_s, u"AETitle"_s, text},
                        {u"txtHost"_s, u"Host"_s, text},
                        {u"txtPort"_s, u"Port"_s, text}});
    QCOMPARE(database().rows(u"SELECT DISTINCT Name FROM PortRemoteNodes WHERE Name NOT IN ('CT')"_s),
             (QList<QStringList>{{text}}));
    window().selectRow(u"lstNodes"_s, text);
    remove(text, QMessageBox::Ok);
    QCOMPARE(count(), 2);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes"_s), u"2"_s);
}

void NodesTest::modifyOfAnEmptyListDoesNothing() {
    database().run(u"DELETE FROM DicomNodes"_s);
    reload();
    const BoxScript script;
    window().click(u"cmdModifyNode"_s);
    QVERIFY(script.isDone());
}

void NodesTest::deleteRemovesTheNodeAndItsPlaces() {
    remove(u"CT"_s, QMessageBox::Ok);
    QCOMPARE(database().rows(u"SELECT Name FROM DicomNodes"_s), (QList<QStringList>{{u"pacs"_s}}));
    QCOMPARE(database().rows(PortRemoteNodes), QList<QStringList>{});
    QCOMPARE(listed().size(), 1);
    QCOMPARE(window().rows(u"lstPortNodes"_s).size(), 0);
    QVERIFY(Globals::ConfigChanged());
}

void NodesTest::deleteWithCancelStillMarksAndReloads() {
    database().run(u"INSERT INTO DicomNodes (Name) VALUES ('AA')"_s);
    database().run(u"INSERT INTO PortRemoteNodes VALUES ('104', 'AA')"_s);
    remove(u"CT"_s, QMessageBox::Cancel);
    QVERIFY(Globals::ConfigChanged());
    QCOMPARE(listed().size(), 3);
    QCOMPARE(window().rows(u"lstPortNodes"_s).size(), 2);
    QCOMPARE(count(), 3);
    // No transaction is left open: others can write.
    database().run(u"DELETE FROM DicomNodes WHERE Name='AA'"_s);
}

void NodesTest::aFailedSecondDeleteTakesTheFirstBack() {
    database().failOn(u"PortRemoteNodes"_s, u"DELETE"_s);
    database().run(u"UPDATE DicomNodes SET Host='changed' WHERE Name='CT'"_s);
    remove(u"CT"_s, QMessageBox::Ok, {critical(containing(ScratchDatabase::Failure))});
    QCOMPARE(count(), 2);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes"_s), u"2"_s);
    QCOMPARE(listed().front().at(1), u"changed"_s);  // reloaded
    QVERIFY(!Globals::ConfigChanged());
}

void NodesTest::deleteWithNothingSelectedIsReported() {
    database().run(u"DELETE FROM DicomNodes"_s);
    reload();
    database().run(u"INSERT INTO DicomNodes (Name) VALUES ('AA')"_s);
    answering({critical(u"No item is selected"_s)}, [&] { window().click(u"cmdDelNode"_s); });
    QCOMPARE(listed().size(), 1);  // reloaded
    QVERIFY(!Globals::ConfigChanged());
    database().run(u"DELETE FROM DicomNodes"_s);  // nothing holds a lock
}

void NodesTest::keysAndDoubleClickPressTheButtons() {
    checkKeys();
}

QTEST_MAIN(NodesTest)
#include "tst_nodes.moc"
