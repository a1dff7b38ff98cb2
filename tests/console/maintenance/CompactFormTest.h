#pragma once

#include <QObject>
#include <QStringList>
#include <QTimer>
#include <functional>
#include <memory>

#include "console/maintenance/frmRepairDB.h"
#include "tests/support/BoxScript.h"
#include "tests/support/NoServer.h"
#include "tests/support/ScratchDatabase.h"

namespace tessaly::test {

/// A server's operations that write down what is asked, and whether the connection was open then.
class Recorder : public NoServer {
  public:
    QStringList calls;
    bool refusesToTerminate = false;
    std::function<void()> onTimer = [] {};  ///< when it is switched on again

    void TerminateServer() override;
    void DropServer() override { record(QStringLiteral("drop")); }
    void setConnectionTimerEnabled(bool enabled) override;
    void RefreshServerState() override { record(QStringLiteral("refresh")); }

  private:
    void record(const QString& call);
};

/// Counts how often events were processed while the form showed its label: in the whole wait for the server
/// some hundreds of times.
class Turns {
  public:
    explicit Turns(maintenance::frmRepairDB& form);
    [[nodiscard]] int waiting() const { return waiting_; }

  private:
    QTimer timer_;
    int waiting_ = 0;
};

/// A test of the compaction as its form runs it, on a database with much space to be given back: one row is
/// left in Series. The form is shown, its connection is open.
class CompactFormTest : public QObject {
    Q_OBJECT

  protected:
    /// What is asked of the main window when all goes well.
    static const QStringList Bracket;
    /// As many turns as there are at most when the wait was ended in its first round.
    static constexpr int FirstTurns = 3;

    [[nodiscard]] static Box question(QMessageBox::StandardButton answer);
    /// Chooses a file in the dialog as a user types it.
    [[nodiscard]] static std::function<void(Form)> choose(const QString& path);

    [[nodiscard]] const ScratchDatabase& database() const { return *database_; }
    [[nodiscard]] Recorder& window() const { return *window_; }
    [[nodiscard]] maintenance::frmRepairDB& repair() const { return *form_; }
    [[nodiscard]] Form form() const { return Form{*form_}; }

    /// Answers Yes, and where the database is a file chooses it.
    void sayYes(BoxScript& script) const;
    /// The bytes that the database, or the table that has shrunk, takes in the file system.
    [[nodiscard]] qint64 size() const;
    /// Runs the body once the label has been shown.
    void whenWaiting(std::function<void()> body) const;

  protected Q_SLOTS:
    void init();
    void cleanup();

  private:
    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<Recorder> window_;
    std::unique_ptr<maintenance::frmRepairDB> form_;
};

}  // namespace tessaly::test
