#include <QTest>

#include "tessalyd/Printable.h"

using namespace tessaly::tessalyd;

/// How foreign text is shown.
class PrintableTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void whatIsNotPrintableIsEscaped_data();
    void whatIsNotPrintableIsEscaped();
    void aDumpKeepsItsLinesButForgesNone();
};

void PrintableTest::whatIsNotPrintableIsEscaped_data() {
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("shown");
    const auto row = [](const char* name, const QByteArray& text, const QByteArray& shown) {
        QTest::newRow(name) << text << shown;
    };
    row("nothing", "", "");
    row("plain", "CT1 > TESSALY: 1.2.3", "CT1 > TESSALY: 1.2.3");
    row("UTF-8", "Müller 山田 😀", "Müller 山田 😀");
    row("line feed", "A\nB", R"(A\x0aB)");
    row("carriage return", "A\r\nB", R"(A\x0d\x0aB)");
    row("escape", "\x1b[2J", R"(\x1b[2J)");
    row("zero and delete", QByteArray{"\0\x7f", 2}, R"(\x00\x7f)");
    row("backslash", R"(A\x0aB)", R"(A\\x0aB)");
    row("control of the upper half", QByteArray::fromHex("41c29b42"), R"(A\xc2\x9bB)");
    row("line separator", QByteArray::fromHex("41e280a842"), R"(A\xe2\x80\xa8B)");
    row("reversed order", QByteArray::fromHex("41e280ae42"), R"(A\xe2\x80\xaeB)");
    row("Latin 1", "M\xfcller", R"(M\xfcller)");
    row("cut off", "M\xc3", R"(M\xc3)");
    row("overlong", "\xc0\x8a\xe0\x80\x8a", R"(\xc0\x8a\xe0\x80\x8a)");
    row("surrogate", "\xed\xa0\x80", R"(\xed\xa0\x80)");
    row("beyond the last", "\xf4\x90\x80\x80\xff", R"(\xf4\x90\x80\x80\xff)");
}

void PrintableTest::whatIsNotPrintableIsEscaped() {
    QFETCH(const QByteArray, text);
    QFETCH(const QByteArray, shown);
    QCOMPARE(QByteArray::fromStdString(printable(text.toStdString())), shown);
}

void PrintableTest::aDumpKeepsItsLinesButForgesNone() {
    QCOMPARE(printable("one\n2026-11-22 ERROR\rtwo", LineFeeds::Kept),
             std::string{"one\n    2026-11-22 ERROR\\x0dtwo"});
}

QTEST_APPLESS_MAIN(PrintableTest)
#include "tst_printable.moc"
