#pragma once

#include "console/session/MainWindowOperations.h"
#include "console/ui/ListPanel.h"

namespace tessaly::network {

/// The page "Dicom Nodes" of the main window.
class NodesPage : public ui::ListPanel {
    Q_OBJECT

  public:
    explicit NodesPage(MainWindowOperations& window, QWidget* parent = nullptr);

    void LoadNodes();

  private:
    void edit(const QString& name);
    void cmdModifyNode_Click();
    void cmdDelNode_Click();

    MainWindowOperations& window_;
};

}  // namespace tessaly::network
