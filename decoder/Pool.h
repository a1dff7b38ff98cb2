#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "decoder/DecoderProcess.h"
#include "decoder/Interest.h"
#include "decoder/JobPlan.h"
#include "decoder/JobQueue.h"

namespace tessaly::decoder {

enum class Outcome { Converted, NotConvertible, Stopped };

struct Result {
    Outcome outcome = Outcome::NotConvertible;
    std::string reason;  ///< why not, for the log; of no patient
    /// With NotConvertible: it is not the object's fault, but that of its decoder, which could not run.
    bool isTransient = false;
};

/// Brings objects into native syntaxes, each in a process that can do nothing else and that is limited in
/// memory and time by what the object's header promises. So many processes are kept as work at once; they are
/// started when they are needed, and anew when they have ended. Thread-safe.
class Pool {
  public:
    struct Options {
        std::filesystem::path program;                         ///< tessaly-decoder
        std::uint64_t decodeLimit = std::uint64_t{2} << 30U;   ///< bytes of decoded pixels in one object
        std::uint64_t decodeMemory = std::uint64_t{4} << 30U;  ///< bytes of all decoders together
        std::size_t processes = 0;                             ///< 0: one a core, and at least two
    };
    explicit Pool(Options options);
    /// No conversion is to be under way.
    ~Pool() = default;
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    /// Writes the object in `source`, which may be open for reading alone, to `target` in the target's
    /// syntax, from the target's `dataSetAt` on. What has come out is compared with what the source's header
    /// promises: where the outcome is not Converted, the target is not to be used. Blocks until then;
    /// requestors take turns. Throws std::system_error if a file cannot be read.
    [[nodiscard]] Result convert(const DataSetFile& source, const DataSetFile& target,
                                 const Interest& interest);

  private:
    [[nodiscard]] Result run(const JobPlan& plan, const DataSetFile& source, const DataSetFile& target,
                             const Interest& interest);
    [[nodiscard]] std::unique_ptr<DecoderProcess> takeProcess(bool kept);
    void keepProcess(std::unique_ptr<DecoderProcess> process);

    const Options options_;
    JobQueue queue_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<DecoderProcess>> idle_;
};

}  // namespace tessaly::decoder
