#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>

#include "console/ui/ConsoleEnd.h"
#include "maintenance/Progress.h"

namespace tessaly::maintenance {

/// Lets the window repaint during a pass, without any input: what is clicked waits, closing included. The
/// pass stops when the console ends meanwhile.
class RepaintProgress : public Progress {
  public:
    using Progress::breathe;
    void breathe(const LetGo& /*letGo*/) override {
        if (!due_.hasExpired())
            return;
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
        due_.setRemainingTime(Interval);
    }
    [[nodiscard]] bool isStopRequested() override { return ui::isConsoleEnding(); }

  private:
    static constexpr int Interval = 20;  // ms
    QDeadlineTimer due_{0};
};

}  // namespace tessaly::maintenance
