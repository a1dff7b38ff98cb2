#include <QTest>

#include "console/session/Globals.h"
#include "tests/console/printers/PrinterEditor.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class PrintersTest : public PrinterEditorTest {
    Q_OBJECT

  private Q_SLOTS:
    void listShowsTheTableInOrder();
    void keysAndDoubleClickPressTheButtons();
    void aVanishedPrinterIsNoSilentSuccess();
    void aPrinterThatIsGoneOpensAsANewOne();
    void aNameOfBlanksOpensAsANewOne();
    void oneDefaultPrinterAtMost();
    void theDefaultIsNotInATransaction();
    void anApostropheIsSavedButNotOpened();
    void deleteAsksAndReloads();
    void anEmptyListHasNothingToModify();
    void failuresSayWhy();
};

void PrintersTest::listShowsTheTableInOrder() {
    QStringList zoo{u"zoo"_s, u"ZOO"_s, u"z"_s, u"1"_s};
    zoo.resize(9);
    checkList({u"Name"_s, u"AE Title"_s, u"Hostname"_s, u"Port"_s, u"Layout"_s, u"Size"_s, u"Medium"_s,
               u"Destination"_s, u"Orientation"_s},
              {{u"Alpha"_s, u"A"_s, u"a"_s, u"2"_s, u"STANDARD\\1,2"_s, u"A4"_s, u"PAPER"_s, u"BIN_1"_s,
                u"PORTRAIT"_s},
               zoo});
}

void PrintersTest::keysAndDoubleClickPressTheButtons() {
    checkKeys();
}

void PrintersTest::aVanishedPrinterIsNoSilentSuccess() {
    edit(u"Alpha"_s, {plain(u"Update Printer: The row is no longer there"_s)}, [this](Form form) {
        database().run(u"DELETE FROM Printers WHERE Name='Alpha'"_s);
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        form.click(u"cmdCancel"_s);
    });
}

void PrintersTest::aPrinterThatIsGoneOpensAsANewOne() {
    database().run(u"DELETE FROM Printers WHERE Name='Alpha'"_s);
    edit(u"Alpha"_s, [](Form form) {
        checkShown(form,
                   {{u"txtName"_s, {}}, {u"cmbNumBits"_s, u"12"_s}, {u"cmbLayout"_s, u"STANDARD\\1,1"_s}});
        fill(form, address(u"Alpha"_s));
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(stored(u"Alpha"_s, u"Host"_s), u"host"_s);
}

void PrintersTest::aNameOfBlanksOpensAsANewOne() {
    database().run(u"INSERT INTO Printers (Name, AETitle, Host, Port) VALUES ('  ', 'BLANK', 'b', '3')"_s);
    reload();
    edit(u"  "_s, [](Form form) {
        for (const auto& name : {u"txtName"_s, u"txtAETitle"_s, u"txtHost"_s})
            QCOMPARE(form.text(name), QString{});
        fill(form, address(u"named"_s));
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(stored(u"named"_s, u"Host"_s), u"host"_s);
    QCOMPARE(stored(u"  "_s, u"Host"_s), u"b"_s);
}

void PrintersTest::oneDefaultPrinterAtMost() {
    database().run(u"UPDATE Printers SET DefaultPrinter=-1"_s);
    save({}, address(u"plain"_s));
    const auto defaults = [this] {
        return database().rows(u"SELECT Name FROM Printers WHERE DefaultPrinter<>0 ORDER BY Name"_s);
    };
    QCOMPARE(defaults(), (QList<QStringList>{{u"Alpha"_s}, {u"zoo"_s}}));
    edit(u"plain"_s, [](Form form) {
        form.check(u"chkDefault"_s, true);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(defaults(), (QList<QStringList>{{u"plain"_s}}));
}

void PrintersTest::theDefaultIsNotInATransaction() {
    database().failOn(u"Printers"_s, u"UPDATE"_s, ScratchDatabase::Failure, u"NEW.Name='zoo'"_s);
    edit({}, {failure()}, [this](Form form) {
        fill(form, address(u"third"_s));
        form.check(u"chkDefault"_s, true);
        form.click(u"cmdOk"_s);
        QCOMPARE(stored(u"third"_s, u"Host"_s), u"host"_s);
        QVERIFY(form.window().isVisible());
        // The row is there by now: another Confirm is for it and no duplicate.
        database().allow(u"Printers"_s, u"UPDATE"_s);
        form.type(u"txtHost"_s, u"other"_s);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(stored(u"third"_s, u"Host"_s), u"other"_s);
    QCOMPARE(stored(u"third"_s, u"DefaultPrinter"_s), u"1"_s);
    QCOMPARE(stored(u"Alpha"_s, u"DefaultPrinter"_s), u"0"_s);
}

void PrintersTest::anApostropheIsSavedButNotOpened() {
    save({}, address(u"O'Hara"_s));
    QCOMPARE(stored(u"O'Hara"_s, u"Host"_s), u"host"_s);
    BoxScript script;
    script.expect(critical(BoxScript::AnyText));
    open(u"O'Hara"_s);
    QVERIFY(script.isDone());
    QVERIFY(!script.boxes().back().text.isEmpty());
    QVERIFY(manager().isVisible());
    // It can be deleted: there the name is bound.
    script.expect(question(u"O'Hara"_s, QMessageBox::Ok));
    window().click(u"cmdDeletePrinter"_s);
    QVERIFY(script.isDone());
    QCOMPARE(count(), 2);
}

void PrintersTest::deleteAsksAndReloads() {
    database().run(u"INSERT INTO DicomNodes (Name) VALUES ('Alpha')"_s);
    checkDeleteAsks(false);
    QCOMPARE(database().value(u"SELECT count(*) FROM DicomNodes"_s), u"1"_s);  // its row and nothing else
}

void PrintersTest::anEmptyListHasNothingToModify() {
    database().run(u"DELETE FROM Printers"_s);
    reload();
    BoxScript script;
    window().click(u"cmdModifyPrinter"_s);
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdDeletePrinter"_s);
    QVERIFY(script.isDone());
}

void PrintersTest::failuresSayWhy() {
    database().failOn(u"Printers"_s, u"UPDATE"_s);
    database().failOn(u"Printers"_s, u"INSERT"_s);
    for (const auto& name : {QString{}, u"zoo"_s})
        checkRefusals(name, {{address(u"typed"_s), failure()}});
    database().run(u"DROP TABLE Printers"_s);
    answering({critical(BoxScript::AnyText)}, [this] { open(u"zoo"_s); });
    checkFailedLoad();
}

QTEST_MAIN(PrintersTest)
#include "tst_printers.moc"
