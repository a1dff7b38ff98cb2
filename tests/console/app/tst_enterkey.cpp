#include <QComboBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QTabWidget>
#include <QTest>

#include "console/app/frmLogin.h"
#include "tests/support/Eventually.h"
#include "tests/support/RealInput.h"
#include "tests/support/UnusedPort.h"
#include "tests/support/WindowTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

/// Moves the keyboard to a control as a user without a mouse does.
void tabTo(const Form& form, const QString& name) {
    constexpr int MoreThanAnyFormHas = 60;
    for (int i = 0; i < MoreThanAnyFormHas; ++i) {
        const QWidget* before = form.window().focusWidget();
        if (before == &form.find(name))
            return;
        real::press(u"Tab"_s);
        EVENTUALLY(form.window().focusWidget() != before);
    }
    QFAIL(qPrintable(u"Tab does not reach "_s + name));
}

}  // namespace

/// Enter presses the button that has the focus, and the default button from anywhere else; by the keys of a
/// keyboard.
class EnterKeyTest : public WindowTest {
    Q_OBJECT

  public:
    EnterKeyTest() : WindowTest(Page::Nodes) {}

  protected:
    void seed() const override {
        port_ = unusedPort();
        database().run(
            u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port) VALUES ('node', 'NODE', "
            u"'TESSALY', "
            "'127.0.0.1', ?)"_s,
            {port_});
        database().run(u"INSERT INTO FtpNodes VALUES ('ftp', 'host', 'user', 'pwd', '.', 'Quib')"_s);
        database().run(
            u"INSERT INTO Printers (Name, AETitle, Host, Port) VALUES ('film', 'FILM', '127.0.0.1', ?)"_s,
            {port_});
    }

  private Q_SLOTS:
    void enterOnCancelWritesNothing_data() { addEditors(); }
    void enterOnCancelWritesNothing();
    void enterInABoxConfirms_data() { addEditors(); }
    void enterInABoxConfirms();
    void enterOnOtherControlsConfirms_data();
    void enterOnOtherControlsConfirms();
    void enterOnVerifyVerifies_data();
    void enterOnVerifyVerifies();
    void enterOnTheFolderButtonOpensThePicker();
    void enterInThePickerOfNodes_data();
    void enterInThePickerOfNodes();
    void enterInTheLogin_data();
    void enterInTheLogin();

  private:
    static void addEditors();
    /// Opens an editor by a button of a page and lets `body` drive it once it has the keyboard.
    void open(int page, const QString& button, const QString& dialog, const std::function<void(Form)>& body);
    /// Changes a text box by a click into it and a key.
    static void change(const Form& form, const QString& box);
    /// Everything that the editors write.
    [[nodiscard]] QList<QStringList> stored() const;

    mutable QString port_;
    BoxScript* script_ = nullptr;  // while an editor is open
};

void EnterKeyTest::addEditors() {
    QTest::addColumn<int>("page");
    QTest::addColumn<QString>("button");
    QTest::addColumn<QString>("dialog");
    QTest::addColumn<QString>("box");
    QTest::newRow("node") << 0 << u"cmdModifyNode"_s << u"DicomNode"_s << u"txtHost"_s;
    QTest::newRow("port") << 1 << u"cmdEditPort"_s << u"DicomPort"_s << u"txtAETitle"_s;
    QTest::newRow("FTP node") << 2 << u"cmdFTPModify"_s << u"FTPNode"_s << u"txtHost"_s;
    QTest::newRow("user") << 4 << u"cmdModifyUser"_s << u"frmUser"_s << u"txtSignature"_s;
    QTest::newRow("printer") << 6 << u"cmdModifyPrinter"_s << u"frmDcmPrinter"_s << u"txtHost"_s;
}

void EnterKeyTest::open(int page, const QString& button, const QString& dialog,
                        const std::function<void(Form)>& body) {
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(page);
    BoxScript script;
    script_ = &script;
    script.drive(dialog, [&body](Form form) {
        QVERIFY(real::hasKeyboard(form.window()));
        body(form);
    });
    window().click(button);
    QVERIFY(script.isDone());
}

void EnterKeyTest::change(const Form& form, const QString& box) {
    const QString before = form.text(box);
    real::click(form.find(box));
    EVENTUALLY(form.find(box).hasFocus());  // keys do not wait for the window manager to pass the click on
    real::press(u"End"_s);
    real::type(u"x"_s);
    EVENTUALLY_COMPARE(form.text(box), before + u'x');
}

QList<QStringList> EnterKeyTest::stored() const {
    QList<QStringList> all;
    for (const auto& table :
         {u"DicomNodes"_s, u"Port"_s, u"PortRemoteNodes"_s, u"FtpNodes"_s, u"Users"_s, u"Printers"_s})
        all += database().rows(u"SELECT * FROM "_s + table);
    return all;
}

void EnterKeyTest::enterOnCancelWritesNothing() {
    QFETCH(int, page);
    QFETCH(QString, button);
    QFETCH(QString, dialog);
    QFETCH(QString, box);
    const auto before = stored();
    open(page, button, dialog, [&](const Form& form) {
        change(form, box);
        tabTo(form, u"cmdCancel"_s);
        real::press(u"Return"_s);
        EVENTUALLY(!form.window().isVisible());
    });
    QCOMPARE(stored(), before);
}

void EnterKeyTest::enterInABoxConfirms() {
    QFETCH(int, page);
    QFETCH(QString, button);
    QFETCH(QString, dialog);
    QFETCH(QString, box);
    const auto before = stored();
    open(page, button, dialog, [&](const Form& form) {
        tabTo(form, u"cmdCancel"_s);  // the default goes along with the focus, and has to come back
        change(form, box);
        real::press(u"KP_Enter"_s);
        EVENTUALLY(!form.window().isVisible());
    });
    QVERIFY(stored() != before);
}

void EnterKeyTest::enterOnOtherControlsConfirms_data() {
    QTest::addColumn<QString>("control");
    for (const auto* name : {"cmbLocalTitle", "chkQuery", "cmdOk"})
        QTest::newRow(name) << QString::fromLatin1(name);
}

void EnterKeyTest::enterOnOtherControlsConfirms() {
    QFETCH(QString, control);
    open(0, u"cmdModifyNode"_s, u"DicomNode"_s, [&](const Form& form) {
        change(form, u"txtHost"_s);
        tabTo(form, control);
        real::press(u"Return"_s);
        EVENTUALLY(!form.window().isVisible());
    });
    QCOMPARE(database().value(u"SELECT Host FROM DicomNodes"_s), u"127.0.0.1x"_s);
}

void EnterKeyTest::enterOnVerifyVerifies_data() {
    QTest::addColumn<int>("page");
    QTest::addColumn<QString>("button");
    QTest::addColumn<QString>("dialog");
    QTest::addColumn<QString>("verify");
    QTest::addColumn<QString>("answer");
    QTest::newRow("node") << 0 << u"cmdModifyNode"_s << u"DicomNode"_s << u"cmdTest"_s << u"Verify Error"_s;
    QTest::newRow("printer") << 6 << u"cmdModifyPrinter"_s << u"frmDcmPrinter"_s << u"cmdVerify"_s
                             << u"Verify failed!"_s;
}

void EnterKeyTest::enterOnVerifyVerifies() {
    QFETCH(int, page);
    QFETCH(QString, button);
    QFETCH(QString, dialog);
    QFETCH(QString, verify);
    QFETCH(QString, answer);
    const auto before = stored();
    open(page, button, dialog, [&](const Form& form) {
        script_->expect(critical(answer));
        change(form, u"txtAETitle"_s);
        tabTo(form, verify);
        real::press(u"Return"_s);
        EVENTUALLY(script_->isDone());
        QVERIFY(real::hasKeyboard(form.window()));
        real::press(u"Escape"_s);
        EVENTUALLY(!form.window().isVisible());
    });
    QCOMPARE(stored(), before);
}

void EnterKeyTest::enterOnTheFolderButtonOpensThePicker() {
    const auto before = stored();
    open(1, u"cmdEditPort"_s, u"DicomPort"_s, [&](const Form& form) {
        script_->drive(u"QFileDialog"_s, [](Form picker) {
            QVERIFY(real::hasKeyboard(picker.window()));
            real::press(u"Escape"_s);
            EVENTUALLY(!picker.window().isVisible());
        });
        change(form, u"txtAETitle"_s);
        tabTo(form, u"cmdRootDir"_s);
        real::press(u"Return"_s);
        EVENTUALLY(script_->isDone());
        QVERIFY(real::hasKeyboard(form.window()));
        real::press(u"Escape"_s);
        EVENTUALLY(!form.window().isVisible());
    });
    QCOMPARE(stored(), before);
}

void EnterKeyTest::enterInThePickerOfNodes_data() {
    QTest::addColumn<QString>("control");
    QTest::addColumn<int>("accepted");
    QTest::newRow("Cancel") << u"cmdCancel"_s << 0;
    QTest::newRow("Confirm") << u"cmdOk"_s << 1;
    QTest::newRow("the list") << u"lstNodeSelection"_s << 1;
}

void EnterKeyTest::enterInThePickerOfNodes() {
    QFETCH(QString, control);
    QFETCH(int, accepted);
    open(1, u"cmdAddPortNode"_s, u"PortNodesSelection"_s, [&](const Form& form) {
        real::click(form.find<QAbstractItemView>(u"lstNodeSelection"_s));
        real::press(u"space"_s);
        EVENTUALLY_COMPARE(form.selectedRows(u"lstNodeSelection"_s), QStringList{u"node"_s});
        tabTo(form, control);
        real::press(u"Return"_s);
        EVENTUALLY(!form.window().isVisible());
    });
    QCOMPARE(database().rows(u"SELECT * FROM PortRemoteNodes"_s).size(), accepted);
}

void EnterKeyTest::enterInTheLogin_data() {
    QTest::addColumn<QString>("control");
    QTest::addColumn<bool>("admitted");
    QTest::newRow("Cancel") << u"cmdCancel"_s << false;
    QTest::newRow("OK") << u"cmdOk"_s << true;
    QTest::newRow("the password") << u"txtPassword"_s << true;
}

void EnterKeyTest::enterInTheLogin() {
    QFETCH(QString, control);
    QFETCH(bool, admitted);
    frmLogin login;
    BoxScript script;
    script.drive(u"frmLogin"_s, [&](const Form& form) {
        QVERIFY(real::hasKeyboard(login));
        real::type(ScratchDatabase::Administrator);
        tabTo(form, u"txtPassword"_s);
        real::type(ScratchDatabase::Password);
        EVENTUALLY_COMPARE(form.text(u"txtPassword"_s), ScratchDatabase::Password);
        tabTo(form, control);
        real::press(u"Return"_s);
        EVENTUALLY(!login.isVisible());
    });
    login.exec();
    QVERIFY(script.isDone());
    QCOMPARE(login.LoginSucceeded(), admitted);
}

QTEST_MAIN(EnterKeyTest)
#include "tst_enterkey.moc"
