#pragma once

#include <array>
#include <chrono>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "archive/ArchiveRoots.h"
#include "archive/Location.h"
#include "tessalyd/store/ArchiveReport.h"
#include "tessalyd/store/ArchiveSessions.h"
#include "tessalyd/store/GroupCommit.h"
#include "tessalyd/store/IncomingHeader.h"
#include "tessalyd/store/SeriesFolders.h"

namespace tessaly::tessalyd {

/// The archive's tables for all threads, over as many connections as the engine has use for. Other servers
/// may work on the same tables.
class ArchiveIndex {
  public:
    ArchiveIndex() = default;
    ArchiveIndex(const ArchiveIndex&) = delete;
    ArchiveIndex& operator=(const ArchiveIndex&) = delete;

    /// As ArchiveSessions.
    void configure(std::chrono::seconds wait, std::size_t stores);
    void close();

    /// As ArchiveRoots: those of the ports, as the server starts.
    void rememberRoots(const std::vector<std::string>& roots) { roots_.remember(roots); }

    /// While the database's file is not the one that it was, stores are refused; from any thread.
    void suspend();
    void resume() { sessions_.resume(); }

    /// Whether the folders that other objects of a series were stored in may be taken for those of the next.
    /// They are what the tables had a while ago: record() finds out if they have others now.
    enum class Folders { Remembered, LookedUp };

    /// Where an object is to be stored. As long as it lives, all objects of a new study go to the same
    /// folder, whatever port of this server they come in by.
    class Placement {
      public:
        Placement(ArchiveIndex& index, std::string study);
        ~Placement();
        Placement(const Placement&) = delete;
        Placement& operator=(const Placement&) = delete;

        [[nodiscard]] const archive::Location& location() const noexcept { return location_; }

      private:
        friend class ArchiveIndex;
        ArchiveIndex& index_;
        std::string study_;
        archive::Location location_;
    };
    /// A study and a series that are known keep their folders; a new study gets one below `root`. The UIDs
    /// are to be checked before. Throws StoreFailure, RootUnavailable included.
    [[nodiscard]] std::unique_ptr<Placement> place(const ObjectHeader& header, const std::string& root,
                                                   Folders folders = Folders::Remembered);

    /// Throws RootUnavailable where the root of a study's folder is not there, as far as can be told, and
    /// StoreFailure where the tables do not say.
    void requireRoot(const std::string& studyPath);

    /// Held from before a file gets its final name until its row is written: keeps two senders of the same
    /// instance apart, where they send to this server.
    [[nodiscard]] std::unique_lock<std::mutex> claim(const std::string& sopInstanceUid);

    /// Writes the rows of an object that is to lie at `location`, in one transaction, which is tried again
    /// where others were in its way or the connection broke. Throws StoreFailure and whatever the steps
    /// throw; nothing is written then, but for StoreUndecided. Where stores write in turn, those that wait at
    /// the same time share a transaction, and the steps are called in any of their threads.
    void record(const ObjectHeader& header, const archive::Location& location, const StoreSteps& steps = {});

    /// Stores wait for each other from their first row to their commit, which a slow step makes longer for
    /// all.
    [[nodiscard]] bool writesInTurn() { return !sessions_.areSideBySide(); }

  private:
    struct Reservation {
        std::string studyPath;  ///< empty until the first has looked the study up
        int users = 0;
    };

    template <class Work>
    auto withSession(Work work);
    void write(std::span<ObjectRows* const> group);
    [[nodiscard]] std::exception_ptr writeTogether(std::span<ObjectRows* const> group);
    void writeOneByOne(std::span<ObjectRows* const> group, std::chrono::steady_clock::time_point until,
                       const std::exception_ptr& late);
    [[nodiscard]] ArchiveSessions::Lease open();
    [[nodiscard]] std::string settle(const std::string& study, const std::optional<std::string>& known,
                                     std::string otherwise);

    ArchiveSessions sessions_;
    GroupCommit groups_;
    SeriesFolders known_;
    archive::ArchiveRoots roots_{reportArchive};

    std::mutex reservationsMutex_;
    std::map<std::string, Reservation> reservations_;

    std::array<std::mutex, 64> claims_;
};

}  // namespace tessaly::tessalyd
