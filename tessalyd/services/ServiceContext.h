#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

#include "decoder/Pool.h"
#include "tessalyd/association/OutboundSlots.h"
#include "tessalyd/configuration/Configuration.h"
#include "tessalyd/configuration/RemoteNodes.h"
#include "tessalyd/search/QuerySessions.h"
#include "tessalyd/services/JobSessions.h"
#include "tessalyd/store/ArchiveIndex.h"

namespace tessaly::tessalyd {

/// What one configuration says to the services. Does not change.
struct ServiceSettings {
    std::shared_ptr<const RemoteNodes> nodes;
    std::chrono::seconds queryTimeout{0};  ///< of one statement; zero: without limit
    bool hasOlderRows = false;             ///< the archive has rows that an upgrade has not filled yet
};

/// What the services of all associations share. A new service that needs something of the server's finds it
/// here. Thread-safe.
class ServiceContext {
  public:
    /// The decoders outlive it.
    explicit ServiceContext(decoder::Pool& pool) : decoders(pool) {}

    /// Holds for the associations that are accepted from now on. Sessions are opened anew.
    void configure(const Configuration& configuration);
    /// Of the last configuration.
    [[nodiscard]] std::shared_ptr<const ServiceSettings> settings() const;
    /// Closes the sessions with the database that nobody uses; the others when they come back.
    void closeSessions();

    ArchiveIndex index;           ///< writes what is stored into the tables
    QuerySessions sessions;       ///< read the tables for queries and retrievals
    JobSessions jobs;             ///< write the tables of jobs
    decoder::Pool& decoders;      ///< convert objects from one transfer syntax to another
    OutboundSlots outboundSlots;  ///< for associations of ours to others
    /// A job was committed, or dropped: to be called behind that. Set before the first association.
    std::function<void()> wakeJobs = [] {};
    /// How long nothing may come for a series before what was stored of it for an FTP node is delivered.
    std::atomic<std::chrono::seconds> quietTime{std::chrono::seconds{60}};

  private:
    mutable std::mutex mutex_;
    std::shared_ptr<const ServiceSettings> settings_;
};

}  // namespace tessaly::tessalyd
