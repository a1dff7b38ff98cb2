#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "db/Connection.h"
#include "decoder/Pool.h"
#include "jobs/Runner.h"

// Deliveries as jobs. Their target is the node's name in lower case. One that a C-MOVE asked for has its list
// of objects in a spool; one of what was stored for a node has them as its items, a job a series.

namespace tessaly::tessalyd::ftp {

inline constexpr const char* JobKind = "FTP";

/// Does the jobs. `quietTime` is how long nothing may have been stored for a series before what came of it is
/// delivered. Both outlive the handler.
[[nodiscard]] jobs::Handler makeHandler(decoder::Pool& decoders,
                                        const std::atomic<std::chrono::seconds>& quietTime);

/// Has an object that is being stored delivered, in the transaction that stores it: with what else comes for
/// its series, when nothing has come for the quiet time. Throws db::Error.
void deliverLater(const db::Connection& connection, std::string_view node,
                  const std::string& seriesInstanceUid, const std::string& sopInstanceUid,
                  std::chrono::seconds quietTime);

/// How far an attempt has come, as it is noted with its job.
struct Progress {
    std::size_t delivered = 0;
    std::size_t failed = 0;
};
[[nodiscard]] std::string textOf(const Progress& progress);
/// Nothing for what is none.
[[nodiscard]] std::optional<Progress> parseProgress(std::string_view text);

}  // namespace tessaly::tessalyd::ftp
