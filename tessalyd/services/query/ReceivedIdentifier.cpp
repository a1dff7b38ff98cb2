#include "tessalyd/services/query/ReceivedIdentifier.h"

#include <string_view>
#include <vector>

#include "dicom/data/SinkStream.h"
#include "tessalyd/association/Requester.h"
#include "tessalyd/services/query/IdentifierParser.h"

namespace tessaly::tessalyd {

namespace {

/// A list of a thousand UIDs has 65 KB.
constexpr std::size_t Longest = std::size_t{4} << 20U;

const char* sopClassOf(const T_DIMSE_Message& message) {
    switch (message.CommandField) {
        case DIMSE_C_MOVE_RQ:
            return message.msg.CMoveRQ.AffectedSOPClassUID;
        case DIMSE_C_GET_RQ:
            return message.msg.CGetRQ.AffectedSOPClassUID;
        default:
            return message.msg.CFindRQ.AffectedSOPClassUID;
    }
}

RequestFailure cannotUnderstand(const char* comment) {
    return {STATUS_FIND_Failed_UnableToProcess, comment};
}

std::vector<char> receiveBytes(Requester& requester) {
    std::vector<char> bytes;
    bool isTooLong = false;
    dicom::SinkStream stream{[&](std::span<const char> part) {
        isTooLong = isTooLong || bytes.size() + part.size() > Longest;
        if (!isTooLong)
            bytes.insert(bytes.end(), part.begin(), part.end());
    }};
    const bool belongs = requester.receiveDataSet(stream);
    stream.rethrow();
    if (!belongs)
        throw cannotUnderstand("Command and identifier do not belong together");
    if (isTooLong)
        throw cannotUnderstand("The identifier is too long");
    return bytes;
}

}  // namespace

std::unique_ptr<DcmDataset> receiveIdentifier(const Request& request, Requester& requester) {
    const std::vector<char> bytes = receiveBytes(requester);
    if (request.context->sopClass != sopClassOf(request.message)) {
        constexpr DIC_US NotSupported = 0x0122;
        throw RequestFailure{NotSupported, "The SOP class is not that of the presentation context"};
    }
    return parseIdentifier(bytes, request.context->syntax);
}

}  // namespace tessaly::tessalyd
