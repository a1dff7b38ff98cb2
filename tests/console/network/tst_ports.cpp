#include <QLineEdit>
#include <QRegularExpression>
#include <QTest>
#include <QTreeWidget>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "tests/console/network/PortEditor.h"
#include "tests/support/Console.h"
#include "tests/support/ListPage.h"
#include "tests/support/WindowTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const QString Ports =
    u"SELECT Port, AETitle, MaxConnections, Root, CheckCallingAE, CheckCalledAE, "
    "SaveCompressed FROM Port ORDER BY Port"_s;
const QString PortRemoteNodes = u"SELECT Port, Name FROM PortRemoteNodes ORDER BY Port, Name"_s;
const QString Nodes = u"SELECT Name, AETitle, LocalAETitle, Port FROM DicomNodes ORDER BY Name"_s;

QString withoutBlanks(QString text) {
    return text.remove(QRegularExpression{u"^ +| +$"_s});
}

}  // namespace

class PortsTest : public WindowTest {
    Q_OBJECT

  public:
    PortsTest() : WindowTest(Page::LocalServer) {}

  protected:
    void seed() const override {
        database().run(u"DELETE FROM Port"_s);
        database().run(u"INSERT INTO Port VALUES ('104', 'STORESCP', 10, '/one', 1, 1, 1)"_s);
        database().run(u"INSERT INTO Port VALUES ('11112', 'OTHER', 20, '/two', 0, 0, 0)"_s);
        // The first is this server itself, the second is not, the third has its port and another title.
        for (const QVariantList& node : {QVariantList{u"self"_s, u"STORESCP"_s, u"OTHER"_s, u"104"_s},
                                         QVariantList{u"remote"_s, u"REMOTE"_s, u"STORESCP"_s, u"104"_s},
                                         QVariantList{u"twin"_s, u"STORESCP"_s, u"STORESCP"_s, u"4242"_s}}) {
            database().run(u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Port) VALUES (?,?,?,?)"_s,
                           node);
        }
        database().run(
            u"INSERT INTO PortRemoteNodes VALUES ('104', 'remote'), ('104', 'self'), "
            "('11112', 'remote')"_s);
    }

  private:
    /// Modifies port 104 by `change` and Confirm.
    void modifyPort(BoxScript& script, std::function<void(Form)> change) const {
        script.drive(u"DicomPort"_s, [change = std::move(change)](Form form) {
            change(form);
            form.click(u"cmdOk"_s);
            if (form.window().isVisible())
                form.click(u"cmdCancel"_s);
        });
        window().click(u"cmdEditPort"_s);
    }
    [[nodiscard]] QString portsAndNodes() const {
        QString all;
        for (const QString& table : {Ports, Nodes, PortRemoteNodes}) {
            for (const QStringList& row : database().rows(table))
                all += row.join(u'|') + u'\n';
        }
        return all;
    }

  private Q_SLOTS:
    void listShowsTheTableInOrder();
    void theLastRootPresetsTheRelocation();
    void withoutPortsTheMissingSelectionIsReported();
    void aFailedLoadSaysWhy();
    void aNewPortStartsWithItsDefaults();
    void aNewPortAcceptsEveryNode();
    void withoutNodesANewPortAcceptsNone();
    void aNewPortThatFailsHalfWayIsNotThere();
    void fieldsAreCheckedInOrder();
    void connectionsAreFromOneToAHundred();
    void connectionsAreRounded_data();
    void connectionsAreRounded();
    void connectionsThatAreNoNumberEndTheConsole_data();
    void connectionsThatAreNoNumberEndTheConsole();
    void modifyShowsTheRow();
    void modifyWritesTheRow();
    void theDecodeBoxIsTheColumnsOpposite();
    void anotherTitleReachesTheNodes();
    void anotherPortReachesTheNodes();
    void titleAndPortTogether();
    void blanksAtTheEndsStayOutOfTheRowAlone();
    void theOldPortIsLookedForWithoutItsBlanks();
    void blanksAreTextForTheCheck();
    void textComesBackUnchanged_data() { addAwkwardTexts(); }
    void textComesBackUnchanged();
    void boxesHoldTheirLimits();
    void aFailedCascadeTakesAllBack_data();
    void aFailedCascadeTakesAllBack();
    void aDuplicateIsRefusedByTheEngine();
    void aVanishedPortIsInsertedAgain();
    void aVanishedPortsNodesFollowAnotherNumber();
    void theRootIsPickedNotTyped();
    void deleteRepeatsTheListsText();
    void deleteRemovesThePortAndItsPlaces();
    void deleteWithNoChangesNothing();
    void aFailedSecondDeleteTakesTheFirstBack();
    void withNothingSelectedModifyAndDeleteDoNoHarm();
    void keysAndDoubleClickPressTheButtons();
};

void PortsTest::listShowsTheTableInOrder() {
    QCOMPARE(window().headers(u"lstPorts"_s),
             (QStringList{u"Port"_s, u"AETitle"_s, u"Max. Connections"_s, u"Decode"_s, u"Root dir"_s}));
    QCOMPARE(window().rows(u"lstPorts"_s),
             (QList<QStringList>{{u"104"_s, u"STORESCP (Checked)"_s, u"10"_s, u""_s, u"/one"_s},
                                 {u"11112"_s, u"OTHER (Unchecked)"_s, u"20"_s, u"X"_s, u"/two"_s}}));
    QCOMPARE(window().selectedRows(u"lstPorts"_s), QStringList{u"104"_s});
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
    BoxScript script;
    script.expect(plain(u"No item is selected"_s));
    manager().LoadPorts();
    QVERIFY(script.isDone());
    QCOMPARE(window().rows(u"lstPorts"_s).size(), 0);
    QCOMPARE(window().rows(u"lstPortNodes"_s).size(), 2);  // as it was
    QCOMPARE(window().text(u"lblAcceptedNodes"_s), u"Accepted nodes"_s);
    QCOMPARE(window().text(u"txtPathIni"_s), u"/two"_s);
}

void PortsTest::aFailedLoadSaysWhy() {
    database().run(u"DROP TABLE Port"_s);
    BoxScript script;
    script.expect(plain(BoxScript::AnyText));
    manager().LoadPorts();
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(database().noTable(u"Port"_s)));
}

void PortsTest::aNewPortStartsWithItsDefaults() {
    BoxScript script;
    script.drive(u"DicomPort"_s, [](Form form) {
        QCOMPARE(form.window().windowTitle(), u"Port configuration"_s);
        for (const auto& name : {u"txtPort"_s, u"txtAETitle"_s, u"txtRoot"_s})
            QCOMPARE(form.text(name), QString{});
        QCOMPARE(form.text(u"txtMaxConnections"_s), u"10"_s);
        QVERIFY(!form.find<QLineEdit>(u"txtPort"_s).isReadOnly());
        QVERIFY(form.find<QLineEdit>(u"txtRoot"_s).isReadOnly());
        for (const auto& name : {u"chkCalled"_s, u"chkCalling"_s, u"chkSaveCompressed"_s})
            QVERIFY(!form.isChecked(name));
        QCOMPARE(form.labels(),
                 (QStringList{u"Port"_s, u"AETitle"_s, u"Max.connections"_s, u"Root directory"_s}));
        QCOMPARE(form.text(u"cmdOk"_s), u"Confirm"_s);
        QCOMPARE(form.text(u"cmdCancel"_s), u"Cancel"_s);
        QCOMPARE(form.text(u"chkCalled"_s), u"Check called AE Title"_s);
        QCOMPARE(form.text(u"chkCalling"_s), u"Check calling AE Title"_s);
        QCOMPARE(form.text(u"chkSaveCompressed"_s), u"Decode DICOM compressed Syntaxes"_s);
        QCOMPARE(form.find(u"chkSaveCompressed"_s).toolTip(),
                 u"Save decoded DICOM Object to disk  if compressed"_s);
        form.click(u"cmdCancel"_s);
    });
    window().click(u"cmdAddPort"_s);
    QVERIFY(script.isDone());
    QVERIFY(!Globals::ConfigChanged());
}

void PortsTest::aNewPortAcceptsEveryNode() {
    BoxScript script;
    script.drive(u"DicomPort"_s, [](Form form) {
        fillPort(form, u"105"_s, u"NEW"_s);
        form.check(u"chkCalling"_s, true);
        form.click(u"cmdOk"_s);
    });
    expectFolder(script, database().imageRoot());
    window().click(u"cmdAddPort"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().rows(Ports).at(1),
             (QStringList{u"105"_s, u"NEW"_s, u"10"_s, database().imageRoot(), u"1"_s, u"0"_s, u"1"_s}));
    QCOMPARE(database().rows(u"SELECT Name FROM PortRemoteNodes WHERE Port='105' ORDER BY Name"_s),
             (QList<QStringList>{{u"remote"_s}, {u"self"_s}, {u"twin"_s}}));
    QCOMPARE(window().rows(u"lstPorts"_s).size(), 3);
    QVERIFY(Globals::ConfigChanged());
}

void PortsTest::withoutNodesANewPortAcceptsNone() {
    database().run(u"DELETE FROM DicomNodes"_s);
    database().run(u"DELETE FROM PortRemoteNodes"_s);
    BoxScript script;
    script.drive(u"DicomPort"_s, [](Form form) {
        fillPort(form, u"105"_s, u"NEW"_s);
        form.click(u"cmdOk"_s);
    });
    expectFolder(script, database().imageRoot());
    window().click(u"cmdAddPort"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM Port"_s), u"3"_s);
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
    QCOMPARE(window().rows(u"lstPorts"_s).size(), 2);
    QVERIFY(!Globals::ConfigChanged());
}

void PortsTest::fieldsAreCheckedInOrder() {
    BoxScript script;
    script.drive(u"DicomPort"_s, [](Form form) {
        form.type(u"txtMaxConnections"_s, u"0"_s);
        form.click(u"cmdOk"_s);
        form.type(u"txtPort"_s, u" "_s);
        form.click(u"cmdOk"_s);
        form.type(u"txtAETitle"_s, u" "_s);
        form.click(u"cmdOk"_s);
        form.click(u"cmdRootDir"_s);
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        form.click(u"cmdCancel"_s);
    });
    for (const auto& message :
         {u"Port cannot be empty"_s, u"AETitle cannot be empty"_s, u"Root directory cannot be empty"_s})
        script.expect(plain(message));
    expectFolder(script, database().imageRoot());
    script.expect(plain(u"Numero di connessioni errato"_s));
    window().click(u"cmdAddPort"_s);
    QVERIFY(script.isDone());
}

void PortsTest::connectionsAreFromOneToAHundred() {
    BoxScript script;
    for (const auto& number : {u"0"_s, u"101"_s, u"-1"_s, u"32767"_s, u"-32768"_s})
        script
            .drive(u"DicomPort"_s,
                   [=](Form form) {
                       form.type(u"txtMaxConnections"_s, number);
                       form.click(u"cmdOk"_s);
                       QVERIFY(form.window().isVisible());
                       form.click(u"cmdCancel"_s);
                   })
            .expect(plain(u"Numero di connessioni errato"_s));
    for (int round = 0; round < 5; ++round)
        window().click(u"cmdEditPort"_s);
    for (const auto& number : {u"1"_s, u"100"_s}) {
        modifyPort(script, [=](Form form) { form.type(u"txtMaxConnections"_s, number); });
        QCOMPARE(database().value(u"SELECT MaxConnections FROM Port WHERE Port='104'"_s), number);
    }
    QVERIFY(script.isDone());
}

void PortsTest::connectionsAreRounded_data() {
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("stored");
    QTest::newRow("blanks around") << u"  7 "_s << u"7"_s;
    QTest::newRow("sign") << u"+7"_s << u"7"_s;
    QTest::newRow("down") << u"7.4"_s << u"7"_s;
    QTest::newRow("up") << u"7.6"_s << u"8"_s;
    QTest::newRow("half to even") << u"100.5"_s << u"100"_s;
    QTest::newRow("half to even, upwards") << u"7.5"_s << u"8"_s;
    QTest::newRow("exponent") << u"1e2"_s << u"100"_s;
}

void PortsTest::connectionsAreRounded() {
    QFETCH(QString, typed);
    QFETCH(QString, stored);
    BoxScript script;
    modifyPort(script, [&](Form form) { form.type(u"txtMaxConnections"_s, typed); });
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT MaxConnections FROM Port WHERE Port='104'"_s), stored);
}

void PortsTest::connectionsThatAreNoNumberEndTheConsole_data() {
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("description");
    for (const auto* text : {"ten", "", " ", "10 x", "1,5", "0x10", "nan", "inf"})
        QTest::newRow(text) << QString::fromLatin1(text) << u"Type mismatch"_s;
    for (const auto* text : {"32768", "-32769", "32767.5", "1e99", "1e999", "99999999999999999999"})
        QTest::newRow(text) << QString::fromLatin1(text) << u"Overflow"_s;
}

void PortsTest::connectionsThatAreNoNumberEndTheConsole() {
    QFETCH(QString, typed);
    QFETCH(QString, description);
    const QString before = portsAndNodes();
    BoxScript script;
    script.drive(u"DicomPort"_s, [&](Form form) {
        form.type(u"txtAETitle"_s, u"CHANGED"_s);
        form.type(u"txtMaxConnections"_s, typed);
        form.click(u"cmdOk"_s);
    });
    script.expect(critical(description));
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
    QCOMPARE(takeConsoleEnd(), std::optional{1});
    QCOMPARE(portsAndNodes(), before);
}

void PortsTest::modifyShowsTheRow() {
    BoxScript script;
    script.drive(u"DicomPort"_s, [](Form form) {
        QCOMPARE(form.text(u"txtPort"_s), u"104"_s);
        QVERIFY(!form.find<QLineEdit>(u"txtPort"_s).isReadOnly());
        QCOMPARE(form.text(u"txtAETitle"_s), u"STORESCP"_s);
        QCOMPARE(form.text(u"txtMaxConnections"_s), u"10"_s);
        QCOMPARE(form.text(u"txtRoot"_s), u"/one"_s);
        QVERIFY(form.isChecked(u"chkCalling"_s));
        QVERIFY(form.isChecked(u"chkCalled"_s));
        QVERIFY(!form.isChecked(u"chkSaveCompressed"_s));
        form.click(u"cmdCancel"_s);
    });
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
}

void PortsTest::modifyWritesTheRow() {
    const auto nodes = database().rows(Nodes);
    const auto places = database().rows(PortRemoteNodes);
    BoxScript script;
    modifyPort(script, [](Form form) {
        form.type(u"txtMaxConnections"_s, u"33"_s);
        form.check(u"chkCalling"_s, false);
        form.check(u"chkCalled"_s, false);
    });
    QVERIFY(script.isDone());
    QCOMPARE(database().rows(Ports).front(),
             (QStringList{u"104"_s, u"STORESCP"_s, u"33"_s, u"/one"_s, u"0"_s, u"0"_s, u"1"_s}));
    QCOMPARE(database().rows(Nodes), nodes);
    QCOMPARE(database().rows(PortRemoteNodes), places);
    QCOMPARE(window().rows(u"lstPorts"_s).front().at(1), u"STORESCP (Unchecked)"_s);
    QCOMPARE(window().text(u"lblAcceptedNodes"_s), u"Defined nodes (Unchecked)"_s);
    QVERIFY(Globals::ConfigChanged());
}

void PortsTest::theDecodeBoxIsTheColumnsOpposite() {
    window().selectRow(u"lstPorts"_s, u"11112"_s);
    BoxScript script;
    modifyPort(script, [](Form form) {
        QVERIFY(form.isChecked(u"chkSaveCompressed"_s));
        form.check(u"chkSaveCompressed"_s, false);
    });
    QCOMPARE(database().value(u"SELECT SaveCompressed FROM Port WHERE Port='11112'"_s), u"1"_s);
    modifyPort(script, [](Form form) { form.check(u"chkSaveCompressed"_s, true); });
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT SaveCompressed FROM Port WHERE Port='104'"_s), u"0"_s);
    QCOMPARE(window().rows(u"lstPorts"_s).front().at(3), u"X"_s);
}

void PortsTest::anotherTitleReachesTheNodes() {
    const auto places = database().rows(PortRemoteNodes);
    BoxScript script;
    modifyPort(script, [](Form form) { form.type(u"txtAETitle"_s, u"B"_s); });
    QVERIFY(script.isDone());
    QCOMPARE(database().rows(Nodes), (QList<QStringList>{{u"remote"_s, u"REMOTE"_s, u"B"_s, u"104"_s},
                                                         {u"self"_s, u"B"_s, u"OTHER"_s, u"104"_s},
                                                         {u"twin"_s, u"B"_s, u"B"_s, u"4242"_s}}));
    QCOMPARE(database().rows(PortRemoteNodes), places);
    QCOMPARE(window().rows(u"lstNodes"_s).front().at(4), u"B"_s);
}

void PortsTest::anotherPortReachesTheNodes() {
    BoxScript script;
    modifyPort(script, [](Form form) { form.type(u"txtPort"_s, u"105"_s); });
    QVERIFY(script.isDone());
    QCOMPARE(database().rows(Nodes),
             (QList<QStringList>{{u"remote"_s, u"REMOTE"_s, u"STORESCP"_s, u"104"_s},
                                 {u"self"_s, u"STORESCP"_s, u"OTHER"_s, u"105"_s},
                                 {u"twin"_s, u"STORESCP"_s, u"STORESCP"_s, u"4242"_s}}));
    QCOMPARE(database().rows(PortRemoteNodes),
             (QList<QStringList>{{u"105"_s, u"remote"_s}, {u"105"_s, u"self"_s}, {u"11112"_s, u"remote"_s}}));
    QCOMPARE(database().rows(Ports).front().front(), u"105"_s);
    QCOMPARE(window().rows(u"lstNodes"_s).at(1).at(2), u"105"_s);
}

void PortsTest::titleAndPortTogether() {
    BoxScript script;
    modifyPort(script, [](Form form) {
        form.type(u"txtAETitle"_s, u"B"_s);
        form.type(u"txtPort"_s, u"105"_s);
    });
    QVERIFY(script.isDone());
    // The node that is this server itself is found by its new title.
    QCOMPARE(database().rows(Nodes).at(1), (QStringList{u"self"_s, u"B"_s, u"OTHER"_s, u"105"_s}));
    QCOMPARE(database().rows(Nodes).at(2), (QStringList{u"twin"_s, u"B"_s, u"B"_s, u"4242"_s}));
    QCOMPARE(database().rows(PortRemoteNodes).front(), (QStringList{u"105"_s, u"remote"_s}));
}

void PortsTest::blanksAtTheEndsStayOutOfTheRowAlone() {
    BoxScript script;
    modifyPort(script, [](Form form) {
        form.type(u"txtAETitle"_s, u" STORESCP "_s);
        form.type(u"txtPort"_s, u" 104 "_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(database().rows(Ports).front().mid(0, 2), (QStringList{u"104"_s, u"STORESCP"_s}));
    QCOMPARE(database().rows(Nodes),
             (QList<QStringList>{{u"remote"_s, u"REMOTE"_s, u" STORESCP "_s, u"104"_s},
                                 {u"self"_s, u" STORESCP "_s, u"OTHER"_s, u" 104 "_s},
                                 {u"twin"_s, u" STORESCP "_s, u" STORESCP "_s, u"4242"_s}}));
    QCOMPARE(database().rows(PortRemoteNodes).front(), (QStringList{u"104"_s, u"remote"_s}));

    // A new port: its row loses the blanks, its accepted nodes keep them.
    script.drive(u"DicomPort"_s, [](Form form) {
        fillPort(form, u" 9 "_s, u" N "_s);
        form.click(u"cmdOk"_s);
    });
    expectFolder(script, database().imageRoot());
    window().click(u"cmdAddPort"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT AETitle FROM Port WHERE Port='9'"_s), u"N"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Port=' 9 '"_s), u"3"_s);
}

void PortsTest::theOldPortIsLookedForWithoutItsBlanks() {
    database().run(u"INSERT INTO Port VALUES (' 9 ', 'BLANKS', 1, '/blanks', 0, 0, 1)"_s);
    database().run(u"INSERT INTO Port VALUES ('9', 'BARE', 1, '/bare', 0, 0, 1)"_s);
    database().run(u"INSERT INTO PortRemoteNodes VALUES (' 9 ', 'remote'), ('9', 'twin')"_s);
    database().run(u"UPDATE DicomNodes SET AETitle='BLANKS', Port=' 9 ' WHERE Name='remote'"_s);
    manager().LoadPorts();
    window().selectRow(u"lstPorts"_s, u" 9 "_s);
    BoxScript script;
    modifyPort(script, [](Form form) {
        QCOMPARE(form.text(u"txtAETitle"_s), u"BLANKS"_s);
        form.type(u"txtPort"_s, u"10"_s);
    });
    QVERIFY(script.isDone());
    // The rows of port 9 have moved; the node, compared as it stands, was that of the port with blanks.
    QCOMPARE(database().value(u"SELECT Root FROM Port WHERE Port='10'"_s), u"/blanks"_s);
    QCOMPARE(database().value(u"SELECT AETitle FROM Port WHERE Port=' 9 '"_s), u"BLANKS"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM Port WHERE Port='9'"_s), u"0"_s);
    QCOMPARE(database().rows(
                 u"SELECT Port, Name FROM PortRemoteNodes WHERE Name='twin' OR Port=' 9 ' ORDER BY Port"_s),
             (QList<QStringList>{{u" 9 "_s, u"remote"_s}, {u"10"_s, u"twin"_s}}));
    QCOMPARE(database().value(u"SELECT Port FROM DicomNodes WHERE Name='remote'"_s), u"10"_s);
}

void PortsTest::blanksAreTextForTheCheck() {
    BoxScript script;
    modifyPort(script, [](Form form) { form.type(u"txtPort"_s, u"  "_s); });
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM Port WHERE Port=''"_s), u"1"_s);
}

void PortsTest::textComesBackUnchanged() {
    QFETCH(QString, text);
    BoxScript script;
    modifyPort(script, [&](Form form) {
        form.type(u"txtAETitle"_s, text);
        form.type(u"txtPort"_s, text);
        form.find<QLineEdit>(u"txtRoot"_s).setText(u"/"_s + text);
    });
    const QString inner = withoutBlanks(text);
    const QString root = withoutBlanks(u"/"_s + text);
    QCOMPARE(database().rows(u"SELECT AETitle, Root FROM Port WHERE Port=?"_s, {inner}),
             (QList<QStringList>{{inner, root}}));
    QCOMPARE(database().value(u"SELECT LocalAETitle FROM DicomNodes WHERE Name='remote'"_s), text);
    if (inner.isEmpty())
        return;  // a port without a title counts as new when it is opened again
    window().selectRow(u"lstPorts"_s, inner);
    script.drive(u"DicomPort"_s, [&](Form form) {
        QCOMPARE(form.text(u"txtPort"_s), inner);
        QCOMPARE(form.text(u"txtAETitle"_s), inner);
        QCOMPARE(form.text(u"txtRoot"_s), root);
        form.click(u"cmdCancel"_s);
    });
    window().click(u"cmdEditPort"_s);
    window().selectRow(u"lstPorts"_s, inner);
    script.expect(yesNo(
        u"Are you sure you want to delete the server "_s + inner + u" (Checked) on port "_s + inner + u"?"_s,
        QMessageBox::Yes));
    window().click(u"cmdDelPort"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM Port"_s), u"1"_s);
}

void PortsTest::boxesHoldTheirLimits() {
    BoxScript script;
    script.drive(u"DicomPort"_s, [](Form form) {
        for (const auto& name : {u"txtPort"_s, u"txtAETitle"_s}) {
            form.type(name, QString{100, u'x'});
            QCOMPARE(form.text(name).size(), 16);
        }
        QCOMPARE(form.find<QLineEdit>(u"txtRoot"_s).maxLength(), 255);
        form.click(u"cmdCancel"_s);
    });
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
}

void PortsTest::aFailedCascadeTakesAllBack_data() {
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("condition");
    QTest::newRow("the row itself") << u"Port"_s << u"UPDATE"_s << QString{};
    QTest::newRow("local titles") << u"DicomNodes"_s << u"UPDATE"_s << u"NEW.LocalAETitle='B'"_s;
    QTest::newRow("titles") << u"DicomNodes"_s << u"UPDATE"_s << u"NEW.AETitle='B'"_s;
    QTest::newRow("ports of nodes") << u"DicomNodes"_s << u"UPDATE"_s << u"NEW.Port='105'"_s;
    QTest::newRow("accepted nodes") << u"PortRemoteNodes"_s << u"UPDATE"_s << QString{};
}

void PortsTest::aFailedCascadeTakesAllBack() {
    QFETCH(QString, table);
    QFETCH(QString, operation);
    QFETCH(QString, condition);
    database().failOn(table, operation, ScratchDatabase::Failure, condition);
    const QString before = portsAndNodes();
    BoxScript script;
    script.drive(u"DicomPort"_s, [](Form form) {
        form.type(u"txtAETitle"_s, u"B"_s);
        form.type(u"txtPort"_s, u"105"_s);
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        QCOMPARE(form.text(u"txtAETitle"_s), u"B"_s);
        form.click(u"cmdCancel"_s);
    });
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().back().text.contains(ScratchDatabase::Failure));
    QCOMPARE(portsAndNodes(), before);
    QVERIFY(!Globals::ConfigChanged());
}

void PortsTest::aDuplicateIsRefusedByTheEngine() {
    const QString before = portsAndNodes();
    BoxScript script;
    script.drive(u"DicomPort"_s, [](Form form) {
        form.type(u"txtPort"_s, u"11112"_s);
        form.click(u"cmdOk"_s);
        form.click(u"cmdCancel"_s);
    });
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().back().text.contains(database().twice(u"Port"_s, u"Port"_s)));
    QCOMPARE(portsAndNodes(), before);
}

void PortsTest::aVanishedPortIsInsertedAgain() {
    database().run(u"DELETE FROM Port WHERE Port='104'"_s);
    database().run(u"DELETE FROM PortRemoteNodes"_s);
    BoxScript script;
    script.expect(critical(u"Port 104 not found"_s));
    script.drive(u"DicomPort"_s, [](Form form) {
        for (const auto& name : {u"txtPort"_s, u"txtAETitle"_s, u"txtRoot"_s, u"txtMaxConnections"_s})
            QCOMPARE(form.text(name), QString{});
        fillPort(form, u"104"_s, u"AGAIN"_s);
        form.type(u"txtMaxConnections"_s, u"5"_s);
        form.click(u"cmdOk"_s);
    });
    expectFolder(script, database().imageRoot());
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT AETitle FROM Port WHERE Port='104'"_s), u"AGAIN"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Port='104'"_s), u"3"_s);
    QCOMPARE(database().value(u"SELECT AETitle FROM DicomNodes WHERE Name='self'"_s), u"STORESCP"_s);
}

void PortsTest::aVanishedPortsNodesFollowAnotherNumber() {
    database().run(u"DELETE FROM Port WHERE Port='104'"_s);
    BoxScript script;
    script.expect(critical(u"Port 104 not found"_s));
    script.drive(u"DicomPort"_s, [](Form form) {
        fillPort(form, u"105"_s, u"STORESCP"_s);
        form.type(u"txtMaxConnections"_s, u"5"_s);
        form.click(u"cmdOk"_s);
    });
    expectFolder(script, database().imageRoot());
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT Port FROM DicomNodes WHERE Name='self'"_s), u"105"_s);
    // The new port accepts every node as it is; the rows of the old one are left over.
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Port='105'"_s), u"3"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Port='104'"_s), u"0"_s);
}

void PortsTest::theRootIsPickedNotTyped() {
    BoxScript script;
    script.drive(u"DicomPort"_s, [&](Form form) {
        QTest::keyClicks(&form.find(u"txtRoot"_s), u"typed"_s);
        QCOMPARE(form.text(u"txtRoot"_s), u"/one"_s);
        form.click(u"cmdRootDir"_s);
        QCOMPARE(form.text(u"txtRoot"_s), u"/one"_s);
        form.click(u"cmdRootDir"_s);
        QCOMPARE(form.text(u"txtRoot"_s), database().imageRoot());
        form.click(u"cmdCancel"_s);
    });
    expectFolder(script, {});
    expectFolder(script, database().imageRoot());
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
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
    BoxScript script;
    script.expect(yesNo(BoxScript::AnyText, QMessageBox::Yes));
    window().click(u"cmdDelPort"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT Port FROM Port"_s), u"11112"_s);
    QCOMPARE(database().rows(PortRemoteNodes), (QList<QStringList>{{u"11112"_s, u"remote"_s}}));
    QCOMPARE(database().rows(Nodes), nodes);
    QCOMPARE(window().rows(u"lstPorts"_s).size(), 1);
    QCOMPARE(window().rows(u"lstPortNodes"_s).size(), 1);
    QVERIFY(Globals::ConfigChanged());
}

void PortsTest::deleteWithNoChangesNothing() {
    const QString before = portsAndNodes();
    database().run(u"INSERT INTO Port VALUES ('1', 'ONE', 1, '/', 0, 0, 0)"_s);
    BoxScript script;
    script.expect(yesNo(BoxScript::AnyText, QMessageBox::No));
    window().click(u"cmdDelPort"_s);
    QVERIFY(script.isDone());
    QCOMPARE(window().rows(u"lstPorts"_s).size(), 2);  // not reloaded
    QVERIFY(!Globals::ConfigChanged());
    database().run(u"DELETE FROM Port WHERE Port='1'"_s);
    QCOMPARE(portsAndNodes(), before);
}

void PortsTest::aFailedSecondDeleteTakesTheFirstBack() {
    database().failOn(u"PortRemoteNodes"_s, u"DELETE"_s);
    const QString before = portsAndNodes();
    BoxScript script;
    script.expect(yesNo(BoxScript::AnyText, QMessageBox::Yes));
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdDelPort"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().back().text.contains(ScratchDatabase::Failure));
    QCOMPARE(portsAndNodes(), before);
    QVERIFY(!Globals::ConfigChanged());
}

void PortsTest::withNothingSelectedModifyAndDeleteDoNoHarm() {
    database().run(u"DELETE FROM Port"_s);
    BoxScript script;
    script.expect(plain(u"No item is selected"_s));
    manager().LoadPorts();
    window().click(u"cmdEditPort"_s);
    script.expect(critical(u"No item is selected"_s));
    window().click(u"cmdDelPort"_s);
    QVERIFY(script.isDone());
    QVERIFY(!takeConsoleEnd());
}

void PortsTest::keysAndDoubleClickPressTheButtons() {
    checkKeys(manager(), {.list = u"lstPorts"_s,
                          .dialog = u"DicomPort"_s,
                          .keyBox = u"txtPort"_s,
                          .question = yesNo(BoxScript::AnyText, QMessageBox::No)});
}

QTEST_MAIN(PortsTest)
#include "tst_ports.moc"
