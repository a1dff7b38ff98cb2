#include "tessalyd/forwarding/volumes/Volumes.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "dicom/data/ObjectFile.h"
#include "dicom/data/ObjectHeader.h"
#include "tessalyd/forwarding/volumes/ImageHeader.h"
#include "tessalyd/forwarding/volumes/StagedPixels.h"
#include "tessalyd/forwarding/volumes/VolumeLayout.h"
#include "tessalyd/forwarding/volumes/VolumeWriter.h"

namespace tessaly::tessalyd::volumes {

namespace {

/// Ends the work once nobody is interested.
decoder::Heartbeat heartbeatOf(const decoder::Interest& interest) {
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds AskInterval{100};
    return [&interest, asked = Clock::time_point{}]() mutable {
        decoder::require(interest);
        if (!interest.isGivenUp || Clock::now() - asked < AskInterval)
            return;
        asked = Clock::now();
        if (interest.isGivenUp())
            throw decoder::Abandoned{};
    };
}

/// Files that are to be removed unless all goes well.
class WrittenFiles {
  public:
    explicit WrittenFiles(const std::filesystem::path& folder) : folder_(folder) {}
    ~WrittenFiles() {
        std::error_code ignored;
        for (const std::string& name : names_)
            std::filesystem::remove(folder_ / name, ignored);
    }
    WrittenFiles(const WrittenFiles&) = delete;
    WrittenFiles& operator=(const WrittenFiles&) = delete;

    [[nodiscard]] std::filesystem::path add(std::string name) {
        return folder_ / names_.emplace_back(std::move(name));
    }
    [[nodiscard]] std::vector<std::string> keep() { return std::exchange(names_, {}); }

  private:
    const std::filesystem::path& folder_;
    std::vector<std::string> names_;
};

OpenObject byPath(const std::vector<std::filesystem::path>& paths) {
    return [&paths](std::size_t number) {
        // Without waiting for a writer, should it be a pipe.
        base::FileDescriptor file{
            ::open(paths[number].c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC)};
        if (!file.isOpen())
            throw std::system_error{errno, std::generic_category(), "an image's file"};
        return file;
    };
}

std::vector<SliceGroup> readGroups(std::size_t objects, const OpenObject& open,
                                   const decoder::Heartbeat& heartbeat) {
    SliceGroups groups;
    for (std::size_t i = 0; i < objects; ++i) {
        heartbeat();
        const dicom::ObjectFile object{{}, open(i)};
        groups.add(static_cast<std::uint32_t>(i),
                   readImageHeader(object, MostFrames - groups.frames(), heartbeat), heartbeat);
    }
    if (groups.frames() == 0)
        throw VolumeRefusal{"it has no images"};
    return groups.take();
}

std::string obliqueness(double degrees) {
    char text[96];  // NOLINT(modernize-avoid-c-arrays)
    std::snprintf(text, sizeof text, "a volume's axes are %.1f degrees oblique, which its format cannot keep",
                  degrees);
    return text;
}

}  // namespace

Volumes writeVolumes(const VolumeRequest& request, decoder::Pool& decoders,
                     const decoder::Interest& interest) {
    constexpr double LeastDegrees = 0.05;
    if (!dicom::isUid(request.seriesInstanceUid))
        throw std::invalid_argument{"a volume is named by no UID"};
    if (request.objects.size() > MostFrames)
        throw VolumeRefusal{"it has too many images"};
    const decoder::Heartbeat heartbeat = heartbeatOf(interest);
    const OpenObject open = request.open ? request.open : byPath(request.objects);
    const bool isAnalyze = request.format == VolumeFormat::Analyze;
    std::vector<VolumeLayout> layouts;
    for (SliceGroup& group : readGroups(request.objects.size(), open, heartbeat)) {
        layouts.push_back(layoutOf(std::move(group), heartbeat));
        if (isAnalyze && layouts.back().isSheared)
            throw VolumeRefusal{"its gantry was tilted, which Analyze cannot keep"};
    }
    auto volumes = planStaging(std::move(layouts), request.mostBytes);
    const images::ScratchFile scratch{request.folder};
    stage({.open = open,
           .folder = request.folder,
           .decoders = decoders,
           .interest = interest,
           .heartbeat = heartbeat},
          volumes, scratch);
    Volumes result;
    WrittenFiles files{request.folder};
    for (std::size_t i = 0; i < volumes.size(); ++i) {
        std::string name = request.seriesInstanceUid;
        if (i > 0)
            name.append("_").append(std::to_string(i + 1));
        if (isAnalyze) {
            const auto image = files.add(name + ".img");
            writeAnalyze(files.add(name + ".hdr"), image, volumes[i], scratch, heartbeat);
            if (const double degrees = anatomicalAxes(volumes[i].layout).degrees; degrees > LeastDegrees)
                result.notes.push_back(obliqueness(degrees));
        } else {
            writeNifti(files.add(name + ".nii.gz"), volumes[i], scratch, heartbeat);
        }
    }
    result.names = files.keep();
    return result;
}

}  // namespace tessaly::tessalyd::volumes
