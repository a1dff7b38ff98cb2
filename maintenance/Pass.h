#pragma once

#include "maintenance/Progress.h"

namespace tessaly::db {
class Connection;
}

namespace tessaly::maintenance {

/// Work over the archive or its database that takes long. What it is about is given to its constructor.
class Pass {
  public:
    virtual ~Pass() = default;
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;

    /// Runs to its end, or until the progress says stop. Throws std::exception with the description that the
    /// user is shown; what was done before a fault stays unless the pass says otherwise.
    virtual void run(const db::Connection& connection, Progress& progress) = 0;

  protected:
    Pass() = default;
};

}  // namespace tessaly::maintenance
