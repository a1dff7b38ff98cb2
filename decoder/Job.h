#pragma once

#include <cstdint>

namespace tessaly::decoder {

/// What the decoder's program is asked for, with the source's and the target's descriptors: one message of
/// these bytes over a socket that keeps messages apart. Both ends are of one build.
struct Job {
    std::uint64_t sourceAt = 0;    ///< where the data set begins in the source's file
    std::uint64_t sourceSize = 0;  ///< bytes of the data set
    std::uint64_t targetAt = 0;    ///< where it is to begin in the target's file
    std::uint32_t from = 0;        ///< its place in the table of transfer syntaxes
    std::uint32_t to = 0;          ///< the same
    std::uint64_t memory = 0;      ///< bytes, beside the program itself and the source
    std::uint64_t fileSize = 0;    ///< bytes that the target's file may have
    std::uint64_t seconds = 0;     ///< of processor time
};

/// What became of it.
struct Answer {
    std::int32_t exitCode = -1;  ///< of the process that did the job; -1 where a signal ended it
    std::int32_t signal = 0;
};

/// Exit codes of the process that does one job.
/// 1 and 2 are those of a sanitizer.
enum ExitCode : int { Done = 0, NotDecodable = 3, NotConfined = 4 };

}  // namespace tessaly::decoder
