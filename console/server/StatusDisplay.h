#pragma once

#include <QString>

namespace tessaly::server {

/// The two panels of the status bar, as the server's control and the connection monitor write them.
class StatusDisplay {
  public:
    enum class State { Listening, Stopped, Connected, Error };

    virtual ~StatusDisplay() = default;

    /// Panel 1: the state's word and icon.
    virtual void showState(State state) = 0;
    /// Panel 2.
    virtual void showText(const QString& text) = 0;
};

}  // namespace tessaly::server
