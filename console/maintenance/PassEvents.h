#pragma once

#include <QObject>

namespace tessaly::maintenance {

class RowWalk;

/// Handles the user interface's events between the rows of a pass, as long as it lives: everything that is
/// pending, whatever it is meant for. Where this opens something that waits for the user, the walk is let go
/// of: it would keep the database's log from shrinking, for as long as the user takes.
class PassEvents : public QObject {
    Q_OBJECT

  public:
    explicit PassEvents(RowWalk& walk);

    void handle();

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    RowWalk& walk_;
    const int level_;  ///< of the event loop that the pass runs in
};

}  // namespace tessaly::maintenance
