#include "tessalyd/services/storage/StoreService.h"

#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmnet/dimse.h>

#include <array>

#include "dicom/data/StorageClasses.h"
#include "dicom/data/TransferSyntaxes.h"
#include "tessalyd/Log.h"
#include "tessalyd/Printable.h"
#include "tessalyd/association/Association.h"
#include "tessalyd/forwarding/ftp/Handler.h"
#include "tessalyd/forwarding/ftp/Node.h"
#include "tessalyd/store/ArchiveWriter.h"
#include "tessalyd/store/StoreFailure.h"

namespace tessaly::tessalyd {

namespace {

/// For the file, which may do without: a title with controls in it is none.
std::string callingTitle(const Association& association) {
    const std::string& title = association.names().callingAeTitle;
    return printable(title) == title ? title : std::string{};
}

}  // namespace

std::span<const SupportedContext> StoreService::contexts() const noexcept {
    static constexpr std::array Supported{SupportedContext{
        .covers = dicom::isStored, .requestor = Role::Scu, .preference = [](dicom::TransferSyntax syntax) {
            return dicom::isArchived(syntax) ? 1 : 0;
        }}};
    return Supported;
}

std::span<const CommandField> StoreService::commands() const noexcept {
    static constexpr std::array Commands{CommandField::CStore};
    return Commands;
}

void StoreService::answer(const Request& request, Association& association) {
    if (!request.command.hasDataSet())
        throw AssociationEnded{DIMSE_BADCOMMANDTYPE};
    unlisted_.meet(request.context->sopClass, association.names().text());
    const std::string object = association.names().text() + ": " + request.command.sopInstanceUid();
    try {
        store(request, association);
        ++stored_;
        OFLOG_DEBUG(serverLog(), object.c_str() << " stored");
    } catch (const RootUnavailable& failure) {
        ++notStored_;
        OFLOG_WARN(serverLog(), object.c_str() << " not stored: " << failure.what());
        throw RequestFailure{failure.status(), failure.what()};
    } catch (const StoreFailure& failure) {
        ++notStored_;
        association.log().add(PeerLog::Event::Failure,
                              object + " not stored: " + failure.what() + ": " + failure.detail());
        throw RequestFailure{failure.status(), failure.what()};
    }
    association.respond(request, STATUS_Success);
}

void StoreService::store(const Request& request, Association& association) {
    const std::string sopClassUid = request.command.sopClassUid();
    const auto deliver = [&](const db::Connection& connection, const ObjectHeader& header) {
        if (const auto& node = ftpNode(connection, association))
            ftp::deliverLater(connection, *node, header.seriesInstanceUid, header.sopInstanceUid,
                              shared_.quietTime);
    };
    ArchiveWriter writer{association.port(),
                         shared_.index,
                         {.decoders = shared_.decoders,
                          .interest = {.stop = association.stop(), .requestor = association.names().address}},
                         {.sopClassUid = sopClassUid,
                          .sopInstanceUid = request.command.sopInstanceUid(),
                          .syntax = request.context->syntax(),
                          .sender = callingTitle(association),
                          .writeRows = deliver},
                         buffer_};
    if (!association.receiveDataSet([&writer](std::span<const char> part) { writer.take(part); }))
        throw StoreFailure{STATUS_STORE_Error_CannotUnderstand,
                           "Command and data set do not belong together"};
    if (request.context->sopClass != sopClassUid)
        throw StoreFailure{STATUS_STORE_Refused_SOPClassNotSupported,
                           "The SOP class is not that of the presentation context"};
    writer.finish();
}

/// The FTP node to which what is stored over the association is delivered, too: looked for once, over the
/// connection that stores.
const std::optional<std::string>& StoreService::ftpNode(const db::Connection& connection,
                                                        const Association& association) {
    if (!isNodeKnown_ && !association.port().checkCalledAE) {
        const auto node = ftp::findNode(connection, association.names().calledAeTitle);
        ftpNode_ = node ? std::optional{node->name} : std::nullopt;
    }
    isNodeKnown_ = true;
    return ftpNode_;
}

std::string StoreService::summary() const {
    return std::to_string(stored_) + " objects stored, " + std::to_string(notStored_) + " not stored";
}

}  // namespace tessaly::tessalyd
