#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>

#include "base/FileDescriptor.h"
#include "decoder/Job.h"

namespace tessaly::decoder {

/// One running decoder, which does one job at a time. The destructor ends it at once, whatever it does. Used
/// by one thread at a time.
class DecoderProcess {
  public:
    /// Starts the program. Throws std::system_error.
    explicit DecoderProcess(const std::filesystem::path& program);
    ~DecoderProcess();
    DecoderProcess(const DecoderProcess&) = delete;
    DecoderProcess& operator=(const DecoderProcess&) = delete;

    /// Hands it a job with the files that it reads and writes. False if the process is gone.
    [[nodiscard]] bool begin(const Job& job, int source, int target) const;
    /// What has something to be read once the job is over, or the process is gone.
    [[nodiscard]] int socket() const noexcept { return socket_.get(); }
    /// Blocks until the job is over; nullopt if the process is gone.
    [[nodiscard]] std::optional<Answer> takeAnswer() const;

    [[nodiscard]] pid_t id() const noexcept { return process_; }

  private:
    base::FileDescriptor socket_;
    pid_t process_ = -1;
};

}  // namespace tessaly::decoder
