#include <QLineEdit>
#include <QPushButton>
#include <QTabBar>
#include <QTabWidget>
#include <QTest>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"
#include "tests/support/Eventually.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

constexpr int SiteTab = 5;
constexpr int UsersTab = 4;

}  // namespace

class SiteTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        database_ = std::make_unique<ScratchDatabase>();
        database_->openConsoleConnection();
        open();
    }
    void cleanup() {
        window_.reset();
        database_.reset();
    }

    void loadShowsTheFirstRow();
    void anEmptyTableShowsTheDesignTexts();
    void anyChangeEnablesBothButtons();
    void confirmWritesEveryRow_data();
    void confirmWritesEveryRow();
    void confirmShowsWhatIsStored();
    void theLettersReachBoxesAndButtons();
    void cancelPutsTheStoredValuesBack();
    void aFaultKeepsTheFocus_data();
    void aFaultKeepsTheFocus();
    void aUidIsCheckedByItsCharactersAlone();
    void twoFaultyBoxesAskForOneAtATime();
    void aStoredFaultThatNobodyTouchedIsNoObstacle_data();
    void aStoredFaultThatNobodyTouchedIsNoObstacle();
    void aFaultThatWasMadeHereIsCheckedWithoutAVisit();
    void anotherPageIsNotReachedWithAFault();
    void confirmWithAFaultDoesNotWrite();
    void cancelWithAFaultIsALeavingToo();
    void closingTheWindowIsNoLeaving();
    void failuresSayWhy();

  private:
    [[nodiscard]] Form window() const { return Form{*window_}; }
    [[nodiscard]] QLineEdit& box(const QString& name) const { return window().find<QLineEdit>(name); }
    [[nodiscard]] QPushButton& button(const QString& name) const { return window().find<QPushButton>(name); }
    [[nodiscard]] QTabWidget& tabs() const { return window().find<QTabWidget>(u"tabNodes"_s); }
    [[nodiscard]] bool buttonsAreEnabled(bool enabled) const {
        return button(u"cmdApplySiteData"_s).isEnabled() == enabled &&
               button(u"cmdCancelSiteData"_s).isEnabled() == enabled;
    }
    [[nodiscard]] QList<QStringList> stored() const { return database_->rows(u"SELECT * FROM SiteData"_s); }
    void open();
    [[nodiscard]] bool hasFocus(const QString& name) const;

    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<TessalyManager> window_;
};

void SiteTest::open() {
    window_ = std::make_unique<TessalyManager>();
    window_->show();
    window_->LoadSiteData();
    tabs().setCurrentIndex(SiteTab);
    window_->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(window_.get()));
}

/// After a message box: the window is activated again, as a desktop does when the box goes.
bool SiteTest::hasFocus(const QString& name) const {
    window_->activateWindow();
    return QTest::qWaitForWindowActive(window_.get()) && box(name).hasFocus();
}

void SiteTest::loadShowsTheFirstRow() {
    QCOMPARE(window().text(u"Label4"_s), u"Organization"_s);
    QCOMPARE(window().text(u"Label5"_s), u"UID"_s);
    QCOMPARE(window().text(u"cmdApplySiteData"_s), u"Confirm"_s);
    QCOMPARE(window().text(u"cmdCancelSiteData"_s), u"Cancel"_s);
    QCOMPARE(box(u"txtOrganization"_s).text(), u"Test Hospital"_s);
    QCOMPARE(box(u"txtBaseUID"_s).text(), u"2.25.1234"_s);
    QVERIFY(buttonsAreEnabled(false));
}

void SiteTest::anEmptyTableShowsTheDesignTexts() {
    database_->run(u"DELETE FROM SiteData"_s);
    window_.reset();
    open();
    QCOMPARE(box(u"txtOrganization"_s).text(), u"Unknown"_s);
    QCOMPARE(box(u"txtBaseUID"_s).text(), u"2.25"_s);
    QVERIFY(buttonsAreEnabled(false));
    const BoxScript noBox;
    window().type(u"txtOrganization"_s, u"Clinic"_s);
    window().click(u"cmdApplySiteData"_s);
    QCOMPARE(stored(), QList<QStringList>{});
    QCOMPARE(box(u"txtOrganization"_s).text(), u"Clinic"_s);  // nothing stored that would replace it
    QVERIFY(buttonsAreEnabled(false));
}

void SiteTest::anyChangeEnablesBothButtons() {
    for (const auto& name : {u"txtOrganization"_s, u"txtBaseUID"_s}) {
        box(name).setFocus();
        QTest::keyClick(&box(name), Qt::Key_9);
        QVERIFY(buttonsAreEnabled(true));
        window().click(u"cmdCancelSiteData"_s);
        QVERIFY(buttonsAreEnabled(false));
        box(name).setText(u"7"_s);
        QVERIFY(buttonsAreEnabled(true));
        window_->LoadSiteData();
        QVERIFY(buttonsAreEnabled(false));
    }
}

void SiteTest::confirmWritesEveryRow_data() {
    QTest::addColumn<QString>("organization");
    QTest::newRow("plain") << u"Clinic"_s;
    QTest::newRow("apostrophe and percent") << u"St. John's 100%'; DELETE FROM SiteData --"_s;
    QTest::newRow("umlauts") << u"Universitätsklinik Köln ß"_s;
    QTest::newRow("CJK") << u"東京病院"_s;
    QTest::newRow("four bytes") << u"🏥"_s;
    QTest::newRow("blanks only") << u"  "_s;
}

void SiteTest::confirmWritesEveryRow() {
    QFETCH(QString, organization);
    database_->run(u"INSERT INTO SiteData VALUES ('Second', '1.2')"_s);
    const BoxScript noBox;
    window().type(u"txtOrganization"_s, organization);
    window().type(u"txtBaseUID"_s, u"1..2.03."_s);
    QTest::mouseClick(&button(u"cmdApplySiteData"_s), Qt::LeftButton);
    const QStringList row{organization, u"1..2.03."_s};
    QCOMPARE(stored(), (QList<QStringList>{row, row}));
    QVERIFY(buttonsAreEnabled(false));
    QVERIFY(!Globals::ConfigChanged());
}

void SiteTest::confirmShowsWhatIsStored() {
    database_->onUpdate(u"SiteData"_s, u"length(NEW.Organization) > 3"_s,
                        u"UPDATE SiteData SET Organization=substr(Organization, 1, 3)"_s);
    const BoxScript noBox;
    window().type(u"txtOrganization"_s, u"Clinic"_s);
    window().click(u"cmdApplySiteData"_s);
    QCOMPARE(box(u"txtOrganization"_s).text(), u"Cli"_s);
    QVERIFY(buttonsAreEnabled(false));
}

void SiteTest::theLettersReachBoxesAndButtons() {
    QTest::keyClick(window_.get(), Qt::Key_U, Qt::AltModifier);
    QVERIFY(box(u"txtBaseUID"_s).hasFocus());
    QTest::keyClick(window_.get(), Qt::Key_O, Qt::AltModifier);
    QVERIFY(box(u"txtOrganization"_s).hasFocus());
    window().type(u"txtOrganization"_s, u"Clinic"_s);
    QTest::keyClick(window_.get(), Qt::Key_A, Qt::AltModifier);
    EVENTUALLY_COMPARE(box(u"txtOrganization"_s).text(), u"Test Hospital"_s);
    window().type(u"txtOrganization"_s, u"Clinic"_s);
    QTest::keyClick(window_.get(), Qt::Key_C, Qt::AltModifier);
    EVENTUALLY_COMPARE(stored().front().front(), u"Clinic"_s);
    // With a fault the letters are no way round the check.
    window().type(u"txtOrganization"_s, {});
    BoxScript script;
    script.expect(plain(u"Organization name required"_s));
    QTest::keyClick(window_.get(), Qt::Key_C, Qt::AltModifier);
    EVENTUALLY(script.isDone());
    QVERIFY(hasFocus(u"txtOrganization"_s));
    QCOMPARE(stored().front().front(), u"Clinic"_s);
}

void SiteTest::cancelPutsTheStoredValuesBack() {
    window().type(u"txtOrganization"_s, u"Clinic"_s);
    window().type(u"txtBaseUID"_s, u"1.2"_s);
    QTest::mouseClick(&button(u"cmdCancelSiteData"_s), Qt::LeftButton);
    QCOMPARE(box(u"txtOrganization"_s).text(), u"Test Hospital"_s);
    QCOMPARE(box(u"txtBaseUID"_s).text(), u"2.25.1234"_s);
    QVERIFY(buttonsAreEnabled(false));
    QCOMPARE(stored(), (QList<QStringList>{{u"Test Hospital"_s, u"2.25.1234"_s}}));
}

void SiteTest::aFaultKeepsTheFocus_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("other");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("fault");
    QTest::newRow("no organization") << u"txtOrganization"_s << u"txtBaseUID"_s << QString{}
                                     << u"Organization name required"_s;
    QTest::newRow("no UID") << u"txtBaseUID"_s << u"txtOrganization"_s << QString{} << u"Base UID required"_s;
    for (const auto& uid : {u"1.2a3b"_s, u" "_s, u"1,2"_s, u"1.2 "_s, u"٣"_s})
        QTest::addRow("UID %s", qPrintable(uid))
            << u"txtBaseUID"_s << u"txtOrganization"_s << uid << u"Only Numbers and '.' allowed for UIDs"_s;
}

void SiteTest::aFaultKeepsTheFocus() {
    QFETCH(QString, name);
    QFETCH(QString, other);
    QFETCH(QString, text);
    QFETCH(QString, fault);
    BoxScript script;
    window().type(name, text);

    script.expect(plain(fault));
    QTest::keyClick(&box(name), Qt::Key_Tab);
    QVERIFY(script.isDone());
    QVERIFY(hasFocus(name));

    script.expect(plain(fault));
    QTest::mouseClick(&box(other), Qt::LeftButton);
    QVERIFY(script.isDone());
    QVERIFY(hasFocus(name));
    QVERIFY(buttonsAreEnabled(true));

    window().type(name, u"1"_s);
    QTest::mouseClick(&box(other), Qt::LeftButton);
    QVERIFY(hasFocus(other));
    QVERIFY(script.isDone());
}

void SiteTest::aUidIsCheckedByItsCharactersAlone() {
    const BoxScript noBox;
    for (const auto& uid : {u"1..2"_s, u"."_s, u"00"_s, u"1234567890."_s, u"1"_s.repeated(200)}) {
        window().type(u"txtBaseUID"_s, uid);
        box(u"txtOrganization"_s).setFocus();
        QVERIFY(hasFocus(u"txtOrganization"_s));
    }
}

void SiteTest::twoFaultyBoxesAskForOneAtATime() {
    database_->run(u"UPDATE SiteData SET BaseUID='x'"_s);
    window_->LoadSiteData();
    BoxScript script;
    window().type(u"txtOrganization"_s, {});
    script.expect(plain(u"Organization name required"_s));
    QTest::mouseClick(&box(u"txtBaseUID"_s), Qt::LeftButton);
    QVERIFY(script.isDone());
    QVERIFY(hasFocus(u"txtOrganization"_s));
    window().type(u"txtOrganization"_s, u"Clinic"_s);
    QTest::mouseClick(&box(u"txtBaseUID"_s), Qt::LeftButton);
    script.expect(plain(u"Only Numbers and '.' allowed for UIDs"_s));
    QTest::mouseClick(&box(u"txtOrganization"_s), Qt::LeftButton);
    QVERIFY(script.isDone());
    QVERIFY(hasFocus(u"txtBaseUID"_s));
}

void SiteTest::aStoredFaultThatNobodyTouchedIsNoObstacle_data() {
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("typed");
    QTest::newRow("the UID") << u"'Old', '1.x'"_s << u"txtOrganization"_s;
    QTest::newRow("no UID") << u"'Old', ''"_s << u"txtOrganization"_s;
    QTest::newRow("no organization") << u"'', '1.2'"_s << u"txtBaseUID"_s;
}

void SiteTest::aStoredFaultThatNobodyTouchedIsNoObstacle() {
    QFETCH(QString, stored);
    QFETCH(QString, typed);
    database_->run(u"DELETE FROM SiteData"_s);
    database_->run(u"INSERT INTO SiteData VALUES (%1)"_s.arg(stored));
    window_->LoadSiteData();
    QStringList expected = database_->rows(u"SELECT * FROM SiteData"_s).front();
    expected[typed == u"txtOrganization"_s ? 0 : 1] = u"7"_s;
    const BoxScript noBox;
    window().type(typed, u"7"_s);
    QTest::mouseClick(&button(u"cmdApplySiteData"_s), Qt::LeftButton);
    QCOMPARE(database_->rows(u"SELECT * FROM SiteData"_s), QList<QStringList>{expected});
    QVERIFY(buttonsAreEnabled(false));
}

/// As a paste from a menu does, which takes the focus nowhere.
void SiteTest::aFaultThatWasMadeHereIsCheckedWithoutAVisit() {
    window().type(u"txtOrganization"_s, u"Clinic"_s);
    box(u"txtBaseUID"_s).insert(u"x"_s);
    QVERIFY(!box(u"txtBaseUID"_s).hasFocus());
    answering({plain(u"Only Numbers and '.' allowed for UIDs"_s)},
              [this] { QTest::mouseClick(&button(u"cmdApplySiteData"_s), Qt::LeftButton); });
    QCOMPARE(stored(), (QList<QStringList>{{u"Test Hospital"_s, u"2.25.1234"_s}}));
    QVERIFY(hasFocus(u"txtBaseUID"_s));
}

void SiteTest::anotherPageIsNotReachedWithAFault() {
    auto& bar = window().find<QTabBar>(u"qt_tabwidget_tabbar"_s);
    const QPoint users = bar.tabRect(UsersTab).center();
    BoxScript script;
    window().type(u"txtOrganization"_s, {});
    script.expect(plain(u"Organization name required"_s));
    QTest::mouseClick(&bar, Qt::LeftButton, {}, users);
    QVERIFY(script.isDone());
    QCOMPARE(tabs().currentIndex(), SiteTab);
    QVERIFY(hasFocus(u"txtOrganization"_s));

    script.expect(plain(u"Organization name required"_s));
    QTest::keyClick(&box(u"txtOrganization"_s), Qt::Key_Tab, Qt::ControlModifier);
    EVENTUALLY(script.isDone());
    EVENTUALLY_COMPARE(tabs().currentIndex(), SiteTab);
    QVERIFY(hasFocus(u"txtOrganization"_s));

    window().type(u"txtOrganization"_s, u"Clinic"_s);
    QTest::mouseClick(&bar, Qt::LeftButton, {}, users);
    QCOMPARE(tabs().currentIndex(), UsersTab);
    QVERIFY(script.isDone());
}

void SiteTest::confirmWithAFaultDoesNotWrite() {
    BoxScript script;
    const auto refused = [&] {
        return script.isDone() && stored() == QList<QStringList>{{u"Test Hospital"_s, u"2.25.1234"_s}} &&
               hasFocus(u"txtBaseUID"_s) && buttonsAreEnabled(true);
    };
    window().type(u"txtBaseUID"_s, u"1.x"_s);
    script.expect(plain(u"Only Numbers and '.' allowed for UIDs"_s));
    QTest::mouseClick(&button(u"cmdApplySiteData"_s), Qt::LeftButton);
    QVERIFY(refused());
    QVERIFY(!button(u"cmdApplySiteData"_s).isDown());
    QCoreApplication::processEvents();

    script.expect(plain(u"Only Numbers and '.' allowed for UIDs"_s));
    window().click(u"cmdApplySiteData"_s);
    QVERIFY(refused());
    QCoreApplication::processEvents();

    // A click that does not take the focus, as an assistive technology's.
    script.expect(plain(u"Only Numbers and '.' allowed for UIDs"_s));
    button(u"cmdApplySiteData"_s).click();
    QVERIFY(refused());
    QCoreApplication::processEvents();

    window().type(u"txtBaseUID"_s, u"1.2"_s);
    QTest::mouseClick(&button(u"cmdApplySiteData"_s), Qt::LeftButton);
    QCOMPARE(stored(), (QList<QStringList>{{u"Test Hospital"_s, u"1.2"_s}}));
}

void SiteTest::cancelWithAFaultIsALeavingToo() {
    BoxScript script;
    for (const bool byMouse : {true, false}) {
        window().type(u"txtOrganization"_s, {});
        script.expect(plain(u"Organization name required"_s));
        if (byMouse)
            QTest::mouseClick(&button(u"cmdCancelSiteData"_s), Qt::LeftButton);
        else
            window().click(u"cmdCancelSiteData"_s);
        QVERIFY(script.isDone());
        QCOMPARE(box(u"txtOrganization"_s).text(), QString{});
        QVERIFY(hasFocus(u"txtOrganization"_s));
        QCoreApplication::processEvents();
    }
    window().type(u"txtOrganization"_s, u"x"_s);
    QTest::mouseClick(&button(u"cmdCancelSiteData"_s), Qt::LeftButton);
    QCOMPARE(box(u"txtOrganization"_s).text(), u"Test Hospital"_s);
}

void SiteTest::closingTheWindowIsNoLeaving() {
    Globals::setConfigChanged(true);
    BoxScript script;
    window().type(u"txtOrganization"_s, {});
    script.expect(yesNo(u"The server parameters have been modified. Do you want to restart the server?"_s,
                        QMessageBox::No));
    QVERIFY(window_->close());
    QCoreApplication::processEvents();
    QVERIFY(script.isDone());
    QVERIFY(!window_->isVisible());
    QCOMPARE(takeConsoleEnd(), std::optional{0});
    QCOMPARE(stored(), (QList<QStringList>{{u"Test Hospital"_s, u"2.25.1234"_s}}));
}

void SiteTest::failuresSayWhy() {
    database_->failOn(u"SiteData"_s, u"UPDATE"_s);
    window().type(u"txtOrganization"_s, u"Clinic"_s);
    answering({critical(containing(ScratchDatabase::Failure))},
              [this] { window().click(u"cmdApplySiteData"_s); });
    QCOMPARE(box(u"txtOrganization"_s).text(), u"Clinic"_s);
    QVERIFY(buttonsAreEnabled(true));

    database_->run(u"DROP TABLE SiteData"_s);
    answering({plain(containing(database_->noTable(u"SiteData"_s)))},
              [this] { window().click(u"cmdCancelSiteData"_s); });
    QCOMPARE(box(u"txtOrganization"_s).text(), u"Clinic"_s);
}

QTEST_MAIN(SiteTest)
#include "tst_site.moc"
