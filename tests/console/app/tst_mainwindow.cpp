#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QSet>
#include <QTabWidget>
#include <QTest>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "console/ui/ConsoleEnd.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class MainWindowTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase() { QApplication::setApplicationName(u"TessalyCfg"_s); }
    void init() {
        database_ = std::make_unique<ScratchDatabase>();
        database_->openConsoleConnection();
        window_ = std::make_unique<TessalyManager>();
    }
    void cleanup() {
        window_.reset();
        database_.reset();
        (void)takeConsoleEnd();
    }

    void hasSevenPagesInOrder();
    void hasItsMenus();
    void theLineAboveAboutIsSeen();
    void hasItsStatusBar();
    void everyNamedControlIsOnItsPage();
    void oneFailingListDoesNotStopTheOthers();
    void closesWithoutAQuestionWhenNothingChanged();
    void asksToRestartAfterAChange();
    void exitIsACommandOfTheBar();
    void theListsAreFilledInOrder();
    void theAboutBoxShowsThreeNumbers_data();
    void theAboutBoxShowsThreeNumbers();

  private:
    [[nodiscard]] Form window() const { return Form{*window_}; }

    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<TessalyManager> window_;
};

void MainWindowTest::hasSevenPagesInOrder() {
    QCOMPARE(window_->windowTitle(), u"Tessaly Configuration"_s);
    const auto& tabs = window().find<QTabWidget>(u"tabNodes"_s);
    QStringList captions;
    for (int i = 0; i < tabs.count(); ++i)
        captions << tabs.tabText(i);
    QCOMPARE(captions, (QStringList{u"Dicom Nodes"_s, u"Local server"_s, u"FTP Nodes"_s, u"Administration"_s,
                                    u"Users"_s, u"Site Parameters"_s, u"Dicom Printers"_s}));
    BoxScript script;
    window_->load();
    QCOMPARE(tabs.currentIndex(), 0);
    QVERIFY(script.isDone());
}

void MainWindowTest::hasItsMenus() {
    const auto texts = [](const QList<QAction*>& actions) {
        QStringList found;
        for (const QAction* action : actions)
            found << action->objectName() + u'=' + (action->isSeparator() ? u"-"_s : action->text());
        return found;
    };
    const QList<QAction*> bar = window_->menuBar()->actions();
    QCOMPARE(texts(bar), (QStringList{u"mnuExit=E&xit"_s, u"mnuTools=&Tools"_s, u"mnuHelp=&Help"_s}));
    QVERIFY(bar.at(0)->menu() == nullptr);
    QCOMPARE(texts(bar.at(1)->menu()->actions()), QStringList{u"mnuToolsRepair=&Repair Database"_s});
    QCOMPARE(texts(bar.at(2)->menu()->actions()), (QStringList{u"mnuSep0=-"_s, u"mnuHelpAbout=&About"_s}));
}

void MainWindowTest::theLineAboveAboutIsSeen() {
    window_->show();
    QMenu* help = window_->menuBar()->actions().at(2)->menu();
    help->popup(window_->mapToGlobal(QPoint{}));
    QVERIFY(help->isVisible());
    const QRect line = help->actionGeometry(help->actions().at(0));
    const QRect about = help->actionGeometry(help->actions().at(1));
    QVERIFY(line.isValid());
    // Something is drawn there, and it is no part of the menu's frame.
    const QImage picture = help->grab().toImage();
    const auto colour = [&picture](int y) { return picture.pixelColor(picture.width() / 2, y); };
    const QColor ground = colour(about.top() + 1);
    QCOMPARE(colour(line.top() - 1), ground);
    QSet<QRgb> drawn;
    for (int y = line.top(); y <= line.bottom(); ++y)
        drawn << colour(y).rgb();
    drawn.remove(ground.rgb());
    QVERIFY(!drawn.isEmpty());
    help->close();
}

void MainWindowTest::hasItsStatusBar() {
    (void)window().find(u"stsBar"_s);
    for (const auto& panel : {u"stsBarText1"_s, u"stsBarIcon1"_s, u"stsBarText2"_s})
        (void)window().find<QLabel>(panel);
}

void MainWindowTest::everyNamedControlIsOnItsPage() {
    const QList<QStringList> pages{
        {u"lstNodes"_s, u"cmdAddNode"_s, u"cmdModifyNode"_s, u"cmdDelNode"_s},
        {u"lstPorts"_s, u"cmdAddPort"_s, u"cmdEditPort"_s, u"cmdDelPort"_s, u"lblAcceptedNodes"_s,
         u"lstPortNodes"_s, u"cmdAddPortNode"_s, u"cmdDelPortNode"_s},
        {u"lstFTPNodes"_s, u"cmdFTPAdd"_s, u"cmdFTPModify"_s, u"cmdFTPDelete"_s},
        {u"Frame1"_s, u"frmComands"_s, u"frmDatabase"_s, u"lstStatus"_s, u"cmdChangePath"_s},
        {u"lstUsers"_s, u"cmdAddUser"_s, u"cmdModifyUser"_s, u"cmdDelUser"_s},
        {u"txtOrganization"_s, u"txtBaseUID"_s, u"cmdApplySiteData"_s, u"cmdCancelSiteData"_s},
        {u"lstDcmPrinters"_s, u"cmdAddPrinter"_s, u"cmdModifyPrinter"_s, u"cmdDeletePrinter"_s}};
    const auto& tabs = window().find<QTabWidget>(u"tabNodes"_s);
    for (int i = 0; i < tabs.count(); ++i) {
        for (const QString& name : pages.at(i))
            QVERIFY2(tabs.widget(i)->findChild<QWidget*>(name) != nullptr, qPrintable(name));
    }
}

void MainWindowTest::oneFailingListDoesNotStopTheOthers() {
    database_->run(u"DROP TABLE DicomNodes"_s);
    database_->run(u"INSERT INTO FtpNodes (Name) VALUES ('ftp')"_s);
    BoxScript script;
    script.expect(plain(BoxScript::AnyText));  // the nodes
    script.expect(plain(BoxScript::AnyText));  // the nodes accepted on the port, joined with them
    window_->load();
    QVERIFY(script.isDone());
    for (const Box& box : script.boxes())
        QVERIFY2(box.text.contains(database_->noTable(u"DicomNodes"_s)), qPrintable(box.text));
    QCOMPARE(window().rows(u"lstPorts"_s).size(), 1);
    QCOMPARE(window().rows(u"lstFTPNodes"_s).size(), 1);
    QCOMPARE(window().rows(u"lstUsers"_s).size(), 1);
}

void MainWindowTest::closesWithoutAQuestionWhenNothingChanged() {
    BoxScript script;
    window_->show();
    QVERIFY(window_->close());
    QVERIFY(script.isDone());
    QCOMPARE(takeConsoleEnd(), std::optional{0});
}

void MainWindowTest::asksToRestartAfterAChange() {
    Globals::setConfigChanged(true);
    BoxScript script;
    script.expect(yesNo(u"The server parameters have been modified. Do you want to restart the server?"_s,
                        QMessageBox::No));
    window_->show();
    QVERIFY(window_->close());  // whatever the answer
    QVERIFY(script.isDone());
    QCOMPARE(takeConsoleEnd(), std::optional{0});
}

void MainWindowTest::exitIsACommandOfTheBar() {
    window_->show();
    window().trigger(u"mnuExit"_s);
    QVERIFY(!window_->isVisible());
    QCOMPARE(takeConsoleEnd(), std::optional{0});
}

void MainWindowTest::theListsAreFilledInOrder() {
    for (const char* table : {"DicomNodes", "Port", "FtpNodes", "Users", "SiteData", "Printers"})
        database_->run(u"DROP TABLE "_s + QString::fromLatin1(table));
    database_->run(u"DELETE FROM DicomServer"_s);
    BoxScript script;
    for (int list = 0; list < 6; ++list) {
        if (list == 2)
            script.expect(critical(u"Cannot find server configuration"_s));
        script.expect(plain(BoxScript::AnyText));
    }
    window_->load();
    QVERIFY(script.isDone());
    QCOMPARE(script.boxes().size(), 7);
    QStringList order{u"DicomNodes"_s, u"Port"_s, u"FtpNodes"_s, u"Users"_s, u"SiteData"_s, u"Printers"_s};
    for (QString& table : order)
        table = database_->noTable(table);
    order.insert(2, u"Cannot find"_s);
    for (qsizetype i = 0; i < order.size(); ++i)
        QVERIFY2(script.boxes().at(i).text.contains(order.at(i)), qPrintable(script.boxes().at(i).text));
}

void MainWindowTest::theAboutBoxShowsThreeNumbers_data() {
    QTest::addColumn<QString>("build");
    QTest::newRow("of three") << u"1.13.4"_s;
    QTest::newRow("of four") << u"1.13.0.4"_s;
}

void MainWindowTest::theAboutBoxShowsThreeNumbers() {
    QFETCH(QString, build);
    QApplication::setApplicationVersion(build);
    BoxScript script;
    script.drive(u"frmAbout"_s, [](Form form) {
        QCOMPARE(form.window().windowTitle(), u"About TessalyCfg"_s);
        QCOMPARE(form.text(u"lblTitle"_s), u"TessalyCfg"_s);
        QCOMPARE(form.text(u"lblVersion"_s), u"Version 1.13.4"_s);
        QVERIFY(!form.text(u"lblDescription"_s).isEmpty());
        QVERIFY(!form.find<QLabel>(u"Image1"_s).pixmap().isNull());
        form.click(u"cmdOk"_s);
    });
    window().trigger(u"mnuHelpAbout"_s);
    QVERIFY(script.isDone());
}

QTEST_MAIN(MainWindowTest)
#include "tst_mainwindow.moc"
