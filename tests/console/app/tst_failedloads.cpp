#include <QTabWidget>
#include <QTest>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "tests/support/WindowTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

/// What is done to a table (%1) after the window has shown it.
struct Fault {
    const char* name;
    QStringList cause;
    QString says;
    QString remedy;  ///< where the fault would outlive the test's tables
};

QList<Fault> faults() {
    const bool server = ScratchDatabase::isPostgresql();
    const QString rename = u"ALTER TABLE %1 RENAME TO Kept"_s;
    const QString view = u"CREATE VIEW %1 AS SELECT * FROM Kept WHERE "_s;
    return {
        {"renamed", {rename}, server ? u"relation \"%1\" does not exist"_s : u"no such table: %1"_s, {}},
        {"locked", server ? QStringList{u"BEGIN"_s, u"LOCK TABLE %1"_s} : QStringList{u"BEGIN EXCLUSIVE"_s},
         server ? u"due to lock timeout"_s : u"database is locked"_s, u"ROLLBACK"_s},
        {"a view that cannot be computed",
         {rename, view + (server ? u"1/0 > 0"_s : u"abs(-9223372036854775807 - 1) > 0"_s)},
         server ? u"division by zero"_s : u"integer overflow"_s,
         {}}};
}

}  // namespace

/// Lists whose statement fails when its first row is looked for.
class FailedLoadsTest : public WindowTest {
    Q_OBJECT

  public:
    FailedLoadsTest() : WindowTest(Page::Nodes) {}

  protected:
    void seed() const override {
        for (const auto* row :
             {"DicomNodes (Name, AETitle) VALUES ('ct', 'CT'), ('mr', 'MR')",
              "FtpNodes (Name) VALUES ('alpha'), ('beta')",
              "Port VALUES ('11113', 'SECOND', 10, '/two', 1, 1, 1)",
              "PortRemoteNodes VALUES ('11112', 'ct'), ('11112', 'mr'), ('11113', 'ct'), ('11113', 'mr')",
              "Users (UserName, UserPwd) VALUES ('zoe', 'x')", "Printers (Name) VALUES ('laser'), ('wet')"})
            database().run(u"INSERT INTO "_s + QString::fromLatin1(row));
    }

  private Q_SLOTS:
    void aListStaysAsItWas_data();
    void aListStaysAsItWas();
    void thePrintersListIsEmptiedFirst();

  private:
    /// Lets the console wait for a lock as short as can be said.
    void waitForNoLock() const;
};

void FailedLoadsTest::waitForNoLock() const {
    db::Connection& connection = Globals::DbConnection();
    connection.close();
    if (ScratchDatabase::isPostgresql()) {
        database().setDataSource(database().dataSource({u"ConnSettings=SET lock_timeout TO 1"_s}));
    } else {
        // Without a write-ahead log, so that a lock keeps readers out too.
        database().run(u"PRAGMA journal_mode=DELETE"_s);
        connection.setConnectString("DSN=DicomFDB;JournalMode=DELETE;Timeout=1");
    }
    connection.establish();
}

void FailedLoadsTest::aListStaysAsItWas_data() {
    QTest::addColumn<QString>("list");
    QTest::addColumn<Page>("page");
    QTest::addColumn<QString>("table");
    QTest::addColumn<int>("fault");
    const auto add = [](const char* list, Page page, const QString& table) {
        for (int i = 0; i < faults().size(); ++i)
            QTest::addRow("%s, %s", list, faults().at(i).name)
                << QString::fromLatin1(list) << page << table << i;
    };
    add("lstNodes", Page::Nodes, u"DicomNodes"_s);
    add("lstPorts", Page::LocalServer, u"Port"_s);
    add("lstPortNodes", Page::LocalServer, u"DicomNodes"_s);
    add("lstFTPNodes", Page::FtpNodes, u"FtpNodes"_s);
    add("lstUsers", Page::Users, u"Users"_s);
}

void FailedLoadsTest::aListStaysAsItWas() {
    QFETCH(QString, list);
    QFETCH(Page, page);
    QFETCH(QString, table);
    QFETCH(int, fault);
    const auto load = [&] {
        if (list == u"lstNodes"_s)
            manager().LoadNodes();
        else if (list == u"lstPorts"_s)
            manager().LoadPorts();
        else if (list == u"lstPortNodes"_s)
            manager().LoadPortNodes(u"11113"_s);
        else if (list == u"lstFTPNodes"_s)
            manager().LoadFTPNodes();
        else
            manager().LoadUsers();
    };
    waitForNoLock();
    load();
    const QList<QStringList> rows = window().rows(list);
    QCOMPARE(rows.size(), 2);
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(static_cast<int>(page));
    window().selectRow(list, rows.at(1).front());

    const Fault done = faults().at(fault);
    for (const QString& statement : done.cause)
        database().run(statement.contains(u'%') ? statement.arg(table) : statement);
    BoxScript script;
    script.expect(plain(BoxScript::AnyText));
    load();
    QVERIFY(script.isDone());
    const QString shown = script.boxes().front().text;
    const QString says = done.says.contains(u'%') ? done.says.arg(table) : done.says;
    QVERIFY2(shown.contains(says, Qt::CaseInsensitive), qPrintable(shown));
    QCOMPARE(window().rows(list), rows);
    QCOMPARE(window().selectedRows(list), QStringList{rows.at(1).front()});
    if (!done.remedy.isEmpty()) {
        database().run(done.remedy);
        load();
        QCOMPARE(window().rows(list), rows);
    }
}

void FailedLoadsTest::thePrintersListIsEmptiedFirst() {
    QCOMPARE(window().rows(u"lstDcmPrinters"_s).size(), 2);
    database().run(u"ALTER TABLE Printers RENAME TO Kept"_s);
    BoxScript script;
    script.expect(plain(BoxScript::AnyText));
    manager().LoadDicomPrinters();
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(database().noTable(u"Printers"_s)));
    QVERIFY(window().rows(u"lstDcmPrinters"_s).isEmpty());
}

QTEST_MAIN(FailedLoadsTest)
#include "tst_failedloads.moc"
