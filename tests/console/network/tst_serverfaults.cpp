// What a database server may refuse, seen from an editor.

#include <QTest>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "tests/console/network/FtpNodeEditor.h"
#include "tests/support/ScratchCluster.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const Values New{{u"txtName"_s, u"new"_s},      {u"txtHost"_s, u"host"_s},        {u"txtUser"_s, u"user"_s},
                 {u"txtPassword"_s, u"word"_s}, {u"txtDestination"_s, u"/new"_s}, {u"cmbType"_s, u"Lorvo"_s}};

}  // namespace

class ServerFaultsTest : public FtpNodeEditorTest {
    Q_OBJECT

  protected:
    void seed() const override {}

  private Q_SLOTS:
    void aFullDiskKeepsNothing();
    void whoMayOnlyReadIsTold();
    void aLockOfAnotherSessionIsWaitedForAndNotForEver();

  private:
    void reconnect(const QStringList& changes) const {
        Globals::DbConnection().close();
        database().setDataSource(database().dataSource(changes));
        database().openConsoleConnection();
    }
    /// Confirm in a new row's dialog meets the box, and the dialog stays as it was filled; then `after`.
    void confirmIsRefused(const QString& reason, const std::function<void(Form)>& after) const {
        edit({}, {critical(containing(reason))}, [&](Form form) {
            fill(form, New);
            form.click(u"cmdOk"_s);
            QVERIFY(form.window().isVisible());
            QCOMPARE(form.text(u"txtName"_s), u"new"_s);
            after(form);
        });
    }
    static void cancel(Form form) { form.click(u"cmdCancel"_s); }
};

void ServerFaultsTest::aFullDiskKeepsNothing() {
    const QString name = database().value(u"SELECT current_database()"_s);
    Globals::DbConnection().close();
    database().release();
    ScratchCluster::instance().fillDiskOf(name, u"ftpnodes"_s);
    reconnect({});
    confirmIsRefused(u"No space left on device"_s, cancel);
    QCOMPARE(count(), 0);
    // What needs no room goes on.
    database().run(u"INSERT INTO Users (UserName) VALUES ('somebody')"_s);
    manager().LoadUsers();
    QCOMPARE(window().rows(u"lstUsers"_s).size(), 2);
    reload();
    QCOMPARE(listed().size(), 0);
}

void ServerFaultsTest::whoMayOnlyReadIsTold() {
    database().run(u"INSERT INTO FtpNodes (Name) VALUES ('there')"_s);
    database().run(u"GRANT SELECT ON ALL TABLES IN SCHEMA public TO "_s + ScratchCluster::Locked);
    reconnect({u"Username="_s + ScratchCluster::Locked, u"Password=right"_s});
    reload();
    QCOMPARE(listed().size(), 1);
    confirmIsRefused(u"permission denied for table ftpnodes"_s, cancel);
    remove(u"there"_s, QMessageBox::Ok, {critical(containing(u"permission denied for table ftpnodes"_s))});
    QCOMPARE(count(), 1);
}

void ServerFaultsTest::aLockOfAnotherSessionIsWaitedForAndNotForEver() {
    reconnect({u"ConnSettings=SET lock_timeout TO 100"_s});
    database().run(u"BEGIN"_s);
    database().run(u"LOCK TABLE FtpNodes IN EXCLUSIVE MODE"_s);  // others may read
    confirmIsRefused(u"canceling statement due to lock timeout"_s, [this](Form form) {
        database().run(u"COMMIT"_s);
        form.click(u"cmdOk"_s);
        QVERIFY(!form.window().isVisible());
    });
    QCOMPARE(count(), 1);
    QCOMPARE(listed().size(), 1);
}

QTEST_MAIN(ServerFaultsTest)
#include "tst_serverfaults.moc"
