#pragma once

#include <QStatusBar>

#include "console/server/StatusDisplay.h"

class QLabel;

namespace tessaly {

/// The main window's status bar: panel 1 is the server's state, word and icon, panel 2 a text beside it.
class StatusBar : public QStatusBar, public server::StatusDisplay {
    Q_OBJECT

  public:
    explicit StatusBar(QWidget* parent = nullptr);

    void showState(State state) override;
    void showText(const QString& text) override;

  private:
    QLabel* stsBarIcon1_;  // has the icon's key in its property "key"
    QLabel* stsBarText1_;
    QLabel* stsBarText2_;
};

}  // namespace tessaly
