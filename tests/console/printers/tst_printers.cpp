#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "console/ui/SpinButtons.h"
#include "dicom/Verifier.h"
#include "tests/dicom/Peers.h"
#include "tests/support/ListPage.h"
#include "tests/support/UnusedPort.h"
#include "tests/support/WindowTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

struct Field {
    QString control;
    QString column;
    QString value;  ///< one that differs from what a new printer has
};
const QList<Field>& fields() {
    static const QList<Field> all{
        {u"txtName"_s, u"Name"_s, u"Film Ä"_s},
        {u"txtAETitle"_s, u"AETitle"_s, u"FILM_SCP"_s},
        {u"txtHost"_s, u"Host"_s, u"film.example"_s},
        {u"txtPort"_s, u"Port"_s, u"104"_s},
        {u"cmbPriority"_s, u"Priority"_s, u"LOW"_s},
        {u"cmbMedium"_s, u"Medium"_s, u"CLEAR FILM"_s},
        {u"cmbDestination"_s, u"Destination"_s, u"BIN_4"_s},
        {u"txtCopies"_s, u"Copies"_s, u"2"_s},
        {u"txtIllumination"_s, u"Illumination"_s, u"2000"_s},
        {u"txtReflection"_s, u"Reflection"_s, u"10"_s},
        {u"txtMinDensity"_s, u"MinDensity"_s, u"20"_s},
        {u"txtMaxDensity"_s, u"MaxDensity"_s, u"320"_s},
        {u"cmbBorderDensity"_s, u"Border"_s, u"WHITE"_s},
        {u"cmbPolarity"_s, u"Polarity"_s, u"REVERSE"_s},
        {u"cmbEmptyDensity"_s, u"EmptyDensity"_s, u"BLACK"_s},
        {u"cmbLayout"_s, u"Layout"_s, u"STANDARD\\5,7"_s},
        {u"cmbSize"_s, u"FilmSize"_s, u"24CMX30CM"_s},
        {u"cmbResolution"_s, u"Resolution"_s, u"HIGH"_s},
        {u"cmbOrientation"_s, u"Orientation"_s, u"LANDSCAPE"_s},
        {u"cmbMagnification"_s, u"Magnification"_s, u"BILINEAR"_s},
        {u"cmbSmoothing"_s, u"Smoothing"_s, u"SHARP"_s},
        {u"cmbTrim"_s, u"Trim"_s, u"NO"_s},
        {u"txtGridSizeDx"_s, u"GridSizeDx"_s, u"300"_s},
        {u"txtGridSizeDy"_s, u"GridSizeDy"_s, u"400"_s},
        {u"txtUserParams"_s, u"UserParams"_s, u"a=1;b='%?'"_s},
        {u"chkForce"_s, u"ForceBW"_s, u"1"_s},
        {u"chkDefault"_s, u"DefaultPrinter"_s, u"1"_s},
        {u"cmbNumBits"_s, u"Force8bit"_s, u"16"_s},
    };
    return all;
}

QString shown(const Form& form, const QString& control) {
    return control.startsWith(u"chk"_s) ? QString::number(static_cast<int>(form.isChecked(control)))
                                        : form.text(control);
}

void fill(const Form& form, const QString& control, const QString& value) {
    if (control.startsWith(u"chk"_s))
        form.check(control, value == u"1"_s);
    else if (control.startsWith(u"cmb"_s))
        form.choose(control, value);
    else
        form.type(control, value);
}

void fillAddress(const Form& form, const QString& name) {
    form.type(u"txtName"_s, name);
    form.type(u"txtAETitle"_s, u"TITLE"_s);
    form.type(u"txtHost"_s, u"host"_s);
    form.type(u"txtPort"_s, u"104"_s);
}

}  // namespace

class PrintersTest : public WindowTest {
    Q_OBJECT

  public:
    PrintersTest() : WindowTest(Page::Printers) {}

  protected:
    void seed() const override {
        database().run(u"INSERT INTO Printers (Name, AETitle, Host, Port) VALUES ('zoo', 'ZOO', 'z', '1')"_s);
        database().run(
            u"INSERT INTO Printers (Name, AETitle, Host, Port, Layout, FilmSize, Medium, "
            "Destination, Orientation, DefaultPrinter) VALUES ('Alpha', 'A', 'a', '2', "
            "'STANDARD\\1,2', 'A4', 'PAPER', 'BIN_1', 'PORTRAIT', 1)"_s);
    }

  private Q_SLOTS:
    void listShowsTheTableInOrder();
    void theDialogIsBuiltAsKnown();
    void keysAndDoubleClickPressTheButtons();
    void definedTermsAreInOrder_data();
    void definedTermsAreInOrder();
    void aNewPrinterStartsEmpty();
    void anAddressAloneMakesARow();
    void everyColumnIsSavedAndLoaded();
    void clearedFieldsAreEmptyOrNull();
    void valuesFromElsewhereStayAsTheyAre();
    void foreignColumnsAreLeftAlone();
    void flagsAreSetWhenNotZero_data();
    void flagsAreSetWhenNotZero();
    void numBitsReadOlderRows_data();
    void numBitsReadOlderRows();
    void emptyAddressesAreRefused();
    void aDuplicateNameIsRefused();
    void renamingKeepsTheRow();
    void aRenameOntoAnExistingNameIsRefused();
    void aVanishedPrinterIsNoSilentSuccess();
    void aPrinterThatIsGoneOpensAsANewOne();
    void aNameOfBlanksOpensAsANewOne();
    void oneDefaultPrinterAtMost();
    void theDefaultIsNotInATransaction();
    void anApostropheIsSavedButNotOpened();
    void textsKeepEveryCharacter_data();
    void textsKeepEveryCharacter();
    void deleteKeyClearsNineLists_data();
    void deleteKeyClearsNineLists();
    void leavingANumberOfZeroEmptiesIt_data();
    void leavingANumberOfZeroEmptiesIt();
    void spinButtonsCountInTheirRanges();
    void textThatIsNoNumberIsAFault();
    void verifyAsksThePeer();
    void deleteAsksAndReloads();
    void anEmptyListHasNothingToModify();
    void failuresSayWhy();

  private:
    /// Opens the dialog for the printer of that name, empty for a new one, and lets `body` drive it.
    void edit(BoxScript& script, const QString& name, std::function<void(Form)> body) const {
        script.drive(u"frmDcmPrinter"_s, std::move(body));
        open(name);
    }
    void open(const QString& name) const {
        if (name.isEmpty()) {
            window().click(u"cmdAddPrinter"_s);
        } else {
            window().selectRow(u"lstDcmPrinters"_s, name);
            window().click(u"cmdModifyPrinter"_s);
        }
    }
    [[nodiscard]] QString stored(const QString& name, const QString& column) const {
        return database().value(u"SELECT %1 FROM Printers WHERE Name=?"_s.arg(column), {name});
    }
};

void PrintersTest::listShowsTheTableInOrder() {
    QCOMPARE(window().headers(u"lstDcmPrinters"_s),
             (QStringList{u"Name"_s, u"AE Title"_s, u"Hostname"_s, u"Port"_s, u"Layout"_s, u"Size"_s,
                          u"Medium"_s, u"Destination"_s, u"Orientation"_s}));
    QStringList zoo{u"zoo"_s, u"ZOO"_s, u"z"_s, u"1"_s};
    zoo.resize(9);
    QCOMPARE(window().rows(u"lstDcmPrinters"_s),
             (QList<QStringList>{{u"Alpha"_s, u"A"_s, u"a"_s, u"2"_s, u"STANDARD\\1,2"_s, u"A4"_s, u"PAPER"_s,
                                  u"BIN_1"_s, u"PORTRAIT"_s},
                                 zoo}));
    QCOMPARE(window().selectedRows(u"lstDcmPrinters"_s), QStringList{u"Alpha"_s});
}

void PrintersTest::theDialogIsBuiltAsKnown() {
    BoxScript script;
    edit(script, {}, [](Form form) {
        QCOMPARE(form.window().windowTitle(), u"Dicom Printer"_s);
        QVERIFY(form.window().width() <= 1024 && form.window().height() <= 700);
        QStringList frames;
        for (const QGroupBox* frame : form.window().findChildren<QGroupBox*>())
            frames << frame->title();
        frames.sort();
        QCOMPARE(frames,
                 (QStringList{u"Densities"_s, u"Geometry"_s, u"Illumination"_s, u"Job"_s, u"Other "_s}));
        for (const Field& field : fields()) {
            QCOMPARE(form.find(field.control).property("DataField").toString(),
                     field.control == u"cmbNumBits"_s ? QString{} : field.column);
        }
        for (const auto& [name, limit] : QList<std::pair<QString, int>>{{u"txtName"_s, 16},
                                                                        {u"txtAETitle"_s, 16},
                                                                        {u"txtHost"_s, 64},
                                                                        {u"txtPort"_s, 16},
                                                                        {u"txtMinDensity"_s, 5},
                                                                        {u"txtMaxDensity"_s, 5},
                                                                        {u"txtGridSizeDx"_s, 5},
                                                                        {u"txtGridSizeDy"_s, 5}})
            QCOMPARE(form.find<QLineEdit>(name).maxLength(), limit);
        const QStringList labels = form.labels();
        for (const auto& label : {u"Name"_s,
                                  u"AETitle"_s,
                                  u"Host"_s,
                                  u"Port"_s,
                                  u"Priority"_s,
                                  u"Medium"_s,
                                  u"Destination"_s,
                                  u"Copies"_s,
                                  u"Illumination [cd/m^2]"_s,
                                  u"Reflection [cd/m^2]"_s,
                                  u"Min"_s,
                                  u"Max"_s,
                                  u"Border"_s,
                                  u"Polarity"_s,
                                  u"Layout"_s,
                                  u"Film size"_s,
                                  u"Resolution"_s,
                                  u"Orientation"_s,
                                  u"Magnification"_s,
                                  u"Smoothing"_s,
                                  u"Trim"_s,
                                  u"Grid size"_s,
                                  u"dx"_s,
                                  u"dy"_s,
                                  u"User parameters"_s,
                                  u"Num bits."_s})
            QVERIFY2(labels.contains(label), qPrintable(label));
        QCOMPARE(form.text(u"chkForce"_s), u"Force Back&&White"_s);
        QCOMPARE(form.text(u"chkDefault"_s), u"Default printer"_s);
        QCOMPARE(form.text(u"cmdVerify"_s), u"Verify"_s);
        QCOMPARE(form.find(u"cmdVerify"_s).toolTip(), u"Do a C-ECHO DICOM verification service"_s);
        form.click(u"cmdCancel"_s);
    });
    QVERIFY(script.isDone());
}

void PrintersTest::keysAndDoubleClickPressTheButtons() {
    checkKeys(manager(),
              {.list = u"lstDcmPrinters"_s,
               .dialog = u"frmDcmPrinter"_s,
               .keyBox = u"txtName"_s,
               .question = okCancel(u"Are you sure you want to delete Alpha?"_s, QMessageBox::Cancel)});
}

void PrintersTest::definedTermsAreInOrder_data() {
    QTest::addColumn<QString>("combo");
    QTest::addColumn<QString>("terms");
    QTest::newRow("priority") << u"cmbPriority"_s << u"HIGH|MED|LOW"_s;
    QTest::newRow("medium") << u"cmbMedium"_s << u"PAPER|CLEAR FILM|BLUE FILM"_s;
    QTest::newRow("destination") << u"cmbDestination"_s << u"MAGAZINE|PROCESSOR|BIN_1|BIN_2|BIN_3|BIN_4"_s;
    QTest::newRow("border") << u"cmbBorderDensity"_s << u"BLACK|WHITE"_s;
    QTest::newRow("polarity") << u"cmbPolarity"_s << u"NORMAL|REVERSE"_s;
    QTest::newRow("empty") << u"cmbEmptyDensity"_s << u"BLACK|WHITE"_s;
    QTest::newRow("layout") << u"cmbLayout"_s
                            << u"STANDARD\\1,1|STANDARD\\1,2|STANDARD\\2,2|STANDARD\\2,3|STANDARD\\2,4|"
                               "STANDARD\\3,3|STANDARD\\3,4|STANDARD\\3,5|STANDARD\\4,4|STANDARD\\4,5|"
                               "STANDARD\\4,6|STANDARD\\5,5|STANDARD\\5,6|STANDARD\\5,7"_s;
    QTest::newRow("size") << u"cmbSize"_s
                          << u"8INX10IN|10INX12IN|11INX14IN|11INX17IN|14INX14IN|14INX17IN|24CMX24CM|"
                             "24CMX30CM|A4|A3"_s;
    QTest::newRow("resolution") << u"cmbResolution"_s << u"STANDARD|HIGH"_s;
    QTest::newRow("orientation") << u"cmbOrientation"_s << u"PORTRAIT|LANDSCAPE"_s;
    QTest::newRow("magnification") << u"cmbMagnification"_s << u"REPLICATE|BILINEAR|CUBIC|NONE"_s;
    QTest::newRow("smoothing") << u"cmbSmoothing"_s << u"MEDIUM|SHARP|SMOOTH"_s;
    QTest::newRow("trim") << u"cmbTrim"_s << u"YES|NO"_s;
    QTest::newRow("bits") << u"cmbNumBits"_s << u"8|10|12|16"_s;
}

void PrintersTest::definedTermsAreInOrder() {
    QFETCH(QString, combo);
    QFETCH(QString, terms);
    BoxScript script;
    edit(script, {}, [&](Form form) {
        const auto& box = form.find<QComboBox>(combo);
        QStringList items;
        for (int i = 0; i < box.count(); ++i)
            items << box.itemText(i);
        QCOMPARE(items.join(u'|'), terms);
        QVERIFY(!box.isEditable());
        form.click(u"cmdCancel"_s);
    });
    QVERIFY(script.isDone());
}

void PrintersTest::aNewPrinterStartsEmpty() {
    BoxScript script;
    edit(script, {}, [](Form form) {
        for (const Field& field : fields()) {
            const QString expected = field.control == u"cmbLayout"_s      ? u"STANDARD\\1,1"_s
                                     : field.control == u"cmbNumBits"_s   ? u"12"_s
                                     : field.control.startsWith(u"chk"_s) ? u"0"_s
                                                                          : QString{};
            QCOMPARE(shown(form, field.control), expected);
        }
        QTest::keyClick(&form.window(), Qt::Key_Escape);
    });
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM Printers"_s), u"2"_s);
}

void PrintersTest::anAddressAloneMakesARow() {
    BoxScript script;
    edit(script, {}, [](Form form) {
        fillAddress(form, u"bare"_s);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
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
    QCOMPARE(window().rows(u"lstDcmPrinters"_s).size(), 3);
    QVERIFY(!Globals::ConfigChanged());
}

void PrintersTest::everyColumnIsSavedAndLoaded() {
    BoxScript script;
    for (const auto& name : {QString{}, u"zoo"_s}) {
        edit(script, name, [](Form form) {
            for (const Field& field : fields())
                fill(form, field.control, field.value);
            form.click(u"cmdOk"_s);
        });
        for (const Field& field : fields())
            QCOMPARE(stored(u"Film Ä"_s, field.column), field.value);
        edit(script, u"Film Ä"_s, [](Form form) {
            for (const Field& field : fields())
                QCOMPARE(shown(form, field.control), field.value);
            form.click(u"cmdOk"_s);
        });
        for (const Field& field : fields())
            QCOMPARE(stored(u"Film Ä"_s, field.column), field.value);
        QVERIFY(script.isDone());
        database().run(u"DELETE FROM Printers WHERE Name='Film Ä'"_s);
    }
    QCOMPARE(database().rows(u"SELECT Name, DefaultPrinter FROM Printers"_s),
             (QList<QStringList>{{u"Alpha"_s, u"0"_s}}));
}

void PrintersTest::clearedFieldsAreEmptyOrNull() {
    database().run(
        u"UPDATE Printers SET Copies=2, Illumination=1, Reflection=1, MinDensity=1, MaxDensity=1, "
        "GridSizeDx=1, GridSizeDy=1, UserParams='x' WHERE Name='Alpha'"_s);
    const QStringList numbers{u"txtCopies"_s,     u"txtIllumination"_s, u"txtReflection"_s,
                              u"txtMinDensity"_s, u"txtMaxDensity"_s,   u"txtGridSizeDx"_s,
                              u"txtGridSizeDy"_s};
    BoxScript script;
    edit(script, u"Alpha"_s, [&](Form form) {
        for (const QString& box : numbers)
            form.type(box, {});
        form.type(u"txtUserParams"_s, {});
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    for (const Field& field : fields()) {
        if (numbers.contains(field.control))
            QVERIFY2(stored(u"Alpha"_s, field.column).isNull(), qPrintable(field.column));
    }
    QVERIFY(!stored(u"Alpha"_s, u"UserParams"_s).isNull());
    QCOMPARE(stored(u"Alpha"_s, u"UserParams"_s), u""_s);
    edit(script, u"Alpha"_s, [&](Form form) {
        for (const QString& box : numbers)
            QCOMPARE(form.text(box), QString{});
        form.click(u"cmdCancel"_s);
    });
    QVERIFY(script.isDone());
}

void PrintersTest::valuesFromElsewhereStayAsTheyAre() {
    database().run(
        u"UPDATE Printers SET Layout='SLIDE', Medium='paper', FilmSize='', Resolution=NULL, "
        "Force8bit=14, Illumination=2.5 WHERE Name='Alpha'"_s);
    BoxScript script;
    edit(script, u"Alpha"_s, [](Form form) {
        QCOMPARE(form.text(u"cmbLayout"_s), u"SLIDE"_s);
        QCOMPARE(form.text(u"cmbMedium"_s), u"paper"_s);
        QCOMPARE(form.find<QComboBox>(u"cmbSize"_s).currentIndex(), -1);
        QCOMPARE(form.find<QComboBox>(u"cmbResolution"_s).currentIndex(), -1);
        QCOMPARE(form.text(u"cmbNumBits"_s), u"14"_s);
        QCOMPARE(form.text(u"txtIllumination"_s), u"2.5"_s);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(database().rows(u"SELECT Layout, Medium, FilmSize, Resolution, Force8bit, Illumination "
                             "FROM Printers WHERE Name='Alpha'"_s),
             (QList<QStringList>{{u"SLIDE"_s, u"paper"_s, u""_s, u""_s, u"14"_s, u"2.5"_s}}));
}

void PrintersTest::foreignColumnsAreLeftAlone() {
    database().run(u"ALTER TABLE Printers ADD COLUMN Calibration VARCHAR(16) DEFAULT 'none'"_s);
    database().run(u"UPDATE Printers SET Calibration='mine' WHERE Name='Alpha'"_s);
    database().openConsoleConnection();  // an open one goes by the tables that it knows
    BoxScript script;
    edit(script, u"Alpha"_s, [](Form form) { form.click(u"cmdOk"_s); });
    edit(script, {}, [](Form form) {
        fillAddress(form, u"new"_s);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(stored(u"Alpha"_s, u"Calibration"_s), u"mine"_s);
    QCOMPARE(stored(u"new"_s, u"Calibration"_s), u"none"_s);
}

void PrintersTest::flagsAreSetWhenNotZero_data() {
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("set");
    QTest::newRow("1") << u"1"_s << true;
    QTest::newRow("-1") << u"-1"_s << true;
    QTest::newRow("0") << u"0"_s << false;
    QTest::newRow("NULL") << u"NULL"_s << false;
}

void PrintersTest::flagsAreSetWhenNotZero() {
    QFETCH(QString, value);
    QFETCH(bool, set);
    database().run(u"UPDATE Printers SET ForceBW=%1, DefaultPrinter=%1 WHERE Name='zoo'"_s.arg(value));
    BoxScript script;
    edit(script, u"zoo"_s, [&](Form form) {
        QCOMPARE(form.isChecked(u"chkForce"_s), set);
        QCOMPARE(form.isChecked(u"chkDefault"_s), set);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(stored(u"zoo"_s, u"ForceBW"_s), set ? u"1"_s : u"0"_s);
    QCOMPARE(stored(u"zoo"_s, u"DefaultPrinter"_s), set ? u"1"_s : u"0"_s);
}

void PrintersTest::numBitsReadOlderRows_data() {
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("bits");
    QTest::newRow("NULL") << u"NULL"_s << u"12"_s;
    QTest::newRow("0") << u"0"_s << u"12"_s;
    QTest::newRow("1") << u"1"_s << u"8"_s;
    for (const auto& bits : {u"8"_s, u"10"_s, u"12"_s, u"16"_s})
        QTest::newRow(qPrintable(bits)) << bits << bits;
}

void PrintersTest::numBitsReadOlderRows() {
    QFETCH(QString, value);
    QFETCH(QString, bits);
    database().run(u"UPDATE Printers SET Force8bit=%1 WHERE Name='zoo'"_s.arg(value));
    BoxScript script;
    edit(script, u"zoo"_s, [&](Form form) {
        QCOMPARE(form.text(u"cmbNumBits"_s), bits);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(stored(u"zoo"_s, u"Force8bit"_s), bits);
}

void PrintersTest::emptyAddressesAreRefused() {
    const QStringList boxes{u"txtName"_s, u"txtAETitle"_s, u"txtHost"_s, u"txtPort"_s};
    BoxScript script;
    script.drive(u"frmDcmPrinter"_s, [&](Form form) {
        for (const QString& box : boxes) {
            fillAddress(form, u"n"_s);
            form.type(box, u"  "_s);
            form.click(u"cmdOk"_s);
            QVERIFY(form.window().isVisible());
        }
        form.click(u"cmdCancel"_s);
    });
    for (int i = 0; i < boxes.size(); ++i)
        script.expect(plain(u"Name, AE Title, Host and Port cannot be empty"_s));
    open({});
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM Printers"_s), u"2"_s);
}

void PrintersTest::aDuplicateNameIsRefused() {
    BoxScript script;
    script.drive(u"frmDcmPrinter"_s, [](Form form) {
        fillAddress(form, u"ALPHA"_s);
        form.choose(u"cmbTrim"_s, u"YES"_s);
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        QCOMPARE(form.text(u"txtName"_s), u"ALPHA"_s);
        QCOMPARE(form.text(u"cmbTrim"_s), u"YES"_s);
        form.type(u"txtName"_s, u"Alpha 2"_s);
        form.click(u"cmdOk"_s);
    });
    script.expect(plain(u"Update Printer: duplicate Name [ALPHA], change name."_s));
    open({});
    QVERIFY(script.isDone());
    QCOMPARE(stored(u"Alpha"_s, u"AETitle"_s), u"A"_s);
    QCOMPARE(stored(u"Alpha 2"_s, u"AETitle"_s), u"TITLE"_s);
}

void PrintersTest::renamingKeepsTheRow() {
    BoxScript script;
    edit(script, u"Alpha"_s, [](Form form) {
        QCOMPARE(form.text(u"txtName"_s), u"Alpha"_s);
        QVERIFY(form.isChecked(u"chkDefault"_s));
        form.type(u"txtName"_s, u"Omega"_s);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(database().rows(u"SELECT Name, FilmSize, DefaultPrinter FROM Printers ORDER BY Name"_s),
             (QList<QStringList>{{u"Omega"_s, u"A4"_s, u"1"_s}, {u"zoo"_s, {}, u"0"_s}}));
}

void PrintersTest::aRenameOntoAnExistingNameIsRefused() {
    BoxScript script;
    script.drive(u"frmDcmPrinter"_s, [](Form form) {
        form.type(u"txtName"_s, u"Zoo"_s);
        form.click(u"cmdOk"_s);
        form.type(u"txtName"_s, u"Zoo 2"_s);
        form.click(u"cmdOk"_s);
    });
    script.expect(plain(u"Update Printer: duplicate Name [Zoo], change name."_s));
    open(u"Alpha"_s);
    QVERIFY(script.isDone());
    QCOMPARE(stored(u"Zoo 2"_s, u"FilmSize"_s), u"A4"_s);
    QCOMPARE(stored(u"zoo"_s, u"AETitle"_s), u"ZOO"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM Printers"_s), u"2"_s);
}

void PrintersTest::aVanishedPrinterIsNoSilentSuccess() {
    BoxScript script;
    script.drive(u"frmDcmPrinter"_s, [this](Form form) {
        database().run(u"DELETE FROM Printers WHERE Name='Alpha'"_s);
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        form.click(u"cmdCancel"_s);
    });
    script.expect(plain(u"Update Printer: The row is no longer there"_s));
    open(u"Alpha"_s);
    QVERIFY(script.isDone());
}

void PrintersTest::aPrinterThatIsGoneOpensAsANewOne() {
    database().run(u"DELETE FROM Printers WHERE Name='Alpha'"_s);
    BoxScript script;
    edit(script, u"Alpha"_s, [](Form form) {
        QCOMPARE(form.text(u"txtName"_s), QString{});
        QCOMPARE(form.text(u"cmbNumBits"_s), u"12"_s);
        QCOMPARE(form.text(u"cmbLayout"_s), u"STANDARD\\1,1"_s);
        fillAddress(form, u"Alpha"_s);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(stored(u"Alpha"_s, u"Host"_s), u"host"_s);
}

void PrintersTest::aNameOfBlanksOpensAsANewOne() {
    database().run(u"INSERT INTO Printers (Name, AETitle, Host, Port) VALUES ('  ', 'BLANK', 'b', '3')"_s);
    manager().LoadDicomPrinters();
    BoxScript script;
    edit(script, u"  "_s, [](Form form) {
        for (const auto& name : {u"txtName"_s, u"txtAETitle"_s, u"txtHost"_s})
            QCOMPARE(form.text(name), QString{});
        fillAddress(form, u"named"_s);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(stored(u"named"_s, u"Host"_s), u"host"_s);
    QCOMPARE(stored(u"  "_s, u"Host"_s), u"b"_s);
}

void PrintersTest::oneDefaultPrinterAtMost() {
    database().run(u"UPDATE Printers SET DefaultPrinter=-1"_s);
    BoxScript script;
    edit(script, {}, [](Form form) {
        fillAddress(form, u"plain"_s);
        form.click(u"cmdOk"_s);
    });
    const auto defaults = [this] {
        return database().rows(u"SELECT Name FROM Printers WHERE DefaultPrinter<>0 ORDER BY Name"_s);
    };
    QCOMPARE(defaults(), (QList<QStringList>{{u"Alpha"_s}, {u"zoo"_s}}));
    edit(script, u"plain"_s, [](Form form) {
        form.check(u"chkDefault"_s, true);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(defaults(), (QList<QStringList>{{u"plain"_s}}));
    QVERIFY(script.isDone());
}

void PrintersTest::theDefaultIsNotInATransaction() {
    database().failOn(u"Printers"_s, u"UPDATE"_s, ScratchDatabase::Failure, u"NEW.Name='zoo'"_s);
    BoxScript script;
    script.drive(u"frmDcmPrinter"_s, [this](Form form) {
        fillAddress(form, u"third"_s);
        form.check(u"chkDefault"_s, true);
        form.click(u"cmdOk"_s);
        QCOMPARE(stored(u"third"_s, u"Host"_s), u"host"_s);
        QVERIFY(form.window().isVisible());
        // The row is there by now: another Confirm is for it and no duplicate.
        database().allow(u"Printers"_s, u"UPDATE"_s);
        form.type(u"txtHost"_s, u"other"_s);
        form.click(u"cmdOk"_s);
    });
    script.expect(plain(BoxScript::AnyText));
    open({});
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.startsWith(u"Update Printer: "_s));
    QVERIFY(script.boxes().front().text.contains(ScratchDatabase::Failure));
    QCOMPARE(stored(u"third"_s, u"Host"_s), u"other"_s);
    QCOMPARE(stored(u"third"_s, u"DefaultPrinter"_s), u"1"_s);
    QCOMPARE(stored(u"Alpha"_s, u"DefaultPrinter"_s), u"0"_s);
}

void PrintersTest::anApostropheIsSavedButNotOpened() {
    BoxScript script;
    edit(script, {}, [](Form form) {
        fillAddress(form, u"O'Hara"_s);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(stored(u"O'Hara"_s, u"Host"_s), u"host"_s);
    script.expect(critical(BoxScript::AnyText));
    open(u"O'Hara"_s);
    QVERIFY(script.isDone());
    QVERIFY(!script.boxes().back().text.isEmpty());
    QVERIFY(manager().isVisible());
    // It can be deleted: there the name is bound.
    script.expect(okCancel(u"Are you sure you want to delete O'Hara?"_s, QMessageBox::Ok));
    window().click(u"cmdDeletePrinter"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM Printers"_s), u"2"_s);
}

void PrintersTest::textsKeepEveryCharacter_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("text");
    QTest::newRow("umlauts") << u"Gerät Größe"_s << u"Ä ß ö"_s;
    QTest::newRow("CJK") << u"印刷機"_s << u"東京 서울"_s;
    QTest::newRow("four bytes") << u"🖨 1"_s << u"🩻🏥"_s;
    QTest::newRow("blanks at both ends") << u"  two  "_s << u" x "_s;
    QTest::newRow("an ideographic blank alone") << u"\u3000"_s << u"\u3000"_s;
    QTest::newRow("SQL") << u"100% \"b\" ?"_s << u"'; DELETE FROM Printers --"_s;
}

void PrintersTest::textsKeepEveryCharacter() {
    QFETCH(QString, name);
    QFETCH(QString, text);
    BoxScript script;
    edit(script, {}, [&](Form form) {
        fillAddress(form, name);
        form.type(u"txtHost"_s, text);
        form.type(u"txtUserParams"_s, text);
        form.click(u"cmdOk"_s);
    });
    edit(script, name, [&](Form form) {
        QCOMPARE(form.text(u"txtName"_s), name);
        QCOMPARE(form.text(u"txtHost"_s), text);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(stored(name, u"Host"_s), text);
    QCOMPARE(stored(name, u"UserParams"_s), text);
    QCOMPARE(database().value(u"SELECT count(*) FROM Printers"_s), u"3"_s);
}

void PrintersTest::deleteKeyClearsNineLists_data() {
    QTest::addColumn<QString>("combo");
    QTest::addColumn<bool>("clears");
    for (const auto* name : {"cmbDestination", "cmbMagnification", "cmbMedium", "cmbOrientation",
                             "cmbPolarity", "cmbPriority", "cmbResolution", "cmbSize", "cmbTrim"})
        QTest::newRow(name) << QString::fromLatin1(name) << true;
    for (const auto* name :
         {"cmbBorderDensity", "cmbEmptyDensity", "cmbSmoothing", "cmbLayout", "cmbNumBits"})
        QTest::newRow(name) << QString::fromLatin1(name) << false;
}

void PrintersTest::deleteKeyClearsNineLists() {
    QFETCH(QString, combo);
    QFETCH(bool, clears);
    const auto field = std::find_if(fields().begin(), fields().end(),
                                    [&](const Field& each) { return each.control == combo; });
    BoxScript script;
    edit(script, u"Alpha"_s, [&](Form form) {
        form.choose(combo, field->value);
        QTest::keyClick(&form.find(combo), Qt::Key_Backspace);
        QCOMPARE(form.text(combo), field->value);
        QTest::keyClick(&form.find(combo), Qt::Key_Delete);
        QCOMPARE(form.text(combo), clears ? QString{} : field->value);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(stored(u"Alpha"_s, field->column), clears ? u""_s : field->value);
    QVERIFY(!stored(u"Alpha"_s, field->column).isNull());
}

void PrintersTest::leavingANumberOfZeroEmptiesIt_data() {
    QTest::addColumn<QString>("box");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("left");
    for (const auto& box : {u"txtCopies"_s, u"txtMaxDensity"_s}) {
        for (const auto& text : {u"0"_s, u"00"_s, u"0.0"_s, u"-0"_s, u"abc"_s, u" "_s, u"nan"_s, u"inf"_s,
                                 u"1e999"_s, QString{}})
            QTest::addRow("%s %s", qPrintable(box), qPrintable(text)) << box << text << QString{};
        for (const auto& text : {u"1"_s, u"-1"_s, u"0.5"_s})
            QTest::addRow("%s %s", qPrintable(box), qPrintable(text)) << box << text << text;
    }
    QTest::newRow("other boxes") << u"txtMinDensity"_s << u"0"_s << u"0"_s;
}

void PrintersTest::leavingANumberOfZeroEmptiesIt() {
    QFETCH(QString, box);
    QFETCH(QString, text);
    QFETCH(QString, left);
    BoxScript script;
    edit(script, u"Alpha"_s, [&](Form form) {
        form.window().activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&form.window()));
        form.type(box, text);
        QCOMPARE(form.text(box), text);
        QTest::mouseClick(&form.find(u"cmdOk"_s), Qt::LeftButton);
    });
    QVERIFY(script.isDone());
    const QString value = stored(u"Alpha"_s, box.mid(3));
    QCOMPARE(value, left);
    QCOMPARE(value.isNull(), left.isEmpty());
}

void PrintersTest::spinButtonsCountInTheirRanges() {
    struct Spin {
        QString name;
        QString box;
        int least;
        int most;
        bool activates;
    };
    BoxScript script;
    edit(script, {}, [&](Form form) {
        form.window().activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&form.window()));
        for (const Spin& spin : {Spin{u"udCount"_s, u"txtCopies"_s, 1, 99, true},
                                 Spin{u"udMinDensity"_s, u"txtMinDensity"_s, 0, 400, false},
                                 Spin{u"udMaxDensity"_s, u"txtMaxDensity"_s, 0, 400, true}}) {
            auto& buttons = form.find<ui::SpinButtons>(spin.name);
            form.find(u"txtName"_s).setFocus();
            buttons.stepUp();
            QCOMPARE(form.text(spin.box), QString::number(spin.least));
            QCOMPARE(form.find(spin.box).hasFocus(), spin.activates);
            buttons.stepDown();
            QCOMPARE(form.text(spin.box), QString::number(spin.least));
            form.type(spin.box, QString::number(spin.most));
            buttons.stepUp();
            QCOMPARE(form.text(spin.box), QString::number(spin.most));
            buttons.stepDown();
            QCOMPARE(form.text(spin.box), QString::number(spin.most - 1));
        }
        form.click(u"cmdCancel"_s);
    });
    QVERIFY(script.isDone());
}

void PrintersTest::textThatIsNoNumberIsAFault() {
    BoxScript script;
    script.drive(u"frmDcmPrinter"_s, [](Form form) {
        form.type(u"txtIllumination"_s, u"bright"_s);
        form.click(u"cmdOk"_s);
        QCOMPARE(form.text(u"txtIllumination"_s), u"bright"_s);
        form.click(u"cmdCancel"_s);
    });
    script.expect(plain(u"Update Printer: The column Illumination takes a number, not \"bright\""_s));
    open(u"Alpha"_s);
    QVERIFY(script.isDone());
    QVERIFY(stored(u"Alpha"_s, u"Illumination"_s).isNull());
}

void PrintersTest::verifyAsksThePeer() {
    const Peer printer{Peer::Manner::Accepts};
    const Peer stranger{Peer::Manner::Rejects};
    const auto product = Product::storescp();
    BoxScript script;
    script.drive(u"frmDcmPrinter"_s, [&](Form form) {
        form.type(u"txtHost"_s, u"127.0.0.1"_s);
        form.type(u"txtAETitle"_s, u"PRINTER"_s);
        for (const QString& port :
             {printer.port(), product->port(), stranger.port(), unusedPort(), u"film"_s}) {
            form.type(u"txtPort"_s, port);
            form.click(u"cmdVerify"_s);
            QVERIFY(form.window().isVisible());
        }
        form.click(u"cmdCancel"_s);
    });
    script.expect(plain(u"Verify succeeded!"_s));
    script.expect(plain(u"Verify succeeded!"_s));
    script.expect(critical(u"Verify failed!"_s));
    script.expect(critical(u"Verify failed!"_s));
    script.expect(critical(BoxScript::AnyText));
    open({});
    QVERIFY(script.isDone());
    QCOMPARE(printer.calledAETitle(), std::string{"PRINTER"});
    // Asked with an empty title: the verifier gives its own.
    QCOMPARE(printer.callingAETitle(), std::string{dicom::Verifier::DefaultCallingAETitle});
    QCOMPARE(database().value(u"SELECT count(*) FROM Printers"_s), u"2"_s);  // nothing saved
}

void PrintersTest::deleteAsksAndReloads() {
    const QString question = u"Are you sure you want to delete Alpha?"_s;
    BoxScript script;
    script.expect(okCancel(question, QMessageBox::Cancel));
    window().click(u"cmdDeletePrinter"_s);
    QCOMPARE(window().rows(u"lstDcmPrinters"_s).size(), 2);

    database().failOn(u"Printers"_s, u"DELETE"_s);
    script.expect(okCancel(question, QMessageBox::Ok));
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdDeletePrinter"_s);
    QVERIFY(script.boxes().back().text.contains(ScratchDatabase::Failure));
    QCOMPARE(database().value(u"SELECT count(*) FROM Printers"_s), u"2"_s);

    database().allow(u"Printers"_s, u"DELETE"_s);
    database().run(u"INSERT INTO DicomNodes (Name) VALUES ('Alpha')"_s);
    script.expect(okCancel(question, QMessageBox::Ok));
    window().click(u"cmdDeletePrinter"_s);
    QVERIFY(script.isDone());
    QCOMPARE(window().rows(u"lstDcmPrinters"_s).size(), 1);
    QCOMPARE(database().rows(u"SELECT Name FROM Printers"_s), (QList<QStringList>{{u"zoo"_s}}));
    QCOMPARE(database().value(u"SELECT count(*) FROM DicomNodes"_s), u"1"_s);  // its row and nothing else
    QVERIFY(!Globals::ConfigChanged());
}

void PrintersTest::anEmptyListHasNothingToModify() {
    database().run(u"DELETE FROM Printers"_s);
    manager().LoadDicomPrinters();
    BoxScript script;
    window().click(u"cmdModifyPrinter"_s);
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdDeletePrinter"_s);
    QVERIFY(script.isDone());
}

void PrintersTest::failuresSayWhy() {
    database().failOn(u"Printers"_s, u"UPDATE"_s);
    database().failOn(u"Printers"_s, u"INSERT"_s);
    BoxScript script;
    for (const auto& name : {QString{}, u"zoo"_s}) {
        script.drive(u"frmDcmPrinter"_s, [](Form form) {
            fillAddress(form, u"typed"_s);
            form.click(u"cmdOk"_s);
            QCOMPARE(form.text(u"txtName"_s), u"typed"_s);
            form.click(u"cmdCancel"_s);
        });
        script.expect(plain(BoxScript::AnyText));
        open(name);
        QVERIFY(script.isDone());
        QVERIFY(script.boxes().back().text.startsWith(u"Update Printer: "_s));
        QVERIFY(script.boxes().back().text.contains(ScratchDatabase::Failure));
    }
    database().run(u"DROP TABLE Printers"_s);
    script.expect(critical(BoxScript::AnyText));
    open(u"zoo"_s);
    script.expect(plain(BoxScript::AnyText));
    manager().LoadDicomPrinters();
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().back().text.contains(database().noTable(u"Printers"_s)));
}

QTEST_MAIN(PrintersTest)
#include "tst_printers.moc"
