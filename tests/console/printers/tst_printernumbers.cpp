#include <QTest>

#include "tests/support/Eventually.h"
#include "tests/support/RealInput.h"
#include "tests/support/WindowTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

/// The boxes of a printer for numbers that are checked when they are left, confirmed from inside them by the
/// keys of a keyboard.
class PrinterNumbersTest : public WindowTest {
    Q_OBJECT

  public:
    PrinterNumbersTest() : WindowTest(Page::Printers) {}

  protected:
    void seed() const override {
        database().run(
            u"INSERT INTO Printers (Name, AETitle, Host, Port, Copies, MaxDensity) VALUES ('film', 'FILM', "
            u"'host', "
            "'104', 5, 300)"_s);
    }

  private Q_SLOTS:
    void aConfirmationFromInsideChecksFirst_data();
    void aConfirmationFromInsideChecksFirst();
    void aConfirmationFromElsewhereChecksNothing();

  private:
    [[nodiscard]] QString stored(const QString& column) const {
        return database().value(u"SELECT %1 FROM Printers"_s.arg(column));
    }
};

void PrinterNumbersTest::aConfirmationFromInsideChecksFirst_data() {
    QTest::addColumn<QString>("column");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("number");  // nothing for NULL
    for (const auto& column : {u"Copies"_s, u"MaxDensity"_s}) {
        for (const auto& typed : {u"0"_s, u"0.0"_s, u"many"_s, u"nan"_s, u"inf"_s, u"-inf"_s, u"1e999"_s})
            QTest::addRow("%s %s", qPrintable(column), qPrintable(typed)) << column << typed << QString{};
        QTest::addRow("%s that is a number", qPrintable(column)) << column << u"7"_s << u"7"_s;
        QTest::addRow("%s with an exponent", qPrintable(column)) << column << u"2e1"_s << u"20"_s;
    }
}

void PrinterNumbersTest::aConfirmationFromInsideChecksFirst() {
    QFETCH(QString, column);
    QFETCH(QString, typed);
    QFETCH(QString, number);
    BoxScript script;
    script.drive(u"frmDcmPrinter"_s, [&](Form form) {
        QVERIFY(real::hasKeyboard(form.window()));
        const QString box = u"txt"_s + column;
        real::click(form.find(box));
        EVENTUALLY(
            form.find(box).hasFocus());  // keys do not wait for the window manager to pass the click on
        real::press(u"ctrl+a"_s);
        real::type(typed);
        EVENTUALLY_COMPARE(form.text(box), typed);
        real::press(u"Return"_s);
        EVENTUALLY(!form.window().isVisible());
    });
    window().click(u"cmdModifyPrinter"_s);
    QVERIFY(script.isDone());
    QCOMPARE(stored(column), number);
    QCOMPARE(stored(column).isNull(), number.isEmpty());
}

/// A zero that another program has stored is not reported.
void PrinterNumbersTest::aConfirmationFromElsewhereChecksNothing() {
    database().run(u"UPDATE Printers SET Copies=0, MaxDensity=0"_s);
    BoxScript script;
    script.drive(u"frmDcmPrinter"_s, [](Form form) {
        QVERIFY(real::hasKeyboard(form.window()));
        real::click(form.find(u"txtHost"_s));
        EVENTUALLY(form.find(u"txtHost"_s).hasFocus());
        real::type(u"x"_s);
        real::press(u"Return"_s);
        EVENTUALLY(!form.window().isVisible());
    });
    window().click(u"cmdModifyPrinter"_s);
    QVERIFY(script.isDone());
    QVERIFY(stored(u"Host"_s).contains(u'x'));
    QCOMPARE(stored(u"Copies"_s), u"0"_s);
    QCOMPARE(stored(u"MaxDensity"_s), u"0"_s);
}

QTEST_MAIN(PrinterNumbersTest)
#include "tst_printernumbers.moc"
