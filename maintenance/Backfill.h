#pragma once

#include "maintenance/Pass.h"

namespace tessaly::maintenance {

/// Gives the rows of the archive that were there before their tables had all columns what those repeat of the
/// objects. Goes on where an earlier run came to its end, by batches, each a short transaction of its own: a
/// server may be storing meanwhile, and what it writes stays. What a row has already stays, too. As long as
/// nothing is seen of the archive, the mark stays where it was (schema/BackfillMark.h), so that the next run
/// looks at the same images again. Counts images; notes the files that give nothing, whose rows stay as they
/// are.
class Backfill : public Pass {
  public:
    struct Result {
        long long patients = 0;    ///< by their names
        long long images = 0;      ///< from their files, and their series and studies with them
        long long unreadable = 0;  ///< images
        long long readable = 0;    ///< files, whosever they are
        bool isStopped = false;    ///< before the end: what was filled stays, and the next run goes on

        /// False where there were files to be read and not one could be: a disk that is not mounted rather
        /// than an archive that has lost them all.
        [[nodiscard]] bool seesArchive() const noexcept { return readable > 0 || unreadable == 0; }
    };

    void run(const db::Connection& connection, Progress& progress) override;

    /// Of the last run.
    [[nodiscard]] const Result& result() const noexcept { return result_; }

  private:
    Result result_;
};

}  // namespace tessaly::maintenance
