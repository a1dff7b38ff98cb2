#include <QLineEdit>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>
#include <QVBoxLayout>

#include "console/ui/SpinButtons.h"

using namespace Qt::StringLiterals;
using tessaly::ui::SpinButtons;

class SpinButtonsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void aStepCountsWithinTheRange_data();
    void aStepCountsWithinTheRange();
    void buttonsAndKeysStep();
    void aReadOnlyBoxStays();
};

void SpinButtonsTest::aStepCountsWithinTheRange_data() {
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("up");
    QTest::addColumn<QString>("down");
    QTest::newRow("inside") << u"7"_s << u"8"_s << u"6"_s;
    QTest::newRow("at the maximum") << u"9"_s << u"9"_s << u"8"_s;
    QTest::newRow("at the minimum") << u"2"_s << u"3"_s << u"2"_s;
    QTest::newRow("above") << u"2147483647"_s << u"9"_s << u"9"_s;
    QTest::newRow("below") << u"-2147483648"_s << u"2"_s << u"2"_s;
    QTest::newRow("empty") << QString{} << u"2"_s << u"2"_s;
    QTest::newRow("no number") << u"x"_s << u"2"_s << u"2"_s;
}

void SpinButtonsTest::aStepCountsWithinTheRange() {
    QFETCH(QString, before);
    QFETCH(QString, up);
    QFETCH(QString, down);
    QLineEdit box;
    SpinButtons buttons{u"udBox"_s, &box, 2, 9};
    QCOMPARE(buttons.objectName(), u"udBox"_s);
    const QSignalSpy changes{&buttons, &SpinButtons::changed};
    box.setText(before);
    buttons.stepUp();
    QCOMPARE(box.text(), up);
    QCOMPARE(changes.count(), before == up ? 0 : 1);
    box.setText(before);
    buttons.stepDown();
    QCOMPARE(box.text(), down);
}

void SpinButtonsTest::buttonsAndKeysStep() {
    QWidget window;
    auto* layout = new QVBoxLayout(&window);
    auto* box = new QLineEdit;
    layout->addWidget(box);
    auto* buttons = new SpinButtons{u"udBox"_s, box, 0, 9};
    layout->addWidget(buttons);
    window.show();
    window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    box->setFocus();
    box->setText(u"4"_s);
    const auto pair = buttons->findChildren<QToolButton*>();
    QCOMPARE(pair.size(), 2);
    QTest::mouseClick(pair.at(0), Qt::LeftButton);
    QCOMPARE(box->text(), u"5"_s);
    QTest::mouseClick(pair.at(1), Qt::LeftButton);
    QTest::mouseClick(pair.at(1), Qt::LeftButton);
    QCOMPARE(box->text(), u"3"_s);
    QVERIFY(box->hasFocus());
    QTest::keyClick(box, Qt::Key_Up);
    QCOMPARE(box->text(), u"4"_s);
    QTest::keyClick(box, Qt::Key_Down);
    QCOMPARE(box->text(), u"3"_s);
}

void SpinButtonsTest::aReadOnlyBoxStays() {
    QLineEdit box{u"4"_s};
    SpinButtons buttons{u"udBox"_s, &box, 0, 9};
    box.setReadOnly(true);
    buttons.stepUp();
    QCOMPARE(box.text(), u"4"_s);
}

QTEST_MAIN(SpinButtonsTest)
#include "tst_spinbuttons.moc"
