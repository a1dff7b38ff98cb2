#pragma once

#include <QObject>

#include "maintenance/Progress.h"

namespace tessaly::maintenance {

/// Handles the user interface's events between the rows of a pass, as long as it lives: everything that is
/// pending, whatever it is meant for. Knows when this opens something that waits for the user.
class PassEvents : public QObject {
    Q_OBJECT

  public:
    PassEvents();

    /// As Progress::breathe().
    void handle(const Progress::LetGo& letGo);

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    const int level_;  ///< of the event loop that the pass runs in
    Progress::LetGo letGo_;
};

}  // namespace tessaly::maintenance
