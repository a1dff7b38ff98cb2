#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace tessaly::base {

/// Resources of one kind, connections for example, that are opened as they are needed, lent to one thread at
/// a time and kept. Those of an earlier generation are closed when they come back. One is opened at a time: a
/// server that says nothing holds up all who wait for it together, and not one after the other. Thread-safe.
template <typename Resource>
class ResourcePool {
  public:
    /// The use of one resource, or the right to open one. Its end gives it back. The pool outlives it.
    class Lease {
      public:
        Lease(Lease&& other) noexcept
            : pool_(std::exchange(other.pool_, nullptr)),
              resource_(std::move(other.resource_)),
              generation_(other.generation_),
              isOpening_(other.isOpening_) {}
        Lease& operator=(Lease&&) = delete;
        ~Lease() {
            if (pool_ != nullptr)
                pool_->giveBack(std::move(resource_), generation_, isOpening_);
        }

        /// Whether there is none yet: the holder opens one.
        [[nodiscard]] bool isEmpty() const noexcept { return !resource_; }
        /// Puts the resource there that the holder has opened.
        void set(std::unique_ptr<Resource> opened) {
            resource_ = std::move(opened);
            if (std::exchange(isOpening_, false))
                pool_->endOpening();
        }
        /// Closes it instead of keeping it: it may be what is broken.
        void discard() noexcept { resource_.reset(); }

        [[nodiscard]] Resource& operator*() const noexcept { return *resource_; }
        [[nodiscard]] Resource* operator->() const noexcept { return resource_.get(); }

      private:
        friend ResourcePool;
        Lease(ResourcePool& pool, std::unique_ptr<Resource> resource, unsigned generation)
            : pool_(&pool), resource_(std::move(resource)), generation_(generation), isOpening_(!resource_) {}

        ResourcePool* pool_;
        std::unique_ptr<Resource> resource_;
        unsigned generation_;
        bool isOpening_;
    };

    explicit ResourcePool(std::size_t most) : most_(most) {}
    ResourcePool(const ResourcePool&) = delete;
    ResourcePool& operator=(const ResourcePool&) = delete;

    /// How many may be in use at a time.
    void setMost(std::size_t most) {
        {
            const std::lock_guard lock{mutex_};
            most_ = std::max<std::size_t>(most, 1);
        }
        returned_.notify_all();
    }

    /// Waits so long while all are in use or another is being opened. Returns nullopt if that was not enough,
    /// or if `isStopped` says so, which is asked again after wake().
    [[nodiscard]] std::optional<Lease> take(
        std::chrono::milliseconds atMost, const std::function<bool()>& isStopped = [] { return false; }) {
        std::unique_lock lock{mutex_};
        const auto isFree = [this] { return inUse_ < most_ && (!idle_.empty() || !isOpening_); };
        returned_.wait_for(lock, atMost, [&] { return isStopped() || isFree(); });
        if (isStopped() || !isFree())
            return std::nullopt;
        ++inUse_;
        std::unique_ptr<Resource> resource;
        if (!idle_.empty()) {
            resource = std::move(idle_.back());
            idle_.pop_back();
        }
        isOpening_ = isOpening_ || !resource;
        return Lease{*this, std::move(resource), generation_};
    }

    /// Begins a generation: closes those that nobody uses, and the others when they come back.
    void close() {
        std::vector<std::unique_ptr<Resource>> closed;  // outside the lock
        const std::lock_guard lock{mutex_};
        ++generation_;
        closed.swap(idle_);
    }

    void wake() {
        { const std::lock_guard lock{mutex_}; }  // not between a look and its wait
        returned_.notify_all();
    }

  private:
    void giveBack(std::unique_ptr<Resource> resource, unsigned generation, bool wasOpening) noexcept {
        std::unique_ptr<Resource> closed;  // outside the lock
        {
            const std::lock_guard lock{mutex_};
            --inUse_;
            isOpening_ = isOpening_ && !wasOpening;
            if (resource && generation == generation_)
                idle_.push_back(std::move(resource));
            else
                closed = std::move(resource);
        }
        if (wasOpening)
            returned_.notify_all();
        else
            returned_.notify_one();
    }
    void endOpening() {
        {
            const std::lock_guard lock{mutex_};
            isOpening_ = false;
        }
        returned_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable returned_;
    std::vector<std::unique_ptr<Resource>> idle_;  // the last one used at the end
    std::size_t most_;
    std::size_t inUse_ = 0;
    unsigned generation_ = 0;
    bool isOpening_ = false;
};

}  // namespace tessaly::base
