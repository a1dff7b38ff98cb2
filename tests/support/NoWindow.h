#pragma once

#include "console/session/MainWindowOperations.h"

namespace tessaly::test {

/// A main window that does nothing, for a form that needs one.
class NoWindow : public MainWindowOperations {
  public:
    void TerminateServer() override {}
    void DropServer() override {}
    void setConnectionTimerEnabled(bool /*enabled*/) override {}
    void RefreshServerState() override {}
    void LoadNodes() override {}
    void LoadFTPNodes() override {}
    void LoadPortNodes(const QString& /*port*/) override {}
    void LoadPorts() override {}
    void LoadDicomPrinters() override {}
    void LoadUsers() override {}
    void LoadSiteData() override {}
    [[nodiscard]] QString selectedPort() const override { return {}; }
    void setImageRoot(const QString& /*root*/) override {}
};

}  // namespace tessaly::test
