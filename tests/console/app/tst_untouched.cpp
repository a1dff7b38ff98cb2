#include <QLineEdit>
#include <QTabWidget>
#include <QTest>

#include "tests/support/WindowTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

QString longer(QChar c, int by) {
    constexpr int LongestLimit = 255;
    return QString{LongestLimit + by, c};
}

}  // namespace

/// Rows with texts that do not fit into the boxes of their editors, as the file engine alone keeps them: what nobody
/// edits there stays whole.
class UntouchedTest : public WindowTest {
    Q_OBJECT

  public:
    UntouchedTest() : WindowTest(Page::Nodes) {}

  protected:
    void seed() const override;

  private Q_SLOTS:
    void confirmAloneChangesNothing_data() { addEditors(); }
    void confirmAloneChangesNothing();
    void onlyTheBoxThatWasEditedChanges_data() { addEditors(); }
    void onlyTheBoxThatWasEditedChanges();
    void anEditedBoxIsStoredAsItShows_data() { addEditors(); }
    void anEditedBoxIsStoredAsItShows();
    void thePasswordIsKeptByteForByte();
    void theDefaultPrinterIsFoundByItsWholeName();
    void aNumberKeepsItsPrecision();
    void aTextThatIsNullStaysNull();

  private:
    static void addEditors();
    /// Opens the editor of the row's page, lets `body` change what it likes, and confirms.
    void confirm(const std::function<void(Form)>& body) const;
    /// Every row of every table that the editors write.
    [[nodiscard]] QList<QStringList> stored() const;
    /// What the row's column holds.
    [[nodiscard]] QString cell() const;
};

void UntouchedTest::seed() const {
    const QString text = longer(u'n', 1);
    database().run(u"DELETE FROM Port"_s);
    database().run(u"DELETE FROM Users"_s);
    database().run(u"INSERT INTO Port VALUES (?, ?, 10, ?, 1, 1, 1)"_s, {text, text, u"/"_s + text});
    database().run(u"INSERT INTO DicomNodes VALUES (?, ?, ?, ?, ?, 1, 0, 1)"_s,
                   {text, text, text, text, text});
    database().run(u"INSERT INTO PortRemoteNodes VALUES (?, ?)"_s, {text, text});
    database().run(u"INSERT INTO FtpNodes VALUES (?, ?, ?, ?, ?, 'Quib')"_s,
                   {u"ftp"_s + text, text, text, text, text});
    database().run(
        u"INSERT INTO Users (UserName, UserPwd, Signature, DcmAdmin, ROI) VALUES (?, ?, ?, 1, 1)"_s,
        {text, text, text});
    database().run(
        u"INSERT INTO Printers VALUES (?, ?, ?, ?, 'LOW', 'PAPER', 'BIN_1', 1000000, 1.5, 2.5, 123456, "
        u"234567, "
        "'BLACK', 'NORMAL', 'WHITE', 'SLIDE', 'A4', 'HIGH', 'PORTRAIT', 'NONE', 'SHARP', 'NO', 0.18755, "
        "0.28755, ?, 1, 0, 16)"_s,
        {text, text, text, text, text});
}

void UntouchedTest::addEditors() {
    QTest::addColumn<int>("page");
    QTest::addColumn<QString>("button");
    QTest::addColumn<QString>("dialog");
    QTest::addColumn<QString>("box");
    QTest::addColumn<QString>("cell");
    QTest::addColumn<QString>("shown");  // of a text that is cut
    QTest::addColumn<int>("changes");    // of cells, by an edit of the box
    const QString text = longer(u'n', 0);
    QTest::newRow("node") << 0 << u"cmdModifyNode"_s << u"DicomNode"_s << u"txtHost"_s
                          << u"Host FROM DicomNodes"_s << text.left(64) << 1;
    QTest::newRow("port") << 1 << u"cmdEditPort"_s << u"DicomPort"_s << u"txtAETitle"_s
                          << u"AETitle FROM Port"_s << text.left(16)
                          << 3;  // the node has both titles of the port
    QTest::newRow("FTP node") << 2 << u"cmdFTPModify"_s << u"FTPNode"_s << u"txtDestination"_s
                              << u"Destination FROM FtpNodes"_s << text.left(128) << 1;
    QTest::newRow("user") << 4 << u"cmdModifyUser"_s << u"frmUser"_s << u"txtSignature"_s
                          << u"Signature FROM Users"_s << text.left(32) << 1;
    QTest::newRow("printer's text") << 6 << u"cmdModifyPrinter"_s << u"frmDcmPrinter"_s << u"txtAETitle"_s
                                    << u"AETitle FROM Printers"_s << text.left(16) << 1;
    QTest::newRow("printer's number")
        << 6 << u"cmdModifyPrinter"_s << u"frmDcmPrinter"_s << u"txtGridSizeDx"_s
        << u"GridSizeDx FROM Printers"_s << u"0.187"_s << 1;
}

void UntouchedTest::confirm(const std::function<void(Form)>& body) const {
    QFETCH(int, page);
    QFETCH(QString, button);
    QFETCH(QString, dialog);
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(page);
    BoxScript script;
    script.drive(dialog, [&body](Form form) {
        body(form);
        form.click(u"cmdOk"_s);
    });
    window().click(button);
    QVERIFY(script.isDone());
}

QList<QStringList> UntouchedTest::stored() const {
    QList<QStringList> all;
    for (const auto& table :
         {u"DicomNodes"_s, u"Port"_s, u"PortRemoteNodes"_s, u"FtpNodes"_s, u"Users"_s, u"Printers"_s})
        all += database().rows(u"SELECT * FROM "_s + table);
    return all;
}

QString UntouchedTest::cell() const {
    QFETCH(QString, cell);
    return database().value(u"SELECT "_s + cell);
}

void UntouchedTest::confirmAloneChangesNothing() {
    const auto before = stored();
    confirm([](Form) {});
    QCOMPARE(stored(), before);
}

void UntouchedTest::onlyTheBoxThatWasEditedChanges() {
    QFETCH(QString, box);
    const auto before = stored();
    confirm([&](Form form) { form.type(box, u"7"_s); });
    QCOMPARE(cell(), u"7"_s);
    const auto after = stored();
    QCOMPARE(after.size(), before.size());
    int changed = 0;
    for (qsizetype row = 0; row < before.size(); ++row) {
        for (qsizetype column = 0; column < before.at(row).size(); ++column)
            changed += after.at(row).at(column) == before.at(row).at(column) ? 0 : 1;
    }
    QTEST(changed, "changes");
}

/// Whoever types in a box takes what it shows for what there is.
void UntouchedTest::anEditedBoxIsStoredAsItShows() {
    QFETCH(QString, box);
    QFETCH(QString, shown);
    confirm([&](Form form) {
        QCOMPARE(form.text(box), shown);
        auto& line = form.find<QLineEdit>(box);
        line.setFocus();
        line.end(false);
        QTest::keyClick(&line, Qt::Key_Backspace);
        QTest::keyClick(&line, shown.back().toLatin1());
        QCOMPARE(form.text(box), shown);
    });
    QCOMPARE(cell(), shown);
}

void UntouchedTest::thePasswordIsKeptByteForByte() {
    database().run(u"UPDATE Users SET UserPwd=CAST(x'61FF62' || ? AS TEXT)"_s, {longer(u'p', 0)});
    const QString bytes = u"SELECT hex(UserPwd) FROM Users"_s;
    const QString before = database().value(bytes);
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(4);
    BoxScript script;
    script.drive(u"frmUser"_s, [](Form form) {
        form.type(u"txtSignature"_s, u"new"_s);
        form.click(u"cmdOk"_s);
    });
    window().click(u"cmdModifyUser"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(bytes), before);
    QCOMPARE(database().value(u"SELECT Signature FROM Users"_s), u"new"_s);
}

void UntouchedTest::theDefaultPrinterIsFoundByItsWholeName() {
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(6);
    BoxScript script;
    script.drive(u"frmDcmPrinter"_s, [](Form form) {
        form.check(u"chkDefault"_s, true);
        form.click(u"cmdOk"_s);
    });
    window().click(u"cmdModifyPrinter"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT DefaultPrinter FROM Printers"_s), u"1"_s);
}

void UntouchedTest::aNumberKeepsItsPrecision() {
    database().run(u"UPDATE Printers SET Illumination=0.1+0.2"_s);
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(6);
    BoxScript script;
    script.drive(u"frmDcmPrinter"_s, [](Form form) { form.click(u"cmdOk"_s); });
    window().click(u"cmdModifyPrinter"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT Illumination=0.1+0.2 FROM Printers"_s), u"1"_s);
}

void UntouchedTest::aTextThatIsNullStaysNull() {
    database().run(u"UPDATE Users SET Signature=NULL"_s);
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(4);
    const auto confirmUser = [this](const std::function<void(Form)>& body) {
        BoxScript script;
        script.drive(u"frmUser"_s, [&body](Form form) {
            QCOMPARE(form.text(u"txtSignature"_s), QString{});
            body(form);
            form.click(u"cmdOk"_s);
        });
        window().click(u"cmdModifyUser"_s);
        QVERIFY(script.isDone());
    };
    const QString isNull = u"SELECT Signature IS NULL, ROI FROM Users"_s;
    confirmUser([](Form form) { form.check(u"chkROI"_s, false); });
    QCOMPARE(database().rows(isNull), (QList<QStringList>{{u"1"_s, u"0"_s}}));
    confirmUser([](Form form) {
        form.type(u"txtSignature"_s, u"x"_s);
        form.type(u"txtSignature"_s, {});
    });
    QCOMPARE(database().rows(isNull), (QList<QStringList>{{u"0"_s, u"0"_s}}));
}

QTEST_MAIN(UntouchedTest)
#include "tst_untouched.moc"
