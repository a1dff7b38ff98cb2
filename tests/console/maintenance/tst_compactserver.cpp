// The repair and the compaction of the database of a server that runs.

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>
#include <QTimer>
#include <csignal>

#include "console/app/TessalyManager.h"
#include "console/server/DBusNames.h"
#include "console/session/Globals.h"
#include "tests/console/maintenance/Archive.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"
#include "tests/support/Eventually.h"
#include "tests/support/ScratchBus.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const QString Question =
    u"The Tessaly must now be stopped to compact the Database\rDo you want to proceed?"_s;

}  // namespace

class CompactServerTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void noLeavesTheServerRunning();
    void yesEndsTheServerAndBringsItBack();
    void aServerStartedInTheWaitIdlesBesideIt();
    void withoutAServerItGoesOn();

  private:
    [[nodiscard]] Form window() const { return Form{*window_}; }
    [[nodiscard]] QString state() const { return window().text(u"stsBarText1"_s); }
    [[nodiscard]] static int serverProcess() {
        const QDBusReply<uint> process =
            QDBusConnection::sessionBus().interface()->servicePid(server::ServiceName);
        return process.isValid() ? static_cast<int>(process.value()) : 0;
    }
    /// The space of the images that the pass removed has been given back.
    void checkCompacted() const;
    /// Answers the question with Yes, and chooses the database where it is a file.
    void sayYes(BoxScript& script) const;
    /// Runs a body once, when the wait for the server has begun.
    void inWait(std::function<void()> body) const;

    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<ScratchBus> bus_;
    std::unique_ptr<TessalyManager> window_;
};

void CompactServerTest::initTestCase() {
    // The bus and what it starts have the environment of their making: the database comes first.
    database_ = std::make_unique<ScratchDatabase>();
    bus_ = std::make_unique<ScratchBus>();
    bus_->offer(server::ServiceName, u"%1 --grace 1 --log-file %2/tessalyd.log"_s.arg(
                                         QStringLiteral(TESSALYD), database_->folder()));
}

void CompactServerTest::cleanupTestCase() {
    if (const int process = serverProcess(); process > 0)
        ::kill(process, SIGKILL);
    bus_.reset();
    database_.reset();
}

void CompactServerTest::init() {
    const Archive archive{*database_};
    for (int image = 0; image < 1000; ++image)
        archive.addImage(QString::number(image), u"gone"_s);
    database_->release();
    database_->openConsoleConnection();
    window_ = std::make_unique<TessalyManager>();
    window_->load();
    window_->show();
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(3);
    EVENTUALLY(serverProcess() > 0);
}

void CompactServerTest::cleanup() {
    window_.reset();
    Globals::DbConnection().close();
    (void)takeConsoleEnd();
}

void CompactServerTest::sayYes(BoxScript& script) const {
    script.expect(yesNo(Question, QMessageBox::Yes));
    if (ScratchDatabase::isPostgresql())
        return;  // no file is asked for
    script.drive(u"QFileDialog"_s, [this](Form dialog) {
        dialog.find<QLineEdit>(u"fileNameEdit"_s).setText(database_->path());
        dialog.find<QDialogButtonBox>(u"buttonBox"_s).button(QDialogButtonBox::Open)->click();
    });
}

void CompactServerTest::checkCompacted() const {
    QCOMPARE(database_->value(u"SELECT count(*) FROM Image"_s), u"0"_s);
    if (ScratchDatabase::isPostgresql()) {
        QCOMPARE(database_->value(u"SELECT pg_relation_size('image')"_s), u"0"_s);
        return;
    }
    QCOMPARE(database_->value(u"PRAGMA freelist_count"_s), u"0"_s);
    QCOMPARE(database_->value(u"PRAGMA integrity_check"_s), u"ok"_s);
    QCOMPARE(database_->value(u"PRAGMA journal_mode"_s), u"wal"_s);
}

void CompactServerTest::inWait(std::function<void()> body) const {
    auto* turn = new QTimer(window_.get());
    connect(turn, &QTimer::timeout, turn, [this, turn, body = std::move(body)] {
        const auto* label = window_->findChild<QLabel*>(u"lblWait"_s);
        if (label == nullptr || !label->isVisible())
            return;
        turn->stop();
        body();
    });
    turn->start(0);
}

void CompactServerTest::noLeavesTheServerRunning() {
    const int process = serverProcess();
    BoxScript script;
    script.expect(yesNo(Question, QMessageBox::No));
    window().trigger(u"mnuToolsRepair"_s);
    QVERIFY(script.isDone());
    QCOMPARE(serverProcess(), process);
    QCOMPARE(database_->value(u"SELECT count(*) FROM Image"_s), u"0"_s);
}

void CompactServerTest::yesEndsTheServerAndBringsItBack() {
    const int process = serverProcess();
    bool goneInTheWait = false;
    inWait([&] { goneInTheWait = serverProcess() == 0; });
    BoxScript script;
    sayYes(script);
    window().trigger(u"mnuToolsRepair"_s);
    QVERIFY(script.isDone());
    QVERIFY(goneInTheWait);
    QVERIFY(::kill(process, 0) != 0);
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
    QVERIFY(serverProcess() > 0);
    QVERIFY(serverProcess() != process);
    checkCompacted();
    QVERIFY(Globals::DbConnection().isOpen());
}

void CompactServerTest::aServerStartedInTheWaitIdlesBesideIt() {
    BoxScript script;
    sayYes(script);
    int process = 0;
    inWait([&] {
        window().click(u"cmdLoad"_s);
        process = serverProcess();
    });
    window().trigger(u"mnuToolsRepair"_s);
    QVERIFY(script.isDone());
    QVERIFY(process > 0);
    QCOMPARE(serverProcess(), process);
    EVENTUALLY_COMPARE(state(), u"Listening"_s);
    checkCompacted();
}

void CompactServerTest::withoutAServerItGoesOn() {
    bus_->withdraw(server::ServiceName);
    const int process = serverProcess();
    ::kill(process, SIGKILL);
    EVENTUALLY_COMPARE(state(), u"Error"_s);
    BoxScript script;
    sayYes(script);
    window().trigger(u"mnuToolsRepair"_s);
    QVERIFY(script.isDone());
    checkCompacted();
}

QTEST_MAIN(CompactServerTest)
#include "tst_compactserver.moc"
