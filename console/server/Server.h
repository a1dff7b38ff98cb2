#pragma once

#include <QObject>
#include <functional>
#include <memory>

namespace tessaly::server {

/// The running server as the console controls it. Every operation is synchronous and bounded; it throws
/// std::runtime_error when the server refuses, does not answer in time or is gone, and the object is then
/// best dropped: a server that comes back is another object. For the user-interface thread alone; the events
/// come there too, between its other messages.
class Server : public QObject {
    Q_OBJECT

  public:
    struct Status {
        int state = 0;  ///< 0 listening, 2 stopped; other codes may come
        int openAssociations = 0;
        int portsBound = 0;
    };

    virtual void Start() = 0;
    virtual void Stop() = 0;
    /// Rereads the configuration and listens.
    virtual void Restart() = 0;
    [[nodiscard]] virtual Status GetStatus() = 0;
    virtual void RegisterService() = 0;
    virtual void UnregisterService() = 0;
    /// Whether the operating system starts it as a service.
    [[nodiscard]] virtual bool IsService() = 0;
    /// Ends the server process. When it returns the process is out of the way: a new object gets a new one.
    virtual void Terminate() = 0;

  Q_SIGNALS:
    void OnConnection(const QString& port, const QString& callingAeTitle, const QString& calledAeTitle,
                      short openAssociations);
    void OnEndConnection(const QString& port, const QString& callingAeTitle, const QString& calledAeTitle,
                         int unused);
    void OnStart();
    void OnStop();

  protected:
    using QObject::QObject;
};

/// Makes the object of the running server and starts the server where none runs. Throws std::runtime_error
/// when there is no server to be had; bounded like the operations.
using ServerFactory = std::function<std::unique_ptr<Server>()>;

}  // namespace tessaly::server
