#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <variant>

#include "decoder/Job.h"
#include "decoder/ObjectLayout.h"
#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::decoder {

/// A data set in an open file; the file outlives it.
struct DataSetFile {
    int file = -1;
    std::size_t dataSetAt = 0;
    std::size_t size = 0;  ///< of the data set; of a target it is not known before
    dicom::TransferSyntax syntax;
};

/// What an object's header promises, and what its decoder may take therefore.
struct JobPlan {
    Job job;
    Identity identity;
    /// Without so much it fails; job.memory is what it may take at most.
    std::uint64_t leastMemory = 0;
    std::uint64_t pixelBytes = 0;  ///< of the native pixel data that is to come out, padding included
    bool hasPixels = false;

    /// Its decoder may have some 30 seconds of processor time and more.
    [[nodiscard]] bool isLarge() const noexcept {
        constexpr std::uint64_t Small = std::uint64_t{64} << 20U;
        return pixelBytes + job.sourceSize > Small;
    }
};

/// Asked while a file is read; what it throws comes through.
using Heartbeat = std::function<void()>;

/// Reads the source's header, by no tree of a toolkit. Returns why it cannot be converted if it cannot:
/// `decodeLimit` is what decoded pixel data may come to. Throws std::system_error if the file cannot be read.
[[nodiscard]] std::variant<JobPlan, const char*> planJob(const DataSetFile& source, const DataSetFile& target,
                                                         std::uint64_t decodeLimit,
                                                         const Heartbeat& heartbeat);

/// True if the file has exactly what the plan promises: one data set that is whole and ends with the file, of
/// the same object, its pixel data native and of the promised size. Throws std::system_error if it cannot be
/// read.
[[nodiscard]] bool isAsPromised(const DataSetFile& target, const JobPlan& plan, const Heartbeat& heartbeat);

}  // namespace tessaly::decoder
