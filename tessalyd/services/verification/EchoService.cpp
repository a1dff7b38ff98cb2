#include "tessalyd/services/verification/EchoService.h"

#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmnet/dimse.h>

#include <array>
#include <string_view>

#include "dicom/data/TransferSyntaxes.h"
#include "tessalyd/association/Association.h"

namespace tessaly::tessalyd {

std::span<const SupportedContext> EchoService::contexts() const noexcept {
    static constexpr std::array Supported{SupportedContext{
        .covers = [](const char* uid) { return std::string_view{uid} == UID_VerificationSOPClass; },
        .requestor = Role::Scu,
        .preference = [](dicom::TransferSyntax syntax) { return dicom::isUncompressed(syntax) ? 1 : 0; }}};
    return Supported;
}

std::span<const CommandField> EchoService::commands() const noexcept {
    static constexpr std::array Commands{CommandField::CEcho};
    return Commands;
}

void EchoService::answer(const Request& request, Association& association) {
    association.respond(request, STATUS_Success);
}

}  // namespace tessaly::tessalyd
