#include "tessalyd/association/Transport.h"

#include <dcmtk/dcmnet/dcmlayer.h>
#include <dcmtk/dcmnet/dul.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "dicom/net/transport/BoundedConnection.h"
#include "tessalyd/Log.h"
#include "tessalyd/association/CommandLengthLimit.h"

namespace tessaly::tessalyd {

namespace {

class Connection final : public dicom::BoundedConnection {
  public:
    /// Until endRequest() no wait goes beyond the limit of the request, however many there are.
    Connection(int socket, const std::stop_token& stop, const AssociationLimits& limits)
        : Connection(socket,
                     std::make_shared<dicom::IoLimits>(stop, Clock::now() + limits.request, limits.message),
                     limits) {}
    ~Connection() override { logClose(); }

    void endRequest() {
        hasRequested_ = true;
        applyLimits();
    }

    void close() override {
        BoundedConnection::close();
        logClose();
    }
    void closeTransportConnection() override {
        BoundedConnection::closeTransportConnection();
        logClose();
    }

  protected:
    [[nodiscard]] bool arrived(std::span<const char> bytes) override {
        const std::uint64_t before = meter_.begun();
        if (!meter_.follow(bytes))
            return false;
        if (meter_.begun() != before) {
            begun_ = Clock::now();
            reading().restart(limits_.message);
        }
        if (hasRequested_)
            applyLimits();
        return true;
    }
    [[nodiscard]] std::uint64_t incomplete() const override { return meter_.incomplete(); }
    void received(ssize_t bytes) override {
        OFLOG_DEBUG(dumpLog(Dump::Socket), "socket " << getSocket() << ": received " << bytes << " bytes");
    }
    void sent(std::size_t bytes) override {
        OFLOG_DEBUG(dumpLog(Dump::Socket), "socket " << getSocket() << ": sent " << bytes << " bytes");
    }

  private:
    using Clock = dicom::IoLimits::Clock;
    using Phase = CommandLengthLimit::Phase;

    Connection(int socket, std::shared_ptr<dicom::IoLimits> ioLimits, const AssociationLimits& limits)
        : BoundedConnection(socket, ioLimits), ioLimits_(std::move(ioLimits)), limits_(limits) {}

    /// Those of where the peer is in what it sends.
    void applyLimits() {
        const Phase phase = meter_.phase();
        ioLimits_->setDeadline(phase == Phase::Command ? begun_ + limits_.command
                                                       : dicom::IoLimits::NoDeadline);
        if (phase == Phase::Between)
            reading().restart({.silence = limits_.idle});
    }

    void logClose() {
        if (!closed_)
            OFLOG_DEBUG(dumpLog(Dump::Socket), "socket " << number_ << ": closed");
        closed_ = true;
    }

    std::shared_ptr<dicom::IoLimits> ioLimits_;
    AssociationLimits limits_;
    CommandLengthLimit meter_;
    Clock::time_point begun_;  // of the last message
    bool hasRequested_ = false;
    const int number_ = getSocket();
    bool closed_ = false;
};

/// The toolkit takes an accepted socket through a variable of the whole process, and reads it before it asks
/// its transport layer for a connection: from one to the other the handover belongs to one thread.
struct Handover {
    const std::stop_token& stop;
    const AssociationLimits& limits;
    std::unique_lock<std::mutex> turn;
    Connection* connection = nullptr;  // when it was taken
};
std::mutex handoverTurn;
thread_local Handover* handover = nullptr;
constexpr int NoSocket = -1;

class Layer final : public DcmTransportLayer {
  public:
    DcmTransportConnection* createConnection(DcmNativeSocketType socket, OFBool /*secure*/) override {
        dcmExternalSocketHandle.set(NoSocket);
        handover->turn.unlock();
        handover->connection = new Connection{socket, handover->stop, handover->limits};
        return handover->connection;
    }
};

}  // namespace

Transport::Transport(const AssociationLimits& limits) : limits_(limits) {
    dcmDisableGethostbyaddr.set(OFTrue);  // a look-up of the peer's name may take longer than its patience
    // With a socket given from outside the toolkit opens no port of its own; any number will do here.
    const std::lock_guard turn{handoverTurn};
    dcmExternalSocketHandle.set(STDIN_FILENO + 1);
    const OFCondition made =
        ASC_initializeNetwork(NET_ACCEPTOR, 0, static_cast<int>(limits.request.count()), &network_);
    dcmExternalSocketHandle.set(NoSocket);
    if (made.bad())
        throw std::runtime_error{made.text()};
    ASC_setTransportLayer(network_, new Layer, OFTrue);
}

Transport::~Transport() {
    ASC_dropNetwork(&network_);
}

OFCondition Transport::receive(base::FileDescriptor socket, const std::stop_token& stop,
                               AssociationPtr& association) {
    Handover mine{.stop = stop, .limits = limits_, .turn = std::unique_lock{handoverTurn}};
    handover = &mine;
    dcmExternalSocketHandle.set(socket.get());
    T_ASC_Association* raw = nullptr;
    const OFCondition received = ASC_receiveAssociation(network_, &raw, ASC_MAXIMUMPDUSIZE);
    handover = nullptr;
    association.reset(raw);
    if (mine.connection != nullptr)
        static_cast<void>(socket.release());  // the connection closes it
    else
        dcmExternalSocketHandle.set(NoSocket);
    if (received.bad())
        return received;
    // To the toolkit a connection that closes or stays silent is no fault; only a request has contexts.
    if (ASC_countPresentationContexts(raw->params) == 0)
        return DUL_NETWORKCLOSED;
    mine.connection->endRequest();
    return received;
}

}  // namespace tessaly::tessalyd
