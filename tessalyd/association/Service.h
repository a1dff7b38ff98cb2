#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

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
#include "dicom/net/AssociationEnded.h"
#include "dicom/net/Command.h"
#include "dicom/net/PresentationContext.h"
#include "tessalyd/association/OpenAssociations.h"
#include "tessalyd/configuration/RemoteNodes.h"

class DcmDataset;

namespace tessaly::tessalyd {

class Association;

using dicom::AcceptedContext;
using dicom::AssociationEnded;
using dicom::CommandField;
using dicom::Role;

/// SOP classes that a service takes in one role of the requestor. Negotiation is the sum of what all services
/// support. A meta SOP class is one too: that the class of a request belongs to it is for its service to
/// check.
struct SupportedContext {
    bool (*covers)(const char* sopClass);
    Role requestor;
    /// 0: not taken. Of those proposed the highest wins, and the first among equals: it is what a sender has.
    int (*preference)(dicom::TransferSyntax syntax);
    /// That the peer's node needs for requests in the context; others are answered with 0124 before they
    /// reach the service.
    Right right = Right::None;
};

/// A request as a peer has sent it, and the presentation context that it came in. Its data set, if it has
/// one, is still to be taken.
struct Request {
    dicom::Command command;
    const AcceptedContext* context = nullptr;
};

/// What goes with a failure beside its status.
struct FailureDetail {
    std::optional<DcmTagKey> offendingElement = {};
    std::shared_ptr<DcmDataset> dataSet = {};  ///< of the response
};

/// The request fails: its final response has this status, and the association goes on.
class RequestFailure : public std::runtime_error {
  public:
    /// The comment goes to the requestor: 64 characters of ASCII at most, nothing of a patient.
    RequestFailure(std::uint16_t status, const std::string& comment, FailureDetail detail = {})
        : std::runtime_error(comment), status_(status), detail_(std::move(detail)) {}

    [[nodiscard]] std::uint16_t status() const noexcept { return status_; }
    [[nodiscard]] const FailureDetail& detail() const noexcept { return detail_; }

  private:
    std::uint16_t status_;
    FailureDetail detail_;
};

/// One DIMSE service. An object serves one association from its negotiation to its end, in that association's
/// thread; what it shares with others has locks of its own. See Association for what it may do meanwhile.
///
/// answer() takes the request's data set, if there is one, and sends all responses. It may block as long as
/// it
/// - asks Association::isCancelled() several times a second, where the request can be cancelled or the peer's
///   end and the server's stop have to be noticed;
/// - comes back within some tenths of a second after Association::stop(). Waits for the requestor end then by
///   themselves; those for a statement, a thread or another peer are the service's own to end.
/// It throws RequestFailure or AssociationEnded; anything else gives the connection up without a word.
class Service {
  public:
    virtual ~Service() = default;

    /// A request in one of these contexts comes to this service.
    [[nodiscard]] virtual std::span<const SupportedContext> contexts() const noexcept = 0;
    /// The requests that it takes in them; others are answered with 0211 before they reach it.
    [[nodiscard]] virtual std::span<const CommandField> commands() const noexcept = 0;

    /// Extended negotiation of a SOP class that it supports: what of the requestor's service class
    /// application information holds; nothing where it is not answered. Called before the first request.
    [[nodiscard]] virtual std::vector<std::uint8_t> negotiateExtended(
        const std::string& /*sopClass*/, std::span<const std::uint8_t> /*proposed*/) {
        return {};
    }

    virtual void answer(const Request& request, Association& association) = 0;

    /// True if the service may have something to tell the requestor by itself. Asked once, behind the
    /// negotiation: whileIdle() is called then, about once a second, while the next request is waited for. It
    /// sends by Association::notify(), and does not block.
    [[nodiscard]] virtual bool hasNews(const Association& /*association*/) { return false; }
    virtual void whileIdle(Association& /*association*/) {}

    /// What it has done, for the log's line at the association's end; empty when there is nothing to say.
    [[nodiscard]] virtual std::string summary() const { return {}; }
};

/// What the server does for one peer.
struct PeerServices {
    std::vector<std::unique_ptr<Service>> services;
    std::shared_ptr<const RemoteNodes> nodes = {};  ///< whose rights hold; none: only Right::None is had
};
/// Makes the services of one association: the port that it came by, and its peer. Called in any thread.
using ServiceFactory = std::function<PeerServices(const PortConfiguration&, const AssociationNames&)>;

}  // namespace tessaly::tessalyd
