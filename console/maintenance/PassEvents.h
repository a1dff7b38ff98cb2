#pragma once

#include <QObject>

class QWidget;

namespace tessaly::maintenance {

class SharedRead;

/// Handles the user interface's events between the rows of a pass, as long as it lives. Whatever comes, the
/// shared read is let go of before its handler runs.
class PassEvents : public QObject {
    Q_OBJECT

  public:
    PassEvents(SharedRead& read, QWidget& form);

    /// Everything that is pending.
    void handle();
    /// Only what is meant for the form, and repaints: what is clicked or typed elsewhere is lost. For the
    /// moment in which a table is being read, when nobody may write on the connection.
    void handleOwn();

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    SharedRead& read_;
    QWidget& form_;
    bool ownOnly_ = false;
};

}  // namespace tessaly::maintenance
