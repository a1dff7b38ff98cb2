#pragma once

#include "app/MainWindowOperations.h"
#include "ui/ListPanel.h"

namespace tessaly::network {

/// The page "Local server" of the main window.
class LocalServerPage : public QWidget {
    Q_OBJECT

  public:
    explicit LocalServerPage(MainWindowOperations& window, QWidget* parent = nullptr);

    void LoadPorts();
    void LoadPortNodes(const QString& port);

  private:
    MainWindowOperations& window_;
};

}  // namespace tessaly::network
