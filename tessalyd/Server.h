#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "tessalyd/Configuration.h"
#include "tessalyd/archive/ArchiveIndex.h"
#include "tessalyd/archive/DatabaseWatch.h"
#include "tessalyd/archive/Decoder.h"
#include "tessalyd/archive/LeftoverCleaner.h"
#include "tessalyd/association/AssociationThreads.h"
#include "tessalyd/association/Listener.h"
#include "tessalyd/association/OpenAssociations.h"
#include "tessalyd/association/Service.h"
#include "tessalyd/association/Transport.h"
#include "tessalyd/services/QueryAccess.h"

namespace tessaly::tessalyd {

/// The DICOM server: configuration, listeners, associations. start(), stop() and shutDown() take their time
/// and belong to one thread at a time; everything else may be called from any.
class Server {
  public:
    /// The events as OpenAssociations: called in the associations' threads. `addresses` are those that are
    /// listened on, numeric; none: all of this machine.
    Server(OpenAssociations::Event opened, OpenAssociations::Event ended,
           std::vector<std::string> addresses = {});
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Reads the configuration and listens on every port that can be bound, on each of the addresses; the
    /// others are in the log. Throws db::Error when there is no configuration to be had: nothing listens
    /// then.
    void start();
    /// Listens no more; open associations go on.
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
    void configure(const Configuration& configuration);
    void watchDatabase(const db::Connection& connection);
    void closeSessions();
    void listen(const PortConfiguration& port);
    void accept(const std::shared_ptr<const PortConfiguration>& port, FileDescriptor socket,
                const std::stop_token& listening);

    std::vector<std::string> addresses_;  ///< an empty text for all of them
    Decoders decoders_;
    Transport transport_;
    OpenAssociations open_;
    ArchiveIndex index_;
    QueryAccess queries_;
    ServiceFactory services_;
    AssociationThreads threads_;
    std::optional<LeftoverCleaner> cleaner_;
    std::optional<DatabaseWatch> watch_;
    std::vector<std::unique_ptr<Listener>> listeners_;
    std::atomic<bool> listening_{false};
    std::atomic<int> portsBound_{0};
};

}  // namespace tessaly::tessalyd
