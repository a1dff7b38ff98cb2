#include "tessalyd/search/InstanceList.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "archive/Folder.h"
#include "archive/Location.h"
#include "archive/StoredPath.h"
#include "dicom/data/ObjectFile.h"
#include "tessalyd/Log.h"

namespace tessaly::tessalyd {

namespace {

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
void complete(StoredInstance& instance) {
    if (!instance.sopClassUid.empty() && !instance.transferSyntaxUid.empty())
        return;
    try {
        const dicom::ObjectFile file{instance.file, openStored(instance)};
        instance.sopClassUid = file.kind().sopClass;
        instance.transferSyntaxUid = file.kind().transferSyntax;
    } catch (const std::runtime_error& fault) {  // it cannot be sent then, and whoever tries says why
        OFLOG_DEBUG(serverLog(), instance.file.c_str() << ": " << fault.what());
    }
}

/// In the order in which the list keeps them.
std::array<std::string*, 5> textsOf(StoredInstance& instance) {
    return {&instance.sopClassUid, &instance.sopInstanceUid, &instance.transferSyntaxUid, &instance.file,
            &instance.root};
}

}  // namespace

std::string rootOf(std::string study) {
    while (study.size() > 1 && study.back() == '/')
        study.pop_back();
    return std::filesystem::path{study}.parent_path();
}

base::FileDescriptor openStored(const StoredInstance& instance) {
    const base::FileDescriptor root = archive::openRoot(instance.root.empty() ? "." : instance.root);
    std::string way = instance.file.substr(instance.root.size());
    way.erase(0, way.find_first_not_of('/'));
    base::FileDescriptor file = archive::openBeneath(root, way, O_RDONLY | O_NONBLOCK);
    if (!file.isOpen())
        throw std::runtime_error{errno == ELOOP ? "a symbolic link leads to it"
                                                : std::generic_category().message(errno)};
    return file;
}

InstanceList::InstanceList(db::StatementCache& statements, ArchiveQuery query, SearchLimits limits) {
    query.level = Level::Image;
    const std::size_t places = query.keys.size();
    for (const QueryKey& key : placeKeys())
        query.keys.push_back({.key = &key});
    ArchiveSearch search{std::move(query), std::move(limits)};
    const auto value = [&search, places](Place place) { return std::string{search.value(places + place)}; };
    while (readNext(search, statements)) {
        const archive::Location location{value(StudyPath), value(SeriesDir), value(ImageFile)};
        StoredInstance instance{.sopClassUid = value(SopClass),
                                .sopInstanceUid = value(SopInstance),
                                .transferSyntaxUid = value(TransferSyntax),
                                .file = archive::localPath(location.path()),
                                .root = rootOf(archive::localPath(location.studyPath))};
        complete(instance);
        for (const std::string* text : textsOf(instance))
            texts_.add(*text);
        kinds_.emplace(instance.sopClassUid, instance.transferSyntaxUid);
        ++size_;
    }
    stopped_ = search.wasStopped();
    texts_.rewind();
}

std::optional<StoredInstance> InstanceList::next() {
    StoredInstance instance;
    for (std::string* text : textsOf(instance)) {
        if (!texts_.next(*text))
            return std::nullopt;
    }
    return instance;
}

}  // namespace tessaly::tessalyd
