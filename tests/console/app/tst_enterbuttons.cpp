#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>

#include "console/app/TessalyManager.h"
#include "tests/support/Eventually.h"
#include "tests/support/RealInput.h"
#include "tests/support/WindowTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

/// Counts the repeats of a key that is held down.
class Repeats : public QObject {
  public:
    Repeats() { qApp->installEventFilter(this); }
    [[nodiscard]] int count() const { return count_; }

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->isAutoRepeat())
            ++count_;
        return QObject::eventFilter(watched, event);
    }

  private:
    int count_ = 0;
};

}  // namespace

/// Return and the keypad's Enter press the button of the main window that has the focus; by the keys of a
/// keyboard.
class EnterButtonsTest : public WindowTest {
    Q_OBJECT

  public:
    EnterButtonsTest() : WindowTest(Page::Nodes) {}

  protected:
    void seed() const override {
        database().run(u"INSERT INTO DicomNodes (Name, AETitle) VALUES ('node', 'NODE')"_s);
        database().run(u"INSERT INTO FtpNodes VALUES ('ftp', 'host', 'user', 'pwd', '.', 'Quib')"_s);
        database().run(u"INSERT INTO Printers (Name, AETitle) VALUES ('film', 'FILM')"_s);
    }

  private Q_SLOTS:
    void enterPressesEveryButtonOfAPage_data() { addPages(); }
    void enterPressesEveryButtonOfAPage();
    void enterOnAddOpensTheDialogOnce_data() { addKeys(); }
    void enterOnAddOpensTheDialogOnce();
    void enterOnDeleteAsks_data() { addKeys(); }
    void enterOnDeleteAsks();
    void aHeldKeyPressesOnce_data() { addKeys(); }
    void aHeldKeyPressesOnce();
    void aRepeatThatIsNotMarkedPressesNothing();
    void theKeyThatClosesADialogPressesNothing();
    void enterLeavesOtherControlsAlone_data() { addKeys(); }
    void enterLeavesOtherControlsAlone();

  private:
    static void addPages();
    static void addKeys();
    /// Shows a page and gives one of its controls the keyboard.
    void goTo(int page, QWidget& control) const;
};

void EnterButtonsTest::addPages() {
    QTest::addColumn<int>("page");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("nodes") << 0 << QStringList{u"cmdAddNode"_s, u"cmdModifyNode"_s, u"cmdDelNode"_s};
    QTest::newRow("local server") << 1
                                  << QStringList{u"cmdAddPort"_s, u"cmdEditPort"_s, u"cmdDelPort"_s,
                                                 u"cmdAddPortNode"_s, u"cmdDelPortNode"_s};
    QTest::newRow("FTP nodes") << 2 << QStringList{u"cmdFTPAdd"_s, u"cmdFTPModify"_s, u"cmdFTPDelete"_s};
    QTest::newRow("administration") << 3 << QStringList{u"cmdStart"_s,      u"cmdStop"_s,    u"cmdRestart"_s,
                                                        u"cmdLoad"_s,       u"cmdPathIni"_s, u"cmdPathFin"_s,
                                                        u"cmdChangePath"_s, u"cmdOk"_s,      u"cmdCancel"_s};
    QTest::newRow("users") << 4 << QStringList{u"cmdAddUser"_s, u"cmdModifyUser"_s, u"cmdDelUser"_s};
    QTest::newRow("site") << 5 << QStringList{u"cmdApplySiteData"_s, u"cmdCancelSiteData"_s};
    QTest::newRow("printers") << 6
                              << QStringList{u"cmdAddPrinter"_s, u"cmdModifyPrinter"_s,
                                             u"cmdDeletePrinter"_s};
}

void EnterButtonsTest::addKeys() {
    QTest::addColumn<QString>("key");
    QTest::newRow("Return") << u"Return"_s;
    QTest::newRow("keypad") << u"KP_Enter"_s;
}

void EnterButtonsTest::goTo(int page, QWidget& control) const {
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(page);
    QVERIFY(real::hasKeyboard(manager()));
    control.setFocus();
    QVERIFY(control.hasFocus());
}

void EnterButtonsTest::enterPressesEveryButtonOfAPage() {
    QFETCH(int, page);
    QFETCH(QStringList, expected);
    manager().setConnectionTimerEnabled(false);  // it switches the server's buttons on and off
    QStringList names;
    for (auto* button : window().find<QTabWidget>(u"tabNodes"_s).widget(page)->findChildren<QPushButton*>()) {
        names << button->objectName();
        // Whether it is pressed is the matter, not what it does.
        disconnect(button, &QPushButton::clicked, nullptr, nullptr);
        int presses = 0;
        connect(button, &QPushButton::clicked, this, [&presses] { ++presses; });
        button->setEnabled(true);
        goTo(page, *button);
        int expectedPresses = 0;
        for (const auto& key : {u"Return"_s, u"KP_Enter"_s, u"space"_s}) {
            real::press(key);
            ++expectedPresses;
            EVENTUALLY_COMPARE(presses, expectedPresses);
        }
        QVERIFY(button->hasFocus());
        disconnect(button, &QPushButton::clicked, this, nullptr);
    }
    names.sort();
    expected.sort();
    QCOMPARE(names, expected);
}

void EnterButtonsTest::enterOnAddOpensTheDialogOnce() {
    QFETCH(QString, key);
    goTo(0, window().find(u"cmdAddNode"_s));
    BoxScript script;
    script.drive(u"DicomNode"_s, [](Form form) {
        QVERIFY(real::hasKeyboard(form.window()));
        real::press(u"Escape"_s);
        EVENTUALLY(!form.window().isVisible());
    });
    real::press(key);
    EVENTUALLY(script.isDone());
}

void EnterButtonsTest::enterOnDeleteAsks() {
    QFETCH(QString, key);
    goTo(0, window().find(u"cmdDelNode"_s));
    BoxScript script;
    script.expect(okCancel(u"Are you sure you want to delete node?"_s, QMessageBox::Cancel));
    real::press(key);
    EVENTUALLY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM DicomNodes"_s), u"1"_s);
}

/// Nor do the repeats answer the question that it asks, or press the button again after the answer.
void EnterButtonsTest::aHeldKeyPressesOnce() {
    QFETCH(QString, key);
    goTo(0, window().find(u"cmdDelNode"_s));
    BoxScript script;
    script.expect(okCancel(u"Are you sure you want to delete node?"_s, QMessageBox::Cancel));
    const Repeats repeats;
    real::hold(key);
    constexpr int Several = 10;
    EVENTUALLY(repeats.count() >= Several);
    real::release(key);
    real::press(u"shift+Tab"_s);  // a key later than all repeats
    EVENTUALLY(window().find(u"cmdModifyNode"_s).hasFocus());
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM DicomNodes"_s), u"1"_s);
}

/// The toolkit cannot always tell: a repeat is then a release and a press of one time, like any others.
void EnterButtonsTest::aRepeatThatIsNotMarkedPressesNothing() {
    auto& button = window().find<QPushButton>(u"cmdDelNode"_s);
    disconnect(&button, &QPushButton::clicked, nullptr, nullptr);
    int presses = 0;
    connect(&button, &QPushButton::clicked, this, [&presses] { ++presses; });
    goTo(0, button);
    const auto send = [&button](QEvent::Type type, quint64 time) {
        QKeyEvent event{type, Qt::Key_Return, Qt::NoModifier};
        event.setTimestamp(time);
        QApplication::sendEvent(&button, &event);
    };
    send(QEvent::KeyPress, 10000);
    for (const quint64 time : {10660, 10700, 10740}) {
        send(QEvent::KeyRelease, time);
        send(QEvent::KeyPress, time);
    }
    QCOMPARE(presses, 1);
    send(QEvent::KeyRelease, 10750);
    send(QEvent::KeyPress, 10850);
    send(QEvent::KeyRelease, 10900);
    QCOMPARE(presses, 2);
}

/// Its repeats and its release come to the window's button.
void EnterButtonsTest::theKeyThatClosesADialogPressesNothing() {
    auto& button = window().find<QPushButton>(u"cmdAddNode"_s);
    goTo(0, button);
    int presses = 0;
    connect(&button, &QPushButton::clicked, this, [&presses] { ++presses; });
    BoxScript script;
    script.drive(u"DicomNode"_s, [](Form form) {
        QVERIFY(real::hasKeyboard(form.window()));
        form.find(u"cmdCancel"_s).setFocus();
        real::hold(u"Return"_s);
        EVENTUALLY(!form.window().isVisible());
    });
    const Repeats repeats;
    real::press(u"space"_s);
    EVENTUALLY(script.isDone());
    QVERIFY(real::hasKeyboard(manager()));
    QVERIFY(button.hasFocus());
    EVENTUALLY(repeats.count() > 0);
    real::release(u"Return"_s);
    real::press(u"Tab"_s);  // a key later than the release
    EVENTUALLY(!button.hasFocus());
    QCOMPARE(presses, 1);
}

void EnterButtonsTest::enterLeavesOtherControlsAlone() {
    QFETCH(QString, key);
    manager().setConnectionTimerEnabled(false);
    const BoxScript script;
    for (const auto& name : {u"chkDumpOpt0"_s, u"chkService"_s, u"txtQueryTimeout"_s}) {
        auto& control = window().find(name);
        control.setEnabled(true);
        goTo(3, control);
        const QString text = window().text(name);
        auto* box = qobject_cast<QCheckBox*>(&control);
        const bool checked = box != nullptr && box->isChecked();
        real::press(key);
        real::press(u"Tab"_s);  // a key later than the one that does nothing
        EVENTUALLY(!control.hasFocus());
        QCOMPARE(window().text(name), text);
        QVERIFY(box == nullptr || box->isChecked() == checked);
    }
    QVERIFY(script.isDone());
}

QTEST_MAIN(EnterButtonsTest)
#include "tst_enterbuttons.moc"
