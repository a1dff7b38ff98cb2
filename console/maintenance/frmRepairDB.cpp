#include "console/maintenance/frmRepairDB.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QThread>
#include <QUrl>
#include <algorithm>
#include <optional>

#include "console/maintenance/PassEvents.h"
#include "console/maintenance/RepaintProgress.h"
#include "console/session/Globals.h"
#include "console/ui/ConsoleEnd.h"
#include "console/ui/Guard.h"
#include "console/ui/Mnemonics.h"
#include "maintenance/FileCompaction.h"
#include "maintenance/ServerCompaction.h"

namespace tessaly::maintenance {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int FullBar = 100;
constexpr int BarWidth = 320;
constexpr auto ServerPatience = 5s;
constexpr auto Tick = 20ms;  // the longest that a repaint waits

/// Keeps the window behind a form from taking input: everything there wants the connection that is closed.
class ShutBehind {
  public:
    explicit ShutBehind(QWidget& form) : behind_(form.parentWidget()) {
        if (behind_ == nullptr)
            return;
        QWidget* const focused = form.focusWidget();
        behind_->setEnabled(false);
        form.setEnabled(true);  // a window's own windows go with it
        if (focused != nullptr)
            focused->setFocus();
    }
    ~ShutBehind() {
        if (behind_ != nullptr)
            behind_->setEnabled(true);
    }
    ShutBehind(const ShutBehind&) = delete;
    ShutBehind& operator=(const ShutBehind&) = delete;

  private:
    QWidget* behind_;
};

/// Of a pass that the user may stop.
class StoppableProgress : public Progress {
  public:
    explicit StoppableProgress(const bool& stop) : stop_(stop) {}

    using Progress::breathe;
    void breathe(const LetGo& letGo) override { events_.handle(letGo); }
    [[nodiscard]] bool isStopRequested() override { return stop_ || ui::isConsoleEnding(); }

  private:
    const bool& stop_;
    PassEvents events_;
};

}  // namespace

/// One check, as the form shows the whole repair.
class frmRepairDB::CheckProgress : public StoppableProgress {
  public:
    explicit CheckProgress(frmRepairDB& form)
        : StoppableProgress(form.stop_), form_(form), before_(form.processed_) {}

    void setDone(long long done) override {
        form_.processed_ = before_ + static_cast<int>(done);
        // Rows that came after the counting are beyond the whole, and the whole may be nothing.
        const double share = std::min(1.0, static_cast<double>(form_.processed_) / form_.total_);
        form_.prgBar_->setValue(static_cast<int>(share * FullBar));
    }
    [[nodiscard]] bool announce(const std::string& sentence) override {
        return ui::messageBoxBeside(form_, QString::fromStdString(sentence));
    }

  private:
    frmRepairDB& form_;
    int before_;  ///< of the checks before
};

frmRepairDB::frmRepairDB(ServerOperations& server, QWidget* parent)
    : QDialog(parent),
      server_(server),
      prgBar_(new QProgressBar(this)),
      lblWait_(new QLabel(u"Wait... Compacting DB"_s, this)),
      cmnDlg_(new QFileDialog(this)) {
    setObjectName(u"frmRepairDB"_s);
    setWindowTitle(u"Repair DB"_s);
    prgBar_->setObjectName(u"prgBar"_s);
    prgBar_->setRange(0, FullBar);
    prgBar_->setMinimumWidth(BarWidth);
    lblWait_->setObjectName(u"lblWait"_s);
    lblWait_->setAlignment(Qt::AlignCenter);
    lblWait_->hide();
    cmnDlg_->setObjectName(u"cmnDlg"_s);
    auto* stop = new QPushButton(u"Stop"_s, this);
    stop->setObjectName(u"cmdStop"_s);
    connect(stop, &QPushButton::clicked, this, ui::handler([this] { stop_ = true; }));

    auto* grid = new QGridLayout(this);
    grid->addWidget(prgBar_, 0, 0);
    grid->addWidget(lblWait_, 0, 0);
    grid->addWidget(stop, 1, 0, Qt::AlignCenter);
    grid->setRowMinimumHeight(0, prgBar_->sizeHint().height());
    ui::assignMnemonics(this);
}

void frmRepairDB::reject() {
    stop_ = true;
}

bool frmRepairDB::stopRequested() const {
    return stop_ || ui::isConsoleEnding();
}

void frmRepairDB::Repair() {
    prgBar_->show();
    lblWait_->hide();
    total_ = countArchiveRows(Globals::DbConnection());
    processed_ = 0;
    stop_ = false;
    prgBar_->setValue(0);
    CheckImages();
    CheckSeries();
    CheckStudies();
    CheckPatients();
    if (!ui::isConsoleEnding())
        CompactDB();
}

void frmRepairDB::run(Check check) {
    CheckProgress progress{*this};
    RepairCheck{check}.run(Globals::DbConnection(), progress);
}

void frmRepairDB::CompactDB() {
    bool connectionClosed = false;
    std::optional<QString> fault;
    try {
        if (ui::messageBox(this,
                           u"The Tessaly must now be stopped to compact the Database\r"
                           "Do you want to proceed?"_s,
                           ui::BoxStyle::YesNo) != ui::Answer::Yes)
            return;
        server_.TerminateServer();
        server_.setConnectionTimerEnabled(false);
        server_.DropServer();
        dataSource_ = QFile::decodeName(QByteArray::fromStdString(Globals::DbConnection().databaseFile()));
        Globals::DbConnection().close();
        connectionClosed = true;
        chooseAndCompact();
    } catch (const std::exception& pending) {
        fault = QString::fromUtf8(pending.what());
    }
    if (fault)
        ui::messageBox(this, u"CompactDB: "_s + *fault);
    const auto reconnect = [] { Globals::DbConnection().establish(); };
    if (connectionClosed)
        ui::ignoringErrors(reconnect);
    server_.setConnectionTimerEnabled(true);
    ui::ignoringErrors(reconnect);  // once more, where the first did not succeed; fails when it did
    server_.RefreshServerState();
}

void frmRepairDB::chooseAndCompact() {
    if (!dataSource_.isEmpty()) {
        databasePath_ = chooseFile();
        if (databasePath_.isEmpty())
            return;
    }
    prgBar_->hide();
    lblWait_->show();
    if (waitForServer())
        CompactDatabaseFile();
}

QString frmRepairDB::chooseFile() {
    // The desktop's own dialog would show nothing of what is put into the side bar below.
    cmnDlg_->setOption(QFileDialog::DontUseNativeDialog);
    cmnDlg_->setAcceptMode(QFileDialog::AcceptOpen);
    cmnDlg_->setFileMode(QFileDialog::ExistingFile);
    cmnDlg_->setNameFilter(u"Database Access (*.mdb)"_s);
    cmnDlg_->setDirectory(QCoreApplication::applicationDirPath());
    cmnDlg_->selectFile(u"DicomDB.mdb"_s);
    // The dialog starts in the program's folder, where an installed console has no database; one click leads
    // to where it is.
    QList<QUrl> places = cmnDlg_->sidebarUrls();
    const QUrl folder = QUrl::fromLocalFile(QFileInfo{dataSource_}.absolutePath());
    if (!places.contains(folder))
        cmnDlg_->setSidebarUrls(places << folder);
    return cmnDlg_->exec() == QDialog::Accepted ? cmnDlg_->selectedFiles().value(0) : QString{};
}

bool frmRepairDB::waitForServer() {
    const QDeadlineTimer patience{ServerPatience};
    do {
        QCoreApplication::processEvents();
        if (stopRequested())
            return false;
        QThread::msleep(Tick.count());
    } while (!patience.hasExpired());
    return true;
}

void frmRepairDB::CompactDatabaseFile() {
    try {
        if (!dataSource_.isEmpty())
            return compactFile();
        const ShutBehind shut{*this};
        StoppableProgress progress{stop_};
        ServerCompaction{}.run(Globals::DbConnection(), progress);
    } catch (const std::exception& fault) {
        ui::messageBox(this, u"DBRepair: "_s + QString::fromUtf8(fault.what()));
    }
}

void frmRepairDB::compactFile() {
    // The window repaints meanwhile and takes no input: whoever clicks waits, closing included.
    RepaintProgress progress;
    FileCompaction{QFile::encodeName(databasePath_).toStdString(),
                   QFile::encodeName(dataSource_).toStdString()}
        .run(Globals::DbConnection(), progress);
}

}  // namespace tessaly::maintenance
