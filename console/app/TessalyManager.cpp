#include "console/app/TessalyManager.h"

#include <QCloseEvent>
#include <QMenuBar>
#include <QTabWidget>

#include "console/app/AdministrationPage.h"
#include "console/app/StatusBar.h"
#include "console/app/frmAbout.h"
#include "console/maintenance/frmRepairDB.h"
#include "console/network/FtpNodesPage.h"
#include "console/network/LocalServerPage.h"
#include "console/network/NodesPage.h"
#include "console/printers/PrintersPage.h"
#include "console/server/DBusServer.h"
#include "console/server/ServerControl.h"
#include "console/session/Globals.h"
#include "console/ui/ConsoleEnd.h"
#include "console/ui/EnterKey.h"
#include "console/ui/Guard.h"
#include "console/users/SitePage.h"
#include "console/users/UsersPage.h"

namespace tessaly {

using namespace Qt::StringLiterals;

namespace {

constexpr QSize InitialSize{1000, 600};

}  // namespace

TessalyManager::TessalyManager() : TessalyManager(server::dbusServerFactory()) {}

TessalyManager::TessalyManager(server::ServerFactory serverFactory)
    : tabNodes_(new QTabWidget(this)),
      nodes_(new network::NodesPage(*this)),
      localServer_(new network::LocalServerPage(*this)),
      ftpNodes_(new network::FtpNodesPage(*this)),
      administration_(new AdministrationPage),
      users_(new users::UsersPage(*this)),
      site_(new users::SitePage),
      printers_(new printers::PrintersPage(*this)),
      stsBar_(new StatusBar(this)),
      server_(std::make_unique<server::ServerControl>(std::move(serverFactory), administration_->server(),
                                                      *stsBar_)) {
    setObjectName(u"TessalyManager"_s);
    setWindowTitle(u"Tessaly Configuration"_s);
    resize(InitialSize);
    buildPages();
    buildMenus();
    setStatusBar(stsBar_);
    ui::enterPressesButtons(this);
    connect(localServer_, &network::LocalServerPage::imageRootRead, this, &TessalyManager::setImageRoot);
    connect(&administration_->logFile(), &server::LogFileFrame::loaded, this,
            ui::handler([this] { server_->showService(); }));
}

TessalyManager::~TessalyManager() = default;

void TessalyManager::buildPages() {
    tabNodes_->setObjectName(u"tabNodes"_s);
    tabNodes_->addTab(nodes_, u"Dicom Nodes"_s);
    tabNodes_->addTab(localServer_, u"Local server"_s);
    tabNodes_->addTab(ftpNodes_, u"FTP Nodes"_s);
    tabNodes_->addTab(administration_, u"Administration"_s);
    tabNodes_->addTab(users_, u"Users"_s);
    tabNodes_->addTab(site_, u"Site Parameters"_s);
    tabNodes_->addTab(printers_, u"Dicom Printers"_s);
    setCentralWidget(tabNodes_);
}

void TessalyManager::buildMenus() {
    QAction* exit = menuBar()->addAction(u"E&xit"_s);
    exit->setObjectName(u"mnuExit"_s);
    connect(exit, &QAction::triggered, this, &QWidget::close);

    QMenu* tools = menuBar()->addMenu(u"&Tools"_s);
    tools->menuAction()->setObjectName(u"mnuTools"_s);
    QAction* repair = tools->addAction(u"&Repair Database"_s);
    repair->setObjectName(u"mnuToolsRepair"_s);
    connect(repair, &QAction::triggered, this, ui::handler([this] { mnuToolsRepair_Click(); }));

    QMenu* help = menuBar()->addMenu(u"&Help"_s);
    help->menuAction()->setObjectName(u"mnuHelp"_s);
    // A line that comes first is not drawn by itself, and would then coincide with the menu's frame.
    constexpr int RoomAboveTheLine = 4;
    help->setSeparatorsCollapsible(false);
    help->setContentsMargins(0, RoomAboveTheLine, 0, 0);
    help->addSeparator()->setObjectName(u"mnuSep0"_s);
    QAction* about = help->addAction(u"&About"_s);
    about->setObjectName(u"mnuHelpAbout"_s);
    connect(about, &QAction::triggered, this, ui::handler([this] { mnuHelpAbout_Click(); }));
}

void TessalyManager::load() {
    ui::ignoringErrors([this] { server_->createServer(); });
    tabNodes_->setCurrentIndex(0);
    ui::ignoringErrors([this] { LoadNodes(); });
    ui::ignoringErrors([this] { LoadPorts(); });
    ui::ignoringErrors([this] { administration_->logFile().LoadServerParameters(); });
    ui::ignoringErrors([this] { LoadFTPNodes(); });
    ui::ignoringErrors([this] { LoadUsers(); });
    ui::ignoringErrors([this] { LoadSiteData(); });
    ui::ignoringErrors([this] { LoadDicomPrinters(); });
}

void TessalyManager::LoadNodes() {
    nodes_->LoadNodes();
}

void TessalyManager::LoadFTPNodes() {
    ftpNodes_->LoadFTPNodes();
}

void TessalyManager::LoadPortNodes(const QString& port) {
    localServer_->LoadPortNodes(port);
}

void TessalyManager::LoadPorts() {
    localServer_->LoadPorts();
}

void TessalyManager::LoadDicomPrinters() {
    printers_->LoadDicomPrinters();
}

void TessalyManager::LoadUsers() {
    users_->LoadUsers();
}

void TessalyManager::LoadSiteData() {
    site_->LoadSiteData();
}

QString TessalyManager::selectedPort() const {
    return localServer_->selectedPort();
}

void TessalyManager::setImageRoot(const QString& root) {
    administration_->database().setImageRoot(root);
}

void TessalyManager::TerminateServer() {
    server_->call(&server::Server::Terminate);
}

void TessalyManager::DropServer() {
    server_->dropServer();
}

void TessalyManager::setConnectionTimerEnabled(bool enabled) {
    server_->setTimerEnabled(enabled);
}

void TessalyManager::RefreshServerState() {
    server_->RefreshServerState();
}

void TessalyManager::closeEvent(QCloseEvent* event) {
    // The question is about the server alone; it cannot keep the window open.
    if (Globals::ConfigChanged() &&
        ui::messageBox(this,
                       u"The server parameters have been modified. Do you want to restart the server?"_s,
                       ui::BoxStyle::YesNo) == ui::Answer::Yes)
        ui::ignoringErrors([this] { server_->call(&server::Server::Restart); });
    event->accept();
    ui::endConsole(0);
}

void TessalyManager::mnuToolsRepair_Click() {
    if (repair_) {  // the pass processes events: the menu can be used again before it has returned
        repair_->activateWindow();
        return;
    }
    maintenance::frmRepairDB form{*this, this};
    repair_ = &form;
    form.show();
    form.Repair();
}

void TessalyManager::mnuHelpAbout_Click() {
    frmAbout{this}.exec();
}

}  // namespace tessaly
