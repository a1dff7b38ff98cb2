#pragma once

#include <functional>

namespace tessaly::maintenance {

/// Compacts the tables of a database that is no file of this machine, which takes the engine's own statement
/// and as long as the engine likes. The driver does not come back before, and this program has one thread:
/// `tessaly-db compact` runs it as a process of its own, which is ended when `goOn` says false, and by the
/// system when this program ends; the engine then breaks off, and each table is as it was or compacted.
///
/// `goOn` is called every few milliseconds; it may handle events and must not throw. Throws
/// std::runtime_error with the driver's description.
void compactServer(const std::function<bool()>& goOn);

}  // namespace tessaly::maintenance
