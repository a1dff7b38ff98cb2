#include <QDir>
#include <QLineEdit>
#include <QTest>

#include "console/app/TessalyManager.h"
#include "tests/console/network/PortEditor.h"
#include "tests/support/Console.h"
#include "tests/support/WindowTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

/// Listening ports in a database that is not as the console leaves it, and paths that do not fit.
class PortFaultsTest : public WindowTest {
    Q_OBJECT

  public:
    PortFaultsTest() : WindowTest(Page::LocalServer) {}

  protected:
    void seed() const override {
        database().run(u"DELETE FROM Port"_s);
        database().run(u"INSERT INTO Port VALUES ('104', 'STORESCP', 10, '/one', 0, 0, 1)"_s);
        database().run(u"INSERT INTO DicomNodes (Name, AETitle) VALUES ('a', 'A'), ('b', 'B'), ('c', 'C')"_s);
        database().run(u"INSERT INTO PortRemoteNodes VALUES ('104', 'a'), ('104', 'c')"_s);
    }

  private Q_SLOTS:
    void aPortIsAddedOverLeftOverNodes();
    void aPortTypedWithBlanksIsAddedAgain();
    void aVanishedPortIsInsertedOverItsOwnNodes();
    void aPortGetsANumberWithLeftOverNodes();
    void aVanishedPortIsInsertedOverLeftOverNodesOfAnotherNumber();
    void aPortWrittenInOtherLettersKeepsItsNodes();
    void leftOverNodesStayWhenTheSaveFails();
    void leftOverNodesStayWhenTheRenumberingFails_data();
    void leftOverNodesStayWhenTheRenumberingFails();
    void aPortThatCannotBeReadOpensNoDialog();
    void aPathThatDoesNotFitIsNotTaken();

  private:
    /// Adds a port with that number, a title and a folder.
    void add(const QString& port) const;
    /// Gives the selected port another number.
    void renumber(const QString& port) const;
    [[nodiscard]] QList<QStringList> acceptedOn(const QString& port) const {
        return database().rows(u"SELECT Name FROM PortRemoteNodes WHERE Port=? ORDER BY Name"_s, {port});
    }
    inline static const QList<QStringList> Everybody{{u"a"_s}, {u"b"_s}, {u"c"_s}};
};

void PortFaultsTest::add(const QString& port) const {
    BoxScript script;
    script.drive(u"DicomPort"_s, [&](Form form) {
        fillPort(form, port, u"NEW"_s);
        form.click(u"cmdOk"_s);
    });
    expectFolder(script, database().imageRoot());
    window().click(u"cmdAddPort"_s);
    QVERIFY(script.isDone());
}

void PortFaultsTest::renumber(const QString& port) const {
    BoxScript script;
    script.drive(u"DicomPort"_s, [&](Form form) {
        form.type(u"txtPort"_s, port);
        form.click(u"cmdOk"_s);
    });
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
}

void PortFaultsTest::aPortIsAddedOverLeftOverNodes() {
    database().run(u"INSERT INTO PortRemoteNodes VALUES ('9', 'b'), ('9', 'gone')"_s);
    add(u"9"_s);
    QCOMPARE(database().value(u"SELECT AETitle FROM Port WHERE Port='9'"_s), u"NEW"_s);
    // Every node once, and what no step names stays.
    QCOMPARE(acceptedOn(u"9"_s), (QList<QStringList>{{u"a"_s}, {u"b"_s}, {u"c"_s}, {u"gone"_s}}));
    QCOMPARE(acceptedOn(u"104"_s), (QList<QStringList>{{u"a"_s}, {u"c"_s}}));
}

/// Its row has the number without the blanks and its accepted nodes with them: they stay when it is deleted.
void PortFaultsTest::aPortTypedWithBlanksIsAddedAgain() {
    for (int round = 0; round < 2; ++round) {
        add(u" 9 "_s);
        QCOMPARE(acceptedOn(u" 9 "_s), Everybody);
        window().selectRow(u"lstPorts"_s, u"9"_s);
        BoxScript script;
        script.expect(yesNo(BoxScript::AnyText, QMessageBox::Yes));
        window().click(u"cmdDelPort"_s);
        QVERIFY(script.isDone());
        QCOMPARE(database().value(u"SELECT count(*) FROM Port WHERE Port='9'"_s), u"0"_s);
    }
}

void PortFaultsTest::aVanishedPortIsInsertedOverItsOwnNodes() {
    database().run(u"DELETE FROM Port"_s);
    database().run(u"INSERT INTO PortRemoteNodes VALUES ('104', 'gone')"_s);
    modifyVanishedPort(window(), database().imageRoot(), u"104"_s, u"AGAIN"_s);
    QCOMPARE(database().value(u"SELECT AETitle FROM Port WHERE Port='104'"_s), u"AGAIN"_s);
    QCOMPARE(acceptedOn(u"104"_s), (QList<QStringList>{{u"a"_s}, {u"b"_s}, {u"c"_s}, {u"gone"_s}}));
}

void PortFaultsTest::aPortGetsANumberWithLeftOverNodes() {
    database().run(u"INSERT INTO PortRemoteNodes VALUES ('105', 'A'), ('105', 'b'), ('105', 'gone')"_s);
    renumber(u" 105 "_s);
    QCOMPARE(database().value(u"SELECT Port FROM Port"_s), u"105"_s);
    // Whom it accepted before, each once and as it was written there; and what was left over beside them.
    QCOMPARE(acceptedOn(u"105"_s), (QList<QStringList>{{u"a"_s}, {u"b"_s}, {u"c"_s}, {u"gone"_s}}));
    QCOMPARE(acceptedOn(u"104"_s), QList<QStringList>{});
}

/// It is inserted with every node, and then its old number's rows come on top.
void PortFaultsTest::aVanishedPortIsInsertedOverLeftOverNodesOfAnotherNumber() {
    database().run(u"DELETE FROM Port"_s);
    database().run(
        u"INSERT INTO PortRemoteNodes VALUES ('104', 'gone'), ('105', 'a'), ('105', 'elsewhere')"_s);
    modifyVanishedPort(window(), database().imageRoot(), u"105"_s, u"AGAIN"_s);
    QCOMPARE(acceptedOn(u"105"_s),
             (QList<QStringList>{{u"a"_s}, {u"b"_s}, {u"c"_s}, {u"elsewhere"_s}, {u"gone"_s}}));
    QCOMPARE(acceptedOn(u"104"_s), QList<QStringList>{});
}

/// The database compares ports without case: the nodes under the new text are the port's own.
void PortFaultsTest::aPortWrittenInOtherLettersKeepsItsNodes() {
    database().run(u"UPDATE Port SET Port='dicom'"_s);
    database().run(u"UPDATE PortRemoteNodes SET Port='dicom'"_s);
    manager().LoadPorts();
    renumber(u"DICOM "_s);
    QCOMPARE(database().value(u"SELECT Port FROM Port"_s), u"DICOM"_s);
    QCOMPARE(acceptedOn(u"DICOM"_s), (QList<QStringList>{{u"a"_s}, {u"c"_s}}));
}

void PortFaultsTest::leftOverNodesStayWhenTheSaveFails() {
    database().run(u"INSERT INTO PortRemoteNodes VALUES ('9', 'b')"_s);
    database().failOn(u"PortRemoteNodes"_s, u"INSERT"_s, ScratchDatabase::Failure, u"NEW.Name='c'"_s);
    BoxScript script;
    script.drive(u"DicomPort"_s, [](Form form) {
        fillPort(form, u"9"_s, u"NEW"_s);
        form.click(u"cmdOk"_s);
        form.click(u"cmdCancel"_s);
    });
    expectFolder(script, database().imageRoot());
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdAddPort"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().back().text.contains(ScratchDatabase::Failure));
    QCOMPARE(acceptedOn(u"9"_s), (QList<QStringList>{{u"b"_s}}));
    QCOMPARE(database().value(u"SELECT count(*) FROM Port"_s), u"1"_s);
}

void PortFaultsTest::leftOverNodesStayWhenTheRenumberingFails_data() {
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("condition");
    QTest::newRow("as a left-over row goes") << u"DELETE"_s << u"OLD.Port='105'"_s;
    QTest::newRow("as the rows are moved") << u"UPDATE"_s << u"NEW.Name='c'"_s;
}

void PortFaultsTest::leftOverNodesStayWhenTheRenumberingFails() {
    QFETCH(QString, operation);
    QFETCH(QString, condition);
    database().run(u"INSERT INTO PortRemoteNodes VALUES ('105', 'A'), ('105', 'b')"_s);
    database().failOn(u"PortRemoteNodes"_s, operation, ScratchDatabase::Failure, condition);
    BoxScript script;
    script.drive(u"DicomPort"_s, [](Form form) {
        form.type(u"txtPort"_s, u"105"_s);
        form.click(u"cmdOk"_s);
        form.click(u"cmdCancel"_s);
    });
    script.expect(critical(containing(ScratchDatabase::Failure)));
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
    QCOMPARE(acceptedOn(u"105"_s), (QList<QStringList>{{u"A"_s}, {u"b"_s}}));
    QCOMPARE(acceptedOn(u"104"_s), (QList<QStringList>{{u"a"_s}, {u"c"_s}}));
    QCOMPARE(database().value(u"SELECT Port FROM Port"_s), u"104"_s);
}

void PortFaultsTest::aPortThatCannotBeReadOpensNoDialog() {
    database().run(u"ALTER TABLE Port RENAME TO Elsewhere"_s);
    BoxScript script;
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().back().text.contains(database().noTable(u"Port"_s)));
    QVERIFY(!takeConsoleEnd());
}

void PortFaultsTest::aPathThatDoesNotFitIsNotTaken() {
    constexpr int Limit = 255;
    const QString part = u"/"_s + QString{100, u'p'};
    const QString tooLong = database().imageRoot() + part + part + part;
    const QString longest =
        database().imageRoot() + part + u"/"_s + QString{Limit - database().imageRoot().size() - 102, u'q'};
    QVERIFY(QDir{}.mkpath(tooLong) && QDir{}.mkpath(longest));
    QCOMPARE(longest.size(), Limit);
    BoxScript script;
    script.drive(u"DicomPort"_s, [&](Form form) {
        form.click(u"cmdRootDir"_s);
        QCOMPARE(form.text(u"txtRoot"_s), u"/one"_s);
        form.click(u"cmdRootDir"_s);
        QCOMPARE(form.text(u"txtRoot"_s), longest);
        form.click(u"cmdOk"_s);
    });
    expectFolder(script, tooLong);
    script.expect(plain(u"The path of this folder is longer than 255 characters."_s));
    expectFolder(script, longest);
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT Root FROM Port"_s), longest);
}

QTEST_MAIN(PortFaultsTest)
#include "tst_portfaults.moc"
