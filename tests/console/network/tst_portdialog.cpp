#include <QLineEdit>
#include <QTest>

#include "console/session/Globals.h"
#include "tests/console/network/PortEditor.h"
#include "tests/support/Console.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class PortDialogTest : public PortEditorTest {
    Q_OBJECT

  private Q_SLOTS:
    void aNewPortStartsWithItsDefaults();
    void fieldsAreCheckedInOrder();
    void connectionsAreFromOneToAHundred();
    void connectionsAreRounded_data();
    void connectionsAreRounded();
    void connectionsThatAreNoNumberEndTheConsole_data();
    void connectionsThatAreNoNumberEndTheConsole();
    void modifyShowsTheRow();
    void boxesHoldTheirLimits();
    void aDuplicateIsRefusedByTheEngine();
    void aVanishedPortIsInsertedAgain();
    void theRootIsPickedNotTyped();
};

void PortDialogTest::aNewPortStartsWithItsDefaults() {
    edit({}, [](Form form) {
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
    QVERIFY(!Globals::ConfigChanged());
}

void PortDialogTest::fieldsAreCheckedInOrder() {
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

void PortDialogTest::connectionsAreFromOneToAHundred() {
    QList<Refusal> refusals;
    for (const auto& number : {u"0"_s, u"101"_s, u"-1"_s, u"32767"_s, u"-32768"_s})
        refusals.append({{{u"txtMaxConnections"_s, number}}, plain(u"Numero di connessioni errato"_s)});
    checkRefusals(u"104"_s, refusals);
    for (const auto& number : {u"1"_s, u"100"_s}) {
        modifyPort([=](Form form) { form.type(u"txtMaxConnections"_s, number); });
        QCOMPARE(stored(u"104"_s, u"MaxConnections"_s), number);
    }
}

void PortDialogTest::connectionsAreRounded_data() {
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

void PortDialogTest::connectionsAreRounded() {
    QFETCH(QString, typed);
    modifyPort([&](Form form) { form.type(u"txtMaxConnections"_s, typed); });
    QTEST(stored(u"104"_s, u"MaxConnections"_s), "stored");
}

void PortDialogTest::connectionsThatAreNoNumberEndTheConsole_data() {
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("description");
    for (const auto* text : {"ten", "", " ", "10 x", "1,5", "0x10", "nan", "inf"})
        QTest::newRow(text) << QString::fromLatin1(text) << u"Type mismatch"_s;
    for (const auto* text : {"32768", "-32769", "32767.5", "1e99", "1e999", "99999999999999999999"})
        QTest::newRow(text) << QString::fromLatin1(text) << u"Overflow"_s;
}

void PortDialogTest::connectionsThatAreNoNumberEndTheConsole() {
    QFETCH(QString, typed);
    QFETCH(QString, description);
    const QString before = portsAndNodes();
    edit(u"104"_s, {critical(description)}, [&](Form form) {
        form.type(u"txtAETitle"_s, u"CHANGED"_s);
        form.type(u"txtMaxConnections"_s, typed);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(takeConsoleEnd(), std::optional{1});
    QCOMPARE(portsAndNodes(), before);
}

void PortDialogTest::modifyShowsTheRow() {
    edit(u"104"_s, [](Form form) {
        QCOMPARE(form.text(u"txtPort"_s), u"104"_s);
        QVERIFY(!form.find<QLineEdit>(u"txtPort"_s).isReadOnly());
        checkShown(form, {{u"txtAETitle"_s, u"STORESCP"_s},
                          {u"txtMaxConnections"_s, u"10"_s},
                          {u"txtRoot"_s, u"/one"_s},
                          {u"chkCalling"_s, u"1"_s},
                          {u"chkCalled"_s, u"1"_s},
                          {u"chkSaveCompressed"_s, u"0"_s}});
        form.click(u"cmdCancel"_s);
    });
}

void PortDialogTest::boxesHoldTheirLimits() {
    edit(u"104"_s, [](Form form) {
        checkLimits(form, {{u"txtPort"_s, 16}, {u"txtAETitle"_s, 16}});
        QCOMPARE(form.find<QLineEdit>(u"txtRoot"_s).maxLength(), 255);
        form.click(u"cmdCancel"_s);
    });
}

void PortDialogTest::aDuplicateIsRefusedByTheEngine() {
    const QString before = portsAndNodes();
    checkRefusals(u"104"_s, {{{{u"txtPort"_s, u"11112"_s}},
                              critical(containing(database().twice(u"Port"_s, u"Port"_s)))}});
    QCOMPARE(portsAndNodes(), before);
}

void PortDialogTest::aVanishedPortIsInsertedAgain() {
    database().run(u"DELETE FROM Port WHERE Port='104'"_s);
    database().run(u"DELETE FROM PortRemoteNodes"_s);
    modifyVanishedPort(window(), database().imageRoot(), u"104"_s, u"AGAIN"_s);
    QCOMPARE(stored(u"104"_s, u"AETitle"_s), u"AGAIN"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Port='104'"_s), u"3"_s);
    QCOMPARE(database().value(u"SELECT AETitle FROM DicomNodes WHERE Name='self'"_s), u"STORESCP"_s);
}

void PortDialogTest::theRootIsPickedNotTyped() {
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

QTEST_MAIN(PortDialogTest)
#include "tst_portdialog.moc"
