#pragma once

#include <QMainWindow>
#include <QPointer>

#include <memory>

#include "console/network/NetworkLists.h"
#include "console/printers/PrinterList.h"
#include "console/server/Server.h"
#include "console/session/ServerOperations.h"
#include "console/users/UserList.h"

class QTabWidget;

namespace tessaly {

class AdministrationPage;
class StatusBar;
namespace maintenance {
class frmRepairDB;
}
namespace network {
class FtpNodesPage;
class LocalServerPage;
class NodesPage;
}  // namespace network
namespace printers {
class PrintersPage;
}
namespace server {
class ServerControl;
}
namespace users {
class SitePage;
class UsersPage;
}  // namespace users

/// The console's one main window: puts the pages together and forwards each reload to the page that owns it.
/// Closing it ends the console.
class TessalyManager : public QMainWindow,
                       public network::NetworkLists,
                       public printers::PrinterList,
                       public users::UserList,
                       public ServerOperations {
    Q_OBJECT

  public:
    TessalyManager();
    /// With a server of the caller's choice.
    explicit TessalyManager(server::ServerFactory serverFactory);
    ~TessalyManager() override;

    /// Makes the Server object and fills every page from the database; one that fails reports it and does not
    /// stop the others.
    void load();

    void LoadNodes() override;
    void LoadFTPNodes() override;
    void LoadPortNodes(const QString& port) override;
    void LoadPorts() override;
    void LoadDicomPrinters() override;
    void LoadUsers() override;
    void LoadSiteData();
    /// Preset of both path boxes of the image path relocation.
    void setImageRoot(const QString& root);
    [[nodiscard]] QString selectedPort() const override;
    void TerminateServer() override;
    void DropServer() override;
    void setConnectionTimerEnabled(bool enabled) override;
    void RefreshServerState() override;

  protected:
    void closeEvent(QCloseEvent* event) override;

  private:
    void buildPages();
    void buildMenus();
    void mnuToolsRepair_Click();
    void mnuHelpAbout_Click();

    QTabWidget* tabNodes_;
    network::NodesPage* nodes_;
    network::LocalServerPage* localServer_;
    network::FtpNodesPage* ftpNodes_;
    AdministrationPage* administration_;
    users::UsersPage* users_;
    users::SitePage* site_;
    printers::PrintersPage* printers_;
    StatusBar* stsBar_;
    std::unique_ptr<server::ServerControl> server_;
    QPointer<maintenance::frmRepairDB> repair_;  // while its pass runs
};

}  // namespace tessaly
