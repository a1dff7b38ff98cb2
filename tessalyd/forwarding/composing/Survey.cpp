#include "tessalyd/forwarding/composing/Survey.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <limits>
#include <map>
#include <stdexcept>
#include <tuple>

#include "tessalyd/forwarding/images/ImageRefusal.h"

namespace tessaly::tessalyd::composing {

namespace {

using images::ImageRefusal;

constexpr std::int64_t Last = std::numeric_limits<std::int64_t>::max();

std::uint64_t framesOf(const Header& header, std::uint64_t mostFrames) {
    if (header.text(DCM_NumberOfFrames).empty())
        return 1;
    const auto frames = header.integer(DCM_NumberOfFrames).value_or(0);
    if (frames <= 0)
        throw ImageRefusal{"its Number of Frames is none"};
    if (static_cast<std::uint64_t>(frames) > mostFrames)
        throw ImageRefusal{"it has more frames than the films of one move have room for"};
    return static_cast<std::uint64_t>(frames);
}

class Survey {
  public:
    explicit Survey(std::uint64_t mostFrames) : mostFrames_(mostFrames) {}

    void add(StoredInstance instance, const decoder::Heartbeat& heartbeat) {
        const dicom::ObjectFile object{{}, openStored(instance)};
        ObjectHeader header = readHeader(object, heartbeat);
        const Header& attributes = header.attributes;
        FoundStudy& study = studyOf(std::string{attributes.text(DCM_StudyInstanceUID)});
        if (isPresentationState(attributes)) {
            states_ += header.memory;
            if (states_ > MostOfStates)
                throw ImageRefusal{"the presentation states have more than 16 MB"};
            study.states.emplace_back(std::move(header));
            study.stateUids.push_back(std::move(instance.sopInstanceUid));
            return;
        }
        if (!header.hasPixels)
            throw ImageRefusal{"it has no pixels to be printed"};
        FoundImage image{.instance = std::move(instance),
                         .series = std::string{attributes.text(DCM_SeriesInstanceUID)},
                         .seriesNumber = attributes.integer(DCM_SeriesNumber).value_or(Last),
                         .instanceNumber = attributes.integer(DCM_InstanceNumber).value_or(Last),
                         .frames = framesOf(attributes, mostFrames_)};
        study.images.push_back(std::move(image));
    }

    [[nodiscard]] std::vector<FoundStudy> take() {
        for (FoundStudy& study : studies_)
            std::stable_sort(study.images.begin(), study.images.end(),
                             [](const FoundImage& a, const FoundImage& b) {
                                 return std::tie(a.seriesNumber, a.series, a.instanceNumber) <
                                        std::tie(b.seriesNumber, b.series, b.instanceNumber);
                             });
        return std::move(studies_);
    }

  private:
    static constexpr std::size_t MostOfStates = std::size_t{16} << 20U;  // bytes of all, which are held

    FoundStudy& studyOf(const std::string& uid) {
        const auto [entry, isNew] = places_.try_emplace(uid, studies_.size());
        if (isNew)
            studies_.push_back({.uid = uid, .images = {}, .states = {}, .stateUids = {}});
        return studies_[entry->second];
    }

    const std::uint64_t mostFrames_;
    std::size_t states_ = 0;
    std::vector<FoundStudy> studies_;
    std::map<std::string, std::size_t> places_;
};

}  // namespace

std::vector<FoundStudy> survey(InstanceList& instances, std::uint64_t mostFrames, const Failed& failed,
                               const decoder::Heartbeat& heartbeat) {
    Survey found{mostFrames};
    while (auto instance = instances.next()) {
        heartbeat();
        const std::string uid = instance->sopInstanceUid;
        try {
            found.add(std::move(*instance), heartbeat);
        } catch (const std::runtime_error& fault) {
            failed(uid, fault.what());
        }
    }
    return found.take();
}

}  // namespace tessaly::tessalyd::composing
