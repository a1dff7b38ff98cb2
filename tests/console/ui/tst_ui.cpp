#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHeaderView>
#include <QHelpEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTextDocument>
#include <QTimer>
#include <QToolTip>
#include <stdexcept>

#include "console/ui/ConsoleEnd.h"
#include "console/ui/FocusOutFilter.h"
#include "console/ui/FolderPicker.h"
#include "console/ui/Guard.h"
#include "console/ui/Mnemonics.h"
#include "console/ui/ReportList.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"
#include "tests/support/Eventually.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;
using ui::ReportList;

class UiTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void boxesLookAsTheirStyleSays_data();
    void boxesLookAsTheirStyleSays();
    void boxesTakeTheirTextAsItStands();
    void escapeAnswersNo();
    void aGuardShowsTheDescription();
    void aHandlerEndsTheConsoleByWhatNobodyCaught();
    void anUncaughtFaultPassesEveryGuard();
    void endingTheConsoleClosesNestedDialogs();
    void aListSelectsItsFirstRowAfterALoad();
    void aLoadThatFailsKeepsWhatItHas();
    void aMultiSelectionListStartsWithNothing();
    void oneRowStaysSelected();
    void widthsAreInInches();
    void fractionsFollowTheList();
    void aCutCellHasAToolTip();
    void lettersAreGivenOnce();
    void leavingABoxIsNoticed();
    void theFolderPickerGivesAFolderOrNothing();
};

void UiTest::boxesLookAsTheirStyleSays_data() {
    using Buttons = QMessageBox::StandardButtons;
    QTest::addColumn<ui::BoxStyle>("style");
    QTest::addColumn<QMessageBox::Icon>("icon");
    QTest::addColumn<Buttons>("buttons");
    QTest::addColumn<QMessageBox::StandardButton>("pressed");
    QTest::addColumn<ui::Answer>("answer");
    const Buttons yesNo = QMessageBox::Yes | QMessageBox::No;
    const Buttons okCancel = QMessageBox::Ok | QMessageBox::Cancel;
    QTest::newRow("plain") << ui::BoxStyle::Plain << QMessageBox::NoIcon << Buttons{QMessageBox::Ok}
                           << QMessageBox::Ok << ui::Answer::Ok;
    QTest::newRow("critical") << ui::BoxStyle::Critical << QMessageBox::Critical << Buttons{QMessageBox::Ok}
                              << QMessageBox::Ok << ui::Answer::Ok;
    QTest::newRow("yes") << ui::BoxStyle::YesNo << QMessageBox::NoIcon << yesNo << QMessageBox::Yes
                         << ui::Answer::Yes;
    QTest::newRow("no") << ui::BoxStyle::YesNo << QMessageBox::NoIcon << yesNo << QMessageBox::No
                        << ui::Answer::No;
    QTest::newRow("critical question")
        << ui::BoxStyle::CriticalYesNo << QMessageBox::Critical << yesNo << QMessageBox::No << ui::Answer::No;
    QTest::newRow("ok of two") << ui::BoxStyle::OkCancel << QMessageBox::NoIcon << okCancel << QMessageBox::Ok
                               << ui::Answer::Ok;
    QTest::newRow("cancel") << ui::BoxStyle::OkCancel << QMessageBox::NoIcon << okCancel
                            << QMessageBox::Cancel << ui::Answer::Cancel;
}

void UiTest::boxesLookAsTheirStyleSays() {
    QFETCH(ui::BoxStyle, style);
    QFETCH(QMessageBox::Icon, icon);
    QFETCH(QMessageBox::StandardButtons, buttons);
    QFETCH(QMessageBox::StandardButton, pressed);
    QFETCH(ui::Answer, answer);
    BoxScript script;
    script.expect(
        {.text = u"text"_s, .icon = icon, .title = u"title "_s, .buttons = buttons, .answer = pressed});
    QCOMPARE(ui::messageBox(nullptr, u"text"_s, style, u"title "_s), answer);
    QVERIFY(script.isDone());
}

void UiTest::boxesTakeTheirTextAsItStands() {
    const QString text = u"<b>1 & 2</b>\r\"%1\" "_s;
    BoxScript script;
    script.expect(plain(text));
    ui::messageBox(nullptr, text);
    QVERIFY(script.isDone());
}

void UiTest::escapeAnswersNo() {
    QTimer::singleShot(0, [] { QTest::keyClick(QApplication::activeModalWidget(), Qt::Key_Escape); });
    QCOMPARE(ui::messageBox(nullptr, u"?"_s, ui::BoxStyle::YesNo), ui::Answer::No);
}

void UiTest::aGuardShowsTheDescription() {
    BoxScript script;
    script.expect(critical(u"what went wrong"_s));
    QVERIFY(
        !ui::guarded(nullptr, ui::BoxStyle::Critical, [] { throw std::runtime_error("what went wrong"); }));
    QVERIFY(ui::guarded(nullptr, ui::BoxStyle::Critical, [] {}));
    ui::ignoringErrors([] { throw std::runtime_error("of no consequence"); });
    QVERIFY(script.isDone());
    QVERIFY(!takeConsoleEnd());
}

void UiTest::aHandlerEndsTheConsoleByWhatNobodyCaught() {
    BoxScript script;
    script.expect(critical(u"nobody caught this"_s));
    QPushButton button;
    connect(&button, &QPushButton::clicked, this,
            ui::handler([] { throw std::runtime_error("nobody caught this"); }));
    button.click();
    button.click();  // the console already ends: no second report
    QVERIFY(script.isDone());
    QCOMPARE(takeConsoleEnd(), std::optional{1});
}

void UiTest::anUncaughtFaultPassesEveryGuard() {
    BoxScript script;
    script.expect(critical(u"Overflow"_s));
    ui::handler(
        [] { ui::guarded(nullptr, ui::BoxStyle::Plain, [] { throw ui::UncaughtFault{"Overflow"}; }); })();
    QVERIFY(script.isDone());
    QCOMPARE(takeConsoleEnd(), std::optional{1});
}

void UiTest::endingTheConsoleClosesNestedDialogs() {
    QDialog outer;
    QDialog inner{&outer};
    QTimer::singleShot(0, &outer, [&] {
        QTimer::singleShot(0, &inner, [] {
            ui::endConsole(3);
            ui::endConsole(0);  // the first call decides
        });
        inner.exec();
    });
    QCOMPARE(outer.exec(), static_cast<int>(QDialog::Rejected));
    QCOMPARE(takeConsoleEnd(), std::optional{3});
    QTimer::singleShot(0, &outer, &QDialog::accept);
    QCOMPARE(outer.exec(), static_cast<int>(QDialog::Accepted));  // loops run again
}

void UiTest::aListSelectsItsFirstRowAfterALoad() {
    ReportList list{u"lst"_s, {{.title = u"A"_s}, {.title = u"B"_s}}};
    QVERIFY_EXCEPTION_THROWN((void)list.selectedText(), std::runtime_error);
    for (int round = 0; round < 2; ++round) {
        {
            ReportList::Load load{list};
            load.add({u"a"_s, u"1"_s});
            load.add({u"b"_s, u"2"_s});
        }
        QCOMPARE(list.topLevelItemCount(), 2);
        QCOMPARE(list.selectedText(), u"a"_s);
        QCOMPARE(list.selectedText(1), u"1"_s);
        QVERIFY(list.currentItem()->isSelected());
        list.setCurrentItem(list.topLevelItem(1));
    }
}

void UiTest::aLoadThatFailsKeepsWhatItHas() {
    ReportList list{u"lst"_s, {{.title = u"A"_s}}};
    ui::ignoringErrors([&] {
        ReportList::Load load{list};
        load.add({u"first"_s});
        throw std::runtime_error("the second row cannot be read");
    });
    QCOMPARE(list.topLevelItemCount(), 1);
    QCOMPARE(list.selectedText(), u"first"_s);
}

void UiTest::aMultiSelectionListStartsWithNothing() {
    ReportList list{u"lst"_s, {{.title = u"A"_s}}};
    list.setSelectionMode(QAbstractItemView::ExtendedSelection);
    {
        ReportList::Load load{list};
        for (const auto& text : {u"a"_s, u"b"_s, u"c"_s})
            load.add({text});
    }
    QVERIFY(list.selectedTexts().isEmpty());
    list.topLevelItem(2)->setSelected(true);
    list.topLevelItem(0)->setSelected(true);
    QCOMPARE(list.selectedTexts(), (QStringList{u"a"_s, u"c"_s}));
}

void UiTest::oneRowStaysSelected() {
    ReportList list{u"lst"_s, {{.title = u"A"_s}}};
    {
        ReportList::Load load{list};
        load.add({u"a"_s});
    }
    list.show();
    const QPoint onRow = list.visualItemRect(list.topLevelItem(0)).center();
    QTest::mouseClick(list.viewport(), Qt::LeftButton, Qt::ControlModifier, onRow);
    QCOMPARE(list.selectedText(), u"a"_s);
    QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, QPoint{onRow.x(), list.viewport()->height() - 2});
    QCOMPARE(list.selectedText(), u"a"_s);
}

void UiTest::widthsAreInInches() {
    ReportList list{u"lst"_s,
                    {{.title = u"A"_s}, {.title = u"B"_s, .inches = 0.5, .alignment = Qt::AlignHCenter}}};
    QCOMPARE(list.columnWidth(0), 96);
    QCOMPARE(list.columnWidth(1), 48);
    {
        ReportList::Load load{list};
        load.add({u"a"_s, u"X"_s});
    }
    QVERIFY(list.topLevelItem(0)->textAlignment(1) & Qt::AlignHCenter);
    list.setColumnWidth(0, 200);  // as a user drags it
    { const ReportList::Load load{list}; }
    QCOMPARE(list.columnWidth(0), 200);
}

void UiTest::fractionsFollowTheList() {
    ReportList list{u"lst"_s, {{.title = u"A"_s}, {.title = u"B"_s}}};
    list.setFractions({0.15, 0.05});
    list.show();
    for (const int width : {800, 500, 250}) {
        list.resize(width, 100);
        QCOMPARE(list.columnWidth(0), static_cast<int>(0.15 * width));
        QCOMPARE(list.columnWidth(1), static_cast<int>(0.05 * width));
    }
}

void UiTest::aCutCellHasAToolTip() {
    ReportList list{u"lst"_s, {{.title = u"A"_s}, {.title = u"B"_s}}};
    const QString plainText = u"AT&T &c. a text that is far too long for its column"_s;
    const QString likeMarkup = u"a text that is far too <b>long</b> for its &lt;column&gt;"_s;
    {
        ReportList::Load load{list};
        load.add({plainText, u"short"_s});
        load.add({likeMarkup, u"short"_s});
    }
    list.show();
    const auto hover = [&](int column, int row = 0) {
        const QPoint spot = list.visualRect(list.model()->index(row, column)).center();
        QHelpEvent event{QEvent::ToolTip, spot, list.viewport()->mapToGlobal(spot)};
        QApplication::sendEvent(list.viewport(), &event);
    };
    hover(0);
    QCOMPARE(QToolTip::text(), plainText);
    hover(0, 1);
    QVERIFY(Qt::mightBeRichText(QToolTip::text()));
    QTextDocument shown;
    shown.setHtml(QToolTip::text());
    QCOMPARE(shown.toPlainText(), likeMarkup);
    hover(1);
    EVENTUALLY(!QToolTip::isVisible());
}

void UiTest::lettersAreGivenOnce() {
    QWidget form;
    auto* rows = new QFormLayout(&form);
    auto* name = new QLineEdit;
    auto* marked = new QLineEdit;
    auto* confirm = new QPushButton(u"Name it"_s);
    rows->addRow(u"Name"_s, name);
    rows->addRow(u"&Other"_s, marked);
    rows->addRow(confirm);
    form.show();
    form.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&form, PatienceMs));
    ui::assignMnemonics(&form);
    QCOMPARE(confirm->text(), u"Name it"_s);
    QCOMPARE(confirm->shortcut(), QKeySequence(Qt::ALT | Qt::Key_A));  // N is the box's, O is marked
    marked->setFocus();
    QTest::keyClick(&form, Qt::Key_N, Qt::AltModifier);
    QCOMPARE(form.focusWidget(), name);
}

void UiTest::leavingABoxIsNoticed() {
    QWidget form;
    auto* rows = new QFormLayout(&form);
    auto* box = new QLineEdit;
    auto* next = new QLineEdit;
    rows->addRow(box);
    rows->addRow(next);
    int left = 0;
    ui::onLeave(box, [&left] { ++left; });
    form.show();
    form.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&form, PatienceMs));
    box->setFocus();
    QCOMPARE(left, 0);
    next->setFocus();
    QCOMPARE(left, 1);
    box->setFocus();
    ui::asIfLeft(box);
    QCOMPARE(left, 2);
    QVERIFY(box->hasFocus());
}

void UiTest::theFolderPickerGivesAFolderOrNothing() {
    QTemporaryDir folder;
    BoxScript script;
    script.drive(u"QFileDialog"_s, [&](Form form) {
        auto& dialog = static_cast<QFileDialog&>(form.window());
        QCOMPARE(dialog.windowTitle(), u"Images dir"_s);
        dialog.reject();
    });
    QVERIFY(!ui::browseForFolder(nullptr, u"Images dir"_s, folder.path()));
    script.drive(u"QFileDialog"_s, [&](Form form) {
        static_cast<QFileDialog&>(form.window()).selectFile(folder.path());
        form.find<QDialogButtonBox>(u"buttonBox"_s).buttons().first()->click();
    });
    QCOMPARE(ui::browseForFolder(nullptr, u"Images dir"_s, folder.path()), std::optional{folder.path()});
    QVERIFY(script.isDone());
}

QTEST_MAIN(UiTest)
#include "tst_ui.moc"
