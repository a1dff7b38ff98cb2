#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

namespace tessaly::tessalyd {

/// What an event says of an association. The titles are as the peer sent them, without the blanks around
/// them.
struct AssociationNames {
    std::string port;
    std::string callingAeTitle;
    std::string calledAeTitle;
    std::uint64_t address = 0;  ///< of the peer's host (SocketAddress::hostKey)

    /// For the log, which escapes what is not printable.
    [[nodiscard]] std::string text() const {
        return callingAeTitle + " > " + calledAeTitle + " on port " + port;
    }
};

/// Of one port.
struct Places {
    int all = 0;
    int reserved = 0;  ///< that only nodes may take
};

/// Counts the open associations, decides who has a place on a port, and reports each opening and each end, in
/// order and with the total of open ones. Thread-safe.
///
/// On a port that is full, a newcomer gets the place of that association which has been idle for longest, of
/// an address that has more than half of the places. A stranger takes no node's place. For a minute after
/// somebody found the port full, no other address may take more than half of the places.
class OpenAssociations {
  public:
    using Clock = std::chrono::steady_clock;
    /// Called with a lock held, so that events come in the order of their totals: it is to be quick and to
    /// call nothing of this class.
    using Event = std::function<void(const AssociationNames&, int total)>;
    static constexpr std::chrono::milliseconds KnockMemory{60'000};

    OpenAssociations(Event opened, Event ended, std::chrono::milliseconds knockMemory = KnockMemory)
        : opened_(std::move(opened)), ended_(std::move(ended)), knockMemory_(knockMemory) {}

    struct Peer {
        std::uint64_t address = 0;  ///< of its host
        bool isNode = false;        ///< of the port
        /// Stopped when another takes its place.
        std::stop_source stop = std::stop_source{std::nostopstate};
    };

  private:
    struct Record {
        Record(AssociationNames itsNames, Peer itsPeer)
            : names(std::move(itsNames)), peer(std::move(itsPeer)) {}
        AssociationNames names;
        Peer peer;
        std::atomic<Clock::rep> idleSince = Busy;
        std::atomic<bool> isDisplaced = false;  // its place is another's; set with the lock held
    };
    using Records = std::list<Record>;
    static constexpr Clock::rep Busy = Clock::time_point::max().time_since_epoch().count();

  public:
    /// One open association; its destructor is the one end of it.
    class Entry {
      public:
        Entry(OpenAssociations& owner, Records::iterator record) : owner_(&owner), record_(record) {}
        ~Entry() {
            if (owner_ != nullptr)
                owner_->end(record_);
        }
        Entry(Entry&& other) noexcept
            : owner_(std::exchange(other.owner_, nullptr)), record_(other.record_) {}
        Entry& operator=(Entry&&) = delete;

        /// It waits for the peer's next request from now on.
        void setIdle() { record_->idleSince = Clock::now().time_since_epoch().count(); }
        void setBusy() { record_->idleSince = Busy; }
        [[nodiscard]] bool isDisplaced() const { return record_->isDisplaced; }

      private:
        OpenAssociations* owner_;
        Records::iterator record_;
    };

    /// Returns nullopt if there is no place.
    [[nodiscard]] std::optional<Entry> open(AssociationNames names, Peer peer, const Places& places);

    [[nodiscard]] int total() const;

  private:
    /// Somebody found the port full.
    struct Knock {
        std::uint64_t address;
        bool isNode;
        Clock::time_point time;
    };
    struct Port {
        Records records;
        std::vector<Knock> knocks;  // the latest at the end, each of another address
    };

    [[nodiscard]] bool hasRoom(const Port& port, const Peer& peer, const Places& places) const;
    [[nodiscard]] static Record* displaceable(Port& port, const Peer& peer, const Places& places);
    static void noteKnock(Port& port, const Peer& peer);
    void end(Records::iterator record);

    Event opened_;
    Event ended_;
    std::chrono::milliseconds knockMemory_;
    mutable std::mutex mutex_;
    std::map<std::string, Port> ports_;
    int total_ = 0;
};

}  // namespace tessaly::tessalyd
