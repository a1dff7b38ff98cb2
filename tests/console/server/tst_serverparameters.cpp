#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QTabWidget>
#include <QTest>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "console/ui/SpinButtons.h"
#include "tests/console/server/ScriptedServer.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

/// The frame "Log file" in the main window.
class ServerParametersTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        script_ = {};
        database_ = std::make_unique<ScratchDatabase>();
        database_->openConsoleConnection();
        open();
    }
    void cleanup() {
        window_.reset();
        database_.reset();
        (void)takeConsoleEnd();
    }

    void captionsAndToolTips();
    void tabGoesFromTopToBottom();
    void levelsAreStoredByTheirOrder_data();
    void levelsAreStoredByTheirOrder();
    void aNumberThatIsNoLevelIsNeverStored_data();
    void aNumberThatIsNoLevelIsNeverStored();
    void dumpOptionsAreBits_data();
    void dumpOptionsAreBits();
    void otherBitsAreLost();
    void theTimeoutIsReadAsANumber_data();
    void theTimeoutIsReadAsANumber();
    void aTimeoutThatDoesNotFitIsReported_data();
    void aTimeoutThatDoesNotFitIsReported();
    void theArrowsStepTheNumber();
    void confirmWritesEveryRow();
    void cancelPutsTheStoredValuesBack();
    void cancelBringsTheServersBoxesUpToDate();
    void withoutARecordNothingIsFilled();
    void aFailedUpdateChangesNothing();
    void aFailedLoadDoesNotEndTheConsole();

  private:
    [[nodiscard]] Form frame() const { return Form{Form{*window_}.find(u"Frame1"_s)}; }
    void open() {
        window_ = std::make_unique<TessalyManager>(script_.factory());
        window_->load();
        window_->setConnectionTimerEnabled(false);
        window_->show();
        Form{*window_}.find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(3);
    }
    void store(const QVariantList& level_dump_timeout) const {
        database_->run(u"UPDATE DicomServer SET LogLevel=?, DumpLevel=?, QueryTimeout=?"_s,
                       level_dump_timeout);
    }
    [[nodiscard]] QStringList stored() const {
        return database_->rows(u"SELECT LogLevel, DumpLevel, QueryTimeout FROM DicomServer"_s).value(0);
    }
    /// The captions of the checked dump options.
    [[nodiscard]] QStringList checked() const {
        QStringList captions;
        for (int i = 0; i < 4; ++i) {
            const QString name = u"chkDumpOpt"_s + QString::number(i);
            if (frame().isChecked(name))
                captions << frame().text(name);
        }
        return captions;
    }

    ServerScript script_;
    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<TessalyManager> window_;
};

void ServerParametersTest::captionsAndToolTips() {
    QCOMPARE(Form{*window_}.find<QGroupBox>(u"Frame1"_s).title(), u"Log file"_s);
    QCOMPARE(frame().text(u"cmdOk"_s), u"Confirm"_s);
    QCOMPARE(frame().text(u"cmdCancel"_s), u"Cancel"_s);
    QCOMPARE(frame().find<QLineEdit>(u"txtQueryTimeout"_s).toolTip(), u"Timeout on Query connections"_s);
    const auto& levels = frame().find<QComboBox>(u"cmbOutputLevel"_s);
    QStringList items;
    for (int i = 0; i < levels.count(); ++i)
        items << levels.itemText(i);
    QCOMPARE(items, (QStringList{u"Errors"_s, u"Normal"_s, u"Warnings"_s, u"Debug"_s}));
    QVERIFY(!levels.isEditable());
    QStringList labels;
    for (const QLabel* label : frame().window().findChildren<QLabel*>())
        labels << label->text();
    QCOMPARE(labels, (QStringList{u"Logfile level"_s, u"Query Timeout"_s}));
    for (const auto& [index, caption] : QList<std::pair<int, QString>>{
             {0, u"Dump Socket"_s}, {1, u"Dump Association"_s}, {2, u"Dump DUL"_s}, {3, u"Dump VR"_s}})
        QCOMPARE(frame().text(u"chkDumpOpt"_s + QString::number(index)), caption);
}

void ServerParametersTest::tabGoesFromTopToBottom() {
    QStringList names;
    const QWidget* widget = &frame().find(u"cmbOutputLevel"_s);
    for (; frame().window().isAncestorOf(widget); widget = widget->nextInFocusChain()) {
        if ((widget->focusPolicy() & Qt::TabFocus) != 0)
            names << widget->objectName();
    }
    QCOMPARE(names, (QStringList{u"cmbOutputLevel"_s, u"chkDumpOpt0"_s, u"chkDumpOpt1"_s, u"chkDumpOpt2"_s,
                                 u"chkDumpOpt3"_s, u"txtQueryTimeout"_s, u"cmdOk"_s, u"cmdCancel"_s}));
}

void ServerParametersTest::levelsAreStoredByTheirOrder_data() {
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("name");
    QTest::newRow("0") << 0 << u"Errors"_s;
    QTest::newRow("1") << 1 << u"Normal"_s;
    QTest::newRow("2") << 2 << u"Warnings"_s;
    QTest::newRow("3") << 3 << u"Debug"_s;
}

void ServerParametersTest::levelsAreStoredByTheirOrder() {
    QFETCH(int, level);
    QFETCH(QString, name);
    store({level, 0, 30});
    frame().click(u"cmdCancel"_s);
    QCOMPARE(frame().text(u"cmbOutputLevel"_s), name);
    store({(level + 1) % 4, 0, 30});
    frame().choose(u"cmbOutputLevel"_s, name);
    frame().click(u"cmdOk"_s);
    QCOMPARE(stored(), (QStringList{QString::number(level), u"0"_s, u"30"_s}));
}

void ServerParametersTest::aNumberThatIsNoLevelIsNeverStored_data() {
    QTest::addColumn<QString>("number");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QString>("confirmed");
    QTest::newRow("-1") << u"-1"_s << u"Errors"_s << u"0"_s;
    QTest::newRow("4") << u"4"_s << u"Debug"_s << u"3"_s;
    if (!ScratchDatabase::isPostgresql())  // whose column holds no more than an int does
        QTest::newRow("more than an int holds") << u"4294967297"_s << u"Debug"_s << u"3"_s;
}

void ServerParametersTest::aNumberThatIsNoLevelIsNeverStored() {
    QFETCH(QString, number);
    store({number.toLongLong(), 5, 30});
    open();
    QTEST(frame().text(u"cmbOutputLevel"_s), "shown");
    frame().choose(u"cmbOutputLevel"_s, u"Normal"_s);
    frame().click(u"cmdCancel"_s);
    QTEST(frame().text(u"cmbOutputLevel"_s), "shown");
    QCOMPARE(stored().at(0), number);  // looking at it changes nothing
    frame().click(u"cmdOk"_s);
    QTEST(stored().at(0), "confirmed");
    QCOMPARE(stored().mid(1), (QStringList{u"5"_s, u"30"_s}));
}

void ServerParametersTest::dumpOptionsAreBits_data() {
    QTest::addColumn<int>("level");
    QTest::addColumn<QStringList>("captions");
    QTest::newRow("0") << 0 << QStringList{};
    QTest::newRow("1") << 1 << QStringList{u"Dump Socket"_s};
    QTest::newRow("2") << 2 << QStringList{u"Dump DUL"_s};
    QTest::newRow("4") << 4 << QStringList{u"Dump VR"_s};
    QTest::newRow("16") << 16 << QStringList{u"Dump Association"_s};
    QTest::newRow("21") << 21 << QStringList{u"Dump Socket"_s, u"Dump Association"_s, u"Dump VR"_s};
    QTest::newRow("23") << 23
                        << QStringList{u"Dump Socket"_s, u"Dump Association"_s, u"Dump DUL"_s, u"Dump VR"_s};
}

void ServerParametersTest::dumpOptionsAreBits() {
    QFETCH(int, level);
    QFETCH(QStringList, captions);
    store({1, level, 30});
    frame().click(u"cmdCancel"_s);
    QCOMPARE(checked(), captions);
    store({1, 0, 30});
    frame().click(u"cmdOk"_s);
    QCOMPARE(stored().at(1), QString::number(level));
}

void ServerParametersTest::otherBitsAreLost() {
    store({1, 8 + 32 + 128 + 2, 30});
    frame().click(u"cmdCancel"_s);
    QCOMPARE(checked(), QStringList{u"Dump DUL"_s});
    frame().click(u"cmdOk"_s);
    QCOMPARE(stored().at(1), u"2"_s);
}

void ServerParametersTest::theTimeoutIsReadAsANumber_data() {
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("number");
    QTest::newRow("number") << u"45"_s << u"45"_s;
    QTest::newRow("no number") << u"soon"_s << u"0"_s;
    QTest::newRow("nothing") << u""_s << u"0"_s;
    QTest::newRow("leading number") << u"12 seconds"_s << u"12"_s;
    QTest::newRow("number behind a letter") << u"x12"_s << u"0"_s;
    QTest::newRow("blanks") << u"  7 "_s << u"7"_s;
    QTest::newRow("negative") << u"-5"_s << u"-5"_s;
    QTest::newRow("leading zeros") << u"007"_s << u"7"_s;
    QTest::newRow("sign") << u"+7"_s << u"7"_s;
    QTest::newRow("rounded up") << u"2.7"_s << u"3"_s;
    QTest::newRow("half to even") << u"2.5"_s << u"2"_s;
    QTest::newRow("half to even, upwards") << u"3.5"_s << u"4"_s;
    QTest::newRow("negative half to even") << u"-1.5 s"_s << u"-2"_s;
    QTest::newRow("no digit before the point") << u".6"_s << u"1"_s;
    QTest::newRow("exponent") << u"1e3"_s << u"1000"_s;
    QTest::newRow("exponent and more") << u"12E-1 s"_s << u"1"_s;
    QTest::newRow("exponent without a number") << u"4e"_s << u"4"_s;
    QTest::newRow("too small for any number") << u"1e-999"_s << u"0"_s;
    QTest::newRow("comma") << u"2,7"_s << u"2"_s;
    QTest::newRow("hexadecimal") << u"0x10"_s << u"0"_s;
    QTest::newRow("digits of another script") << u"\u0661"_s << u"0"_s;
    QTest::newRow("not a number") << u"nan"_s << u"0"_s;
    QTest::newRow("infinity") << u"inf"_s << u"0"_s;
    QTest::newRow("the greatest") << u"2147483647.4"_s << u"2147483647"_s;
    QTest::newRow("the least") << u"-2147483648.5"_s << u"-2147483648"_s;
}

void ServerParametersTest::theTimeoutIsReadAsANumber() {
    QFETCH(QString, typed);
    frame().type(u"txtQueryTimeout"_s, typed);
    QCOMPARE(frame().text(u"txtQueryTimeout"_s), typed);
    frame().click(u"cmdOk"_s);
    QTEST(stored().at(2), "number");
    QVERIFY(Globals::ConfigChanged());
}

void ServerParametersTest::aTimeoutThatDoesNotFitIsReported_data() {
    QTest::addColumn<QString>("typed");
    for (const auto* text : {"99999999999", "2147483648", "2147483647.5", "-2147483649", "1e10", "1e999",
                             "-1e999 s", "99999999999999999999999999"})
        QTest::newRow(text) << QString::fromLatin1(text);
}

void ServerParametersTest::aTimeoutThatDoesNotFitIsReported() {
    QFETCH(QString, typed);
    const QStringList before = stored();
    frame().choose(u"cmbOutputLevel"_s, u"Debug"_s);
    frame().type(u"txtQueryTimeout"_s, typed);
    BoxScript script;
    script.expect(critical(u"Overflow"_s));
    frame().click(u"cmdOk"_s);
    QVERIFY(script.isDone());
    QCOMPARE(stored(), before);
    QVERIFY(!Globals::ConfigChanged());
    QCOMPARE(frame().text(u"txtQueryTimeout"_s), typed);
    QCOMPARE(takeConsoleEnd(), std::nullopt);
}

void ServerParametersTest::theArrowsStepTheNumber() {
    auto& arrows = frame().find<ui::SpinButtons>(u"UpDown1"_s);
    auto& box = frame().find(u"txtQueryTimeout"_s);
    QCOMPARE(arrows.geometry().topLeft(), box.geometry().topRight() + QPoint(1, 0));
    QCOMPARE(frame().text(u"txtQueryTimeout"_s), u"30"_s);
    arrows.stepUp();
    QCOMPARE(frame().text(u"txtQueryTimeout"_s), u"31"_s);
    QTest::keyClick(&box, Qt::Key_Down);
    QTest::keyClick(&box, Qt::Key_Down);
    QCOMPARE(frame().text(u"txtQueryTimeout"_s), u"29"_s);
    frame().type(u"txtQueryTimeout"_s, u"soon"_s);
    arrows.stepDown();
    QCOMPARE(frame().text(u"txtQueryTimeout"_s), u"0"_s);
    frame().type(u"txtQueryTimeout"_s, u"2147483647"_s);
    arrows.stepUp();
    QCOMPARE(frame().text(u"txtQueryTimeout"_s), u"3600"_s);
}

void ServerParametersTest::confirmWritesEveryRow() {
    database_->run(u"INSERT INTO DicomServer VALUES (3, 7, 99)"_s);
    frame().choose(u"cmbOutputLevel"_s, u"Warnings"_s);
    frame().check(u"chkDumpOpt1"_s, true);
    script_.calls.clear();
    frame().click(u"cmdOk"_s);
    QCOMPARE(database_->rows(u"SELECT * FROM DicomServer"_s),
             (QList<QStringList>{{u"2"_s, u"16"_s, u"30"_s}, {u"2"_s, u"16"_s, u"30"_s}}));
    QVERIFY(Globals::ConfigChanged());
    QCOMPARE(script_.calls, QStringList{});  // the server is not told
}

void ServerParametersTest::cancelPutsTheStoredValuesBack() {
    store({3, 21, 12});
    open();
    frame().choose(u"cmbOutputLevel"_s, u"Errors"_s);
    frame().check(u"chkDumpOpt2"_s, true);
    frame().check(u"chkDumpOpt0"_s, false);
    frame().type(u"txtQueryTimeout"_s, u"77"_s);
    frame().click(u"cmdCancel"_s);
    QCOMPARE(frame().text(u"cmbOutputLevel"_s), u"Debug"_s);
    QCOMPARE(checked(), (QStringList{u"Dump Socket"_s, u"Dump Association"_s, u"Dump VR"_s}));
    QCOMPARE(frame().text(u"txtQueryTimeout"_s), u"12"_s);
    QVERIFY(!Globals::ConfigChanged());
}

void ServerParametersTest::cancelBringsTheServersBoxesUpToDate() {
    const Form window{*window_};
    script_.service = true;
    frame().click(u"cmdCancel"_s);
    QVERIFY(window.isChecked(u"chkService"_s));
    script_.service = false;
    frame().click(u"cmdCancel"_s);
    QVERIFY(!window.isChecked(u"chkService"_s));
    script_.failing << u"IsService"_s;
    script_.service = true;
    const BoxScript noBox;
    frame().click(u"cmdCancel"_s);
    QVERIFY(!window.isChecked(u"chkService"_s));
    window_->DropServer();
    frame().click(u"cmdCancel"_s);
    QCOMPARE(window.text(u"cmdLoad"_s), u"Run"_s);
    QVERIFY(!window.find(u"chkService"_s).isEnabled());
}

void ServerParametersTest::withoutARecordNothingIsFilled() {
    frame().type(u"txtQueryTimeout"_s, u"77"_s);
    frame().check(u"chkDumpOpt3"_s, true);
    database_->run(u"DELETE FROM DicomServer"_s);
    script_.service = true;
    BoxScript script;
    script.expect(critical(u"Cannot find server configuration"_s));
    frame().click(u"cmdCancel"_s);
    QVERIFY(script.isDone());
    QVERIFY(Form{*window_}.isChecked(u"chkService"_s));  // that is the server's, not the record's
    QCOMPARE(frame().text(u"txtQueryTimeout"_s), u"77"_s);
    QCOMPARE(checked(), QStringList{u"Dump VR"_s});
    frame().click(u"cmdOk"_s);
    QCOMPARE(database_->value(u"SELECT count(*) FROM DicomServer"_s), u"0"_s);
    QVERIFY(Globals::ConfigChanged());

    script.expect(critical(u"Cannot find server configuration"_s));
    open();
    QVERIFY(script.isDone());
}

void ServerParametersTest::aFailedUpdateChangesNothing() {
    database_->failOn(u"DicomServer"_s, u"UPDATE"_s);
    frame().type(u"txtQueryTimeout"_s, u"77"_s);
    BoxScript script;
    script.expect(critical(BoxScript::AnyText));
    frame().click(u"cmdOk"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(ScratchDatabase::Failure));
    QVERIFY(!Globals::ConfigChanged());
    QCOMPARE(stored(), (QStringList{u"1"_s, u"0"_s, u"30"_s}));
    QCOMPARE(frame().text(u"txtQueryTimeout"_s), u"77"_s);
    Globals::setConfigChanged(true);
    script.expect(critical(BoxScript::AnyText));
    frame().click(u"cmdOk"_s);
    QVERIFY(Globals::ConfigChanged());  // left as it was
}

void ServerParametersTest::aFailedLoadDoesNotEndTheConsole() {
    database_->run(u"DROP TABLE DicomServer"_s);
    BoxScript script;
    open();  // without a word
    script.expect(critical(BoxScript::AnyText));
    frame().click(u"cmdCancel"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(database_->noTable(u"DicomServer"_s)));
    QCOMPARE(takeConsoleEnd(), std::nullopt);
}

QTEST_MAIN(ServerParametersTest)
#include "tst_serverparameters.moc"
