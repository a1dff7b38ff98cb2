#include <QDialog>
#include <QTest>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "tests/support/ScratchCluster.h"
#include "tests/support/WindowTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

/// The console on a database server: what only a server can do to it.
class DatabaseServerTest : public WindowTest {
    Q_OBJECT

  public:
    DatabaseServerTest() : WindowTest(Page::LocalServer) {}

  protected:
    void seed() const override {
        database().run(
            u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Port) "
            "VALUES ('self', 'TESSALY', 'TESSALY', '11112')"_s);
        database().run(u"INSERT INTO PortRemoteNodes VALUES ('11112', 'self')"_s);
    }

  private Q_SLOTS:
    void theConsoleGoesOnAfterARestart();
    void aSaveThatLosesTheServerWritesNothingAndIsRepeated();
    void anOverlongTextIsRefusedWhole();
    void aHeldLockIsReported();

  private:
    /// Everything that the port's editor writes.
    [[nodiscard]] QList<QStringList> stored() const {
        return database().rows(
            u"SELECT 'port', Port, AETitle FROM Port UNION ALL SELECT Name, Port, AETitle FROM DicomNodes "
            "UNION ALL SELECT 'accepted', Port, Name FROM PortRemoteNodes ORDER BY 1"_s);
    }
    /// Ends the console's session as an administrator would.
    void endSession() const {
        database().run(
            u"SELECT pg_terminate_backend(pid, 10000) FROM pg_stat_activity "
            "WHERE datname = current_database() AND pid <> pg_backend_pid()"_s);
    }
};

void DatabaseServerTest::theConsoleGoesOnAfterARestart() {
    database().run(u"INSERT INTO DicomNodes (Name) VALUES ('new')"_s);
    database().release();
    ScratchCluster::instance().restart();
    BoxScript script;
    script.expect(plain(BoxScript::AnyText));
    manager().LoadNodes();
    QVERIFY(script.isDone());
    QVERIFY2(script.boxes().front().text.contains(u"terminating connection"_s),
             qPrintable(script.boxes().front().text));
    manager().LoadNodes();
    QCOMPARE(window().rows(u"lstNodes"_s).size(), 2);
}

void DatabaseServerTest::aSaveThatLosesTheServerWritesNothingAndIsRepeated() {
    const auto before = stored();
    BoxScript script;
    script.drive(u"DicomPort"_s, [&](Form form) {
        form.type(u"txtAETitle"_s, u"RENAMED"_s);
        form.type(u"txtPort"_s, u"104"_s);
        endSession();
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        QCOMPARE(stored(), before);
        QVERIFY(!Globals::ConfigChanged());
        form.click(u"cmdOk"_s);
    });
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
    QCOMPARE(stored(), (QList<QStringList>{{u"accepted"_s, u"104"_s, u"self"_s},
                                           {u"port"_s, u"104"_s, u"RENAMED"_s},
                                           {u"self"_s, u"104"_s, u"RENAMED"_s}}));
    QVERIFY(Globals::ConfigChanged());
}

void DatabaseServerTest::anOverlongTextIsRefusedWhole() {
    database().run(u"ALTER TABLE DicomNodes ALTER LocalAETitle TYPE VARCHAR(8)"_s);
    const auto before = stored();
    BoxScript script;
    script.drive(u"DicomPort"_s, [](Form form) {
        form.type(u"txtAETitle"_s, u"NINE_LONG"_s);
        form.click(u"cmdOk"_s);
        form.click(u"cmdCancel"_s);
    });
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
    QVERIFY2(script.boxes().back().text.contains(u"value too long for type character varying(8)"_s),
             qPrintable(script.boxes().back().text));
    QCOMPARE(stored(), before);
}

void DatabaseServerTest::aHeldLockIsReported() {
    Globals::DbConnection().close();
    database().setDataSource(database().dataSource({u"ConnSettings=SET lock_timeout TO 50"_s}));
    database().openConsoleConnection();
    const auto before = stored();
    database().run(u"BEGIN"_s);
    database().run(u"LOCK TABLE DicomNodes"_s);
    BoxScript script;
    script.drive(u"DicomPort"_s, [](Form form) {
        form.type(u"txtAETitle"_s, u"RENAMED"_s);
        form.click(u"cmdOk"_s);
        form.click(u"cmdCancel"_s);
    });
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdEditPort"_s);
    QVERIFY(script.isDone());
    QVERIFY2(script.boxes().back().text.contains(u"canceling statement due to lock timeout"_s),
             qPrintable(script.boxes().back().text));
    database().run(u"COMMIT"_s);
    QCOMPARE(stored(), before);
}

QTEST_MAIN(DatabaseServerTest)
#include "tst_databaseserver.moc"
