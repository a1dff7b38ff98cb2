#pragma once

#include "app/MainWindowOperations.h"
#include "ui/ListPanel.h"

namespace tessaly::users {

/// The page "Site Parameters" of the main window.
class SitePage : public QWidget {
    Q_OBJECT

  public:
    explicit SitePage(MainWindowOperations& window, QWidget* parent = nullptr);

    void LoadSiteData();

  private:
    MainWindowOperations& window_;
};

}  // namespace tessaly::users
