// The data sets of print requests: attributes, settings, images and LUTs.

#include <dcmtk/dcmdata/dctk.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "base/FileDescriptor.h"
#include "tessalyd/association/Service.h"
#include "tessalyd/forwarding/films/AttributeSet.h"
#include "tessalyd/forwarding/films/DisplayFormat.h"
#include "tessalyd/forwarding/films/PrintProgress.h"
#include "tessalyd/forwarding/films/PrintSettings.h"
#include "tessalyd/services/print/SentImage.h"
#include "tests/fuzz/Fuzz.h"

namespace {

using namespace tessaly::tessalyd;
using namespace tessaly::tessalyd::films;
using tessaly::fuzz::require;

/// What is sent fits into what it is sent as.
void checkSettings(const AttributeSet& attributes) {
    const PrinterRow row{.copies = "2", .medium = "PAPER", .minDensity = "20", .maxDensity = "300"};
    for (const SettingsOf what : {SettingsOf::Session, SettingsOf::Film, SettingsOf::Image}) {
        const SentSettings sent = sentSettings(what, attributes, row);
        for (const Settings& settings :
             {settingsThatHold(what, sent.settings, row), settingsForResponse(what, sent.settings, row)}) {
            DcmDataset target;
            put(settings, target);
            require(target.card() == settings.size());
            for (const auto& [tag, value] : settings)
                require(value.size() <= 1024);
        }
    }
    if (const auto format = DisplayFormat::parse(attributes.text(DCM_ImageDisplayFormat).value_or("")))
        for (std::size_t box = 0; box < format->boxes(); ++box) {
            const auto size = format->boxOf(box, {.width = 100, .height = 100});
            require(size.width >= 1 && size.width <= 100 && size.height >= 1 && size.height <= 100);
        }
}

/// Every pixel that a printer is promised comes.
void checkImage(const AttributeSet& item, bool isColour, const std::string& pixels, unsigned choice) {
    ImageLayout layout;
    try {
        layout = print::layoutOf(item, isColour);
    } catch (const RequestFailure&) {
        return;
    }
    require(layout.bytes() > 0);
    if (layout.bytes() > pixels.size())
        return;
    const tessaly::base::FileDescriptor file{::memfd_create("pixels", MFD_CLOEXEC)};
    require(::write(file.get(), pixels.data(), pixels.size()) == static_cast<ssize_t>(pixels.size()));
    const PixelSize size = (choice & 1U) != 0 ? fitted({layout.columns, layout.rows}, {7, 5})
                                              : PixelSize{layout.columns, layout.rows};
    const LookupTable lut{.values = {0, 100, 4095}, .bits = 12};
    const TargetLayout target{.rows = size.rows,
                              .columns = size.columns,
                              .isColour = isColour && (choice & 2U) != 0,
                              .bits = (choice & 4U) != 0 ? 8U : 10U,
                              .isRendered = (choice & 8U) != 0,
                              .isReversed = (choice & 16U) != 0,
                              .lookUp = &lut};
    std::uint64_t come = 0;
    convertPixels(file.get(), layout, target, [&come](std::span<const char> piece) { come += piece.size(); });
    require(come == target.bytes());
}

void checkLut(const AttributeSet& attributes) {
    try {
        const PresentationLut lut = print::lutOf(attributes);
        require(lut.shape.empty() != lut.table.values.empty());
        if (!lut.table.values.empty())
            require(lut.table.forBits(8).values.size() == 256 || lut.table.values.size() == 256);
    } catch (const RequestFailure& failure) {
        require(failure.status() == 0x0106 || failure.status() == 0x0120);
    }
}

}  // namespace

/// The first byte chooses the syntax, the second how large the pieces are and what printers want.
void tessaly::fuzz::tryInput(std::string_view input) {
    if (input.size() < 2)
        return;
    const dicom::TransferSyntax syntax{(input[0] & 1) != 0 ? EXS_LittleEndianImplicit
                                                           : EXS_LittleEndianExplicit};
    const auto choice = static_cast<unsigned char>(input[1]);
    input.remove_prefix(2);
    std::string pixels;
    AttributeCollector whole{
        syntax, [&pixels](std::span<const char> piece) { pixels.append(piece.begin(), piece.end()); }};
    whole.take({input.data(), input.size()});
    std::string samePixels;
    AttributeCollector pieces{syntax, [&samePixels](std::span<const char> piece) {
                                  samePixels.append(piece.begin(), piece.end());
                              }};
    for (std::string_view rest = input; !rest.empty();) {
        const auto size = std::min<std::size_t>(rest.size(), choice % 13U + 1U);
        pieces.take({rest.data(), size});
        rest.remove_prefix(size);
    }
    require(whole.fault() == pieces.fault() && pixels == samePixels);
    require(pixels.size() <= input.size());
    if (whole.fault())
        return;
    checkSettings(whole.attributes());
    checkLut(whole.attributes());
    for (const bool isColour : {false, true})
        if (const auto* const items = whole.attributes().items(isColour ? DCM_BasicColorImageSequence
                                                                        : DCM_BasicGrayscaleImageSequence))
            for (const AttributeSet& item : *items)
                checkImage(item, isColour, pixels, choice);
    (void)PrintProgress::parse(input);
}
