// What peers send, before the DICOM toolkit gets it: data sets and PDUs.

#include <algorithm>
#include <array>
#include <string>

#include "dicom/data/AttributeReader.h"
#include "dicom/data/DataSetWalk.h"
#include "tessalyd/association/CommandLengthLimit.h"
#include "tests/fuzz/Fuzz.h"

namespace {

using tessaly::fuzz::require;

/// Where the bytes are parted must not matter.
void tryMeter(std::span<const char> bytes) {
    tessaly::tessalyd::CommandLengthLimit whole;
    tessaly::tessalyd::CommandLengthLimit parted;
    const bool good = whole.follow(bytes);
    const std::size_t middle = bytes.size() / 2;
    require(good == (parted.follow(bytes.first(middle)) && parted.follow(bytes.subspan(middle))));
}

/// Wants two attributes, and counts what it is shown.
class Watch final : public tessaly::dicom::ElementVisitor {
  public:
    [[nodiscard]] bool element(const tessaly::dicom::ElementHead& /*head*/) override {
        ++elements;
        return true;
    }
    void value(std::span<const char> piece) override { bytes += piece.size(); }

    std::size_t elements = 0;
    std::size_t bytes = 0;
};

/// Time and memory are bounded by the bytes, and where these are parted does not matter.
void tryReader(std::string_view input, E_TransferSyntax syntax, std::size_t piece) {
    using tessaly::dicom::AttributeReader;
    const auto read = [&](std::size_t size, Watch& watch) {
        AttributeReader reader{syntax,
                               {DcmTagKey{0x0010, 0x0010}, DcmTagKey{0x0010, 0x0020}},
                               DcmTagKey{0x0028, 0x0012},
                               &watch};
        std::string result;
        try {
            for (std::string_view left = input; !left.empty();
                 left.remove_prefix(std::min(size, left.size())))
                reader.take(left.substr(0, size));
            reader.finish();
        } catch (const tessaly::dicom::HeaderFault& fault) {
            result = fault.what();
        }
        require(reader.bytesKept() <= 2 * AttributeReader::LongestValue);
        if (const auto* const name = reader.find(DcmTagKey{0x0010, 0x0010}))
            result += name->bytes;
        return result;
    };
    Watch whole;
    Watch parted;
    require(read(input.size(), whole) == read(piece, parted));
    require(whole.elements == parted.elements && whole.bytes == parted.bytes);
    require(whole.elements <= input.size() / 8 && whole.bytes <= input.size());
}

/// A data set in memory, one in a file and one that arrives are judged alike.
bool isTruncated(std::string_view input, E_TransferSyntax syntax, std::size_t piece) {
    const bool cut = tessaly::dicom::isTruncated(input, syntax);
    const auto byteAt = [input](std::size_t index) { return input[index]; };
    require(cut == tessaly::dicom::isTruncated(byteAt, input.size(), syntax));
    tessaly::dicom::TruncationCheck check{syntax};
    for (std::string_view left = input; !left.empty(); left.remove_prefix(std::min(piece, left.size())))
        check.take(left.substr(0, piece));
    require(cut == check.isTruncated());
    return cut;
}

}  // namespace

/// The first byte chooses the transfer syntax and the size of the pieces.
void tessaly::fuzz::tryInput(std::string_view input) {
    tryMeter(input);
    if (input.empty())
        return;
    constexpr std::array Syntaxes{EXS_LittleEndianImplicit, EXS_LittleEndianExplicit, EXS_BigEndianExplicit};
    const auto choice = static_cast<unsigned char>(input.front());
    const auto syntax = Syntaxes[choice % Syntaxes.size()];
    const std::size_t piece = 1U + (choice >> 2U);
    input.remove_prefix(1);
    tryReader(input, syntax, piece);
    const bool deep = dicom::exceedsNestingLimit(input, syntax);
    const bool deepInHeader = dicom::exceedsNestingLimit(input, syntax, DcmTagKey{0x0020, 0x0014});
    require(deep || !deepInHeader);
    // Zeros are what some devices fill up with.
    require(!isTruncated(input, syntax, piece) || input.find_first_not_of('\0') != std::string_view::npos);
}
