#pragma once

#include <QDialog>
#include <QString>

#include "console/session/ServerOperations.h"
#include "maintenance/RepairChecks.h"

class QFileDialog;
class QLabel;
class QProgressBar;

namespace tessaly::maintenance {

/// The form of the repair pass and of the compaction that follows it. Modeless: the rest of the console goes
/// on while Repair() runs. Closing it is pressing Stop; it goes when whoever called Repair() destroys it.
class frmRepairDB : public QDialog {
    Q_OBJECT

  public:
    frmRepairDB(ServerOperations& server, QWidget* parent);

    /// The four checks, then the offer to compact the database. A fault of a check is let through; what
    /// was removed before it stays removed. Without effect once the console ends.
    void Repair();
    void CheckImages() { run(Check::Images); }
    void CheckSeries() { run(Check::Series); }
    void CheckStudies() { run(Check::Studies); }
    void CheckPatients() { run(Check::Patients); }

    /// Stops the server, closes the connection, compacts the database, and brings both back: the file that
    /// the user chooses, or all of our tables where the database is no file of this machine. Reports its own
    /// failures.
    void CompactDB();
    /// The database alone: the file chosen in CompactDB(), with nobody else using it, or a server's tables.
    /// Reports its own failure.
    void CompactDatabaseFile();

    /// Escape and the window's own close button.
    void reject() override;

  private:
    class CheckProgress;

    void run(Check check);
    [[nodiscard]] bool stopRequested() const;
    void chooseAndCompact();
    [[nodiscard]] QString chooseFile();
    [[nodiscard]] bool waitForServer();
    void compactFile();

    ServerOperations& server_;
    QProgressBar* prgBar_;
    QLabel* lblWait_;
    QFileDialog* cmnDlg_;
    int total_ = 0;
    int processed_ = 0;
    bool stop_ = false;
    QString databasePath_;
    QString dataSource_;  // the file of the console's own connection, empty when it is none of this machine's
};

}  // namespace tessaly::maintenance
