#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <stop_token>
#include <string>

#include "tessalyd/forwarding/films/PrinterRow.h"

namespace tessaly::tessalyd::print {

/// Tells whether printers can be reached: a TCP connection to one stands within two seconds. Thread-safe.
class PrinterProbe {
  public:
    /// Blocks for two seconds at most; a stop ends it, with false. What was found holds for a second.
    [[nodiscard]] bool isReachable(const films::PrinterRow& printer, const std::stop_token& stop);

  private:
    using Clock = std::chrono::steady_clock;
    struct Found {
        Clock::time_point time;
        bool isReachable = false;
    };
    std::mutex mutex_;
    std::map<std::string, Found> found_;  // by host and port
};

}  // namespace tessaly::tessalyd::print
