#pragma once

#include <QMessageBox>
#include <QObject>
#include <QTimer>
#include <functional>
#include <memory>

#include "console/app/TessalyManager.h"
#include "tests/console/maintenance/Archive.h"
#include "tests/support/Form.h"
#include "tests/support/ScratchDatabase.h"

namespace tessaly::maintenance {
class frmRepairDB;
}

namespace tessaly::test {

/// What the tests of the repair share: for each test a main window on an archive of its own.
class RepairTest : public QObject {
    Q_OBJECT

  protected:
    /// What follows the pass, and what announces an image without its file.
    inline static const QString Question =
        QStringLiteral("The Tessaly must now be stopped to compact the Database\rDo you want to proceed?");
    inline static const QString Missing = QStringLiteral("Non existing file");

    [[nodiscard]] const ScratchDatabase& database() const { return *database_; }
    [[nodiscard]] const Archive& archive() const { return *archive_; }
    [[nodiscard]] TessalyManager& manager() const { return *window_; }
    [[nodiscard]] Form window() const { return Form{*window_}; }
    [[nodiscard]] Form repairForm() const;
    /// Runs the whole pass; returns when it has ended.
    void repair() const { window().trigger(QStringLiteral("mnuToolsRepair")); }
    /// Runs a body in the first event processing of a pass, that is after its first row.
    static void afterFirstRow(std::function<void()> body);

  protected Q_SLOTS:
    void init();
    void cleanup();

  private:
    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<Archive> archive_;
    std::unique_ptr<TessalyManager> window_;
};

/// The message box on the screen, modal or not; nothing when there is none.
[[nodiscard]] QMessageBox* standingBox();

/// A user who is called in every turn of the event loop: for what a script of boxes in a fixed order cannot
/// say.
class RepairUser : public QTimer {
  public:
    /// `onBox` gives the button to be clicked on a box that stands; `onTurn` is called when none does.
    explicit RepairUser(
        std::function<QMessageBox::StandardButton(const QString& text)> onBox,
        std::function<void()> onTurn = [] {});
};

}  // namespace tessaly::test
