#pragma once

#include <QDBusContext>
#include <QObject>
#include <QTimer>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

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
    std::filesystem::path lingerMark;  ///< as SystemService
    long logBytes = 0;
    std::chrono::seconds grace{0};            ///< for associations that are open when the server is stopped
    std::vector<std::string> addresses = {};  ///< that are listened on, numeric; none: all
    std::chrono::seconds retryInterval{5};    ///< between attempts to listen
    decoder::Pool::Options decoding = {};
    jobs::RunnerOptions jobs = {};
    std::chrono::seconds peerTimeout{60};  ///< for each answer of a printer
};

/// The server on the session bus. Its methods are answered soon even when what they start takes long:
/// commands run one after the other in a thread of their own, and what they have come to is in GetStatus.
///
/// It is to listen from the start on, until Stop. What keeps it from that (no database, no tables, a port in
/// use) is tried again at an interval for as long.
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
    void RegisterService();
    void UnregisterService();
    void Terminate();

  signals:
    void OnConnection(const QString& port, const QString& callingAeTitle, const QString& calledAeTitle,
                      short openAssociations);
    void OnEndConnection(const QString& port, const QString& callingAeTitle, const QString& calledAeTitle,
                         int openAssociations);
    void OnStart();
    void OnStop();
    /// After Terminate: everything that the server does has ended.
    void finished();

  private:
    class PendingReply;

    [[nodiscard]] std::shared_ptr<PendingReply> replyLater();
    [[nodiscard]] SystemService::Done answering();
    void perform(std::function<void()> command);
    [[nodiscard]] std::stop_token wish();
    void start(const std::stop_token& wish);
    void stop();
    void retry(const std::stop_token& wish);
    void retryLater();
    void listens();
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
    QTimer retryTimer_;
    /// Stop and Terminate request its stop: nobody wants the server to listen any more.
    std::stop_source wish_;
    bool failing_ = false;  ///< of the commands' thread: the log says that it does not listen
    bool terminating_ = false;
};

}  // namespace tessaly::tessalyd
