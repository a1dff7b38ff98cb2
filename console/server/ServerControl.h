#pragma once

#include <QTimer>
#include <memory>

#include "console/server/ConnectionMonitor.h"
#include "console/server/Server.h"
#include "console/server/StatusDisplay.h"

namespace tessaly::server {

class ServerFrame;

/// Drives the server from the controls of its frame and keeps these and the status bar true to its state.
/// Holds the one Server object of the console; having none is a normal state, which lasts until the next
/// look, once a second. The frame and the display must outlive it.
class ServerControl : public QObject {
    Q_OBJECT

  public:
    ServerControl(ServerFactory factory, ServerFrame& frame, StatusDisplay& display);
    ~ServerControl() override;

    /// Makes the Server object. Throws std::runtime_error when there is no server to be had.
    void createServer();
    void dropServer() { server_.reset(); }

    /// Reads the state and shows it; makes the Server object first when there is none. Any failure is shown
    /// as the state "Error", once: the next look tries again. Never throws.
    void RefreshServerState();
    /// Shows whether there is a Server object in cmdLoad and chkService.
    void ShowLoadState();
    /// ShowLoadState(), and in chkService whether the server is registered as a service.
    void showService();

    /// Calls one operation of the Server object; nothing without one. Throws std::runtime_error when it
    /// fails.
    void call(void (Server::*operation)());

    /// Suspends or resumes the look once a second.
    void setTimerEnabled(bool enabled);

  private:
    void timerCheckConnections_Timer();
    void command(void (Server::*operation)());
    void cmdLoad_Click();
    void chkService_MouseUp();
    void showState(int code);
    void showError();

    ServerFactory factory_;
    ServerFrame& frame_;
    StatusDisplay& display_;
    ConnectionMonitor monitor_;
    QTimer* timerCheckConnections_;   // the frame's
    std::unique_ptr<Server> server_;  // goes first: its last events are for the monitor
};

}  // namespace tessaly::server
