#include <QComboBox>
#include <QGroupBox>
#include <QTest>
#include <optional>

#include "console/ui/SpinButtons.h"
#include "dicom/net/Verifier.h"
#include "tests/console/printers/PrinterEditor.h"
#include "tests/dicom/net/Peers.h"
#include "tests/support/UnusedPort.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

Q_DECLARE_METATYPE(std::optional<double>)

class PrinterDialogTest : public PrinterEditorTest {
    Q_OBJECT

  private Q_SLOTS:
    void theDialogIsBuiltAsKnown();
    void definedTermsAreInOrder_data();
    void definedTermsAreInOrder();
    void aNewPrinterStartsEmpty();
    void emptyAddressesAreRefused();
    void deleteKeyClearsNineLists_data();
    void deleteKeyClearsNineLists();
    void leavingANumberOfZeroEmptiesIt_data();
    void leavingANumberOfZeroEmptiesIt();
    void spinButtonsCountInTheirRanges();
    void aNumberIsSavedAsItIsChecked_data();
    void aNumberIsSavedAsItIsChecked();
    void textThatIsNoNumberIsAFault();
    void verifyAsksThePeer();
};

void PrinterDialogTest::theDialogIsBuiltAsKnown() {
    edit({}, [](Form form) {
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
        checkLimits(form, {{u"txtName"_s, 16},
                           {u"txtAETitle"_s, 16},
                           {u"txtHost"_s, 64},
                           {u"txtPort"_s, 16},
                           {u"txtMinDensity"_s, 5},
                           {u"txtMaxDensity"_s, 5},
                           {u"txtGridSizeDx"_s, 5},
                           {u"txtGridSizeDy"_s, 5}});
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
}

void PrinterDialogTest::definedTermsAreInOrder_data() {
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

void PrinterDialogTest::definedTermsAreInOrder() {
    QFETCH(QString, combo);
    QFETCH(QString, terms);
    edit({}, [&](Form form) {
        const auto& box = form.find<QComboBox>(combo);
        QStringList items;
        for (int i = 0; i < box.count(); ++i)
            items << box.itemText(i);
        QCOMPARE(items.join(u'|'), terms);
        QVERIFY(!box.isEditable());
        form.click(u"cmdCancel"_s);
    });
}

void PrinterDialogTest::aNewPrinterStartsEmpty() {
    edit({}, [](Form form) {
        for (const Field& field : fields()) {
            const QString expected = field.control == u"cmbLayout"_s      ? u"STANDARD\\1,1"_s
                                     : field.control == u"cmbNumBits"_s   ? u"12"_s
                                     : field.control.startsWith(u"chk"_s) ? u"0"_s
                                                                          : QString{};
            QCOMPARE(shown(form, field.control), expected);
        }
        QTest::keyClick(&form.window(), Qt::Key_Escape);
    });
    QCOMPARE(count(), 2);
}

void PrinterDialogTest::emptyAddressesAreRefused() {
    QList<Refusal> refusals;
    for (const auto& box : {u"txtName"_s, u"txtAETitle"_s, u"txtHost"_s, u"txtPort"_s}) {
        Values blank = address(u"n"_s);
        for (Value& value : blank) {
            if (value.control == box)
                value.value = u"  "_s;
        }
        refusals.append({blank, plain(u"Name, AE Title, Host and Port cannot be empty"_s)});
    }
    checkRefusals({}, refusals);
}

void PrinterDialogTest::deleteKeyClearsNineLists_data() {
    QTest::addColumn<QString>("combo");
    QTest::addColumn<bool>("clears");
    for (const auto* name : {"cmbDestination", "cmbMagnification", "cmbMedium", "cmbOrientation",
                             "cmbPolarity", "cmbPriority", "cmbResolution", "cmbSize", "cmbTrim"})
        QTest::newRow(name) << QString::fromLatin1(name) << true;
    for (const auto* name :
         {"cmbBorderDensity", "cmbEmptyDensity", "cmbSmoothing", "cmbLayout", "cmbNumBits"})
        QTest::newRow(name) << QString::fromLatin1(name) << false;
}

void PrinterDialogTest::deleteKeyClearsNineLists() {
    QFETCH(QString, combo);
    QFETCH(bool, clears);
    const auto field = std::find_if(fields().begin(), fields().end(),
                                    [&](const Field& each) { return each.control == combo; });
    edit(u"Alpha"_s, [&](Form form) {
        form.choose(combo, field->value);
        QTest::keyClick(&form.find(combo), Qt::Key_Backspace);
        QCOMPARE(form.text(combo), field->value);
        QTest::keyClick(&form.find(combo), Qt::Key_Delete);
        QCOMPARE(form.text(combo), clears ? QString{} : field->value);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(stored(u"Alpha"_s, field->column), clears ? u""_s : field->value);
    QVERIFY(!stored(u"Alpha"_s, field->column).isNull());
}

void PrinterDialogTest::leavingANumberOfZeroEmptiesIt_data() {
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

void PrinterDialogTest::leavingANumberOfZeroEmptiesIt() {
    QFETCH(QString, box);
    QFETCH(QString, text);
    QFETCH(QString, left);
    edit(u"Alpha"_s, [&](Form form) {
        activate(form.window());
        form.type(box, text);
        QCOMPARE(form.text(box), text);
        QTest::mouseClick(&form.find(u"cmdOk"_s), Qt::LeftButton);
    });
    const QString value = stored(u"Alpha"_s, box.mid(3));
    QCOMPARE(value, left);
    QCOMPARE(value.isNull(), left.isEmpty());
}

void PrinterDialogTest::spinButtonsCountInTheirRanges() {
    struct Spin {
        QString name;
        QString box;
        int least;
        int most;
        bool activates;
    };
    edit({}, [&](Form form) {
        activate(form.window());
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
}

void PrinterDialogTest::aNumberIsSavedAsItIsChecked_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<std::optional<double>>("number");
    const auto add = [](const char* name, const QString& text, std::optional<double> number) {
        QTest::newRow(name) << text << number;
    };
    add("blanks around it", u" 7 "_s, 7);
    add("other white space around it", u"\t7\u00a0"_s, 7);
    add("plus", u"+7"_s, 7);
    add("plus and blanks", u" +7 "_s, 7);
    add("minus", u"-7"_s, -7);
    add("plus apart", u"+ 7"_s, {});
    add("two signs", u"+-7"_s, {});
    add("leading zeros", u"007"_s, 7);
    add("plus and leading zeros", u"+007.50"_s, 7.5);
    add("point", u"7.5"_s, 7.5);
    add("point at the end", u"7."_s, 7);
    add("point at the beginning", u"+.5"_s, 0.5);
    add("comma", u"7,5"_s, {});
    add("thousands", u"7,000"_s, {});
    add("exponent", u"+2e1"_s, 20);
    add("signs of both", u" +2E+1 "_s, 20);
    add("exponent without digits", u"2e"_s, {});
    add("beyond 64 bits", u"+9223372036854775808"_s, 9223372036854775808.0);
    add("too large", u"1e999"_s, {});
    add("too close to zero", u"1e-999"_s, {});
    add("words", u"inf"_s, {});
    add("hexadecimal", u"0x10"_s, {});
    add("text behind it", u"7 copies"_s, {});
    add("two numbers", u"7 8"_s, {});
    add("Arabic digits", u"\u0667"_s, {});
    add("wide digits", u"\uff17"_s, {});
    add("long", u"+1"_s + QString{40, u'0'}, 1e40);
    add("long with zeros in front", QString{1000, u'0'} + u'7', 7);
    add("too long", QString{1000, u'7'}, {});
}

void PrinterDialogTest::aNumberIsSavedAsItIsChecked() {
    QFETCH(QString, text);
    QFETCH(std::optional<double>, number);
    edit(u"Alpha"_s, [&](Form form) {
        activate(form.window());
        if (number)
            form.type(u"txtIllumination"_s, text);  // nothing is checked as it is left
        form.type(u"txtCopies"_s, text);
        form.find(u"txtHost"_s).setFocus();
        QCOMPARE(form.text(u"txtCopies"_s), number ? text : QString{});
        form.click(u"cmdOk"_s);
        QVERIFY(!form.window().isVisible());
    });
    for (const auto& column : {u"Copies"_s, u"Illumination"_s}) {
        const QString value = stored(u"Alpha"_s, column);
        QCOMPARE(value.isNull(), !number);
        QCOMPARE(value.toDouble(), number.value_or(0));
        // SQLite keeps in a column of numbers what it cannot take for one.
        if (!ScratchDatabase::isPostgresql())
            QVERIFY(stored(u"Alpha"_s, database().typeOf(column)) != u"text"_s);
    }
}

void PrinterDialogTest::textThatIsNoNumberIsAFault() {
    QList<Refusal> refusals;
    for (const auto& text : {u"bright"_s, u" "_s, u"7,5"_s, u"+-7"_s, u"1e999"_s, u"\u0667"_s}) {
        const QString refusal = u"Update Printer: The column Illumination takes a number, not \"%1\""_s;
        refusals.append({{{u"txtIllumination"_s, text}}, plain(refusal.arg(text))});
    }
    checkRefusals(u"Alpha"_s, refusals);
    QVERIFY(stored(u"Alpha"_s, u"Illumination"_s).isNull());
}

void PrinterDialogTest::verifyAsksThePeer() {
    const Peer printer{Peer::Manner::Accepts};
    const Peer stranger{Peer::Manner::Rejects};
    const auto product = Product::storescp();
    edit({},
         {plain(u"Verify succeeded!"_s), plain(u"Verify succeeded!"_s), critical(u"Verify failed!"_s),
          critical(u"Verify failed!"_s), critical(BoxScript::AnyText)},
         [&](Form form) {
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
    QCOMPARE(printer.calledAeTitle(), std::string{"PRINTER"});
    // Asked with an empty title: the verifier gives its own.
    QCOMPARE(printer.callingAeTitle(), std::string{dicom::Verifier::DefaultCallingAeTitle});
    QCOMPARE(count(), 2);  // nothing saved
}

QTEST_MAIN(PrinterDialogTest)
#include "tst_printerdialog.moc"
