#pragma once

#include <stdexcept>
#include <string>

namespace tessaly::tessalyd::ftp {

/// Why something was not uploaded. what() is for the log and the table of jobs: printable, without a word of
/// the server's own (it may repeat a password or a path), nothing of a patient.
class Fault : public std::runtime_error {
  public:
    enum class Kind {
        Transient,  ///< the next attempt may succeed
        Permanent   ///< none will until somebody changes something
    };
    /// What it means for the next file.
    enum class Scope {
        File,       ///< the server goes on talking with us
        Connection  ///< it cannot be reached, does not let us in, or has broken off
    };
    Fault(Kind kind, Scope scope, const std::string& reason)
        : std::runtime_error(reason), kind_(kind), scope_(scope) {}

    [[nodiscard]] Kind kind() const noexcept { return kind_; }
    [[nodiscard]] Scope scope() const noexcept { return scope_; }

  private:
    Kind kind_;
    Scope scope_;
};

/// The upload was ended by its stop.
class Stopped : public std::runtime_error {
  public:
    Stopped() : std::runtime_error("stopped") {}
};

}  // namespace tessaly::tessalyd::ftp
