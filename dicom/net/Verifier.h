#pragma once

#include <chrono>
#include <cstdint>
#include <stop_token>
#include <string>

namespace tessaly::dicom {

/// Whom to verify; text is UTF-8, as typed.
struct VerificationRequest {
    std::string host;
    std::string port;
    std::string callingAeTitle;  ///< empty: the verifier's own
    std::string calledAeTitle;
};

/// How one verification ended.
struct VerificationResult {
    enum class Outcome {
        Success,
        Untitled,               ///< not tried: an AE title of blanks, to which peers do not even answer
        Unreachable,            ///< the name does not resolve, or nobody takes the connection
        TimedOut,               ///< no answer in time, to the connection or to a message
        Rejected,               ///< A-ASSOCIATE-RJ; rejectSource and rejectReason say why
        Aborted,                ///< A-ABORT, or the connection closed, instead of an answer
        NoPresentationContext,  ///< associated, but the peer does not offer verification
        Failed,                 ///< a C-ECHO response with another status than success
        Faulty,                 ///< an answer that breaks the protocol
        Stopped                 ///< by the caller
    };
    Outcome outcome = Outcome::Success;
    std::uint16_t status = 0;  ///< of the C-ECHO response
    int rejectSource = 0;      ///< as the protocol numbers it: 1 the user, 2 and 3 the provider
    int rejectReason = 0;      ///< likewise; its meaning depends on the source
    std::string detail;        ///< for whoever looks into it; the forms show the outcome alone
};

/// The verification service (C-ECHO), the client's side. Usable on any thread.
class Verifier {
  public:
    struct Limits {
        std::chrono::milliseconds total{10'000};   ///< for all together, whatever the peer does
        std::chrono::milliseconds resolve{5'000};  ///< for the look-up of the host's name, within the total
    };
    /// For the TCP connection, within the total.
    static constexpr std::chrono::seconds ConnectLimit{4};
    static constexpr const char* DefaultCallingAeTitle = "TESSALYCFG";

    Verifier() = default;
    explicit Verifier(const Limits& limits) : limits_(limits) {}

    /// Opens an association, sends one C-ECHO and releases. Blocks until it is done or stopped, which is
    /// obeyed at once. Throws std::runtime_error for a request that cannot be sent at all: a port that is no
    /// number from 1 to 65535, a title that is too long or has characters that no AE title has.
    [[nodiscard]] VerificationResult verify(const VerificationRequest& request,
                                            const std::stop_token& stop = {}) const;

  private:
    Limits limits_;
};

}  // namespace tessaly::dicom
