// The compaction as its form runs it: the question, the server, the connection, the file dialog, the wait.

#include <QDialogButtonBox>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include "console/maintenance/frmRepairDB.h"
#include "console/session/Globals.h"
#include "console/ui/ConsoleEnd.h"
#include "db/Query.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"
#include "tests/support/NoWindow.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

Box question(QMessageBox::StandardButton answer) {
    return yesNo(u"The Tessaly must now be stopped to compact the Database\rDo you want to proceed?"_s,
                 answer);
}

/// A main window that writes down what is asked of its server, and whether the connection was open then.
class Recorder : public NoWindow {
  public:
    QStringList calls;
    bool refusesToTerminate = false;
    std::function<void()> onTimer = [] {};  ///< when it is switched on again

    void TerminateServer() override {
        record(u"terminate"_s);
        if (refusesToTerminate)
            throw std::runtime_error("the server does not answer");
    }
    void DropServer() override { record(u"drop"_s); }
    void setConnectionTimerEnabled(bool enabled) override {
        record(enabled ? u"timer on"_s : u"timer off"_s);
        if (enabled)
            onTimer();
    }
    void RefreshServerState() override { record(u"refresh"_s); }

  private:
    void record(const QString& call) {
        calls << call + (Globals::DbConnection().isOpen() ? u", open"_s : u", closed"_s);
    }
};

const QStringList Bracket{u"terminate, open"_s, u"timer off, open"_s, u"drop, open"_s, u"timer on, open"_s,
                          u"refresh, open"_s};

/// Counts how often events were processed while the form waited for the server: in the whole wait some
/// hundreds of times.
class Turns {
  public:
    explicit Turns(maintenance::frmRepairDB& form) {
        QObject::connect(&timer_, &QTimer::timeout, &form, [this, &wait = Form{form}.find(u"lblWait"_s)] {
            if (wait.isVisible())
                ++waiting_;
        });
        timer_.start(0);
    }
    [[nodiscard]] int waiting() const { return waiting_; }

  private:
    QTimer timer_;
    int waiting_ = 0;
};
constexpr int FirstTurns = 3;

}  // namespace

class CompactionTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void cleanup();

    void theQuestionBreaksItsLineAtTheCarriageReturn();
    void noLeavesEverythingRunning();
    void aServerThatDoesNotEndIsReported();
    void aConnectionInUseIsReported();
    void theFileDialogIsPreset();
    void cancellingTheFileDialogBringsAllBack();
    void theDatabaseIsCompacted();
    void stopEndsTheWait();
    void stopInThePassLeavesTheQuestionAndEndsTheWaitAtOnce();
    void theConsoleMayEndInTheWait();
    void anUpperCaseNameIsRefused();
    void aDatabaseInUseIsRefused();
    void theDataSourcesOwnDatabaseIsNotDeleted();
    void reconnectingMayFail();
    void reconnectingIsTriedTwice();

  private:
    [[nodiscard]] Form form() const { return Form{*form_}; }
    /// Chooses a file in the dialog as a user types it.
    static std::function<void(Form)> choose(const QString& path) {
        return [path](Form dialog) {
            dialog.find<QLineEdit>(u"fileNameEdit"_s).setText(path);
            dialog.find<QDialogButtonBox>(u"buttonBox"_s).button(QDialogButtonBox::Open)->click();
        };
    }
    /// Runs CompactDB up to the file step with that file.
    void compact(BoxScript& script, const QString& path) const {
        script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, choose(path));
        form_->CompactDB();
    }

    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<Recorder> window_;
    std::unique_ptr<maintenance::frmRepairDB> form_;
};

void CompactionTest::init() {
    database_ = std::make_unique<ScratchDatabase>();
    database_->run(
        u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<3000) INSERT INTO Series "
        "(SeriesInstanceUID, StudyInstanceUID, SeriesDir, Modality, SeriesNumber, Description) "
        "SELECT '1.2.'||i, '1.3', 'S'||i, 'CT', '1', 'a description' FROM n"_s);
    database_->run(u"DELETE FROM Series WHERE SeriesInstanceUID <> '1.2.7'"_s);
    database_->release();
    database_->openConsoleConnection();
    window_ = std::make_unique<Recorder>();
    form_ = std::make_unique<maintenance::frmRepairDB>(*window_, nullptr);
    form_->show();
}

void CompactionTest::cleanup() {
    form_.reset();
    window_.reset();
    database_.reset();
    (void)takeConsoleEnd();
}

void CompactionTest::theQuestionBreaksItsLineAtTheCarriageReturn() {
    const auto height = [](const QString& separator) {
        QMessageBox box{QMessageBox::NoIcon, {}, u"one"_s + separator + u"two"_s};
        box.setTextFormat(Qt::PlainText);
        box.setTextInteractionFlags(Qt::TextSelectableByMouse);
        return box.findChild<QLabel*>(u"qt_msgbox_label"_s)->sizeHint().height();
    };
    QVERIFY(height(u"\r"_s) > height(u" "_s));
    QCOMPARE(height(u"\r"_s), height(u"\n"_s));
}

void CompactionTest::noLeavesEverythingRunning() {
    BoxScript script;
    script.expect(question(QMessageBox::No));
    form_->CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window_->calls, QStringList{});
    QVERIFY(Globals::DbConnection().isOpen());
}

void CompactionTest::aServerThatDoesNotEndIsReported() {
    window_->refusesToTerminate = true;
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).expect(plain(u"CompactDB: the server does not answer"_s));
    form_->CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window_->calls, (QStringList{u"terminate, open"_s, u"timer on, open"_s, u"refresh, open"_s}));
}

void CompactionTest::aConnectionInUseIsReported() {
    const db::Query query{Globals::DbConnection(), "SELECT * FROM Users"};
    BoxScript script;
    script.expect(question(QMessageBox::Yes))
        .expect(plain(u"CompactDB: A statement of the connection is still in use"_s));
    form_->CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window_->calls, Bracket);
}

void CompactionTest::theFileDialogIsPreset() {
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, [this](Form form) {
        auto& dialog = static_cast<QFileDialog&>(form.window());
        QCOMPARE(dialog.objectName(), u"cmnDlg"_s);
        QCOMPARE(dialog.parentWidget(), form_.get());
        QCOMPARE(dialog.acceptMode(), QFileDialog::AcceptOpen);
        QCOMPARE(dialog.fileMode(), QFileDialog::ExistingFile);
        QCOMPARE(dialog.nameFilters(), QStringList{u"Database Access (*.mdb)"_s});
        QCOMPARE(dialog.directory().absolutePath(), QCoreApplication::applicationDirPath());
        QCOMPARE(form.text(u"fileNameEdit"_s), u"DicomDB.mdb"_s);
        // One click from the program's folder to that of the database.
        QCOMPARE(dialog.sidebarUrls().count(QUrl::fromLocalFile(database_->folder())), 1);
        QVERIFY(dialog.isModal());
        QCOMPARE(window_->calls, (QStringList{u"terminate, open"_s, u"timer off, open"_s, u"drop, open"_s}));
        QVERIFY(!Globals::DbConnection().isOpen());
        dialog.reject();
    });
    form_->CompactDB();
    QVERIFY(script.isDone());
}

void CompactionTest::cancellingTheFileDialogBringsAllBack() {
    const qint64 size = QFileInfo{database_->path()}.size();
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, [](Form form) {
        static_cast<QFileDialog&>(form.window()).reject();
    });
    form_->CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window_->calls, Bracket);
    QVERIFY(form().find(u"prgBar"_s).isVisible());
    QVERIFY(!form().find(u"lblWait"_s).isVisible());
    QCOMPARE(QFileInfo{database_->path()}.size(), size);
}

void CompactionTest::theDatabaseIsCompacted() {
    const QString temporary = database_->folder() + u"/DicomDB2.mdb"_s;
    QFile stale{temporary};
    QVERIFY(stale.open(QIODevice::WriteOnly) && stale.write("left over") > 0);
    stale.close();
    const qint64 before = QFileInfo{database_->path()}.size();
    bool waits = false;
    QTimer::singleShot(0, form_.get(), [&] {
        QTimer::singleShot(1000, form_.get(), [&] {
            waits = form().find(u"lblWait"_s).isVisible() && !form().find(u"prgBar"_s).isVisible() &&
                    !Globals::DbConnection().isOpen();
        });
    });
    QElapsedTimer clock;
    clock.start();
    BoxScript script;
    compact(script, database_->path());
    QVERIFY(script.isDone());
    QVERIFY2(clock.elapsed() >= 5000, "the server had no five seconds to let go of the file");
    QVERIFY(waits);
    QCOMPARE(window_->calls, Bracket);
    QVERIFY(!QFileInfo::exists(temporary));
    QVERIFY(QFileInfo{database_->path()}.size() < before / 2);
    // The console's connection is on the new file.
    db::Query query{Globals::DbConnection(), "SELECT * FROM Series"};
    db::ResultSet rows = query.open();
    QVERIFY(rows.next());
    QCOMPARE(rows.text("SeriesInstanceUID"), "1.2.7");
    QCOMPARE(database_->value(u"PRAGMA integrity_check"_s), u"ok"_s);
    QCOMPARE(database_->value(u"PRAGMA journal_mode"_s), u"wal"_s);
}

void CompactionTest::stopEndsTheWait() {
    const qint64 before = QFileInfo{database_->path()}.size();
    auto* user = new QTimer(form_.get());
    connect(user, &QTimer::timeout, this, [this] {
        if (form().find(u"lblWait"_s).isVisible())
            form().click(u"cmdStop"_s);
    });
    user->start(0);
    const Turns turns{*form_};
    BoxScript script;
    compact(script, database_->path());
    QVERIFY(script.isDone());
    QVERIFY2(turns.waiting() <= FirstTurns, qPrintable(QString::number(turns.waiting())));
    QCOMPARE(window_->calls, Bracket);
    QCOMPARE(QFileInfo{database_->path()}.size(), before);
}

void CompactionTest::stopInThePassLeavesTheQuestionAndEndsTheWaitAtOnce() {
    const qint64 before = QFileInfo{database_->path()}.size();
    // The one row of the pass is visited; Stop is pressed in the event processing after it.
    QTimer::singleShot(0, form_.get(), [this] { form().click(u"cmdStop"_s); });
    const Turns turns{*form_};
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, choose(database_->path()));
    form_->Repair();
    QVERIFY(script.isDone());
    QVERIFY2(turns.waiting() <= FirstTurns, qPrintable(QString::number(turns.waiting())));
    QCOMPARE(window_->calls, Bracket);
    QCOMPARE(QFileInfo{database_->path()}.size(), before);
}

void CompactionTest::theConsoleMayEndInTheWait() {
    auto* user = new QTimer(form_.get());
    connect(user, &QTimer::timeout, this, [this] {
        if (form().find(u"lblWait"_s).isVisible())
            ui::endConsole(0);
    });
    user->start(0);
    const qint64 before = QFileInfo{database_->path()}.size();
    BoxScript script;
    compact(script, database_->path());
    QVERIFY(script.isDone());
    QCOMPARE(takeConsoleEnd(), 0);
    QCOMPARE(window_->calls, Bracket);
    QCOMPARE(QFileInfo{database_->path()}.size(), before);
}

void CompactionTest::anUpperCaseNameIsRefused() {
    const QString upper = database_->folder() + u"/DB.MDB"_s;
    QVERIFY(QFile::copy(database_->path(), upper));
    const qint64 before = QFileInfo{upper}.size();
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, choose(upper));
    script.expect(plain(u"DBRepair: The name of the database file has no \".mdb\": "_s + upper));
    form_->CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window_->calls, Bracket);
    QCOMPARE(QFileInfo{upper}.size(), before);
}

void CompactionTest::aDatabaseInUseIsRefused() {
    (void)database_->value(u"SELECT count(*) FROM Users"_s);  // and stays open
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, choose(database_->path()));
    script.expect(plain(u"DBRepair: database is locked"_s));
    form_->CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window_->calls, Bracket);
    QCOMPARE(database_->value(u"SELECT count(*) FROM Series"_s), u"1"_s);
}

void CompactionTest::theDataSourcesOwnDatabaseIsNotDeleted() {
    // The console works on Site2.mdb; a copy for Site.mdb would have that name.
    const QString site = database_->folder() + u"/Site.mdb"_s;
    const QString own = database_->folder() + u"/Site2.mdb"_s;
    QVERIFY(QFile::copy(database_->path(), site) && QFile::copy(database_->path(), own));
    Globals::DbConnection().close();
    database_->writeDataSource(own);
    database_->openConsoleConnection();
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, choose(site));
    script.expect(plain(u"DBRepair: "_s + own + u" is the database of the data source"_s));
    form_->CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window_->calls, Bracket);
    QVERIFY(QFile::exists(own));
}

void CompactionTest::reconnectingMayFail() {
    // The file is gone when the connection is to come back: nothing is said, the rest goes on.
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, [this](Form form) {
        QVERIFY(QFile::remove(database_->path()));
        static_cast<QFileDialog&>(form.window()).reject();
    });
    form_->CompactDB();
    QVERIFY(script.isDone());
    QVERIFY(!Globals::DbConnection().isOpen());
    QCOMPARE(window_->calls, (QStringList{u"terminate, open"_s, u"timer off, open"_s, u"drop, open"_s,
                                          u"timer on, closed"_s, u"refresh, closed"_s}));
}

void CompactionTest::reconnectingIsTriedTwice() {
    const QString away = database_->folder() + u"/away.mdb"_s;
    window_->onTimer = [&] { QVERIFY(QFile::rename(away, database_->path())); };
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).drive(u"QFileDialog"_s, [&](Form form) {
        QVERIFY(QFile::rename(database_->path(), away));
        static_cast<QFileDialog&>(form.window()).reject();
    });
    form_->CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window_->calls.mid(3), (QStringList{u"timer on, closed"_s, u"refresh, open"_s}));
}

QTEST_MAIN(CompactionTest)
#include "tst_compaction.moc"
