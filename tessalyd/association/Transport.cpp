#include "tessalyd/association/Transport.h"

#include <dcmtk/dcmnet/dcmlayer.h>
#include <dcmtk/dcmnet/dcmtrans.h>
#include <dcmtk/dcmnet/dul.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <vector>

#include "tessalyd/Log.h"
#include "tessalyd/association/CommandMeter.h"

namespace tessaly::tessalyd {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr seconds SendPatience{30};

void setFlag(int socket, int level, int option) {
    constexpr int On = 1;
    ::setsockopt(socket, level, option, &On, sizeof On);  // a kernel without it is only slower
}

class Connection final : public DcmTCPConnection {
  public:
    /// Until endRequest() no wait goes beyond `requestEnd`, however many there are.
    Connection(int socket, const std::stop_token& stop, steady_clock::time_point requestEnd)
        : DcmTCPConnection(socket), stop_(stop), latest_(requestEnd) {
        setFlag(socket, IPPROTO_TCP, TCP_NODELAY);
        setFlag(socket, SOL_SOCKET, SO_KEEPALIVE);  // a peer that lost its power never says so
        // Whoever polls or reads the socket comes back; writing goes on.
        wake_.emplace(stop, [socket] { ::shutdown(socket, SHUT_RD); });
    }
    ~Connection() override { letGo(); }

    void endRequest() { latest_ = steady_clock::time_point::max(); }

    ssize_t read(void* target, size_t size) override {
        if (begin_ == end_ && !(flush() && fill()))
            return received_;
        const std::size_t count = std::min(size, end_ - begin_);
        std::memcpy(target, ahead_.data() + begin_, count);
        begin_ += count;
        return static_cast<ssize_t>(count);
    }

    /// The upper layer writes a message in pieces: they go out together, once it turns to what comes back.
    ssize_t write(void* source, size_t size) override {
        const char* piece = static_cast<const char*>(source);
        waiting_.insert(waiting_.end(), piece, piece + size);
        return waiting_.size() < ahead_.size() || flush() ? static_cast<ssize_t>(size) : -1;
    }

    OFBool networkDataAvailable(int timeout) override {
        if (begin_ != end_)
            return OFTrue;
        // A failure to send is what the read then comes to.
        return !flush() || wait(POLLIN, seconds{timeout});
    }

    void close() override {
        static_cast<void>(flush());
        letGo();
        DcmTCPConnection::close();
    }
    void closeTransportConnection() override {
        static_cast<void>(flush());
        letGo();
        DcmTCPConnection::closeTransportConnection();
    }

  private:
    /// False at the end of the data and on an error; received_ then is what a read returns.
    bool fill() {
        received_ = -1;
        // The time between two parts of a message is the socket's own affair.
        if (latest_ != steady_clock::time_point::max() && !wait(POLLIN, SendPatience))
            return false;
        do {
            received_ = ::recv(getSocket(), ahead_.data(), ahead_.size(), 0);
        } while (received_ < 0 && errno == EINTR);
        setFlag(getSocket(), IPPROTO_TCP, TCP_QUICKACK);  // holds for the next segments only
        OFLOG_DEBUG(dumpLog(Dump::Socket),
                    "socket " << getSocket() << ": received " << received_ << " bytes");
        begin_ = 0;
        end_ = received_ > 0 ? static_cast<std::size_t>(received_) : 0;
        if (!meter_.follow({ahead_.data(), end_})) {
            received_ = -1;
            end_ = 0;
        }
        return end_ > 0;
    }

    /// False once something could not be sent; received_ then is what a read returns.
    bool flush() {
        for (std::size_t sent = 0; sent < waiting_.size() && !broken_;) {
            const ssize_t count = ::send(getSocket(), waiting_.data() + sent, waiting_.size() - sent,
                                         MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count > 0)
                sent += static_cast<std::size_t>(count);
            else
                broken_ = errno == EAGAIN ? !wait(POLLOUT, SendPatience) : errno != EINTR;
        }
        if (!waiting_.empty())
            OFLOG_DEBUG(dumpLog(Dump::Socket),
                        "socket " << getSocket() << ": sent " << waiting_.size() << " bytes");
        waiting_.clear();
        if (broken_)
            received_ = -1;
        return !broken_;
    }

    bool wait(short event, seconds patience) {
        const auto deadline = std::min(steady_clock::now() + patience, latest_);
        pollfd wanted{.fd = getSocket(), .events = event, .revents = 0};
        while (!stop_.stop_requested()) {
            const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
            const int ready =
                ::poll(&wanted, 1, static_cast<int>(std::max(left.count(), milliseconds::rep{0})));
            if (ready == 0 || (ready < 0 && errno != EINTR))
                break;
            if (ready > 0)
                return !stop_.stop_requested();
        }
        return false;
    }

    void letGo() {
        wake_.reset();  // waits for one that is being run: the socket is closed after this
        if (getSocket() >= 0)
            OFLOG_DEBUG(dumpLog(Dump::Socket), "socket " << getSocket() << ": closed");
    }

    std::stop_token stop_;
    std::optional<std::stop_callback<std::function<void()>>> wake_;
    std::vector<char> waiting_;  // to be sent
    bool broken_ = false;
    steady_clock::time_point latest_;
    CommandMeter meter_;
    std::array<char, 65536> ahead_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    ssize_t received_ = 0;
};

/// The toolkit takes an accepted socket through a variable of the whole process, and reads it before it asks
/// its transport layer for a connection: from one to the other the handover belongs to one thread.
struct Handover {
    const std::stop_token& stop;
    std::chrono::seconds requestPatience;
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
        handover->connection =
            new Connection{socket, handover->stop, steady_clock::now() + handover->requestPatience};
        return handover->connection;
    }
};

}  // namespace

Transport::Transport(int timeoutSeconds) : requestPatience_(timeoutSeconds) {
    dcmDisableGethostbyaddr.set(OFTrue);  // a look-up of the peer's name may take longer than its patience
    // With a socket given from outside the toolkit opens no port of its own; any number will do here.
    const std::lock_guard turn{handoverTurn};
    dcmExternalSocketHandle.set(STDIN_FILENO + 1);
    const OFCondition made = ASC_initializeNetwork(NET_ACCEPTOR, 0, timeoutSeconds, &network_);
    dcmExternalSocketHandle.set(NoSocket);
    if (made.bad())
        throw std::runtime_error{made.text()};
    ASC_setTransportLayer(network_, new Layer, OFTrue);
}

Transport::~Transport() {
    ASC_dropNetwork(&network_);
}

OFCondition Transport::receive(FileDescriptor socket, const std::stop_token& stop,
                               AssociationPtr& association) {
    Handover mine{.stop = stop, .requestPatience = requestPatience_, .turn = std::unique_lock{handoverTurn}};
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
