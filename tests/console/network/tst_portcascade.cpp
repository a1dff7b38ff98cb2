#include <QLineEdit>
#include <QRegularExpression>
#include <QTest>

#include "console/session/Globals.h"
#include "tests/console/network/PortEditor.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

QString withoutBlanks(QString text) {
    return text.remove(QRegularExpression{u"^ +| +$"_s});
}

}  // namespace

class PortCascadeTest : public PortEditorTest {
    Q_OBJECT

  private Q_SLOTS:
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
    void aFailedCascadeTakesAllBack_data();
    void aFailedCascadeTakesAllBack();
    void aVanishedPortsNodesFollowAnotherNumber();
};

void PortCascadeTest::modifyWritesTheRow() {
    const auto nodes = database().rows(Nodes);
    const auto places = database().rows(PortRemoteNodes);
    modifyPort([](Form form) {
        fill(form, {{u"txtMaxConnections"_s, u"33"_s}, {u"chkCalling"_s, u"0"_s}, {u"chkCalled"_s, u"0"_s}});
    });
    QCOMPARE(database().rows(Ports).front(),
             (QStringList{u"104"_s, u"STORESCP"_s, u"33"_s, u"/one"_s, u"0"_s, u"0"_s, u"1"_s}));
    QCOMPARE(database().rows(Nodes), nodes);
    QCOMPARE(database().rows(PortRemoteNodes), places);
    QCOMPARE(listed().front().at(1), u"STORESCP (Unchecked)"_s);
    QCOMPARE(window().text(u"lblAcceptedNodes"_s), u"Defined nodes (Unchecked)"_s);
    QVERIFY(Globals::ConfigChanged());
}

void PortCascadeTest::theDecodeBoxIsTheColumnsOpposite() {
    window().selectRow(u"lstPorts"_s, u"11112"_s);
    modifyPort([](Form form) {
        QVERIFY(form.isChecked(u"chkSaveCompressed"_s));
        form.check(u"chkSaveCompressed"_s, false);
    });
    QCOMPARE(stored(u"11112"_s, u"SaveCompressed"_s), u"1"_s);
    modifyPort([](Form form) { form.check(u"chkSaveCompressed"_s, true); });
    QCOMPARE(stored(u"104"_s, u"SaveCompressed"_s), u"0"_s);
    QCOMPARE(listed().front().at(3), u"X"_s);
}

void PortCascadeTest::anotherTitleReachesTheNodes() {
    const auto places = database().rows(PortRemoteNodes);
    modifyPort([](Form form) { form.type(u"txtAETitle"_s, u"B"_s); });
    QCOMPARE(database().rows(Nodes), (QList<QStringList>{{u"remote"_s, u"REMOTE"_s, u"B"_s, u"104"_s},
                                                         {u"self"_s, u"B"_s, u"OTHER"_s, u"104"_s},
                                                         {u"twin"_s, u"B"_s, u"B"_s, u"4242"_s}}));
    QCOMPARE(database().rows(PortRemoteNodes), places);
    QCOMPARE(window().rows(u"lstNodes"_s).front().at(4), u"B"_s);
}

void PortCascadeTest::anotherPortReachesTheNodes() {
    modifyPort([](Form form) { form.type(u"txtPort"_s, u"105"_s); });
    QCOMPARE(database().rows(Nodes),
             (QList<QStringList>{{u"remote"_s, u"REMOTE"_s, u"STORESCP"_s, u"104"_s},
                                 {u"self"_s, u"STORESCP"_s, u"OTHER"_s, u"105"_s},
                                 {u"twin"_s, u"STORESCP"_s, u"STORESCP"_s, u"4242"_s}}));
    QCOMPARE(database().rows(PortRemoteNodes),
             (QList<QStringList>{{u"105"_s, u"remote"_s}, {u"105"_s, u"self"_s}, {u"11112"_s, u"remote"_s}}));
    QCOMPARE(database().rows(Ports).front().front(), u"105"_s);
    QCOMPARE(window().rows(u"lstNodes"_s).at(1).at(2), u"105"_s);
}

void PortCascadeTest::titleAndPortTogether() {
    modifyPort([](Form form) {
        form.type(u"txtAETitle"_s, u"B"_s);
        form.type(u"txtPort"_s, u"105"_s);
    });
    // The node that is this server itself is found by its new title.
    QCOMPARE(database().rows(Nodes).at(1), (QStringList{u"self"_s, u"B"_s, u"OTHER"_s, u"105"_s}));
    QCOMPARE(database().rows(Nodes).at(2), (QStringList{u"twin"_s, u"B"_s, u"B"_s, u"4242"_s}));
    QCOMPARE(database().rows(PortRemoteNodes).front(), (QStringList{u"105"_s, u"remote"_s}));
}

void PortCascadeTest::blanksAtTheEndsStayOutOfTheRowAlone() {
    modifyPort([](Form form) {
        form.type(u"txtAETitle"_s, u" STORESCP "_s);
        form.type(u"txtPort"_s, u" 104 "_s);
    });
    QCOMPARE(database().rows(Ports).front().mid(0, 2), (QStringList{u"104"_s, u"STORESCP"_s}));
    QCOMPARE(database().rows(Nodes),
             (QList<QStringList>{{u"remote"_s, u"REMOTE"_s, u" STORESCP "_s, u"104"_s},
                                 {u"self"_s, u" STORESCP "_s, u"OTHER"_s, u" 104 "_s},
                                 {u"twin"_s, u" STORESCP "_s, u" STORESCP "_s, u"4242"_s}}));
    QCOMPARE(database().rows(PortRemoteNodes).front(), (QStringList{u"104"_s, u"remote"_s}));

    // A new port: its row loses the blanks, its accepted nodes keep them.
    addPort(u" 9 "_s, u" N "_s);
    QCOMPARE(stored(u"9"_s, u"AETitle"_s), u"N"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Port=' 9 '"_s), u"3"_s);
}

void PortCascadeTest::theOldPortIsLookedForWithoutItsBlanks() {
    database().run(u"INSERT INTO Port VALUES (' 9 ', 'BLANKS', 1, '/blanks', 0, 0, 1)"_s);
    database().run(u"INSERT INTO Port VALUES ('9', 'BARE', 1, '/bare', 0, 0, 1)"_s);
    database().run(u"INSERT INTO PortRemoteNodes VALUES (' 9 ', 'remote'), ('9', 'twin')"_s);
    database().run(u"UPDATE DicomNodes SET AETitle='BLANKS', Port=' 9 ' WHERE Name='remote'"_s);
    reload();
    window().selectRow(u"lstPorts"_s, u" 9 "_s);
    modifyPort([](Form form) {
        QCOMPARE(form.text(u"txtAETitle"_s), u"BLANKS"_s);
        form.type(u"txtPort"_s, u"10"_s);
    });
    // The rows of port 9 have moved; the node, compared as it stands, was that of the port with blanks.
    QCOMPARE(stored(u"10"_s, u"Root"_s), u"/blanks"_s);
    QCOMPARE(stored(u" 9 "_s, u"AETitle"_s), u"BLANKS"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM Port WHERE Port='9'"_s), u"0"_s);
    QCOMPARE(database().rows(
                 u"SELECT Port, Name FROM PortRemoteNodes WHERE Name='twin' OR Port=' 9 ' ORDER BY Port"_s),
             (QList<QStringList>{{u" 9 "_s, u"remote"_s}, {u"10"_s, u"twin"_s}}));
    QCOMPARE(database().value(u"SELECT Port FROM DicomNodes WHERE Name='remote'"_s), u"10"_s);
}

void PortCascadeTest::blanksAreTextForTheCheck() {
    modifyPort([](Form form) { form.type(u"txtPort"_s, u"  "_s); });
    QCOMPARE(database().value(u"SELECT count(*) FROM Port WHERE Port=''"_s), u"1"_s);
}

void PortCascadeTest::textComesBackUnchanged() {
    QFETCH(QString, text);
    modifyPort([&](Form form) {
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
    edit(inner, [&](Form form) {
        checkShown(form, {{u"txtPort"_s, inner}, {u"txtAETitle"_s, inner}, {u"txtRoot"_s, root}});
        form.click(u"cmdCancel"_s);
    });
    window().selectRow(u"lstPorts"_s, inner);
    const QString question =
        u"Are you sure you want to delete the server "_s + inner + u" (Checked) on port "_s + inner + u"?"_s;
    answering({yesNo(question, QMessageBox::Yes)}, [this] { window().click(u"cmdDelPort"_s); });
    QCOMPARE(count(), 1);
}

void PortCascadeTest::aFailedCascadeTakesAllBack_data() {
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("condition");
    QTest::newRow("the row itself") << u"Port"_s << u"UPDATE"_s << QString{};
    QTest::newRow("local titles") << u"DicomNodes"_s << u"UPDATE"_s << u"NEW.LocalAETitle='B'"_s;
    QTest::newRow("titles") << u"DicomNodes"_s << u"UPDATE"_s << u"NEW.AETitle='B'"_s;
    QTest::newRow("ports of nodes") << u"DicomNodes"_s << u"UPDATE"_s << u"NEW.Port='105'"_s;
    QTest::newRow("accepted nodes") << u"PortRemoteNodes"_s << u"UPDATE"_s << QString{};
}

void PortCascadeTest::aFailedCascadeTakesAllBack() {
    QFETCH(QString, table);
    QFETCH(QString, operation);
    QFETCH(QString, condition);
    database().failOn(table, operation, ScratchDatabase::Failure, condition);
    const QString before = portsAndNodes();
    checkRefusals(u"104"_s, {{{{u"txtAETitle"_s, u"B"_s}, {u"txtPort"_s, u"105"_s}},
                              critical(containing(ScratchDatabase::Failure))}});
    QCOMPARE(portsAndNodes(), before);
    QVERIFY(!Globals::ConfigChanged());
}

void PortCascadeTest::aVanishedPortsNodesFollowAnotherNumber() {
    database().run(u"DELETE FROM Port WHERE Port='104'"_s);
    modifyVanishedPort(window(), database().imageRoot(), u"105"_s, u"STORESCP"_s);
    QCOMPARE(database().value(u"SELECT Port FROM DicomNodes WHERE Name='self'"_s), u"105"_s);
    // The new port accepts every node as it is; the rows of the old one are left over.
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Port='105'"_s), u"3"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Port='104'"_s), u"0"_s);
}

QTEST_MAIN(PortCascadeTest)
#include "tst_portcascade.moc"
