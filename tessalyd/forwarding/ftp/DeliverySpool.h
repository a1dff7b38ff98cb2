#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "base/FileDescriptor.h"
#include "jobs/Spool.h"

namespace tessaly::tessalyd::ftp {

/// What a delivery that somebody asked for has in the spool: the list of its objects and, behind an attempt,
/// of those that failed in it. Every operation throws std::system_error.
class DeliverySpool {
  public:
    /// SOP instance UIDs, one after the other, in the order of delivery: a series' together.
    using Next = std::function<std::optional<std::string>()>;
    using Visit = std::function<void(const std::string& sopInstanceUid)>;

    /// A new one; durable when this returns, and nobody's until a job has it.
    [[nodiscard]] static jobs::Spool::Entry make(const jobs::Spool& spool, const Next& next);

    explicit DeliverySpool(std::filesystem::path folder) : folder_(std::move(folder)) {}

    void forEach(const Visit& visit) const;
    /// Nothing where no attempt has been made.
    void forEachFailed(const Visit& visit) const;

    /// Writes the list of those that failed in an attempt, in place of the former one.
    class Failures {
      public:
        explicit Failures(const DeliverySpool& spool);
        void add(const std::string& sopInstanceUid);
        void keep();

      private:
        void flush();

        std::filesystem::path folder_;
        base::FileDescriptor file_;
        std::string text_;
    };

  private:
    std::filesystem::path folder_;
};

}  // namespace tessaly::tessalyd::ftp
