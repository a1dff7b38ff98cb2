#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QVBoxLayout>

#include "tests/support/Eventually.h"
#include "tests/support/RealInput.h"

using namespace Qt::StringLiterals;
namespace real = tessaly::test::real;

namespace {

/// A window with a box and a button that counts.
struct Window : QWidget {
    Window() {
        auto* column = new QVBoxLayout(this);
        column->addWidget(box);
        column->addWidget(button);
        connect(button, &QPushButton::clicked, this, [this] { ++clicks; });
        show();
    }
    QLineEdit* box = new QLineEdit(this);
    QPushButton* button = new QPushButton(u"Count"_s, this);
    int clicks = 0;
};

}  // namespace

/// The kit for real keys and clicks: were it to go past the window system, the tests that use it would see
/// nothing.
class RealInputTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void keysGoWhereTheKeyboardIs() {
        Window window;
        QVERIFY(real::hasKeyboard(window));
        real::type(u"-a B1"_s);
        EVENTUALLY_COMPARE(window.box->text(), u"-a B1"_s);
        real::press(u"Tab"_s);
        real::press(u"space"_s);
        EVENTUALLY_COMPARE(window.clicks, 1);
        real::press(u"shift+Tab"_s);
        EVENTUALLY(window.box->hasFocus());
    }

    void clicksGoToWhatLiesUnderThePointer() {
        Window window;
        QVERIFY(real::hasKeyboard(window));
        real::click(*window.button);
        EVENTUALLY_COMPARE(window.clicks, 1);
        QPushButton cover{u"Cover"_s, &window};
        int covered = 0;
        connect(&cover, &QPushButton::clicked, &window, [&covered] { ++covered; });
        cover.setGeometry(window.rect());
        cover.show();
        real::click(*window.button);
        EVENTUALLY_COMPARE(covered, 1);
        QCOMPARE(window.clicks, 1);
    }

    void modalWindowKeepsBothFromTheOthers() {
        Window window;
        QVERIFY(real::hasKeyboard(window));
        QMessageBox box;
        box.setWindowModality(Qt::ApplicationModal);
        box.setText(u"In the way"_s);
        box.setStandardButtons(QMessageBox::Ok);
        box.move(window.pos() + QPoint{400, 400});
        box.show();
        QVERIFY(real::hasKeyboard(box));
        real::click(*window.button);
        real::type(u"x"_s);
        real::click(*box.button(QMessageBox::Ok));
        EVENTUALLY(!box.isVisible());
        QCOMPARE(window.clicks, 0);
        QVERIFY(window.box->text().isEmpty());
    }
};

QTEST_MAIN(RealInputTest)
#include "tst_realinput.moc"
