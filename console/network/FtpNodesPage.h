#pragma once

#include "console/network/NetworkLists.h"
#include "console/ui/ListPanel.h"

namespace tessaly::network {

/// The page "FTP Nodes" of the main window.
class FtpNodesPage : public ui::ListPanel {
    Q_OBJECT

  public:
    explicit FtpNodesPage(NetworkLists& lists, QWidget* parent = nullptr);

    void LoadFTPNodes();

  private:
    void edit(const QString& name);
    void cmdFTPModify_Click();
    void cmdFTPDelete_Click();

    NetworkLists& lists_;
};

}  // namespace tessaly::network
