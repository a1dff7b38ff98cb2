#pragma once

#include <utility>

#include "db/Error.h"

namespace tessaly::db {

/// Of several transactions that stand in each other's way, the engine lets one go on: each attempt is one
/// less to wait for.
inline constexpr int MostAttempts = 20;

/// Runs `work`, all of a transaction, and gives what it gives: anew where others were in its way (Conflict),
/// MostAttempts times in all, and once anew where the session was lost, after `reconnect`; after a restart of
/// the engine, all sessions that were idle are lost. Work whose OutcomeUnknown is run anew as well: it must
/// come to the same when it is done twice. Throws what the last attempt threw.
template <class Work, class Reconnect>
auto retrying(Work work, Reconnect reconnect) {
    bool reconnected = false;
    for (int attempt = 1;; ++attempt) {
        try {
            return work();
        } catch (const Conflict&) {
            if (attempt >= MostAttempts)
                throw;
        } catch (const LostSession&) {
            if (std::exchange(reconnected, true))
                throw;
            reconnect();
        }
    }
}

}  // namespace tessaly::db
