// The data sets that devices send.

#include <dcmtk/dcmdata/dctk.h>

#include <QUtf8StringView>
#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "tessalyd/store/IncomingHeader.h"
#include "tessalyd/store/StoreFailure.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/SilentToolkit.h"

namespace {

using namespace tessaly::tessalyd;
using tessaly::fuzz::require;

void checkText(const std::string& text, std::size_t width) {
    const QUtf8StringView view{text.data(), static_cast<qsizetype>(text.size())};
    require(view.isValidUtf8());
    std::size_t characters = 0;
    for (const char c : text)
        characters += (static_cast<unsigned char>(c) & 0xC0U) != 0x80U ? 1 : 0;
    require(characters <= width);
}

/// Returns nullopt where the data set is refused. It arrives in pieces of that size.
std::optional<ObjectHeader> headerOf(std::string_view data, E_TransferSyntax syntax, std::size_t piece) {
    try {
        IncomingHeader incoming{syntax};
        for (; !data.empty(); data.remove_prefix(std::min(piece, data.size())))
            incoming.take(data.substr(0, piece));
        return incoming.header();
    } catch (const StoreFailure& failure) {
        require(failure.status() == 0xc000);
        return std::nullopt;
    }
}

std::vector<std::string> texts(const ObjectHeader& header) {
    return {header.patientId,
            header.patientName,
            header.birthDate,
            header.studyInstanceUid,
            header.studyDescription,
            header.modality,
            header.sopInstanceUid,
            header.instanceNumber,
            std::to_string(header.pixelRows.value_or(-1)),
            std::to_string(header.numberOfFrames.value_or(-1))};
}

}  // namespace

/// The first byte chooses the transfer syntax and the size of the pieces.
void tessaly::fuzz::tryInput(std::string_view input) {
    silenceToolkit();
    if (input.empty())
        return;
    constexpr std::array Syntaxes{EXS_LittleEndianImplicit, EXS_LittleEndianExplicit, EXS_BigEndianExplicit};
    const auto choice = static_cast<unsigned char>(input.front());
    const auto syntax = Syntaxes[choice % Syntaxes.size()];
    input.remove_prefix(1);
    const auto header = headerOf(input, syntax, input.size());
    // Where the bytes are parted must not matter.
    const auto parted = headerOf(input, syntax, 1U + (choice >> 2U));
    require(header.has_value() == parted.has_value());
    if (!header)  // refused: the sender is told
        return;
    require(texts(*header) == texts(*parted));
    checkText(header->patientId, 64);
    checkText(header->patientName, 324);
    checkText(header->birthDate, 8);
    checkText(header->studyDescription, 64);
    checkText(header->seriesNumber, 12);
    checkText(header->sopInstanceUid, 4096);
}
