#include <QTest>

#include "console/session/Globals.h"
#include "tests/console/network/PortEditor.h"
#include "tests/support/Console.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class PortsTest : public PortEditorTest {
    Q_OBJECT

  private Q_SLOTS:
    void listShowsTheTableInOrder();
    void theLastRootPresetsTheRelocation();
    void withoutPortsTheMissingSelectionIsReported();
    void aFailedLoadSaysWhy();
    void aNewPortAcceptsEveryNode();
    void withoutNodesANewPortAcceptsNone();
    void aNewPortThatFailsHalfWayIsNotThere();
    void deleteRepeatsTheListsText();
    void deleteRemovesThePortAndItsPlaces();
    void deleteWithNoChangesNothing();
    void aFailedSecondDeleteTakesTheFirstBack();
    void withNothingSelectedModifyAndDeleteDoNoHarm();
    void keysAndDoubleClickPressTheButtons();
};

void PortsTest::listShowsTheTableInOrder() {
    checkList({u"Port"_s, u"AETitle"_s, u"Max. Connections"_s, u"Decode"_s, u"Root dir"_s},
              {{u"104"_s, u"STORESCP (Checked)"_s, u"10"_s, u""_s, u"/one"_s},
               {u"11112"_s, u"OTHER (Unchecked)"_s, u"20"_s, u"X"_s, u"/two"_s}});
    QCOMPARE(manager().selectedPort(), u"104"_s);
    QCOMPARE(window().rows(u"lstPortNodes"_s).size(), 2);  // those of the selected port
}

void PortsTest::theLastRootPresetsTheRelocation() {
    QCOMPARE(window().text(u"txtPathIni"_s), u"/two"_s);
    QCOMPARE(window().text(u"txtPathFin"_s), u"/two"_s);
}

void PortsTest::withoutPortsTheMissingSelectionIsReported() {
    database().run(u"DELETE FROM Port"_s);
    database().run(u"DELETE FROM PortRemoteNodes"_s);
    answering({plain(u"No item is selected"_s)}, [&] { reload(); });
    QCOMPARE(listed().size(), 0);
    QCOMPARE(window().rows(u"lstPortNodes"_s).size(), 2);  // as it was
    QCOMPARE(window().text(u"lblAcceptedNodes"_s), u"Accepted nodes"_s);
    QCOMPARE(window().text(u"txtPathIni"_s), u"/two"_s);
}

void PortsTest::aFailedLoadSaysWhy() {
    database().run(u"DROP TABLE Port"_s);
    checkFailedLoad();
}

void PortsTest::aNewPortAcceptsEveryNode() {
    addPort(u"105"_s, u"NEW"_s, {{u"chkCalling"_s, u"1"_s}});
    QCOMPARE(database().rows(Ports).at(1),
             (QStringList{u"105"_s, u"NEW"_s, u"10"_s, database().imageRoot(), u"1"_s, u"0"_s, u"1"_s}));
    QCOMPARE(database().rows(u"SELECT Name FROM PortRemoteNodes WHERE Port='105' ORDER BY Name"_s),
             (QList<QStringList>{{u"remote"_s}, {u"self"_s}, {u"twin"_s}}));
    QCOMPARE(listed().size(), 3);
    QVERIFY(Globals::ConfigChanged());
}

void PortsTest::withoutNodesANewPortAcceptsNone() {
    database().run(u"DELETE FROM DicomNodes"_s);
    database().run(u"DELETE FROM PortRemoteNodes"_s);
    addPort(u"105"_s, u"NEW"_s);
    QCOMPARE(count(), 3);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes"_s), u"0"_s);
}

void PortsTest::aNewPortThatFailsHalfWayIsNotThere() {
    database().failOn(u"PortRemoteNodes"_s, u"INSERT"_s, ScratchDatabase::Failure, u"NEW.Name='twin'"_s);
    const QString before = portsAndNodes();
    BoxScript script;
    script.drive(u"DicomPort"_s, [](Form form) {
        fillPort(form, u"105"_s, u"NEW"_s);
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        QCOMPARE(form.text(u"txtPort"_s), u"105"_s);
        form.click(u"cmdCancel"_s);
    });
    expectFolder(script, database().imageRoot());
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdAddPort"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().back().text.contains(ScratchDatabase::Failure));
    QCOMPARE(portsAndNodes(), before);
    QCOMPARE(listed().size(), 2);
    QVERIFY(!Globals::ConfigChanged());
}

void PortsTest::deleteRepeatsTheListsText() {
    BoxScript script;
    script.expect(yesNo(u"Are you sure you want to delete the server STORESCP (Checked) on port 104?"_s,
                        QMessageBox::No));
    window().click(u"cmdDelPort"_s);
    window().selectRow(u"lstPorts"_s, u"11112"_s);
    script.expect(yesNo(u"Are you sure you want to delete the server OTHER (Unchecked) on port 11112?"_s,
                        QMessageBox::No));
    window().click(u"cmdDelPort"_s);
    QVERIFY(script.isDone());
}

void PortsTest::deleteRemovesThePortAndItsPlaces() {
    const auto nodes = database().rows(Nodes);
    answering({yesNo(BoxScript::AnyText, QMessageBox::Yes)}, [&] { window().click(u"cmdDelPort"_s); });
    QCOMPARE(database().value(u"SELECT Port FROM Port"_s), u"11112"_s);
    QCOMPARE(database().rows(PortRemoteNodes), (QList<QStringList>{{u"11112"_s, u"remote"_s}}));
    QCOMPARE(database().rows(Nodes), nodes);
    QCOMPARE(listed().size(), 1);
    QCOMPARE(window().rows(u"lstPortNodes"_s).size(), 1);
    QVERIFY(Globals::ConfigChanged());
}

void PortsTest::deleteWithNoChangesNothing() {
    const QString before = portsAndNodes();
    database().run(u"INSERT INTO Port VALUES ('1', 'ONE', 1, '/', 0, 0, 0)"_s);
    answering({yesNo(BoxScript::AnyText, QMessageBox::No)}, [&] { window().click(u"cmdDelPort"_s); });
    QCOMPARE(listed().size(), 2);  // not reloaded
    QVERIFY(!Globals::ConfigChanged());
    database().run(u"DELETE FROM Port WHERE Port='1'"_s);
    QCOMPARE(portsAndNodes(), before);
}

void PortsTest::aFailedSecondDeleteTakesTheFirstBack() {
    database().failOn(u"PortRemoteNodes"_s, u"DELETE"_s);
    const QString before = portsAndNodes();
    answering({yesNo(BoxScript::AnyText, QMessageBox::Yes), critical(containing(ScratchDatabase::Failure))},
              [&] { window().click(u"cmdDelPort"_s); });
    QCOMPARE(portsAndNodes(), before);
    QVERIFY(!Globals::ConfigChanged());
}

void PortsTest::withNothingSelectedModifyAndDeleteDoNoHarm() {
    database().run(u"DELETE FROM Port"_s);
    BoxScript script;
    script.expect(plain(u"No item is selected"_s));
    reload();
    window().click(u"cmdEditPort"_s);
    script.expect(critical(u"No item is selected"_s));
    window().click(u"cmdDelPort"_s);
    QVERIFY(script.isDone());
    QVERIFY(!takeConsoleEnd());
}

void PortsTest::keysAndDoubleClickPressTheButtons() {
    checkKeys(yesNo(BoxScript::AnyText, QMessageBox::No));
}

QTEST_MAIN(PortsTest)
#include "tst_ports.moc"
