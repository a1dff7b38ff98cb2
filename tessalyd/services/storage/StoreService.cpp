#include "tessalyd/services/storage/StoreService.h"

#include <dcmtk/dcmdata/dcuid.h>

#include <array>

#include "dicom/data/StorageClasses.h"
#include "dicom/data/TransferSyntaxes.h"
#include "tessalyd/Log.h"
#include "tessalyd/Printable.h"
#include "tessalyd/association/Requester.h"
#include "tessalyd/store/ArchiveWriter.h"
#include "tessalyd/store/StoreFailure.h"

namespace tessaly::tessalyd {

namespace {

/// For the file, which may do without: a title with controls in it is none.
std::string callingTitle(const Requester& requester) {
    const std::string& title = requester.names().callingAeTitle;
    return printable(title) == title ? title : std::string{};
}

}  // namespace

std::span<const SupportedContext> StoreService::supportedContexts() const noexcept {
    static constexpr std::array Offers{SupportedContext{
        .covers = dicom::isStored, .requester = Role::Scu, .preference = [](dicom::TransferSyntax syntax) {
            return dicom::isArchived(syntax) ? 1 : 0;
        }}};
    return Offers;
}

void StoreService::answer(const Request& request, Requester& requester) {
    const T_DIMSE_C_StoreRQ& command = request.message.msg.CStoreRQ;
    if (command.DataSetType == DIMSE_DATASET_NULL)
        throw AssociationEnded{DIMSE_BADCOMMANDTYPE};
    unlisted_.meet(request.context->sopClass, requester.names().text());
    const std::string object = requester.names().text() + ": " + command.AffectedSOPInstanceUID;
    try {
        store(request, requester);
        ++stored_;
        OFLOG_DEBUG(serverLog(), object.c_str() << " stored");
    } catch (const RootUnavailable& failure) {
        ++notStored_;
        OFLOG_WARN(serverLog(), object.c_str() << " not stored: " << failure.what());
        throw RequestFailure{failure.status(), failure.what()};
    } catch (const StoreFailure& failure) {
        ++notStored_;
        requester.log().add(PeerLog::Event::Failure,
                            object + " not stored: " + failure.what() + ": " + failure.detail());
        throw RequestFailure{failure.status(), failure.what()};
    }
    T_DIMSE_Message answer{};
    answer.CommandField = DIMSE_C_STORE_RSP;
    answer.msg.CStoreRSP.DimseStatus = STATUS_Success;
    requester.dump(answer);
    Requester::require(DIMSE_sendStoreResponse(requester.association(), request.context->id, &command,
                                               &answer.msg.CStoreRSP, nullptr));
}

void StoreService::store(const Request& request, Requester& requester) {
    const T_DIMSE_C_StoreRQ& command = request.message.msg.CStoreRQ;
    ArchiveWriter writer{requester.port(),
                         index_,
                         {.decoders = decoders_,
                          .interest = {.stop = requester.stop(), .requester = requester.names().address}},
                         {.sopClassUid = command.AffectedSOPClassUID,
                          .sopInstanceUid = command.AffectedSOPInstanceUID,
                          .syntax = request.context->syntax,
                          .sender = callingTitle(requester)},
                         buffer_};
    if (!requester.receiveDataSet(writer.stream()))
        throw StoreFailure{STATUS_STORE_Error_CannotUnderstand,
                           "Command and data set do not belong together"};
    if (request.context->sopClass != command.AffectedSOPClassUID)
        throw StoreFailure{STATUS_STORE_Refused_SOPClassNotSupported,
                           "The SOP class is not that of the presentation context"};
    writer.finish();
}

std::string StoreService::summary() const {
    return std::to_string(stored_) + " objects stored, " + std::to_string(notStored_) + " not stored";
}

}  // namespace tessaly::tessalyd
