#pragma once

#include <QDBusContext>
#include <QObject>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "decoder/Pool.h"
#include "tessalyd/Log.h"
#include "tessalyd/Server.h"
#include "tessalyd/control/CommandThread.h"
#include "tessalyd/control/Mailbox.h"
#include "tessalyd/control/SystemService.h"

namespace tessaly::tessalyd {

/// What the command line says.
struct Options {
    std::filesystem::path logFile;
    long logBytes = 0;
    std::chrono::seconds grace{0};            ///< for associations that are open when the server is stopped
    std::vector<std::string> addresses = {};  ///< that are listened on, numeric; none: all
    decoder::Pool::Options decoding = {};
};

/// The server on the session bus. Its methods are answered soon even when what they start takes long:
/// commands run one after the other in a thread of their own, and what they have come to is in GetStatus.
class ControlObject : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_PROPERTY(bool IsService READ isService)

  public:
    ControlObject(QDBusConnection bus, Options options);
    ~ControlObject() override;

    /// Opens the log and listens. To be called once, when the name on the bus is owned: until then nothing of
    /// another instance's is touched. Throws std::exception when it cannot.
    void run();

    /// Closes everything; nothing but the name is left.
    void close();

    [[nodiscard]] bool isService() const { return service_.isEnabled(); }

  public slots:
    void Start();
    void Stop();
    void Restart();
    int GetStatus(int& openAssociations, int& portsBound);
    void RegisterService() { service_.enable(); }
    void UnregisterService() { service_.disable(); }
    void Terminate();

  signals:
    void OnConnection(const QString& port, const QString& callingAETitle, const QString& calledAETitle,
                      short openAssociations);
    void OnEndConnection(const QString& port, const QString& callingAETitle, const QString& calledAETitle,
                         int openAssociations);
    void OnStart();
    void OnStop();
    /// After Terminate: everything that the server does has ended.
    void finished();

  private:
    class PendingReply;

    void perform(std::function<void()> command);
    void start();
    void stop();
    void abortAfterGrace(std::uint64_t last);
    [[nodiscard]] OpenAssociations::Event emitter(void (ControlObject::*emitEvent)(const AssociationNames&,
                                                                                   int));
    void emitConnection(const AssociationNames& names, int total);
    void emitEndConnection(const AssociationNames& names, int total);

    Options options_;
    SystemService service_;
    std::optional<LogFile> log_;
    std::unique_ptr<Server> server_;
    Mailbox mailbox_;  ///< for what other threads want done in this one
    std::optional<CommandThread> commands_;
    bool terminating_ = false;
};

}  // namespace tessaly::tessalyd
