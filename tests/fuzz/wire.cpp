// What peers send, before the DICOM toolkit gets it: data sets and PDUs.

#include <array>

#include "dicom/DataSetWalk.h"
#include "tessalyd/association/CommandMeter.h"
#include "tests/fuzz/Fuzz.h"

namespace {

using tessaly::fuzz::require;

/// Where the bytes are parted must not matter.
void tryMeter(std::span<const char> bytes) {
    tessaly::tessalyd::CommandMeter whole;
    tessaly::tessalyd::CommandMeter parted;
    const bool good = whole.follow(bytes);
    const std::size_t middle = bytes.size() / 2;
    require(good == (parted.follow(bytes.first(middle)) && parted.follow(bytes.subspan(middle))));
}

}  // namespace

/// The first byte chooses the transfer syntax.
void tessaly::fuzz::tryInput(std::string_view input) {
    tryMeter(input);
    if (input.empty())
        return;
    constexpr std::array Syntaxes{EXS_LittleEndianImplicit, EXS_LittleEndianExplicit, EXS_BigEndianExplicit};
    const auto syntax = Syntaxes[static_cast<unsigned char>(input.front()) % Syntaxes.size()];
    input.remove_prefix(1);
    const bool deep = dicom::nestsTooDeep(input, syntax);
    const bool deepInHeader = dicom::nestsTooDeep(input, syntax, DcmTagKey{0x0020, 0x0014});
    require(deep || !deepInHeader);
    // Zeros are what some devices fill up with.
    require(!dicom::isCutOff(input, syntax) || input.find_first_not_of('\0') != std::string_view::npos);
}
