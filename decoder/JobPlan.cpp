#include "decoder/JobPlan.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "decoder/Transcoder.h"
#include "decoder/DeflatedLayout.h"
#include "decoder/Syntaxes.h"
#include "dicom/data/FileWindow.h"

namespace tessaly::decoder {

namespace {

constexpr std::uint64_t Mega = std::uint64_t{1} << 20U;

// What a decoder may take; docs/server.md has these numbers.
constexpr std::uint64_t LeastMemory = 64 * Mega;
constexpr std::uint64_t MemoryOfElement = 512;  // of the toolkit, beside its value
constexpr std::uint64_t FramesInMemory = 8;     // as the codecs keep them, progressive ones included
constexpr std::uint64_t WaveletsInMemory = 12;  // four bytes for each sample of the image, and of a tile
constexpr std::uint64_t LeastSeconds = 10;
constexpr std::uint64_t BytesInSecond = 4 * Mega;

[[noreturn]] void fail(const char* what) {
    throw std::system_error{errno, std::generic_category(), what};
}

dicom::FileWindow::ReadAt readerOf(const DataSetFile& set, const Heartbeat& heartbeat) {
    return [set, &heartbeat](std::size_t offset, std::span<char> target) {
        heartbeat();
        while (!target.empty()) {
            const ssize_t read =
                ::pread(set.file, target.data(), target.size(), static_cast<off_t>(set.dataSetAt + offset));
            if (read < 0 && errno == EINTR)
                continue;
            if (read == 0)
                errno = EIO;  // somebody has cut it off
            if (read <= 0)
                fail("the data set cannot be read");
            offset += static_cast<std::size_t>(read);
            target = target.subspan(static_cast<std::size_t>(read));
        }
    };
}

dicom::FileWindow windowOf(const DataSetFile& set, const Heartbeat& heartbeat) {
    return {set.size, readerOf(set, heartbeat)};
}

std::optional<ObjectLayout> layoutOf(const DataSetFile& set, const Heartbeat& heartbeat) {
    if (set.syntax.isDeflated())
        return readDeflatedLayout(readerOf(set, heartbeat), set.size);
    dicom::FileWindow window = windowOf(set, heartbeat);
    return readLayout(window, set.size, set.syntax);
}

}  // namespace

std::variant<JobPlan, const char*> planJob(const DataSetFile& source, const DataSetFile& target,
                                           std::uint64_t decodeLimit, const Heartbeat& heartbeat) {
    if (!isNative(target.syntax) || (!isNative(source.syntax) && !isDecodable(source.syntax)))
        return "there is no decoder for it";
    const auto layout = layoutOf(source, heartbeat);
    if (!layout)
        return "its data set cannot be read";
    JobPlan plan{.identity = layout->identity, .hasPixels = layout->pixels.has_value()};
    std::uint64_t frame = 0;
    if (layout->pixels && layout->pixels->isEncapsulated) {
        const auto size = layout->image.size();
        if (!size)
            return "its header promises no image, or one that no object can hold";
        if (*size > decodeLimit)
            return "its header promises more than may be decoded at once";
        frame = layout->image.frameSize().value_or(0);
        plan.pixelBytes = *size + *size % 2;
    } else if (layout->pixels) {
        plan.pixelBytes = layout->pixels->end - layout->pixels->valueAt;
    }
    const bool isDeflated = source.syntax.isDeflated();
    if (isDeflated && plan.pixelBytes > decodeLimit)
        return "it has more pixel data than may be inflated at once";
    const std::uint64_t whole = isDeflated ? layout->end : source.size;
    const std::uint64_t others = whole - layout->pixelBytes();
    // A compressed frame is hardly ever longer than it was, and is there up to three times.
    const std::uint64_t compressed =
        isDeflated ? 0 : std::min<std::uint64_t>(layout->pixelBytes(), 2 * frame + Mega);
    const std::uint64_t inflated = isDeflated ? whole + Mega : 0;
    const bool isWavelets = source.syntax.coding() == dicom::PixelCoding::Jpeg2000;
    if (isWavelets && layout->image.bitsAllocated > 0)  // four bytes a sample, whatever came for it
        plan.leastMemory = layout->image.frameBits() / layout->image.bitsAllocated * 4;
    plan.job = {.sourceAt = source.dataSetAt,
                .sourceSize = source.size,
                .targetAt = target.dataSetAt,
                .from = static_cast<std::uint32_t>(source.syntax.index()),
                .to = static_cast<std::uint32_t>(target.syntax.index()),
                .memory = LeastMemory + 2 * others + MemoryOfElement * layout->elements +
                          (isWavelets ? WaveletsInMemory : FramesInMemory) * frame + 3 * compressed +
                          inflated,
                .fileSize = target.dataSetAt + plan.pixelBytes + 2 * others + MostNestedPixels + Mega,
                .seconds = LeastSeconds + (plan.pixelBytes + whole) / BytesInSecond};
    return plan;
}

bool isAsPromised(const DataSetFile& target, const JobPlan& plan, const Heartbeat& heartbeat) {
    struct stat found {};
    if (::fstat(target.file, &found) < 0)
        fail("the converted object");
    const auto size = static_cast<std::size_t>(found.st_size);
    if (size < target.dataSetAt)
        return false;
    DataSetFile written = target;
    written.size = size - target.dataSetAt;
    dicom::FileWindow window = windowOf(written, heartbeat);
    const auto layout = readLayout(window, written.size, written.syntax);
    if (!layout || layout->end != written.size || layout->identity != plan.identity ||
        layout->hasNestedFragments || layout->pixels.has_value() != plan.hasPixels)
        return false;
    const auto& pixels = layout->pixels;
    return !pixels || (!pixels->isEncapsulated && pixels->end - pixels->valueAt == plan.pixelBytes);
}

}  // namespace tessaly::decoder
