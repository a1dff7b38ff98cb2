#pragma once

#include <linux/filter.h>

#include <cstdint>
#include <vector>

#include "decoder/Job.h"

namespace tessaly::decoder {

/// What a process may still do: a list of system calls, anything else ends it. Made before it is needed, as
/// making it takes some.
class CallFilter {
  public:
    enum class Purpose {
        Serve,  ///< to wait for jobs, and to make and wait for the processes that do them
        Decode  ///< to read, to write, and to use memory: no names, no network, no other process
    };
    /// Throws std::runtime_error.
    explicit CallFilter(Purpose purpose);

    /// Puts it into force, for this process and for all that it makes, for good. False if that fails.
    [[nodiscard]] bool apply() const;

  private:
    std::vector<sock_filter> program_;
};

/// For the process that waits for jobs, before anything else: no core, nothing to be seen of its memory by
/// others, no right ever gained. False if that fails.
[[nodiscard]] bool harden();

/// Bytes of address space that this process has; 0 if that is not known.
[[nodiscard]] std::uint64_t addressSpace();

struct Parent {
    int process = 0;
    std::uint64_t addressSpace = 0;  ///< what a copy of it begins with
};

/// For the process that does one job: its limits of memory, of processor time and of what it may write, its
/// end with its parent, and the filter. Comes before the first byte of the job is looked at. False if that
/// fails.
[[nodiscard]] bool confine(const Job& job, const Parent& parent, const CallFilter& filter);

}  // namespace tessaly::decoder
