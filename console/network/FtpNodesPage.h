#pragma once

#include "console/session/MainWindowOperations.h"
#include "console/ui/ListPanel.h"

namespace tessaly::network {

/// The page "FTP Nodes" of the main window.
class FtpNodesPage : public ui::ListPanel {
    Q_OBJECT

  public:
    explicit FtpNodesPage(MainWindowOperations& window, QWidget* parent = nullptr);

    void LoadFTPNodes();

  private:
    void edit(const QString& name);
    void cmdFTPModify_Click();
    void cmdFTPDelete_Click();

    MainWindowOperations& window_;
};

}  // namespace tessaly::network
