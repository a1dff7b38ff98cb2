#include "dicom/data/ObjectFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

namespace tessaly::dicom {

using namespace std::string_view_literals;

namespace {

constexpr std::size_t Preamble = 128;
constexpr std::size_t GroupLength = 12;  // the element that says how long the rest of the meta header is
constexpr std::size_t LongestHead = std::size_t{64} << 10U;
constexpr std::size_t LongestMetaHeader = std::size_t{64} << 10U;

std::uint32_t number(std::span<const char> bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;)
        value = value << 8U | static_cast<unsigned char>(bytes[i]);
    return value;
}

std::string text(std::span<const char> bytes) {
    std::string value{bytes.begin(), bytes.end()};
    while (!value.empty() && (value.back() == '\0' || value.back() == ' '))
        value.pop_back();
    return value;
}

}  // namespace

// Without waiting for a writer, should it be a pipe.
ObjectFile::ObjectFile(std::filesystem::path path)
    : path_(std::move(path)),
      named_(path_.string() + ": "),
      file_(::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
    if (!file_.isOpen())
        fail(std::generic_category().message(errno));
    readWhatItIs();
}

ObjectFile::ObjectFile(std::filesystem::path path, base::FileDescriptor file)
    : path_(std::move(path)), file_(std::move(file)) {
    readWhatItIs();
}

void ObjectFile::readWhatItIs() {
    readHead();
    readMetaHeader();
}

void ObjectFile::fail(const std::string& why) const {
    throw std::runtime_error{named_ + why};
}

void ObjectFile::readHead() {
    struct stat found {};
    if (::fstat(file_.get(), &found) < 0)
        fail(std::generic_category().message(errno));
    if (!S_ISREG(found.st_mode))
        fail(S_ISDIR(found.st_mode) ? std::generic_category().message(EISDIR) : "no regular file");
    fileSize_ = static_cast<std::size_t>(found.st_size);
    const std::size_t size = std::min(fileSize_, LongestHead);
    head_ = std::make_unique_for_overwrite<char[]>(size);  // NOLINT(modernize-avoid-c-arrays)
    readFile(0, {head_.get(), size});
    headSize_ = size;
}

void ObjectFile::readMetaHeader() {
    constexpr std::size_t Begin = Preamble + 4;
    if (fileSize_ < Begin + GroupLength)
        fail("no DICOM file");
    std::vector<char> bytes(4 + GroupLength);
    readFile(Preamble, bytes);
    constexpr auto Start = "DICM\x02\0\0\0UL\x04"sv;
    if (std::memcmp(bytes.data(), Start.data(), Start.size()) != 0)
        fail("no DICOM file");
    const std::size_t length = number(std::span{bytes}.subspan(4 + 8, 4));
    if (length > LongestMetaHeader || Begin + GroupLength + length > fileSize_)
        fail("the meta header is cut off");
    bytes.resize(length);
    readFile(Begin + GroupLength, bytes);
    // Explicit little endian, whatever the data set is in.
    for (std::span<const char> left{bytes}; !left.empty();) {
        const bool isLong = left.size() >= 12 && (std::memcmp(left.data() + 4, "OB", 2) == 0 ||
                                                  std::memcmp(left.data() + 4, "UN", 2) == 0);
        const std::size_t header = isLong ? 12 : 8;
        if (left.size() < header)
            fail("the meta header is cut off");
        const std::size_t size = isLong ? number(left.subspan(8, 4)) : number(left.subspan(6, 2));
        if (size > left.size() - header)
            fail("the meta header is cut off");
        const std::span value = left.subspan(header, size);
        switch (number(left.first(2)) << 16U | number(left.subspan(2, 2))) {
            case 0x00020002:
                kind_.sopClass = text(value);
                break;
            case 0x00020003:
                sopInstanceUid_ = text(value);
                break;
            case 0x00020010:
                kind_.transferSyntax = text(value);
                break;
            default:
                break;
        }
        left = left.subspan(header + size);
    }
    if (kind_.sopClass.empty() || sopInstanceUid_.empty() || kind_.transferSyntax.empty())
        fail("the meta header does not say what the object is");
    dataSetAt_ = Begin + GroupLength + length;
    size_ = fileSize_ - dataSetAt_;
    if (size_ == 0)
        fail("there is no data set");
}

void ObjectFile::readFile(std::size_t offset, std::span<char> target) const {
    if (offset < headSize_) {
        const std::size_t count = std::min(target.size(), headSize_ - offset);
        std::memcpy(target.data(), head_.get() + offset, count);
        target = target.subspan(count);
        offset += count;
    }
    while (!target.empty()) {
        const ssize_t count = ::pread(file_.get(), target.data(), target.size(), static_cast<off_t>(offset));
        if (count == 0)
            fail("it ends too early");
        if (count < 0 && errno != EINTR)
            fail(std::generic_category().message(errno));
        if (count > 0) {
            target = target.subspan(static_cast<std::size_t>(count));
            offset += static_cast<std::size_t>(count);
        }
    }
}

void ObjectFile::readAt(std::size_t offset, std::span<char> target) const {
    readFile(dataSetAt_ + offset, target);
}

void ObjectFile::read(std::span<char> target) {
    readAt(next_, target);
    next_ += target.size();
}

std::unique_ptr<OutgoingObject> ObjectFile::in(const std::string& /*transferSyntax*/) {
    return nullptr;
}

}  // namespace tessaly::dicom
