#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QLabel>
#include <QProcess>
#include <QTabWidget>
#include <QTest>
#include <csignal>
#include <stdexcept>

#include "console/app/TessalyManager.h"
#include "console/server/DBusNames.h"
#include "console/session/Globals.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"
#include "tests/support/Eventually.h"
#include "tests/support/ScratchBus.h"
#include "tests/support/ScratchDatabase.h"
#include "tests/support/UnusedPort.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

/// The console and the DICOM server of this system, met by DICOM clients of somebody else's.
class RealServerTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase() {
        // The bus and what it starts have the environment of their making: the database comes first.
        database_ = std::make_unique<ScratchDatabase>();
        qputenv("XDG_STATE_HOME", database_->folder().toUtf8());
        qputenv("DBUS_SYSTEM_BUS_ADDRESS",
                "unix:path=/nowhere");  // the machine's is not the test's to change
        bus_ = std::make_unique<ScratchBus>();
        bus_->offer(server::ServiceName, u"%1 --grace 1 --log-file %2/tessalyd.log"_s.arg(
                                             QStringLiteral(TESSALYD), database_->folder()));
    }
    void cleanupTestCase() {
        if (const int process = serverProcess(); process > 0)
            ::kill(process, SIGKILL);
        bus_.reset();
        database_.reset();
    }
    void init() {
        port_ = unusedPort();
        database_->run(u"UPDATE Port SET Port=?, AETitle='TESSALY', CheckCalledAE=1"_s, {port_});
        database_->openConsoleConnection();
        window_ = std::make_unique<TessalyManager>();
        window_->load();
        window_->show();
        window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(3);
        window_->RefreshServerState();
        EVENTUALLY_COMPARE(state(), u"Listening"_s);
        // The state may be known by the server's event, before the buttons follow.
        EVENTUALLY(window().find(u"cmdRestart"_s).isEnabled());
        window().click(u"cmdRestart"_s);  // the server of the test before has another port
        EVENTUALLY(echoes());
    }
    void cleanup() {
        window_.reset();
        Globals::DbConnection().close();
        (void)takeConsoleEnd();
    }

    void associationsComeAndGoInTheList();
    void suspendAndStart();
    void restartRereadsTheConfiguration();
    void closingWithYesRereadsTheConfiguration();
    void terminateBringsAnotherProcess();
    void aKilledServerComesBack();
    void aHungServerIsAnErrorWhileItHangs();
    void withoutAServiceManagerItCannotBeAService();

  private:
    [[nodiscard]] Form window() const { return Form{*window_}; }
    [[nodiscard]] QString state() const { return window().text(u"stsBarText1"_s); }
    [[nodiscard]] QList<QStringList> rows() const { return window().rows(u"lstStatus"_s); }
    [[nodiscard]] static int serverProcess() {
        const QDBusReply<uint> process =
            QDBusConnection::sessionBus().interface()->servicePid(server::ServiceName);
        return process.isValid() ? static_cast<int>(process.value()) : 0;
    }
    /// Whether the server is a process, and another one than `former`. Between the two there is none.
    [[nodiscard]] static bool isAnotherThan(int former) {
        const int process = serverProcess();
        return process > 0 && process != former;
    }
    /// Whether a verification of the server succeeds.
    [[nodiscard]] bool echoes(const QString& called = u"TESSALY"_s) const {
        return QProcess::execute(u"echoscu"_s, {u"-q"_s, u"-to"_s, u"5"_s, u"-aet"_s, u"PROBE"_s, u"-aec"_s,
                                                called, u"127.0.0.1"_s, port_}) == 0;
    }
    /// A client whose association stays open until the client is ended.
    [[nodiscard]] std::unique_ptr<QProcess> openAssociation(const QString& calling) const {
        auto client = std::make_unique<QProcess>();
        client->start(u"echoscu"_s, {u"-q"_s, u"--repeat"_s, u"100000000"_s, u"-aet"_s, calling, u"-aec"_s,
                                     u"TESSALY"_s, u"127.0.0.1"_s, port_});
        return client;
    }
    [[nodiscard]] QStringList row(const QString& calling, int count) const {
        return {port_, calling, u"TESSALY"_s, QString::number(count)};
    }
#define TRY_ROWS(...) EVENTUALLY_COMPARE(rows(), (QList<QStringList>{__VA_ARGS__}))

    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<ScratchBus> bus_;
    std::unique_ptr<TessalyManager> window_;
    QString port_;
};

void RealServerTest::associationsComeAndGoInTheList() {
    TRY_ROWS();
    auto first = openAssociation(u"CT1"_s);
    TRY_ROWS(row(u"CT1"_s, 1));
    auto second = openAssociation(u"CT1"_s);
    TRY_ROWS(row(u"CT1"_s, 2));
    auto other = openAssociation(u"MR1"_s);
    TRY_ROWS(row(u"CT1"_s, 2), row(u"MR1"_s, 1));
    second->kill();  // vanishes without a word
    TRY_ROWS(row(u"CT1"_s, 1), row(u"MR1"_s, 1));
    first->kill();
    TRY_ROWS(row(u"MR1"_s, 1));
    other->kill();
    TRY_ROWS();
}

void RealServerTest::suspendAndStart() {
    window().click(u"cmdStop"_s);
    EVENTUALLY_COMPARE(state(), u"Stopped"_s);
    QVERIFY(!echoes());
    EVENTUALLY(window().find(u"cmdStart"_s).isEnabled());
    QVERIFY(!window().find(u"cmdStop"_s).isEnabled());
    window().click(u"cmdStart"_s);
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
    QVERIFY(echoes());
}

void RealServerTest::restartRereadsTheConfiguration() {
    QVERIFY(!echoes(u"RENAMED"_s));
    database_->run(u"UPDATE Port SET AETitle='RENAMED'"_s);
    window().click(u"cmdRestart"_s);
    EVENTUALLY(echoes(u"RENAMED"_s));
    QVERIFY(!echoes());
}

void RealServerTest::closingWithYesRereadsTheConfiguration() {
    database_->run(u"UPDATE Port SET AETitle='RENAMED'"_s);
    Globals::setConfigChanged(true);
    BoxScript script;
    script.expect(yesNo(u"The server parameters have been modified. Do you want to restart the server?"_s,
                        QMessageBox::Yes));
    QVERIFY(window_->close());
    QVERIFY(script.isDone());
    QCOMPARE(takeConsoleEnd(), std::optional{0});
    EVENTUALLY(echoes(u"RENAMED"_s));
}

void RealServerTest::terminateBringsAnotherProcess() {
    auto client = openAssociation(u"CT1"_s);
    TRY_ROWS(row(u"CT1"_s, 1));
    const int process = serverProcess();
    window().click(u"cmdLoad"_s);
    EVENTUALLY(isAnotherThan(process));
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
    EVENTUALLY(::kill(process, 0) != 0);
    EVENTUALLY(echoes());
    TRY_ROWS();  // the association that ended with it is not left behind
    client->kill();
    client->waitForFinished();
}

void RealServerTest::aKilledServerComesBack() {
    const int process = serverProcess();
    ::kill(process, SIGKILL);
    EVENTUALLY(isAnotherThan(process));
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
    EVENTUALLY(echoes());
}

void RealServerTest::aHungServerIsAnErrorWhileItHangs() {
    const int process = serverProcess();
    ::kill(process, SIGSTOP);
    EVENTUALLY_COMPARE(state(), u"Error"_s);
    ::kill(process, SIGCONT);
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
    QCOMPARE(serverProcess(), process);
}

void RealServerTest::withoutAServiceManagerItCannotBeAService() {
    BoxScript script;
    script.expect(yesNo(u"The service will be stopped: do you want to proceed?"_s, QMessageBox::Yes));
    script.expect(plain(u"Impossible to register service"_s));
    window().click(u"chkService"_s);
    QVERIFY(script.isDone());
    QVERIFY(!window().isChecked(u"chkService"_s));
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
}

QTEST_MAIN(RealServerTest)
#include "tst_realserver.moc"
