#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "tessalyd/archive/ArchiveLocation.h"
#include "tessalyd/archive/ObjectHeader.h"

namespace tessaly::tessalyd {

class ArchiveSession;

/// The archive's tables for all threads, over one connection that they use one after the other. The embedded
/// engine lets one connection write at a time in any case: with a connection each, those that must wait would
/// sleep and try again instead of being woken in turn.
class ArchiveIndex {
  public:
    ArchiveIndex();
    ~ArchiveIndex();
    ArchiveIndex(const ArchiveIndex&) = delete;
    ArchiveIndex& operator=(const ArchiveIndex&) = delete;

    /// How long a store waits for the database, and as long again for the other stores; zero: what the data
    /// source says, and some seconds for the others. Holds from the next store on.
    void setWait(std::chrono::seconds wait);
    /// Closes the connection; the next use opens one. No store is to be under way.
    void close();

    /// Where an object is to be stored. As long as it lives, all objects of a new study go to the same
    /// folder, whatever port they come in by.
    class Placement {
      public:
        Placement(ArchiveIndex& index, std::string study, ArchiveLocation location);
        ~Placement();
        Placement(const Placement&) = delete;
        Placement& operator=(const Placement&) = delete;

        [[nodiscard]] const ArchiveLocation& location() const noexcept { return location_; }

      private:
        ArchiveIndex& index_;
        std::string study_;
        ArchiveLocation location_;
    };
    /// A study and a series that are known keep their folders; a new study gets one below `root`. The UIDs
    /// are to be checked before. Throws StoreFailure.
    [[nodiscard]] std::unique_ptr<Placement> place(const ObjectHeader& header, const std::string& root);

    /// Held from before a file gets its final name until its row is written: keeps two senders of the same
    /// instance apart.
    [[nodiscard]] std::unique_lock<std::mutex> claim(const std::string& sopInstanceUid);

    /// Writes the rows of an object whose file lies at `location`, in one transaction. Returns where the same
    /// instance lay before, if that was elsewhere. Throws StoreFailure; nothing is written then.
    [[nodiscard]] std::optional<ArchiveLocation> record(const ObjectHeader& header,
                                                        const ArchiveLocation& location);

  private:
    struct Reservation {
        std::string studyPath;
        int users = 0;
    };

    template <class Work>
    auto withSession(Work work);
    [[nodiscard]] std::string reserve(const std::string& study, std::string studyPath);
    void release(const std::string& study) noexcept;

    /// The session's use by one thread, from the constructor to the destructor. The constructor throws
    /// StoreFailure when others have it for too long.
    class Turn;

    std::mutex mutex_;
    std::condition_variable given_;
    bool taken_ = false;
    std::atomic<std::chrono::seconds> wait_{std::chrono::seconds::zero()};
    std::atomic<bool> waitChanged_{false};
    std::unique_ptr<ArchiveSession> session_;

    std::mutex reservationsMutex_;
    std::map<std::string, Reservation> reservations_;

    std::array<std::mutex, 64> claims_;
};

}  // namespace tessaly::tessalyd
