#pragma once

#include "console/network/NetworkLists.h"
#include "console/ui/ListPanel.h"

class QLabel;

namespace tessaly::network {

/// The page "Local server" of the main window: the listening ports, and the nodes that the selected one
/// accepts.
class LocalServerPage : public QWidget {
    Q_OBJECT

  public:
    explicit LocalServerPage(NetworkLists& lists, QWidget* parent = nullptr);

    void LoadPorts();
    void LoadPortNodes(const QString& port);

    /// Throws std::runtime_error when no port is selected.
    [[nodiscard]] QString selectedPort() const { return ports_->list().selectedText(); }

  Q_SIGNALS:
    /// The root that images are stored below, as the ports have it.
    void imageRootRead(const QString& root);

  private:
    void edit(const QString& port);
    void cmdEditPort_Click();
    void cmdDelPort_Click();
    void cmdAddPortNode_Click();
    void cmdDelPortNode_Click();

    NetworkLists& lists_;
    ui::ListPanel* ports_;
    QLabel* lblAcceptedNodes_;
    ui::ListPanel* portNodes_;
};

}  // namespace tessaly::network
