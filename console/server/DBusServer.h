#pragma once

#include <memory>

#include "console/server/Server.h"
#include "serverproxy.h"

namespace tessaly::server {

class ServerBus;

/// The server as an object on the session bus, tied to the one process that had the server's name when it was
/// made: when that process is gone every call fails, and no event of another one comes.
class DBusServer : public Server {
    Q_OBJECT

  public:
    /// Starts the server if none runs. Throws std::runtime_error.
    explicit DBusServer(std::shared_ptr<ServerBus> bus);
    ~DBusServer() override;

    void Start() override;
    void Stop() override;
    void Restart() override;
    [[nodiscard]] Status GetStatus() override;
    void RegisterService() override;
    void UnregisterService() override;
    [[nodiscard]] bool IsService() override;
    void Terminate() override;

  private:
    /// Makes one call, `ask`, and waits for its reply.
    template <class Ask>
    auto call(Ask ask);

    std::shared_ptr<ServerBus> bus_;
    ServerProxy proxy_;
};

/// Makes DBusServers that share what is known of the server's process.
[[nodiscard]] ServerFactory dbusServerFactory();

}  // namespace tessaly::server
