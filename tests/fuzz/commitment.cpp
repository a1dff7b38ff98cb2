// The data sets of storage commitment requests, in whatever pieces they come.

#include <algorithm>
#include <sstream>

#include "dicom/data/ObjectHeader.h"
#include "tessalyd/services/commitment/CommitmentList.h"
#include "tests/fuzz/Fuzz.h"

namespace {

using namespace tessaly;
using tessaly::fuzz::require;
using tessalyd::CommitmentParser;

/// The result and all that is kept of it.
std::string parsed(std::span<const char> data, E_TransferSyntax syntax, std::size_t piece) {
    CommitmentParser parser{dicom::TransferSyntax{syntax}};
    for (std::size_t at = 0; at < data.size(); at += piece)
        parser.take(data.subspan(at, std::min(piece, data.size() - at)));
    const auto result = parser.finish();
    require(parser.references().size() <= 2 * data.size() + 2);
    if (result != CommitmentParser::Result::Good)
        return std::to_string(static_cast<int>(result));
    require(dicom::isUid(parser.transactionUid()));
    std::istringstream lines{parser.references()};
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        const auto blank = line.find(' ');
        require(blank != std::string::npos && dicom::isUid(line.substr(0, blank)) &&
                dicom::isUid(line.substr(blank + 1)));
    }
    require(count > 0);
    return parser.transactionUid() + '\n' + parser.references();
}

}  // namespace

void tessaly::fuzz::tryInput(std::string_view input) {
    const std::span<const char> data{input};
    for (const auto syntax : {EXS_LittleEndianExplicit, EXS_LittleEndianImplicit}) {
        const std::string whole = parsed(data, syntax, std::max<std::size_t>(data.size(), 1));
        require(parsed(data, syntax, 1) == whole);
        require(parsed(data, syntax, 7) == whole);
    }
}
