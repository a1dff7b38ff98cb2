// The data sets that devices send.

#include <dcmtk/dcmdata/dctk.h>

#include <QUtf8StringView>
#include <array>

#include "tessalyd/archive/ObjectHeader.h"
#include "tessalyd/archive/StoreFailure.h"
#include "tests/fuzz/Fuzz.h"

namespace {

using tessaly::fuzz::require;

void checkText(const std::string& text, std::size_t width) {
    const QUtf8StringView view{text.data(), static_cast<qsizetype>(text.size())};
    require(view.isValidUtf8());
    std::size_t characters = 0;
    for (const char c : text)
        characters += (static_cast<unsigned char>(c) & 0xC0U) != 0x80U ? 1 : 0;
    require(characters <= width);
}

}  // namespace

/// The first byte chooses how the others are sent.
void tessaly::fuzz::tryInput(std::string_view input) {
    static const bool quiet = [] {
        OFLog::configure(OFLogger::OFF_LOG_LEVEL);
        return true;
    }();
    if (!quiet || input.empty())
        return;
    constexpr std::array Syntaxes{EXS_LittleEndianImplicit, EXS_LittleEndianExplicit, EXS_BigEndianExplicit,
                                  EXS_DeflatedLittleEndianExplicit};
    const auto choice = static_cast<unsigned char>(input.front());
    const bool complete = (choice & 0x80U) != 0;
    input.remove_prefix(1);
    try {
        const auto header = tessalyd::readHeader(input, Syntaxes[choice % Syntaxes.size()], complete);
        require(header || !complete);
        if (!header)
            return;
        checkText(header->patientId, 64);
        checkText(header->patientName, 324);
        checkText(header->birthDate, 8);
        checkText(header->studyDescription, 64);
        checkText(header->seriesNumber, 12);
        checkText(header->sopInstanceUid, 4096);
    } catch (const tessalyd::StoreFailure&) {  // refused: the sender is told
        return;
    }
}
