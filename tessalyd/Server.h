#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "archive/LeftoverCleaner.h"
#include "decoder/Pool.h"
#include "jobs/Runner.h"
#include "tessalyd/association/AssociationLimits.h"
#include "tessalyd/association/AssociationThreads.h"
#include "tessalyd/association/Listener.h"
#include "tessalyd/association/OpenAssociations.h"
#include "tessalyd/association/PeerLog.h"
#include "tessalyd/association/Service.h"
#include "tessalyd/association/Transport.h"
#include "tessalyd/configuration/Configuration.h"
#include "tessalyd/services/ServiceContext.h"
#include "tessalyd/store/DatabaseWatch.h"

namespace tessaly::tessalyd {

/// The DICOM server: configuration, listeners, associations. start(), stop() and shutDown() take their time
/// and belong to one thread at a time; everything else may be called from any.
class Server {
  public:
    /// The events as OpenAssociations: called in the associations' threads. `addresses` are those that are
    /// listened on, numeric; none: all of this machine.
    Server(OpenAssociations::Event opened, OpenAssociations::Event ended, decoder::Pool::Options decoding,
           std::vector<std::string> addresses = {}, const jobs::RunnerOptions& jobs = {},
           std::chrono::seconds peerTimeout = std::chrono::seconds{60}, const AssociationLimits& limits = {});
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Reads the configuration and listens on every port that can be bound, on each of the addresses; the
    /// others are in the log. Throws std::runtime_error when the configuration cannot be read or none of its
    /// ports can be bound, and ReadingStopped: nothing listens then.
    void start(const std::stop_token& stop = {});
    /// Tries once more what could not be bound, by the configuration of start(). Each success is in the log.
    void bindMissing();
    /// A port is not bound on an address and may be later. For the thread of start().
    [[nodiscard]] bool hasMissing() const noexcept { return !missing_.empty(); }
    /// Listens no more, and does no jobs; open associations go on.
    void stop();

    struct Status {
        bool listening = false;
        int openAssociations = 0;
        int portsBound = 0;  ///< those that are, on all addresses
    };
    [[nodiscard]] Status status() const;

    /// Names all connections so far, for abortThrough().
    [[nodiscard]] std::uint64_t latestConnection() const { return threads_.latest(); }
    /// Aborts those that are still open.
    void abortThrough(std::uint64_t connection) { threads_.stopThrough(connection); }

    /// Stops, aborts what is open, waits for its end and closes the database; the server is not used
    /// afterwards.
    void shutDown();

  private:
    /// A port on one of the addresses.
    struct Endpoint {
        std::shared_ptr<const PortConfiguration> port;
        std::string address;  ///< empty: all

        [[nodiscard]] std::string name() const;
    };

    void configure(const Configuration& configuration);
    void bindAll(const std::vector<PortConfiguration>& ports);
    /// Returns why not; nothing when it listens.
    [[nodiscard]] std::optional<std::string> bind(const Endpoint& endpoint);
    [[nodiscard]] bool isBound(const PortConfiguration& port) const;
    void countBound();
    void forgetPorts();
    void watchDatabase(const Configuration& configuration);
    void accept(const std::shared_ptr<const PortConfiguration>& port, base::FileDescriptor socket,
                const std::stop_token& listening);

    std::vector<std::string> addresses_;  ///< an empty text for all of them
    decoder::Pool decoders_;
    AssociationLimits limits_;
    PeerLog log_;
    Transport transport_;
    OpenAssociations open_;
    ServiceContext shared_;
    jobs::Runner jobs_;
    ServiceFactory services_;
    AssociationThreads threads_;
    std::optional<archive::LeftoverCleaner> cleaner_;
    std::optional<DatabaseWatch> watch_;
    std::vector<std::unique_ptr<Listener>> listeners_;
    std::vector<std::shared_ptr<const PortConfiguration>> ports_;  ///< those with a TCP port
    std::vector<Endpoint> missing_;                                ///< of these, what could not be bound
    std::atomic<bool> listening_{false};
    std::atomic<int> portsBound_{0};
};

}  // namespace tessaly::tessalyd
