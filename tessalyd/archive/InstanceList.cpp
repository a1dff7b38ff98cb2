#include "tessalyd/archive/InstanceList.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "db/StoredPath.h"
#include "dicom/ObjectFile.h"
#include "tessalyd/archive/ArchiveLocation.h"

namespace tessaly::tessalyd {

namespace {

constexpr std::size_t MostInMemory = std::size_t{4} << 20U;

enum Place : std::size_t { StudyPath, SeriesDir, ImageFile, TransferSyntax, SopClass, SopInstance };

/// Where a file lies and what it is, asked for as the keys of a query are.
const std::array<QueryKey, 6>& placeKeys() {
    static const std::array<QueryKey, 6> keys{
        QueryKey{{}, EVR_UNKNOWN, Level::Study, Matching::Text, "StudyPath", "Study.StudyPath"},
        QueryKey{{}, EVR_UNKNOWN, Level::Series, Matching::Text, "SeriesDir", "Series.SeriesDir"},
        QueryKey{{}, EVR_UNKNOWN, Level::Image, Matching::Text, "ImageFile", "Image.ImageFile"},
        QueryKey{{}, EVR_UNKNOWN, Level::Image, Matching::Text, "Syntax", "Image.TransferSyntaxUID"},
        QueryKey{{}, EVR_UNKNOWN, Level::Image, Matching::Text, "Class", "Image.SOPClassUID"},
        QueryKey{{}, EVR_UNKNOWN, Level::Image, Matching::Text, "Instance", "Image.SOPInstanceUID"},
    };
    return keys;
}

/// Rows that came from elsewhere may not say what their files are; the files do.
dicom::ObjectKind completed(dicom::ObjectKind kind, const std::string& file) {
    if (!kind.sopClass.empty() && !kind.transferSyntax.empty())
        return kind;
    try {
        return dicom::ObjectFile{file}.kind();
    } catch (const std::runtime_error&) {  // it cannot be sent then, and whoever tries says why
        return kind;
    }
}

[[noreturn]] void fail() {
    throw std::system_error{errno, std::generic_category(), "the list of what is to be sent"};
}

}  // namespace

InstanceList::InstanceList(StatementCache& statements, ArchiveQuery query, SearchLimits limits) {
    query.level = Level::Image;
    const std::size_t places = query.keys.size();
    for (const QueryKey& key : placeKeys())
        query.keys.push_back({.key = &key});
    ArchiveSearch search{std::move(query), std::move(limits)};
    const auto value = [&search, places](Place place) { return std::string{search.value(places + place)}; };
    while (search.next(statements)) {
        const ArchiveLocation location{value(StudyPath), value(SeriesDir), value(ImageFile)};
        const std::string file = db::localPath(location.path());
        const auto kind = completed({value(SopClass), value(TransferSyntax)}, file);
        add(kind.sopClass);
        add(value(SopInstance));
        add(kind.transferSyntax);
        add(file);
        kinds_.emplace(kind.sopClass, kind.transferSyntax);
        ++size_;
        if (memory_.size() > MostInMemory)
            spill();
    }
    stopped_ = search.wasStopped();
    rewind();
}

std::optional<StoredInstance> InstanceList::next() {
    if (taken_ == size_)
        return std::nullopt;
    ++taken_;
    StoredInstance instance;
    for (std::string* text :
         {&instance.sopClassUid, &instance.sopInstanceUid, &instance.transferSyntaxUid, &instance.file})
        *text = take();
    return instance;
}

void InstanceList::restart() {
    taken_ = 0;
    at_ = 0;
    if (file_ && std::fseek(file_.get(), 0, SEEK_SET) != 0)
        fail();
}

void InstanceList::add(const std::string& text) {
    const auto length = static_cast<std::uint32_t>(text.size());
    std::array<char, sizeof length> bytes{};
    std::memcpy(bytes.data(), &length, bytes.size());
    memory_.insert(memory_.end(), bytes.begin(), bytes.end());
    memory_.insert(memory_.end(), text.begin(), text.end());
}

void InstanceList::spill() {
    if (!file_)
        file_.reset(std::tmpfile());
    if (!file_ || std::fwrite(memory_.data(), 1, memory_.size(), file_.get()) != memory_.size())
        fail();
    memory_.clear();
}

void InstanceList::rewind() {
    if (!file_)
        return;
    spill();
    memory_.shrink_to_fit();
    if (std::fflush(file_.get()) != 0 || std::fseek(file_.get(), 0, SEEK_SET) != 0)
        fail();
}

std::string InstanceList::take() {
    std::uint32_t length = 0;
    std::array<char, sizeof length> bytes{};
    read(bytes.data(), bytes.size());
    std::memcpy(&length, bytes.data(), bytes.size());
    std::string text(length, '\0');
    read(text.data(), text.size());
    return text;
}

void InstanceList::read(char* to, std::size_t size) {
    if (file_) {
        if (std::fread(to, 1, size, file_.get()) != size)
            fail();
        return;
    }
    std::memcpy(to, memory_.data() + at_, size);
    at_ += size;
}

}  // namespace tessaly::tessalyd
