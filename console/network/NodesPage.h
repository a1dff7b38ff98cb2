#pragma once

#include "console/network/NetworkLists.h"
#include "console/ui/ListPanel.h"

namespace tessaly::network {

/// The page "Dicom Nodes" of the main window.
class NodesPage : public ui::ListPanel {
    Q_OBJECT

  public:
    explicit NodesPage(NetworkLists& lists, QWidget* parent = nullptr);

    void LoadNodes();

  private:
    void edit(const QString& name);
    void cmdModifyNode_Click();
    void cmdDelNode_Click();

    NetworkLists& lists_;
};

}  // namespace tessaly::network
