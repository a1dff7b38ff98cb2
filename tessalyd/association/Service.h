#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>
#include <dcmtk/dcmnet/dimse.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::tessalyd {

class Requester;

/// What a requester is in a presentation context: it asks for something (SCU), or it is sent objects (SCP),
/// as those are who ask for them by C-GET.
enum class Role : std::uint8_t { Scu = 1, Scp = 2 };

/// SOP classes that a service takes in one role of the requester. Negotiation is the sum of what all services
/// support.
struct SupportedContext {
    bool (*covers)(const char* sopClass);
    Role requester;
    /// 0: not taken. Of those proposed the highest wins, and the first among equals: it is what a sender has.
    int (*preference)(dicom::TransferSyntax syntax);
};

struct AcceptedContext {
    T_ASC_PresentationContextID id = 0;
    std::string sopClass;
    dicom::TransferSyntax syntax;
    unsigned roles = 0;  ///< of the requester, as bits

    [[nodiscard]] bool has(Role role) const noexcept { return (roles & static_cast<unsigned>(role)) != 0; }
};

struct Request {
    T_DIMSE_Message message;
    const AcceptedContext* context;
};

/// The request comes to nothing: its final answer is this status, and the association goes on.
class RequestFailure : public std::runtime_error {
  public:
    /// The comment goes to the requester: 64 characters of ASCII at most, nothing of a patient.
    RequestFailure(DIC_US status, const std::string& comment, std::optional<DcmTagKey> offending = {})
        : std::runtime_error(comment), status_(status), offending_(std::move(offending)) {}

    [[nodiscard]] DIC_US status() const noexcept { return status_; }
    [[nodiscard]] const std::optional<DcmTagKey>& offendingElement() const noexcept { return offending_; }

  private:
    DIC_US status_;
    std::optional<DcmTagKey> offending_;
};

/// The association has ended, or is to be aborted: the reason says which.
class AssociationEnded : public std::runtime_error {
  public:
    explicit AssociationEnded(const OFCondition& reason)
        : std::runtime_error(reason.text()), reason_(reason) {}

    [[nodiscard]] const OFCondition& reason() const noexcept { return reason_; }

  private:
    OFCondition reason_;
};

/// One DIMSE service. An object serves one association from its negotiation to its end, in that association's
/// thread; what it shares with others has locks of its own. See Requester for what it may do meanwhile.
///
/// answer() takes the request's data set, if there is one, and sends all answers. It may block as long as it
/// - asks Requester::isCancelled() several times a second, where the request can be cancelled;
/// - comes back within some tenths of a second after Requester::stop(). Waits for the requester end then by
///   themselves; those for a statement, a thread or another peer are the service's own to end.
/// It throws RequestFailure or AssociationEnded; anything else gives the connection up without a word.
class Service {
  public:
    virtual ~Service() = default;

    [[nodiscard]] virtual T_DIMSE_Command command() const noexcept = 0;
    [[nodiscard]] virtual std::span<const SupportedContext> supportedContexts() const noexcept = 0;

    /// Extended negotiation of a SOP class that it supports: what of the requester's service class
    /// application information holds; nothing where it is not answered. Called before the first request.
    [[nodiscard]] virtual std::vector<std::uint8_t> negotiateExtended(
        const std::string& /*sopClass*/, std::span<const std::uint8_t> /*proposed*/) {
        return {};
    }

    virtual void answer(const Request& request, Requester& requester) = 0;

    /// What it has done, for the log's line at the association's end; empty when there is nothing to say.
    [[nodiscard]] virtual std::string summary() const { return {}; }
};

using Services = std::vector<std::unique_ptr<Service>>;
/// Makes the services of one association. Called in any thread.
using ServiceFactory = std::function<Services()>;

}  // namespace tessaly::tessalyd
