#pragma once

#include "maintenance/Pass.h"

namespace tessaly::maintenance {

/// Compacts the tables of a database that is no file of this machine, which takes the engine's own statement
/// and as long as the engine likes. The driver does not come back before, and this program has one thread:
/// `tessaly-db compact` runs it as a process of its own, which is ended when the progress says stop, and by
/// the system when this program ends; the engine then breaks off, and each table is as it was or compacted.
///
/// The connection is not used, and closed. The progress must not throw. Throws std::runtime_error with the
/// driver's description.
class ServerCompaction : public Pass {
  public:
    void run(const db::Connection& connection, Progress& progress) override;
};

}  // namespace tessaly::maintenance
