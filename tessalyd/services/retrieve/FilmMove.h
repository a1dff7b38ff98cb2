#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <unordered_set>

#include "tessalyd/association/PeerLog.h"
#include "tessalyd/forwarding/films/PrinterRow.h"
#include "tessalyd/search/InstanceList.h"
#include "tessalyd/services/ServiceContext.h"
#include "tessalyd/services/retrieve/MoveProgress.h"

namespace tessaly::tessalyd {

/// Composes the films of one C-MOVE to a printer, in a thread of its own, and queues them. What is queued is
/// printed, whatever becomes of the move. The destructor stops it and waits for its end, which is soon.
class FilmMove {
  public:
    struct Order {
        films::PrinterRow printer;
        std::string baseUid;          ///< of the site
        std::string callingAeTitle;   ///< that the printer is called with
        std::string originator;       ///< the AE title of whoever asks
        std::string root;             ///< of the archive that has the spool
        std::string name;             ///< of requestor and destination, for the log
        std::uint64_t requestor = 0;  ///< its host (SocketAddress::hostKey)
    };

    /// Context and log outlive it.
    FilmMove(Order order, InstanceList instances, ServiceContext& shared, PeerLog& log);
    ~FilmMove();
    FilmMove(const FilmMove&) = delete;
    FilmMove& operator=(const FilmMove&) = delete;

    /// Waits so long; true once it is over.
    [[nodiscard]] bool waitForEnd(std::chrono::milliseconds atMost) { return progress_.waitForEnd(atMost); }
    /// What has been done by now.
    [[nodiscard]] SubOperations progress() const { return progress_.operations(); }
    /// Ends it, in the middle of a film too: that leaves nothing.
    void cancel();
    /// There was no room for films: what was not done has failed. Once it is over.
    [[nodiscard]] bool lackedRoom() const noexcept { return lackedRoom_; }

  private:
    void run(const std::stop_token& stop);
    void compose(const std::stop_token& stop);
    void fail(const std::string& uid, const std::string& reason);
    void failRest();

    const Order order_;
    InstanceList instances_;
    ServiceContext& shared_;
    PeerLog& log_;
    std::unordered_set<std::string> told_;  // UIDs of what is completed or has failed

    MoveProgress progress_;
    std::atomic<bool> lackedRoom_ = false;

    std::jthread thread_;  // last: it uses the others
};

}  // namespace tessaly::tessalyd
