// The repair under a user's hands: real keys and clicks, while a box stands and while the pass reads.

#include <QApplication>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTest>
#include <algorithm>
#include <csignal>

#include "console/maintenance/frmRepairDB.h"
#include "console/session/Globals.h"
#include "tests/console/maintenance/RepairTest.h"
#include "tests/support/Console.h"
#include "tests/support/Eventually.h"
#include "tests/support/RealInput.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

constexpr int ManyImages = 5000;
constexpr int FtpTab = 2;
constexpr int AdministrationTab = 3;

/// Calls a function each time that a message box is shown, whether or not it is on the screen yet.
class BoxShown : public QObject {
  public:
    explicit BoxShown(std::function<void()> call) : call_(std::move(call)) { qApp->installEventFilter(this); }
    ~BoxShown() override { call_(); }
    BoxShown(const BoxShown&) = delete;
    BoxShown& operator=(const BoxShown&) = delete;
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Show && qobject_cast<QMessageBox*>(watched) != nullptr)
            call_();
        return false;
    }

  private:
    std::function<void()> call_;
};

/// Hands every message box and modal dialog that comes up to the test, in its order and once it has the
/// keyboard.
class Watch : public QObject {
  public:
    explicit Watch(std::function<void(QMessageBox& box)> onBox,
                   std::function<void(Form dialog)> onDialog = {})
        : onBox_(std::move(onBox)), onDialog_(std::move(onDialog)) {
        qApp->installEventFilter(this);
    }
    bool eventFilter(QObject* watched, QEvent* event) override {
        auto* dialog = qobject_cast<QDialog*>(watched);
        if (dialog != nullptr && event->type() == QEvent::Show &&
            (dialog->isModal() || qobject_cast<QMessageBox*>(watched) != nullptr))
            QTimer::singleShot(0, dialog, [this, dialog] { meet(*dialog); });
        return false;
    }

  private:
    void meet(QDialog& dialog) const {
        if (!real::hasKeyboard(dialog))
            QTest::qFail("a dialog does not get the keyboard", __FILE__, __LINE__);
        else if (auto* box = qobject_cast<QMessageBox*>(&dialog))
            onBox_(*box);
        else
            onDialog_(Form{dialog});
        if (QTest::currentTestFailed())
            dialog.reject();  // the pass waits for it
    }

    std::function<void(QMessageBox& box)> onBox_;
    std::function<void(Form dialog)> onDialog_;
};

}  // namespace

class RepairInputTest : public RepairTest {
    Q_OBJECT

  private Q_SLOTS:
    void stopIsPressedWhileABoxStands_data();
    void stopIsPressedWhileABoxStands();
    void theBoxNeverCoversTheForm();
    void theBoxLeavesTheFormThatIsPlacedAfterIt();
    void theMainWindowWorksWhileABoxStands();
    void theConsoleMayEndWhileABoxStands();
    void whatIsTypedWhileThePassReadsArrives();
    void aQuestionThatOpensWhileThePassReadsIsAnswered_data();
    void aQuestionThatOpensWhileThePassReadsIsAnswered();

  private:
    /// Images without their files, in a series that is there.
    void loseImages(int count) const {
        archive().addPatient(1);
        archive().addStudy(u"st"_s, 1);
        archive().addSeries(u"se"_s, u"st"_s);
        for (int image = 0; image < count; ++image)
            archive().addImage(u"lost %1"_s.arg(image), u"se"_s);
    }
    /// So many images that the pass lets events in before it has read them all; they share one file.
    void addManyImages() const {
        loseImages(0);
        archive().addFile(u"st"_s, u"se"_s, u"file"_s);
        database().run(
            u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<%1) INSERT INTO Image "
            "(SOPInstanceUID, SeriesInstanceUID, ImageFile) SELECT i, 'se', 'file' FROM n"_s.arg(ManyImages));
    }
    /// Runs a body once, when the pass reads and has visited no row.
    void whileItReads(std::function<void()> body) const {
        afterFirstRow([this, body = std::move(body)] {
            QCOMPARE(repairForm().find<QProgressBar>(u"prgBar"_s).value(), 0);
            QVERIFY(real::hasKeyboard(repairForm().window()));  // which came last
            body();
        });
    }
    /// As a user closes the console: by the key of its menu item.
    void exitByKey() const {
        real::click(window().find(u"stsBarText1"_s));
        QVERIFY(real::hasKeyboard(manager()));
        real::press(u"alt+x"_s);
    }
    [[nodiscard]] int imagesLeft() const { return database().value(u"SELECT count(*) FROM Image"_s).toInt(); }
};

void RepairInputTest::stopIsPressedWhileABoxStands_data() {
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("keyboardToForm");
    QTest::newRow("a click") << QString{} << false;
    QTest::newRow("its key in the box") << u"alt+s"_s << false;
    QTest::newRow("its key in the form") << u"alt+s"_s << true;
    QTest::newRow("Escape in the form") << u"Escape"_s << true;
}

void RepairInputTest::stopIsPressedWhileABoxStands() {
    QFETCH(QString, key);
    QFETCH(bool, keyboardToForm);
    loseImages(5);
    int announced = 0;
    const Watch watch{[&](QMessageBox& box) {
        if (box.text() != Missing) {
            real::press(u"n"_s);
            return;
        }
        const bool third = ++announced == 3;
        if (third) {
            QWidget& form = repairForm().window();
            auto& stop = repairForm().find<QPushButton>(u"cmdStop"_s);
            QVERIFY(stop.isEnabled());
            QSignalSpy pressed{&stop, &QPushButton::clicked};
            if (keyboardToForm) {
                real::click(repairForm().find(u"prgBar"_s));
                QVERIFY(real::hasKeyboard(form));
            }
            if (key.isEmpty())
                real::click(stop);
            else
                real::press(key);
            if (key != u"Escape"_s)
                EVENTUALLY_COMPARE(pressed.count(), 1);
            QVERIFY(box.isVisible());  // it still waits
        }
        real::click(*box.button(QMessageBox::Ok));
    }};
    repair();
    QCOMPARE(announced, 3);
    // The row whose box stood is the last one, and no other check has run.
    QCOMPARE(archive().keys(), (QStringList{u"image lost 3"_s, u"image lost 4"_s, u"patient 1"_s,
                                            u"series se"_s, u"study st"_s}));
}

void RepairInputTest::theBoxNeverCoversTheForm() {
    const QRect screen = manager().screen()->availableGeometry();
    const QList<QPoint> places{screen.center(), screen.topLeft(), screen.topRight(), screen.bottomLeft(),
                               screen.bottomRight()};
    loseImages(static_cast<int>(places.size()) + 1);
    int next = 0;
    const Watch watch{[&](QMessageBox& box) {
        if (box.text() == Missing) {
            QWidget& form = repairForm().window();
            // The window manager places the box first, and tells of it later.
            EVENTUALLY2(!box.frameGeometry().intersects(form.frameGeometry()),
                        qPrintable(QString::number(next)));
            EVENTUALLY(screen.contains(box.frameGeometry()));
            if (next < places.size()) {
                QRect frame = form.frameGeometry();
                frame.moveCenter(places.at(next++));
                frame.moveRight(std::min(frame.right(), screen.right()));
                frame.moveLeft(std::max(frame.left(), screen.left()));
                frame.moveBottom(std::min(frame.bottom(), screen.bottom()));
                frame.moveTop(std::max(frame.top(), screen.top()));
                form.move(frame.topLeft());
                EVENTUALLY_COMPARE(form.frameGeometry().topLeft(), frame.topLeft());
            }
        }
        real::press(box.text() == Missing ? u"Return"_s : u"n"_s);
    }};
    repair();
    QCOMPARE(next, static_cast<int>(places.size()));
    QCOMPARE(imagesLeft(), 0);
}

void RepairInputTest::theBoxLeavesTheFormThatIsPlacedAfterIt() {
    const pid_t windowManager = qEnvironmentVariableIntValue("TESSALY_TEST_WINDOW_MANAGER");
    QVERIFY(windowManager > 0);
    loseImages(1);
    QVERIFY(real::hasKeyboard(manager()));
    // The window manager works again when the box has been shown.
    const BoxShown shown{[windowManager] { ::kill(windowManager, SIGCONT); }};
    const Watch watch{[&](QMessageBox& box) {
        if (box.text() == Missing)
            EVENTUALLY(!box.frameGeometry().intersects(repairForm().window().frameGeometry()));
        real::press(box.text() == Missing ? u"Return"_s : u"n"_s);
    }};
    QCOMPARE(::kill(windowManager, SIGSTOP), 0);
    repair();
    QCOMPARE(imagesLeft(), 0);
}

void RepairInputTest::theMainWindowWorksWhileABoxStands() {
    loseImages(1);
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(FtpTab);
    const auto stored = [this] { return database().value(u"SELECT Host FROM FtpNodes WHERE Name='name'"_s); };
    const Watch watch{[&](QMessageBox& box) {
                          if (box.text() != Missing) {
                              real::press(u"n"_s);
                              return;
                          }
                          real::click(window().find(u"cmdFTPAdd"_s));
                          EVENTUALLY_COMPARE(stored(), u"host"_s);
                          QVERIFY(box.isVisible());
                          real::click(*box.button(QMessageBox::Ok));
                      },
                      [](Form editor) {
                          for (const auto& name : {u"txtName"_s, u"txtHost"_s, u"txtUser"_s, u"txtPassword"_s,
                                                   u"txtDestination"_s}) {
                              real::click(editor.find(name));
                              real::type(name.mid(3).toLower());
                          }
                          real::click(editor.find(u"cmdOk"_s));
                      }};
    repair();
    QCOMPARE(stored(), u"host"_s);
    QCOMPARE(imagesLeft(), 0);
}

void RepairInputTest::theConsoleMayEndWhileABoxStands() {
    loseImages(2);
    int boxes = 0;
    const Watch watch{[&](QMessageBox& /*box*/) {
        ++boxes;
        exitByKey();
    }};
    repair();
    QCOMPARE(boxes, 1);
    QCOMPARE(takeConsoleEnd(), 0);
    QCOMPARE(imagesLeft(), 2);  // nobody has taken note
}

void RepairInputTest::whatIsTypedWhileThePassReadsArrives() {
    addManyImages();
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(AdministrationTab);
    auto& box = window().find<QLineEdit>(u"txtQueryTimeout"_s);
    whileItReads([&] {
        real::click(box);
        EVENTUALLY(box.hasFocus());
        real::press(u"ctrl+a"_s);
        real::type(u"47"_s);
        EVENTUALLY_COMPARE(box.text(), u"47"_s);
    });
    const Watch watch{[](QMessageBox& /*box*/) { real::press(u"n"_s); }};
    repair();
    QCOMPARE(box.text(), u"47"_s);
    QCOMPARE(imagesLeft(), ManyImages);
}

void RepairInputTest::aQuestionThatOpensWhileThePassReadsIsAnswered_data() {
    QTest::addColumn<QString>("key");
    QTest::newRow("by a click") << QString{};
    QTest::newRow("by a key") << u"n"_s;
}

void RepairInputTest::aQuestionThatOpensWhileThePassReadsIsAnswered() {
    QFETCH(QString, key);
    addManyImages();
    Globals::setConfigChanged(true);
    QStringList questions;
    bool answered = false;
    whileItReads([&] {
        exitByKey();
        EVENTUALLY(!manager().isVisible());
        answered = true;
    });
    const Watch watch{[&](QMessageBox& box) {
        questions << box.text();
        if (key.isEmpty())
            real::click(*box.button(QMessageBox::No));
        else
            real::press(key);
    }};
    repair();
    QVERIFY(answered);
    QCOMPARE(questions, QStringList{u"The server parameters have been modified. Do you want to restart the "
                                    "server?"_s});
    QCOMPARE(takeConsoleEnd(), 0);
    QCOMPARE(imagesLeft(), ManyImages);
}

QTEST_MAIN(RepairInputTest)
#include "tst_repairinput.moc"
