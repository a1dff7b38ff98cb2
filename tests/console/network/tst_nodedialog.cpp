#include <QComboBox>
#include <QLineEdit>
#include <QTest>

#include "console/session/Globals.h"
#include "tests/console/network/NodeEditor.h"
#include "tests/dicom/net/Peers.h"
#include "tests/support/UnusedPort.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class NodeDialogTest : public NodeEditorTest {
    Q_OBJECT

  private Q_SLOTS:
    void aNewNodeStartsWithItsDefaults();
    void fieldsAreCheckedInOrder();
    void aNameOfAnFtpNodeIsRefused();
    void aFaultInTheCheckIsReported();
    void boxesHoldTheirLimits();
    void aVanishedNodeLeavesTheDialogInUpdateMode();
    void aTitleThatNoPortHasIsReported();
    void aNodeThatCannotBeReadOpensEmpty();
    void withoutTheTitlesThereIsNoDialog();
    void theDialogIsWorkedByKeys();
    void verifyAsksThePeer();
    void verifyOfNobodyIsAnError();
    void verifyOfNonsenseShowsTheDescription();
};

void NodeDialogTest::aNewNodeStartsWithItsDefaults() {
    edit({}, [](Form form) {
        QCOMPARE(form.window().windowTitle(), u"Dicom Node"_s);
        for (const auto& name : {u"txtName"_s, u"txtAETitle"_s, u"txtHost"_s})
            QCOMPARE(form.text(name), QString{});
        checkShown(form, {{u"txtPort"_s, u"104"_s}, {u"cmbLocalTitle"_s, u"TESSALY"_s}});
        QCOMPARE(form.find<QComboBox>(u"cmbLocalTitle"_s).count(), 2);
        QVERIFY(!form.find<QComboBox>(u"cmbLocalTitle"_s).isEditable());
        QVERIFY(!form.find<QLineEdit>(u"txtName"_s).isReadOnly());
        checkShown(form, {{u"chkStore"_s, u"1"_s}, {u"chkQuery"_s, u"1"_s}, {u"chkPrint"_s, u"0"_s}});
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
    QVERIFY(!Globals::ConfigChanged());
}

void NodeDialogTest::fieldsAreCheckedInOrder() {
    const QList<Box> boxes{plain(u"Node Name cannot be empty"_s), plain(u"Host name cannot be empty"_s),
                           plain(u"Port cannot be empty"_s), plain(u"AETitle cannot be empty"_s)};
    edit({}, boxes, [](Form form) {
        form.type(u"txtPort"_s, {});
        for (const auto& name : {u"txtName"_s, u"txtHost"_s, u"txtPort"_s, u"txtAETitle"_s}) {
            form.click(u"cmdOk"_s);
            QVERIFY(form.window().isVisible());
            form.type(name, u" "_s);  // blanks are text
        }
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(database().rows(u"SELECT Host, Port, AETitle FROM DicomNodes WHERE Name=' '"_s),
             (QList<QStringList>{{u" "_s, u" "_s, u" "_s}}));
}

void NodeDialogTest::aNameOfAnFtpNodeIsRefused() {
    database().run(u"INSERT INTO FtpNodes (Name) VALUES ('O\'\'Hara %1')"_s);
    checkRefusals(
        {}, {{node(u"O'Hara %1"_s), plain(u"Node name 'O'Hara %1' is already defined in FTP Nodes"_s)}});
}

void NodeDialogTest::aFaultInTheCheckIsReported() {
    database().run(u"DROP TABLE FtpNodes"_s);
    checkRefusals({}, {{node(u"new"_s), critical(containing(database().noTable(u"FTPNodes"_s)))}});
}

void NodeDialogTest::boxesHoldTheirLimits() {
    edit({}, [](Form form) {
        checkLimits(form,
                    {{u"txtName"_s, 16}, {u"txtAETitle"_s, 16}, {u"txtHost"_s, 64}, {u"txtPort"_s, 16}});
        form.click(u"cmdCancel"_s);
    });
}

void NodeDialogTest::aVanishedNodeLeavesTheDialogInUpdateMode() {
    database().run(u"DELETE FROM DicomNodes WHERE Name='CT'"_s);
    const auto confirm = [](const QString& name) {
        return [name](Form form) {
            for (const auto& box : {u"txtName"_s, u"txtAETitle"_s, u"txtHost"_s, u"txtPort"_s})
                QCOMPARE(form.text(box), QString{});
            QVERIFY(!form.find<QLineEdit>(u"txtName"_s).isReadOnly());
            QCOMPARE(form.text(u"cmbLocalTitle"_s), QString{});
            for (const auto& box : {u"chkStore"_s, u"chkQuery"_s, u"chkPrint"_s})
                QVERIFY(!form.isChecked(box));
            fill(form, node(name));
            form.type(u"txtPort"_s, u"1"_s);
            form.click(u"cmdOk"_s);
        };
    };
    editAfter(critical(u"Node CT not found"_s), u"CT"_s, confirm(u"CT"_s));  // an update of nothing
    QCOMPARE(count(), 1);
    QVERIFY(Globals::ConfigChanged());

    database().run(u"INSERT INTO DicomNodes (Name) VALUES ('AA')"_s);
    reload();
    database().run(u"DELETE FROM DicomNodes WHERE Name='AA'"_s);
    editAfter(critical(u"Node AA not found"_s), u"AA"_s, confirm(u"pacs"_s));  // of another that exists
    QCOMPARE(stored(u"pacs"_s, u"Host"_s), u"host"_s);
}

void NodeDialogTest::aTitleThatNoPortHasIsReported() {
    database().run(u"UPDATE DicomNodes SET LocalAETitle='GONE', Print=1 WHERE Name='CT'"_s);
    editAfter(critical(u"'GONE' is no entry of the list 'Local server'"_s), u"CT"_s, [](Form form) {
        QCOMPARE(form.text(u"txtName"_s), u"CT"_s);
        QVERIFY(form.find<QLineEdit>(u"txtName"_s).isReadOnly());
        checkShown(form, {{u"txtHost"_s, u"c.example"_s}, {u"cmbLocalTitle"_s, {}}});
        for (const auto& box : {u"chkStore"_s, u"chkQuery"_s, u"chkPrint"_s})
            QVERIFY(!form.isChecked(box));
        form.click(u"cmdCancel"_s);
    });
}

void NodeDialogTest::aNodeThatCannotBeReadOpensEmpty() {
    database().run(u"DROP TABLE DicomNodes"_s);
    editAfter(critical(containing(database().noTable(u"DicomNodes"_s))), u"CT"_s, [](Form form) {
        QCOMPARE(form.text(u"txtName"_s), QString{});
        form.click(u"cmdCancel"_s);
    });
}

void NodeDialogTest::withoutTheTitlesThereIsNoDialog() {
    database().run(u"DROP TABLE Port"_s);
    answering({critical(BoxScript::AnyText)}, [&] { window().click(u"cmdAddNode"_s); });
}

void NodeDialogTest::theDialogIsWorkedByKeys() {
    edit({}, [](Form form) {
        checkTabOrder(form, {{u"txtName"_s, u"keys"_s},
                             {u"txtAETitle"_s, u"typed"_s},
                             {u"txtHost"_s, u"typed"_s},
                             {u"txtPort"_s},
                             {u"cmbLocalTitle"_s},
                             {u"chkStore"_s},
                             {u"chkQuery"_s},
                             {u"chkPrint"_s},
                             {u"cmdTest"_s},
                             {u"cmdOk"_s},
                             {u"cmdCancel"_s}});
        form.find(u"txtPort"_s).setFocus();
        QTest::keyClick(form.window().focusWidget(), Qt::Key_Return);  // Confirm is the default
    });
    QCOMPARE(stored(u"keys"_s, u"Host"_s), u"typed"_s);
}

void NodeDialogTest::verifyAsksThePeer() {
    const Peer peer{Peer::Manner::Accepts};
    const Peer refusing{Peer::Manner::Rejects};
    edit({}, {plain(u"Verify Succeded"_s), critical(u"Verify Error"_s)}, [&](Form form) {
        form.type(u"txtHost"_s, u"127.0.0.1"_s);  // the name stays empty: nothing else is checked
        fill(form, {{u"txtAETitle"_s, u"REMOTE"_s},
                    {u"cmbLocalTitle"_s, u"STORESCP"_s},
                    {u"txtPort"_s, peer.port()}});
        form.click(u"cmdTest"_s);
        form.type(u"txtPort"_s, refusing.port());
        form.click(u"cmdTest"_s);
        form.click(u"cmdCancel"_s);
    });
    QCOMPARE(peer.callingAeTitle(), std::string{"STORESCP"});
    QCOMPARE(peer.calledAeTitle(), std::string{"REMOTE"});
    QCOMPARE(refusing.connections(), 1);
    QCOMPARE(count(), 2);
    QVERIFY(!Globals::ConfigChanged());
}

void NodeDialogTest::verifyOfNobodyIsAnError() {
    edit(u"CT"_s, {critical(u"Verify Error"_s)}, [](Form form) {
        form.type(u"txtHost"_s, u"127.0.0.1"_s);
        form.type(u"txtPort"_s, unusedPort());
        form.click(u"cmdTest"_s);
        form.click(u"cmdCancel"_s);
    });
}

void NodeDialogTest::verifyOfNonsenseShowsTheDescription() {
    edit(u"CT"_s, {critical(u"Port 'abc' is no number from 1 to 65535"_s)}, [](Form form) {
        form.type(u"txtPort"_s, u"abc"_s);
        form.click(u"cmdTest"_s);
        form.click(u"cmdCancel"_s);
    });
}

QTEST_MAIN(NodeDialogTest)
#include "tst_nodedialog.moc"
