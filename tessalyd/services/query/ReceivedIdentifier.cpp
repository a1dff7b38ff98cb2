#include "tessalyd/services/query/ReceivedIdentifier.h"

#include <dcmtk/dcmnet/dimse.h>

#include <vector>

#include "tessalyd/association/Association.h"
#include "tessalyd/services/query/IdentifierParser.h"

namespace tessaly::tessalyd {

namespace {

/// A list of a thousand UIDs has 65 KB.
constexpr std::size_t Longest = std::size_t{4} << 20U;

RequestFailure cannotUnderstand(const char* comment) {
    return {STATUS_FIND_Failed_UnableToProcess, comment};
}

std::vector<char> receiveBytes(Association& association) {
    std::vector<char> bytes;
    bool isTooLong = false;
    const bool belongs = association.receiveDataSet([&](std::span<const char> part) {
        isTooLong = isTooLong || bytes.size() + part.size() > Longest;
        if (!isTooLong)
            bytes.insert(bytes.end(), part.begin(), part.end());
    });
    if (!belongs)
        throw cannotUnderstand("Command and identifier do not belong together");
    if (isTooLong)
        throw cannotUnderstand("The identifier is too long");
    return bytes;
}

}  // namespace

std::unique_ptr<DcmDataset> receiveIdentifier(const Request& request, Association& association) {
    if (!request.command.hasDataSet())
        throw AssociationEnded{DIMSE_BADCOMMANDTYPE};
    const std::vector<char> bytes = receiveBytes(association);
    if (request.context->sopClass != request.command.sopClassUid()) {
        constexpr std::uint16_t NotSupported = 0x0122;
        throw RequestFailure{NotSupported, "The SOP class is not that of the presentation context"};
    }
    return parseIdentifier(bytes, request.context->syntax());
}

}  // namespace tessaly::tessalyd
