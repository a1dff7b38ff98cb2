#pragma once

#include "console/network/NetworkLists.h"
#include "console/ui/EditorDialog.h"
#include "console/ui/ReportList.h"

namespace tessaly::network {

/// The picker of nodes that a listening port is to accept as well.
class PortNodesSelection : public ui::EditorDialog {
    Q_OBJECT

  public:
    PortNodesSelection(NetworkLists& lists, QWidget* parent);

    /// Lists the nodes that the port does not accept yet and shows the picker modally; a failure is reported
    /// and nothing shown.
    void Init(const QString& port);

  protected:
    [[nodiscard]] bool save() override;
    void reload() override;

  private:
    void fill();

    NetworkLists& lists_;
    ui::ReportList* lstNodeSelection_;
    QString port_;
};

}  // namespace tessaly::network
