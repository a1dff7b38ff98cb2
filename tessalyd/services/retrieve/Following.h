#pragma once

#include <chrono>

#include "tessalyd/association/Association.h"
#include "tessalyd/services/retrieve/Retrieval.h"

namespace tessaly::tessalyd {

/// Tells the requestor how far work in another thread is, until that is over or was cancelled, and sends no
/// final answer. `Work` has waitForEnd(), progress() and cancel(). Returns true if it was cancelled before
/// all was done. In the association's thread, whose end it counts and passes on.
template <class Work>
[[nodiscard]] bool followToEnd(Work& work, Retrieval& retrieval, const Request& request,
                               Association& association) {
    /// How often the requestor is looked after.
    constexpr std::chrono::milliseconds LookInterval{100};
    PendingPace pace{PendingPace::Clock::now()};
    bool cancelled = false;
    try {
        while (!cancelled && !work.waitForEnd(LookInterval)) {
            cancelled = association.isCancelled();
            if (cancelled)
                work.cancel();
            else if (pace.isDue(PendingPace::Clock::now()))
                Retrieval::answerPending(request, association, work.progress());
        }
    } catch (const AssociationEnded&) {
        retrieval.count(work.progress());
        throw;
    }
    // What was cancelled when all was done was not cancelled.
    return cancelled && work.progress().remaining() > 0;
}

}  // namespace tessaly::tessalyd
