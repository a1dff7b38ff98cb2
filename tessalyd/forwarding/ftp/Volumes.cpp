#include "tessalyd/forwarding/ftp/Volumes.h"

#include <fcntl.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "base/FileDescriptor.h"
#include "base/Text.h"
#include "jobs/Spool.h"
#include "tessalyd/Log.h"
#include "tessalyd/forwarding/ftp/Fault.h"
#include "tessalyd/forwarding/volumes/Volumes.h"

namespace tessaly::tessalyd::ftp {

namespace {

/// A folder of the spool, which is removed with the last of the files that are read from it. No job refers to
/// it: the next start removes what a killed server has left.
class Folder {
  public:
    explicit Folder(const std::string& root) : entry_(jobs::Spool{root}.makeFolder("VOLUMES")) {}
    ~Folder() { jobs::Spool::remove(entry_.path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return entry_.path; }
    [[nodiscard]] base::FileDescriptor open(const std::string& name) const {
        base::FileDescriptor file{
            ::openat(entry_.descriptor.get(), name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)};
        if (!file.isOpen())
            throw std::system_error{errno, std::generic_category()};
        return file;
    }

  private:
    jobs::Spool::Entry entry_;
};

volumes::VolumeRequest requestOf(const std::string& nodeType, std::span<const LocatedInstance> series,
                                 const Folder& folder) {
    volumes::VolumeRequest request{
        .objects = {},
        .open = [series](std::size_t number) { return openStored(series[number].stored); },
        .seriesInstanceUid = series.front().seriesInstanceUid,
        .format = base::sameName(nodeType, "Analyze") ? volumes::VolumeFormat::Analyze
                                                      : volumes::VolumeFormat::Nifti,
        .folder = folder.path()};
    for (const LocatedInstance& instance : series)
        request.objects.emplace_back(instance.stored.file);
    return request;
}

}  // namespace

bool isVolumeType(const std::string& nodeType) {
    return base::sameName(nodeType, "Analyze") || base::sameName(nodeType, "Lorvo");
}

std::vector<VolumeFile> volumesOf(const std::string& nodeType, std::span<const LocatedInstance> series,
                                  decoder::Pool& decoders, const std::stop_token& stop) {
    try {
        const auto folder = std::make_shared<const Folder>(series.front().stored.root);
        const volumes::Volumes made =
            volumes::writeVolumes(requestOf(nodeType, series, *folder), decoders, {.stop = stop});
        for (const std::string& note : made.notes)
            OFLOG_INFO(serverLog(), "volume: " << note.c_str());
        std::vector<VolumeFile> files;
        for (const std::string& name : made.names)
            files.push_back(
                {.folder = folder, .name = name, .source = std::make_unique<FileSource>(folder->open(name))});
        return files;
    } catch (const decoder::Abandoned&) {
        throw Stopped{};
    } catch (const volumes::VolumeRefusal& refusal) {
        throw Fault{Fault::Kind::Permanent, Fault::Scope::File,
                    std::string{"the series cannot be a volume: "} + refusal.what()};
    } catch (const std::exception& fault) {
        throw Fault{Fault::Kind::Transient, Fault::Scope::File,
                    std::string{"the volume cannot be made now: "} + fault.what()};
    }
}

}  // namespace tessaly::tessalyd::ftp
