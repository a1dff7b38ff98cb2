// Images that are to be on a film, and presentation states: their headers, how they are to look, their
// pixels.

#include <dcmtk/config/osconfig.h>

#include <array>
#include <stdexcept>

#include "tessalyd/forwarding/composing/FilmText.h"
#include "tessalyd/forwarding/composing/FrameRenderer.h"
#include "tessalyd/forwarding/composing/PresentationState.h"
#include "tessalyd/forwarding/images/ImageRefusal.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/ObjectInMemory.h"
#include "tests/fuzz/SilentToolkit.h"

namespace {

using namespace tessaly;
using namespace tessaly::tessalyd::composing;
using fuzz::require;
using tessalyd::images::ImageRefusal;
using tessalyd::images::PixelSource;

constexpr std::uint64_t MostToRender = std::uint64_t{1} << 20U;  // larger ones only take longer
constexpr std::size_t FewFrames = 3;

void checkTexts(const Header& header) {
    for (const auto& [position, annotation] : annotationsOf(header, {.number = 2, .films = 3})) {
        require(position > 0 && annotation.text.size() <= std::size_t{4} * 64);
        for (const char c : annotation.text)
            require(static_cast<unsigned char>(c) >= ' ' && c != '\\');
    }
}

void render(const PixelSource& source, const Header& header, const PresentationState& state) {
    for (std::size_t frame = 0; frame < FewFrames && frame < source.image().frames; ++frame) {
        FrameReader reader{source, header, frame};
        Look look = lookOf(header, source.image(), frame);
        state.apply("1.23", frame, source.image(), look);
        const auto layout = layoutOf(reader, look, header);
        require(layout.bytes() <= MostFrameBytes && layout.rows > 0 && layout.columns > 0);
        if (look.area)
            require(look.area->right < reader.columns() && look.area->bottom < reader.rows());
        if (layout.bytes() > MostToRender)
            return;
        std::uint64_t bytes = 0;
        renderFrame(
            reader, look,
            [&](std::span<const char> piece) {
                for (std::size_t i = 1; layout.samples == 1 && i < piece.size(); i += 2)
                    require(static_cast<unsigned char>(piece[i]) < 16);
                bytes += piece.size();
            },
            [] {});
        require(bytes == layout.bytes());
    }
}

}  // namespace

/// The first byte chooses the transfer syntax; what follows are an image's data set and a state's, parted by
/// `|||`.
void tessaly::fuzz::tryInput(std::string_view input) {
    silenceToolkit();
    if (input.empty())
        return;
    constexpr std::array Syntaxes{"1.2.840.10008.1.2", "1.2.840.10008.1.2.1", "1.2.840.10008.1.2.2",
                                  "1.2.840.10008.1.2.1.99"};
    const auto number = static_cast<unsigned char>(input.front()) % Syntaxes.size();
    const char* const syntax = Syntaxes[number];
    input.remove_prefix(1);
    const std::string_view image = input.substr(0, input.find("|||"));
    const std::string_view other = input.substr(std::min(input.size(), image.size() + 3));
    const decoder::Heartbeat heartbeat = [] {};
    try {
        const auto read = [&](std::string_view part) {
            return readHeader(dicom::ObjectFile{"object", fuzz::objectInMemory(part, syntax)}, heartbeat);
        };
        const PresentationState state{read(other)};
        (void)state.leftOut();
        const ObjectHeader header = read(image);
        checkTexts(header.attributes);
        if (number > 1)  // the others have to be decoded
            return;
        static decoder::Pool pool{{.program = "/none"}};
        render(PixelSource{fuzz::objectInMemory(image, syntax), "/tmp", pool, {}}, header.attributes, state);
    } catch (const ImageRefusal& refusal) {
        const std::string_view what = refusal.what();
        require(!what.empty());
        for (const char c : what)
            require(c >= ' ' && c <= '~');
    } catch (const std::runtime_error&) {  // no file of DICOM
    }
}
