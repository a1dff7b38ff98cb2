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
/// who has the fewest open already, and among equals who came first. So one requester with many moves does
/// not keep another with one from its turn. Thread-safe.
class OutboundTurns {
  public:
    /// Each has a thread and reads files; more only take the disk and the line from those that store.
    static constexpr std::size_t Most = 8;

    explicit OutboundTurns(std::size_t most = Most) : free_(most) {}

    /// One association's right to be; its destructor gives it to the next.
    class Turn {
      public:
        Turn(OutboundTurns& owner, std::string requester)
            : owner_(&owner), requester_(std::move(requester)) {}
        ~Turn() {
            if (owner_ != nullptr)
                owner_->giveBack(requester_);
        }
        Turn(Turn&& other) noexcept
            : owner_(std::exchange(other.owner_, nullptr)), requester_(std::move(other.requester_)) {}
        Turn& operator=(Turn&&) = delete;

      private:
        OutboundTurns* owner_;
        std::string requester_;
    };

    /// Waits for a turn; nothing when it was stopped before.
    [[nodiscard]] std::optional<Turn> take(const std::string& requester, const std::stop_token& stop);

    /// How many are waiting now.
    [[nodiscard]] std::size_t waiting() const;

  private:
    using Waiting = std::list<std::string>;

    void giveBack(const std::string& requester);
    [[nodiscard]] Waiting::const_iterator next() const;

    mutable std::mutex mutex_;
    std::condition_variable_any changed_;
    Waiting waiting_;  // in the order of their coming
    std::map<std::string, std::size_t> held_;
    std::size_t free_;
};

}  // namespace tessaly::tessalyd
