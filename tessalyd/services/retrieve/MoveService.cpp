#include "tessalyd/services/retrieve/MoveService.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmnet/dimse.h>

#include <array>
#include <optional>
#include <system_error>

#include "db/Error.h"
#include "dicom/data/TransferSyntaxes.h"
#include "tessalyd/forwarding/ftp/Node.h"
#include "tessalyd/services/retrieve/FtpMove.h"
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
    const auto peer = dicomNode(request, association);
    const auto ftp = peer ? std::nullopt : ftpNode(request, association);
    if (!peer && !ftp) {
        association.log(
            PeerLog::Event::Refusal,
            "no node with the AE title " + request.command.value(DCM_MoveDestination) + " may be sent to");
        throw RequestFailure{STATUS_MOVE_Refused_MoveDestinationUnknown, "The move destination is unknown"};
    }
    auto instances = retrieval_.find(request, association);
    if (!instances)
        return retrieval_.answerFinally(request, association, SubOperations{0}, true);
    if (instances->size() == 0)
        return retrieval_.answerFinally(request, association, SubOperations{0});
    if (peer)
        return move(request, association, *peer, std::move(*instances));
    FtpMove{retrieval_, request, association}.run(*ftp, std::move(*instances));
}

std::optional<RemoteNodes::Destination> MoveService::dicomNode(const Request& request,
                                                               const Association& association) const {
    return retrieval_.nodes().destination(request.command.value(DCM_MoveDestination),
                                          association.names().calledAeTitle);
}

/// The name, as the table has it now.
std::optional<std::string> MoveService::ftpNode(const Request& request, Association& association) const {
    try {
        const auto lease =
            retrieval_.shared().sessions.take([&association] { return association.stop().stop_requested(); });
        if (!lease)
            throw AssociationEnded{DUL_NETWORKCLOSED};
        const auto node = ftp::findNode(lease->connection(), request.command.value(DCM_MoveDestination));
        return node ? std::optional{node->name} : std::nullopt;
    } catch (const db::Error& error) {
        association.log(PeerLog::Event::Failure, std::string{"the tables cannot be asked: "} + error.what());
        throw RequestFailure{STATUS_MOVE_Refused_OutOfResourcesNumberOfMatches,
                             "The database cannot be asked"};
    }
}

void MoveService::move(const Request& request, Association& association,
                       const RemoteNodes::Destination& destination, InstanceList instances) {
    std::optional<MoveJob> started;
    try {
        started.emplace(MoveJob::Order{.destination = destination.peer,
                                       .originator = {.aeTitle = association.names().callingAeTitle,
                                                      .messageId = request.command.messageId()},
                                       .name = association.names().text() + ", to " + destination.node,
                                       .requestor = association.names().address},
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
