#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <mutex>

#include "decoder/Interest.h"

namespace tessaly::decoder {

/// Which jobs run, and which of those that wait is next: one of the requestor who has the fewest running, and
/// among equals of the one whose last job began longest ago. Large jobs together never have all processes nor
/// more than three quarters of the memory, so that small ones need not wait for their ends. Thread-safe.
class JobQueue {
  public:
    struct Limits {
        std::size_t processes = 2;
        std::uint64_t memory = 0;  ///< bytes of all jobs together
    };
    struct Need {
        std::uint64_t memory = 0;  ///< bytes
        bool isLarge = false;
    };

    explicit JobQueue(Limits limits);
    JobQueue(const JobQueue&) = delete;
    JobQueue& operator=(const JobQueue&) = delete;

    /// What a job gets of what it needs: not more than all of its kind may have together.
    [[nodiscard]] std::uint64_t granted(const Need& need) const;

    /// The right of one job to run, from the constructor to the destructor.
    class Turn {
      public:
        /// Blocks until it is its turn. Throws Abandoned, and what `interest` throws.
        Turn(JobQueue& queue, const Need& need, const Interest& interest);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

      private:
        JobQueue& queue_;
        Need need_;
        std::uint64_t requestor_;
    };

    /// How many wait now.
    [[nodiscard]] std::size_t waiting() const;

  private:
    struct Usage {
        std::size_t jobs = 0;
        std::uint64_t memory = 0;

        void add(const Need& need) {
            ++jobs;
            memory += need.memory;
        }
        void remove(const Need& need) {
            --jobs;
            memory -= need.memory;
        }
    };
    struct Waiting {
        Need need;
        std::uint64_t requestor = 0;
    };
    using Queue = std::list<Waiting>;
    struct Requestor {
        std::size_t known = 0;  ///< jobs that wait or run
        std::size_t running = 0;
        std::uint64_t begun = 0;  ///< number of its last job that began
    };

    [[nodiscard]] bool isAllowed(const Need& need) const;
    [[nodiscard]] bool hasRoomFor(const Need& need) const;
    [[nodiscard]] bool isNext(Queue::const_iterator place) const;
    void use(const Need& need, std::uint64_t requestor);
    void forget(std::uint64_t requestor);

    const Limits limits_;
    mutable std::mutex mutex_;
    std::condition_variable_any changed_;
    Queue queue_;  // in the order of their coming
    std::map<std::uint64_t, Requestor> requestors_;
    std::uint64_t begun_ = 0;
    Usage all_;
    Usage large_;
};

}  // namespace tessaly::decoder
