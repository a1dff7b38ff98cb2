#include "tessalyd/services/retrieve/MoveService.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmnet/dimse.h>

#include <array>
#include <optional>
#include <system_error>

#include "dicom/data/TransferSyntaxes.h"
#include "tessalyd/services/retrieve/MoveJob.h"

namespace tessaly::tessalyd {

namespace {

/// How often the requestor is looked after while objects go elsewhere.
constexpr std::chrono::milliseconds LookInterval{100};

}  // namespace

std::span<const SupportedContext> MoveService::contexts() const noexcept {
    static constexpr std::array Supported{SupportedContext{
        .covers = Retrieval::isMove,
        .requestor = Role::Scu,
        .preference = [](dicom::TransferSyntax syntax) { return dicom::isUncompressed(syntax) ? 1 : 0; },
        .right = Right::Query}};
    return Supported;
}

std::span<const CommandField> MoveService::commands() const noexcept {
    static constexpr std::array Commands{CommandField::CMove};
    return Commands;
}

void MoveService::answer(const Request& request, Association& association) {
    const RemoteNodes::Destination to = destination(request, association);
    auto instances = retrieval_.find(request, association);
    if (!instances)
        return retrieval_.answerFinally(request, association, SubOperations{0}, true);
    if (instances->size() == 0)
        return retrieval_.answerFinally(request, association, SubOperations{0});
    move(request, association, to, std::move(*instances));
}

RemoteNodes::Destination MoveService::destination(const Request& request,
                                                  const Association& association) const {
    const std::string title = request.command.value(DCM_MoveDestination);
    auto found = retrieval_.nodes().destination(title, association.names().calledAeTitle);
    if (found)
        return std::move(*found);
    association.log(PeerLog::Event::Refusal, "no node with the AE title " + title + " may be sent to");
    throw RequestFailure{STATUS_MOVE_Refused_MoveDestinationUnknown, "The move destination is unknown"};
}

void MoveService::move(const Request& request, Association& association,
                       const RemoteNodes::Destination& destination, InstanceList instances) {
    std::optional<MoveJob> started;
    try {
        started.emplace(MoveJob::Order{.destination = destination.peer,
                                       .originator = {.aeTitle = association.names().callingAeTitle,
                                                      .messageId = request.command.messageId()},
                                       .name = association.names().text() + ", to " + destination.node,
                                       .requester = association.names().address},
                        std::move(instances), retrieval_.shared().outboundSlots, retrieval_.shared().decoders,
                        association.log());
    } catch (const std::system_error& error) {
        association.log(PeerLog::Event::Failure, std::string{"move not begun: "} + error.what());
        throw RequestFailure{STATUS_MOVE_Refused_OutOfResourcesSubOperations, "No thread is to be had"};
    }
    MoveJob& job = *started;
    PendingPace pace{PendingPace::Clock::now()};
    bool cancelled = false;
    try {
        while (!cancelled && !job.waitForEnd(LookInterval)) {
            cancelled = association.isCancelled();
            if (cancelled)
                job.cancel();
            else if (pace.isDue(PendingPace::Clock::now()))
                Retrieval::answerPending(request, association, job.progress());
        }
    } catch (const AssociationEnded&) {
        retrieval_.count(job.progress());
        throw;
    }
    const SubOperations done = job.progress();
    // What was cancelled when all was done was not cancelled.
    retrieval_.answerFinally(request, association, done, cancelled && done.remaining() > 0);
}

}  // namespace tessaly::tessalyd
