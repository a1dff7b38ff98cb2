#include <QComboBox>
#include <QTest>

#include "console/session/Globals.h"
#include "tests/console/printers/PrinterEditor.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class PrinterRowsTest : public PrinterEditorTest {
    Q_OBJECT

  private Q_SLOTS:
    void anAddressAloneMakesARow();
    void everyColumnIsSavedAndLoaded();
    void clearedFieldsAreEmptyOrNull();
    void valuesFromElsewhereStayAsTheyAre();
    void foreignColumnsAreLeftAlone();
    void flagsAreSetWhenNotZero_data();
    void flagsAreSetWhenNotZero();
    void numBitsReadOlderRows_data();
    void numBitsReadOlderRows();
    void aDuplicateNameIsRefused();
    void renamingKeepsTheRow();
    void aRenameOntoAnExistingNameIsRefused();
    void textsKeepEveryCharacter_data();
    void textsKeepEveryCharacter();
};

void PrinterRowsTest::anAddressAloneMakesARow() {
    save({}, address(u"bare"_s));
    const QStringList address{u"txtName"_s, u"txtAETitle"_s, u"txtHost"_s, u"txtPort"_s};
    for (const Field& field : fields()) {
        const QString value = stored(u"bare"_s, field.column);
        if (field.control == u"cmbLayout"_s)
            QCOMPARE(value, u"STANDARD\\1,1"_s);
        else if (field.control == u"cmbNumBits"_s)
            QCOMPARE(value, u"12"_s);
        else if (field.control.startsWith(u"chk"_s))
            QCOMPARE(value, u"0"_s);
        else if (field.control.startsWith(u"cmb"_s) || field.control == u"txtUserParams"_s)
            QVERIFY2(value.isEmpty() && !value.isNull(), qPrintable(field.column));
        else if (!address.contains(field.control))
            QVERIFY2(value.isNull(), qPrintable(field.column));
    }
    QCOMPARE(stored(u"bare"_s, database().typeOf(u"Force8bit"_s)), u"integer"_s);
    QCOMPARE(listed().size(), 3);
    QVERIFY(!Globals::ConfigChanged());
}

void PrinterRowsTest::everyColumnIsSavedAndLoaded() {
    for (const auto& name : {QString{}, u"zoo"_s}) {
        checkComesBack(name, fields());
        database().run(u"DELETE FROM Printers WHERE Name='Film Ä'"_s);
    }
    QCOMPARE(database().rows(u"SELECT Name, DefaultPrinter FROM Printers"_s),
             (QList<QStringList>{{u"Alpha"_s, u"0"_s}}));
}

void PrinterRowsTest::clearedFieldsAreEmptyOrNull() {
    database().run(
        u"UPDATE Printers SET Copies=2, Illumination=1, Reflection=1, MinDensity=1, MaxDensity=1, "
        "GridSizeDx=1, GridSizeDy=1, UserParams='x' WHERE Name='Alpha'"_s);
    const QStringList numbers{u"txtCopies"_s,     u"txtIllumination"_s, u"txtReflection"_s,
                              u"txtMinDensity"_s, u"txtMaxDensity"_s,   u"txtGridSizeDx"_s,
                              u"txtGridSizeDy"_s};
    edit(u"Alpha"_s, [&](Form form) {
        for (const QString& box : numbers)
            form.type(box, {});
        form.type(u"txtUserParams"_s, {});
        form.click(u"cmdOk"_s);
    });
    for (const Field& field : fields()) {
        if (numbers.contains(field.control))
            QVERIFY2(stored(u"Alpha"_s, field.column).isNull(), qPrintable(field.column));
    }
    QVERIFY(!stored(u"Alpha"_s, u"UserParams"_s).isNull());
    QCOMPARE(stored(u"Alpha"_s, u"UserParams"_s), u""_s);
    edit(u"Alpha"_s, [&](Form form) {
        for (const QString& box : numbers)
            QCOMPARE(form.text(box), QString{});
        form.click(u"cmdCancel"_s);
    });
}

void PrinterRowsTest::valuesFromElsewhereStayAsTheyAre() {
    database().run(
        u"UPDATE Printers SET Layout='SLIDE', Medium='paper', FilmSize='', Resolution=NULL, "
        "Force8bit=14, Illumination=2.5 WHERE Name='Alpha'"_s);
    edit(u"Alpha"_s, [](Form form) {
        checkShown(form, {{u"cmbLayout"_s, u"SLIDE"_s}, {u"cmbMedium"_s, u"paper"_s}});
        QCOMPARE(form.find<QComboBox>(u"cmbSize"_s).currentIndex(), -1);
        QCOMPARE(form.find<QComboBox>(u"cmbResolution"_s).currentIndex(), -1);
        checkShown(form, {{u"cmbNumBits"_s, u"14"_s}, {u"txtIllumination"_s, u"2.5"_s}});
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(database().rows(u"SELECT Layout, Medium, FilmSize, Resolution, Force8bit, Illumination "
                             "FROM Printers WHERE Name='Alpha'"_s),
             (QList<QStringList>{{u"SLIDE"_s, u"paper"_s, u""_s, u""_s, u"14"_s, u"2.5"_s}}));
}

void PrinterRowsTest::foreignColumnsAreLeftAlone() {
    database().run(u"ALTER TABLE Printers ADD COLUMN Calibration VARCHAR(16) DEFAULT 'none'"_s);
    database().run(u"UPDATE Printers SET Calibration='mine' WHERE Name='Alpha'"_s);
    database().openConsoleConnection();  // an open one goes by the tables that it knows
    edit(u"Alpha"_s, [](Form form) { form.click(u"cmdOk"_s); });
    save({}, address(u"new"_s));
    QCOMPARE(stored(u"Alpha"_s, u"Calibration"_s), u"mine"_s);
    QCOMPARE(stored(u"new"_s, u"Calibration"_s), u"none"_s);
}

void PrinterRowsTest::flagsAreSetWhenNotZero_data() {
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("set");
    QTest::newRow("1") << u"1"_s << true;
    QTest::newRow("-1") << u"-1"_s << true;
    QTest::newRow("0") << u"0"_s << false;
    QTest::newRow("NULL") << u"NULL"_s << false;
}

void PrinterRowsTest::flagsAreSetWhenNotZero() {
    QFETCH(QString, value);
    QFETCH(bool, set);
    database().run(u"UPDATE Printers SET ForceBW=%1, DefaultPrinter=%1 WHERE Name='zoo'"_s.arg(value));
    edit(u"zoo"_s, [&](Form form) {
        QCOMPARE(form.isChecked(u"chkForce"_s), set);
        QCOMPARE(form.isChecked(u"chkDefault"_s), set);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(stored(u"zoo"_s, u"ForceBW"_s), set ? u"1"_s : u"0"_s);
    QCOMPARE(stored(u"zoo"_s, u"DefaultPrinter"_s), set ? u"1"_s : u"0"_s);
}

void PrinterRowsTest::numBitsReadOlderRows_data() {
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("bits");
    QTest::newRow("NULL") << u"NULL"_s << u"12"_s;
    QTest::newRow("0") << u"0"_s << u"12"_s;
    QTest::newRow("1") << u"1"_s << u"8"_s;
    for (const auto& bits : {u"8"_s, u"10"_s, u"12"_s, u"16"_s})
        QTest::newRow(qPrintable(bits)) << bits << bits;
}

void PrinterRowsTest::numBitsReadOlderRows() {
    QFETCH(QString, value);
    QFETCH(QString, bits);
    database().run(u"UPDATE Printers SET Force8bit=%1 WHERE Name='zoo'"_s.arg(value));
    edit(u"zoo"_s, [&](Form form) {
        QCOMPARE(form.text(u"cmbNumBits"_s), bits);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(stored(u"zoo"_s, u"Force8bit"_s), bits);
}

void PrinterRowsTest::aDuplicateNameIsRefused() {
    edit({}, {plain(u"Update Printer: duplicate Name [ALPHA], change name."_s)}, [](Form form) {
        fill(form, address(u"ALPHA"_s));
        form.choose(u"cmbTrim"_s, u"YES"_s);
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        checkShown(form, {{u"txtName"_s, u"ALPHA"_s}, {u"cmbTrim"_s, u"YES"_s}});
        form.type(u"txtName"_s, u"Alpha 2"_s);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(stored(u"Alpha"_s, u"AETitle"_s), u"A"_s);
    QCOMPARE(stored(u"Alpha 2"_s, u"AETitle"_s), u"TITLE"_s);
}

void PrinterRowsTest::renamingKeepsTheRow() {
    edit(u"Alpha"_s, [](Form form) {
        checkShown(form, {{u"txtName"_s, u"Alpha"_s}, {u"chkDefault"_s, u"1"_s}});
        form.type(u"txtName"_s, u"Omega"_s);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(database().rows(u"SELECT Name, FilmSize, DefaultPrinter FROM Printers ORDER BY Name"_s),
             (QList<QStringList>{{u"Omega"_s, u"A4"_s, u"1"_s}, {u"zoo"_s, {}, u"0"_s}}));
}

void PrinterRowsTest::aRenameOntoAnExistingNameIsRefused() {
    edit(u"Alpha"_s, {plain(u"Update Printer: duplicate Name [Zoo], change name."_s)}, [](Form form) {
        form.type(u"txtName"_s, u"Zoo"_s);
        form.click(u"cmdOk"_s);
        form.type(u"txtName"_s, u"Zoo 2"_s);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(stored(u"Zoo 2"_s, u"FilmSize"_s), u"A4"_s);
    QCOMPARE(stored(u"zoo"_s, u"AETitle"_s), u"ZOO"_s);
    QCOMPARE(count(), 2);
}

void PrinterRowsTest::textsKeepEveryCharacter_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("text");
    QTest::newRow("umlauts") << u"Gerät Größe"_s << u"Ä ß ö"_s;
    QTest::newRow("CJK") << u"印刷機"_s << u"東京 서울"_s;
    QTest::newRow("four bytes") << u"🖨 1"_s << u"🩻🏥"_s;
    QTest::newRow("blanks at both ends") << u"  two  "_s << u" x "_s;
    QTest::newRow("an ideographic blank alone") << u"\u3000"_s << u"\u3000"_s;
    QTest::newRow("SQL") << u"100% \"b\" ?"_s << u"'; DELETE FROM Printers --"_s;
}

void PrinterRowsTest::textsKeepEveryCharacter() {
    QFETCH(QString, name);
    QFETCH(QString, text);
    checkComesBack({}, {{u"txtName"_s, u"Name"_s, name},
                        {u"txtAETitle"_s, u"AETitle"_s, u"TITLE"_s},
                        {u"txtHost"_s, u"Host"_s, text},
                        {u"txtPort"_s, u"Port"_s, u"104"_s},
                        {u"txtUserParams"_s, u"UserParams"_s, text}});
    QCOMPARE(count(), 3);
}

QTEST_MAIN(PrinterRowsTest)
#include "tst_printerrows.moc"
