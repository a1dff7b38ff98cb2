#include <QTest>
#include <QTreeWidget>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "tests/support/Console.h"
#include "tests/support/EditorTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const QString Unchecked = u"Defined nodes (Unchecked)"_s;
const QString Checked = u"Accepted nodes"_s;
const QString Question = u"Are you sure you want to selected nodes for port 104?"_s;

/// Selects rows beside those that are selected, as a user does with Ctrl.
void select(const Form& form, const QString& list, const QStringList& names) {
    auto& view = form.find<QTreeWidget>(list);
    for (const QString& name : names) {
        const auto found = view.findItems(name, Qt::MatchExactly | Qt::MatchCaseSensitive);
        QCOMPARE(found.size(), 1);
        QTest::mouseClick(view.viewport(), Qt::LeftButton, Qt::ControlModifier,
                          view.visualItemRect(found.first()).center());
    }
}

}  // namespace

class PortNodesTest : public EditorTest {
    Q_OBJECT

  public:
    PortNodesTest()
        : EditorTest(Page::LocalServer, {.list = u"lstPortNodes"_s,
                                         .dialog = u"PortNodesSelection"_s,
                                         .add = u"cmdAddPortNode"_s,
                                         .remove = u"cmdDelPortNode"_s,
                                         .table = u"PortRemoteNodes"_s,
                                         .keyColumn = u"Port, Name"_s}) {}

  protected:
    void seed() const override {
        database().run(u"DELETE FROM Port"_s);
        database().run(u"INSERT INTO Port VALUES ('104', 'STORESCP', 10, '/one', 1, 0, 1)"_s);
        database().run(u"INSERT INTO Port VALUES ('105', 'OTHER', 20, '/two', 0, 0, 1)"_s);
        database().run(u"INSERT INTO Port VALUES ('106', 'THIRD', 20, '/three', 0, 0, 1)"_s);
        for (const auto& name : {u"delta"_s, u"Alpha"_s, u"charlie"_s, u"Bravo"_s, u"echo"_s})
            database().run(u"INSERT INTO DicomNodes (Name, AETitle) VALUES (?, ?)"_s, {name, name.toUpper()});
        for (const auto& name : {u"charlie"_s, u"Alpha"_s, u"gone"_s, u"Bravo"_s})
            database().run(u"INSERT INTO PortRemoteNodes VALUES ('104', ?)"_s, {name});
        database().run(u"INSERT INTO PortRemoteNodes VALUES ('105', 'echo')"_s);
    }

  private:
    [[nodiscard]] QStringList acceptedNames() const {
        QStringList names;
        for (const QStringList& row : window().rows(u"lstPortNodes"_s))
            names << row.first();
        return names;
    }

  private Q_SLOTS:
    void listShowsTheNodesThatExist();
    void aPortThatDoesNotCheckStillListsItsNodes();
    void clicksAndKeysShowAnotherPort();
    void oneMoveIsOneLoad();
    void aVanishedPortKeepsLabelAndList();
    void aFailureAfterTheFlagKeepsLabelAndList();
    void thePickerOffersWhatIsNotAccepted();
    void severalNodesAreAddedAtOnce();
    void aNodeThatWasAcceptedMeanwhileStandsOnce();
    void thePickerOpensEmptyAndStillReloads();
    void cancelAddsNothing();
    void keysAndDoubleClickConfirmThePicker();
    void aFailureKeepsWhatWasAddedBefore();
    void aPickerThatCannotBeFilledIsNotShown();
    void addWithoutAPortEndsTheConsole();
    void severalNodesAreDeletedAtOnce();
    void deleteOfNothingStillMarks();
    void deleteWithNoChangesNothing();
    void aFailedDeleteTakesTheOthersBack();
    void deleteWithoutAPortIsReported();
    void textComesBackUnchanged_data() { addAwkwardTexts(); }
    void textComesBackUnchanged();
    void keysWorkOnTheAcceptedNodes();
};

void PortNodesTest::listShowsTheNodesThatExist() {
    QCOMPARE(window().headers(u"lstPortNodes"_s), (QStringList{u"Name"_s, u"AETitle"_s}));
    QCOMPARE(window().rows(u"lstPortNodes"_s),
             (QList<QStringList>{
                 {u"Alpha"_s, u"ALPHA"_s}, {u"Bravo"_s, u"BRAVO"_s}, {u"charlie"_s, u"CHARLIE"_s}}));
    QCOMPARE(window().text(u"lblAcceptedNodes"_s), Checked);
    QVERIFY(window().selectedRows(u"lstPortNodes"_s).isEmpty());
}

void PortNodesTest::aPortThatDoesNotCheckStillListsItsNodes() {
    window().selectRow(u"lstPorts"_s, u"105"_s);
    QCOMPARE(window().text(u"lblAcceptedNodes"_s), Unchecked);
    QCOMPARE(acceptedNames(), QStringList{u"echo"_s});
    // A table of another make may leave the flag open, which is no check either.
    database().define(u"CREATE TABLE Other AS SELECT * FROM Port"_s);
    database().run(u"DROP TABLE Port"_s);
    database().run(u"ALTER TABLE Other RENAME TO Port"_s);
    database().run(u"UPDATE Port SET CheckCallingAE=NULL WHERE Port='106'"_s);
    window().selectRow(u"lstPorts"_s, u"106"_s);
    QCOMPARE(window().text(u"lblAcceptedNodes"_s), Unchecked);
    QVERIFY(acceptedNames().isEmpty());
}

void PortNodesTest::clicksAndKeysShowAnotherPort() {
    auto& ports = window().find<QAbstractItemView>(u"lstPorts"_s);
    window().selectRow(u"lstPorts"_s, u"105"_s);
    QCOMPARE(acceptedNames(), QStringList{u"echo"_s});
    QTest::keyClick(&ports, Qt::Key_Up);
    QCOMPARE(acceptedNames().size(), 3);
    database().run(u"DELETE FROM PortRemoteNodes WHERE Name='Alpha'"_s);
    window().selectRow(u"lstPorts"_s, u"104"_s);  // where he is already
    QCOMPARE(acceptedNames().size(), 2);
}

void PortNodesTest::oneMoveIsOneLoad() {
    // Every load of the accepted nodes says so once their ports have vanished.
    database().define(u"CREATE TABLE Kept AS SELECT * FROM Port"_s);
    database().run(u"DELETE FROM Port"_s);
    auto& ports = window().find<QAbstractItemView>(u"lstPorts"_s);
    BoxScript script;
    const auto oneLoad = [&](auto move) {
        script.expect(plain(BoxScript::AnyText));
        move();
        QVERIFY(script.isDone());
    };
    oneLoad([&] { QTest::keyClick(&ports, Qt::Key_Down); });
    oneLoad([&] { window().selectRow(u"lstPorts"_s, u"105"_s); });
    oneLoad([&] { window().selectRow(u"lstPorts"_s, u"106"_s); });
    oneLoad([&] { window().selectRow(u"lstPorts"_s, u"106"_s); });
    oneLoad([&] { manager().LoadPorts(); });  // no port, no selection
    database().run(u"INSERT INTO Port SELECT * FROM Kept"_s);
    database().run(u"DROP TABLE DicomNodes"_s);
    oneLoad([&] { manager().LoadPorts(); });
}

void PortNodesTest::aVanishedPortKeepsLabelAndList() {
    database().run(u"DELETE FROM Port WHERE Port='105'"_s);
    answering({plain(BoxScript::AnyText)}, [&] { window().selectRow(u"lstPorts"_s, u"105"_s); });
    QCOMPARE(window().text(u"lblAcceptedNodes"_s), Checked);
    QCOMPARE(acceptedNames().size(), 3);
}

void PortNodesTest::aFailureAfterTheFlagKeepsLabelAndList() {
    database().run(u"DROP TABLE DicomNodes"_s);
    answering({plain(containing(database().noTable(u"DicomNodes"_s)))},
              [&] { window().selectRow(u"lstPorts"_s, u"105"_s); });
    QCOMPARE(window().text(u"lblAcceptedNodes"_s), Checked);
    QCOMPARE(acceptedNames().size(), 3);
}

void PortNodesTest::thePickerOffersWhatIsNotAccepted() {
    edit({}, [](Form form) {
        QCOMPARE(form.window().windowTitle(), u"Nodes selection"_s);
        QCOMPARE(form.headers(u"lstNodeSelection"_s), (QStringList{u"Name"_s, u"AETitle"_s}));
        QCOMPARE(form.rows(u"lstNodeSelection"_s),
                 (QList<QStringList>{{u"delta"_s, u"DELTA"_s}, {u"echo"_s, u"ECHO"_s}}));
        QVERIFY(form.selectedRows(u"lstNodeSelection"_s).isEmpty());
        form.click(u"cmdCancel"_s);
    });
}

void PortNodesTest::severalNodesAreAddedAtOnce() {
    window().selectRow(u"lstPorts"_s, u"105"_s);
    edit({}, [](Form form) {
        select(form, u"lstNodeSelection"_s, {u"delta"_s, u"Alpha"_s, u"Bravo"_s});
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(acceptedNames(), (QStringList{u"Alpha"_s, u"Bravo"_s, u"delta"_s, u"echo"_s}));
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Port='105'"_s), u"4"_s);
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Port='104'"_s), u"4"_s);
    QVERIFY(Globals::ConfigChanged());
}

void PortNodesTest::aNodeThatWasAcceptedMeanwhileStandsOnce() {
    edit({}, [this](Form form) {
        database().run(u"INSERT INTO PortRemoteNodes VALUES ('104', 'DELTA')"_s);
        select(form, u"lstNodeSelection"_s, {u"delta"_s, u"echo"_s});
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(acceptedNames(), (QStringList{u"Alpha"_s, u"Bravo"_s, u"charlie"_s, u"delta"_s, u"echo"_s}));
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Port='104'"_s), u"6"_s);
}

void PortNodesTest::thePickerOpensEmptyAndStillReloads() {
    database().run(u"INSERT INTO PortRemoteNodes VALUES ('104', 'delta'), ('104', 'echo')"_s);
    edit({}, [](Form form) {
        QVERIFY(form.rows(u"lstNodeSelection"_s).isEmpty());
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(acceptedNames().size(), 5);
    QVERIFY(!Globals::ConfigChanged());
}

void PortNodesTest::cancelAddsNothing() {
    const auto before = storedRows();
    edit({}, [](Form form) {
        select(form, u"lstNodeSelection"_s, {u"delta"_s});
        QTest::keyClick(&form.window(), Qt::Key_Escape);
    });
    QCOMPARE(storedRows(), before);
    QVERIFY(!Globals::ConfigChanged());
}

void PortNodesTest::keysAndDoubleClickConfirmThePicker() {
    edit({}, [](Form form) {
        auto& list = form.find<QTreeWidget>(u"lstNodeSelection"_s);
        QTest::keyClick(&list, Qt::Key_Down);
        QTest::keyClick(&list, Qt::Key_Down);
        QTest::keyClick(&list, Qt::Key_Return);
    });
    QVERIFY(acceptedNames().contains(u"echo"_s));
    edit({}, [](Form form) {
        auto& list = form.find<QTreeWidget>(u"lstNodeSelection"_s);
        const QPoint cell = list.visualItemRect(list.topLevelItem(0)).center();
        QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, cell);
        QTest::mouseDClick(list.viewport(), Qt::LeftButton, {}, cell);
    });
    QVERIFY(acceptedNames().contains(u"delta"_s));
}

void PortNodesTest::aFailureKeepsWhatWasAddedBefore() {
    database().failOn(u"PortRemoteNodes"_s, u"INSERT"_s, ScratchDatabase::Failure, u"NEW.Name='Bravo'"_s);
    window().selectRow(u"lstPorts"_s, u"105"_s);
    edit({}, {critical(containing(ScratchDatabase::Failure))}, [](Form form) {
        select(form, u"lstNodeSelection"_s, {u"delta"_s, u"Bravo"_s, u"Alpha"_s});
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        form.click(u"cmdCancel"_s);
    });
    // From the first row to the last: Alpha came before the failure, delta would have come after.
    QCOMPARE(database().rows(u"SELECT Name FROM PortRemoteNodes WHERE Port='105' ORDER BY Name"_s),
             (QList<QStringList>{{u"Alpha"_s}, {u"echo"_s}}));
    QCOMPARE(acceptedNames(), QStringList{u"echo"_s});  // not reloaded
    QVERIFY(Globals::ConfigChanged());
}

void PortNodesTest::aPickerThatCannotBeFilledIsNotShown() {
    database().run(u"DROP TABLE DicomNodes"_s);
    answering({plain(BoxScript::AnyText)}, [&] { window().click(u"cmdAddPortNode"_s); });
}

void PortNodesTest::addWithoutAPortEndsTheConsole() {
    database().run(u"DELETE FROM Port"_s);
    BoxScript script;
    script.expect(plain(u"No item is selected"_s));
    manager().LoadPorts();
    script.expect(critical(u"No item is selected"_s));
    window().click(u"cmdAddPortNode"_s);
    QVERIFY(script.isDone());
    QCOMPARE(takeConsoleEnd(), std::optional{1});
}

void PortNodesTest::severalNodesAreDeletedAtOnce() {
    select(window(), u"lstPortNodes"_s, {u"charlie"_s, u"Alpha"_s});
    answering({yesNo(Question, QMessageBox::Yes)}, [&] { window().click(u"cmdDelPortNode"_s); });
    QCOMPARE(acceptedNames(), QStringList{u"Bravo"_s});
    // What is not listed cannot be removed, and another port's nodes are its own.
    QCOMPARE(storedRows(),
             (QList<QStringList>{{u"104"_s, u"Bravo"_s}, {u"104"_s, u"gone"_s}, {u"105"_s, u"echo"_s}}));
    QVERIFY(Globals::ConfigChanged());
}

void PortNodesTest::deleteOfNothingStillMarks() {
    const auto before = storedRows();
    answering({yesNo(Question, QMessageBox::Yes)}, [&] { window().click(u"cmdDelPortNode"_s); });
    QCOMPARE(storedRows(), before);
    QVERIFY(Globals::ConfigChanged());
}

void PortNodesTest::deleteWithNoChangesNothing() {
    const auto before = storedRows();
    select(window(), u"lstPortNodes"_s, {u"Alpha"_s});
    answering({yesNo(Question, QMessageBox::No)}, [&] { window().click(u"cmdDelPortNode"_s); });
    QCOMPARE(storedRows(), before);
    QCOMPARE(window().selectedRows(u"lstPortNodes"_s), QStringList{u"Alpha"_s});  // not reloaded
    QVERIFY(!Globals::ConfigChanged());
}

void PortNodesTest::aFailedDeleteTakesTheOthersBack() {
    database().failOn(u"PortRemoteNodes"_s, u"DELETE"_s, ScratchDatabase::Failure, u"OLD.Name='charlie'"_s);
    const auto before = storedRows();
    select(window(), u"lstPortNodes"_s, {u"Alpha"_s, u"Bravo"_s, u"charlie"_s});
    answering({yesNo(Question, QMessageBox::Yes), critical(containing(ScratchDatabase::Failure))},
              [&] { window().click(u"cmdDelPortNode"_s); });
    QCOMPARE(storedRows(), before);
    QCOMPARE(window().selectedRows(u"lstPortNodes"_s).size(), 3);  // not reloaded
    QVERIFY(Globals::ConfigChanged());                             // marked by each that went
}

void PortNodesTest::deleteWithoutAPortIsReported() {
    database().run(u"DELETE FROM Port"_s);
    BoxScript script;
    script.expect(plain(u"No item is selected"_s));
    manager().LoadPorts();
    script.expect(critical(u"No item is selected"_s));
    window().click(u"cmdDelPortNode"_s);
    QVERIFY(script.isDone());
    QVERIFY(!takeConsoleEnd());
}

void PortNodesTest::textComesBackUnchanged() {
    QFETCH(QString, text);
    database().run(u"INSERT INTO DicomNodes (Name, AETitle) VALUES (?, ?)"_s, {text, text});
    database().run(u"INSERT INTO Port VALUES (?, 'AWKWARD', 1, '/', 1, 0, 1)"_s, {text});
    manager().LoadPorts();
    window().selectRow(u"lstPorts"_s, text);
    edit({}, [&](Form form) {
        select(form, u"lstNodeSelection"_s, {text});
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(database().rows(u"SELECT Name FROM PortRemoteNodes WHERE Port=?"_s, {text}),
             (QList<QStringList>{{text}}));
    QCOMPARE(window().rows(u"lstPortNodes"_s), (QList<QStringList>{{text, text}}));
    select(window(), u"lstPortNodes"_s, {text});
    answering(
        {yesNo(u"Are you sure you want to selected nodes for port "_s + text + u"?"_s, QMessageBox::Yes)},
        [this] { window().click(u"cmdDelPortNode"_s); });
    QCOMPARE(database().value(u"SELECT count(*) FROM PortRemoteNodes WHERE Port=?"_s, {text}), u"0"_s);
}

void PortNodesTest::keysWorkOnTheAcceptedNodes() {
    auto& list = window().find<QTreeWidget>(u"lstPortNodes"_s);
    list.setFocus();
    QTest::keyClick(&list, Qt::Key_A, Qt::ControlModifier);
    QCOMPARE(window().selectedRows(u"lstPortNodes"_s).size(), 3);
    list.setCurrentItem(list.topLevelItem(0), 0, QItemSelectionModel::NoUpdate);
    answering({yesNo(Question, QMessageBox::Yes)}, [&] { QTest::keyClick(&list, Qt::Key_Delete); });
    QVERIFY(acceptedNames().isEmpty());
}

QTEST_MAIN(PortNodesTest)
#include "tst_portnodes.moc"
