#pragma once

#include <mutex>
#include <set>
#include <string>

namespace tessaly::tessalyd {

/// Says in the log, once for each, which SOP classes objects come in that are not in the table of storage
/// classes: makers' own, mostly. Shared by all associations.
class UnlistedClasses {
  public:
    /// `sender` is who sends an object of it.
    void meet(const std::string& sopClass, const std::string& sender);

  private:
    static constexpr std::size_t Most = 1000;  // no sender has nearly as many, and a peer may invent some

    std::mutex mutex_;
    std::set<std::string> met_;
};

}  // namespace tessaly::tessalyd
