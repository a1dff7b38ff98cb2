#include "tessalyd/services/verification/EchoService.h"

#include <dcmtk/dcmdata/dcuid.h>

#include <array>
#include <string_view>

#include "dicom/data/TransferSyntaxes.h"
#include "tessalyd/association/Requester.h"

namespace tessaly::tessalyd {

std::span<const SupportedContext> EchoService::supportedContexts() const noexcept {
    static constexpr std::array Offers{SupportedContext{
        .covers = [](const char* uid) { return std::string_view{uid} == UID_VerificationSOPClass; },
        .requester = Role::Scu,
        .preference = [](dicom::TransferSyntax syntax) { return dicom::isUncompressed(syntax) ? 1 : 0; }}};
    return Offers;
}

void EchoService::answer(const Request& request, Requester& requester) {
    Requester::require(DIMSE_sendEchoResponse(requester.association(), request.context->id,
                                              &request.message.msg.CEchoRQ, STATUS_Success, nullptr));
}

}  // namespace tessaly::tessalyd
