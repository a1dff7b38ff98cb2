#include "tessalyd/services/retrieve/MoveService.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmnet/dimse.h>

#include <array>
#include <optional>
#include <system_error>

#include "archive/StoredPath.h"
#include "db/Error.h"
#include "dicom/data/TransferSyntaxes.h"
#include "tessalyd/forwarding/films/NewUid.h"
#include "tessalyd/forwarding/ftp/Node.h"
#include "tessalyd/services/retrieve/FilmMove.h"
#include "tessalyd/services/retrieve/Following.h"
#include "tessalyd/services/retrieve/FtpMove.h"
#include "tessalyd/services/retrieve/MoveJob.h"

namespace tessaly::tessalyd {

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
    const Elsewhere elsewhere = peer ? Elsewhere{} : findElsewhere(request, association);
    if (!peer && !elsewhere.ftp && !elsewhere.printer) {
        association.log(
            PeerLog::Event::Refusal,
            "no node with the AE title " + request.command.value(DCM_MoveDestination) + " may be sent to");
        throw RequestFailure{STATUS_MOVE_Refused_MoveDestinationUnknown, "The move destination is unknown"};
    }
    if (elsewhere.printer && !retrieval_.nodes().has(Right::Print, association.names().callingAeTitle)) {
        association.log(PeerLog::Event::Refusal, "refused: no node with this AE title may print");
        throw RequestFailure{STATUS_MOVE_Refused_NotAuthorized, "The calling AE title may not print here"};
    }
    auto instances = retrieval_.find(request, association);
    if (!instances)
        return retrieval_.answerFinally(request, association, SubOperations{0}, true);
    if (instances->size() == 0)
        return retrieval_.answerFinally(request, association, SubOperations{0});
    if (peer)
        return move(request, association, *peer, std::move(*instances));
    if (elsewhere.printer)
        return print(request, association, *elsewhere.printer, std::move(*instances));
    FtpMove{retrieval_, request, association}.run(*elsewhere.ftp, std::move(*instances));
}

std::optional<RemoteNodes::Destination> MoveService::dicomNode(const Request& request,
                                                               const Association& association) const {
    return retrieval_.nodes().destination(request.command.value(DCM_MoveDestination),
                                          association.names().calledAeTitle);
}

/// As the tables have it now.
MoveService::Elsewhere MoveService::findElsewhere(const Request& request, Association& association) const {
    try {
        const auto lease =
            retrieval_.shared().sessions.take([&association] { return association.stop().stop_requested(); });
        if (!lease)
            throw AssociationEnded{DUL_NETWORKCLOSED};
        const std::string name = request.command.value(DCM_MoveDestination);
        if (const auto node = ftp::findNode(lease->connection(), name))
            return {.ftp = node->name, .printer = {}};
        const auto printers = films::readPrinters(lease->connection());
        if (const films::PrinterRow* const row = films::printerNamed(printers, name))
            return {.ftp = {}, .printer = Printer{*row, films::readBaseUid(lease->connection())}};
        return {};
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
    const bool cancelled = followToEnd(*started, retrieval_, request, association);
    retrieval_.answerFinally(request, association, started->progress(), cancelled);
}

void MoveService::print(const Request& request, Association& association, const Printer& printer,
                        InstanceList instances) {
    std::optional<FilmMove> started;
    try {
        started.emplace(
            FilmMove::Order{.printer = printer.row,
                            .baseUid = printer.baseUid,
                            .callingAeTitle = association.port().aeTitle,
                            .originator = association.names().callingAeTitle,
                            .root = archive::localPath(association.port().root),
                            .name = association.names().text() + ", to printer " + printer.row.name,
                            .requestor = association.names().address},
            std::move(instances), retrieval_.shared(), association.log());
    } catch (const std::system_error& error) {
        association.log(PeerLog::Event::Failure, std::string{"move not begun: "} + error.what());
        throw RequestFailure{STATUS_MOVE_Refused_OutOfResourcesSubOperations, "No thread is to be had"};
    }
    const bool cancelled = followToEnd(*started, retrieval_, request, association);
    if (!cancelled && started->lackedRoom())
        return retrieval_.refuseFinally(request, association, started->progress(),
                                        STATUS_MOVE_Refused_OutOfResourcesSubOperations,
                                        "There is no room for the films");
    retrieval_.answerFinally(request, association, started->progress(), cancelled);
}

}  // namespace tessaly::tessalyd
