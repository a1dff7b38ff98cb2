#pragma once

#include <condition_variable>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>

namespace tessaly::tessalyd {

/// How many associations this server opens to others at a time, and whose turn is next: of those that wait,
/// who has the fewest open already, and among equals who came first. So one requestor with many moves does
/// not keep another with one from its turn. Thread-safe.
class OutboundSlots {
  public:
    /// Each has a thread and reads files; more only take the disk and the line from those that store.
    static constexpr std::size_t Most = 8;

    explicit OutboundSlots(std::size_t most = Most) : free_(most) {}

    /// The right to one association; its destructor gives it to the next who waits.
    class Slot {
      public:
        Slot(OutboundSlots& owner, std::string requestor)
            : owner_(&owner), requestor_(std::move(requestor)) {}
        ~Slot() {
            if (owner_ != nullptr)
                owner_->giveBack(requestor_);
        }
        Slot(Slot&& other) noexcept
            : owner_(std::exchange(other.owner_, nullptr)), requestor_(std::move(other.requestor_)) {}
        Slot& operator=(Slot&&) = delete;

      private:
        OutboundSlots* owner_;
        std::string requestor_;
    };

    /// Blocks until a slot is free for the requestor; nothing when it was stopped before.
    [[nodiscard]] std::optional<Slot> take(const std::string& requestor, const std::stop_token& stop);

    /// How many are waiting now.
    [[nodiscard]] std::size_t waiting() const;

  private:
    using Waiting = std::list<std::string>;

    void giveBack(const std::string& requestor);
    [[nodiscard]] Waiting::const_iterator next() const;

    mutable std::mutex mutex_;
    std::condition_variable_any changed_;
    Waiting waiting_;  // in the order of their coming
    std::map<std::string, std::size_t> held_;
    std::size_t free_;
};

}  // namespace tessaly::tessalyd
