#include "tessalyd/forwarding/composing/FilmComposer.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>

#include "tessalyd/forwarding/composing/FilmText.h"
#include "tessalyd/forwarding/composing/FrameRenderer.h"
#include "tessalyd/forwarding/films/NewFolder.h"
#include "tessalyd/forwarding/images/ImageRefusal.h"
#include "tessalyd/forwarding/images/OutputFile.h"
#include "tessalyd/forwarding/images/PixelSource.h"

namespace tessaly::tessalyd::composing {

namespace {

constexpr const char* IdentityLut = "identity";
/// What printers call their films with boxes for texts is theirs: most have a first one.
constexpr const char* AnnotationFormat = "1";
constexpr std::int64_t NoNumber = std::numeric_limits<std::int64_t>::max();

std::string formatOf(const films::PrinterRow& printer) {
    return films::DisplayFormat::parse(printer.layout) ? printer.layout : std::string{"STANDARD\\1,1"};
}

std::uint64_t filmsOf(const FoundStudy& study, std::size_t boxes) {
    std::uint64_t frames = 0;
    for (const FoundImage& image : study.images)
        frames += image.frames;
    return (frames + boxes - 1) / boxes;
}

/// What the spool or the queue does not take is no fault of an image.
template <class Work>
void requireRoom(Work work) {
    try {
        work();
    } catch (const std::exception& fault) {
        throw NoRoom{fault.what()};
    }
}

/// The films of one study.
class StudyComposer {
  public:
    /// Scratch files go to the folder.
    StudyComposer(const Composition& composition, const FoundStudy& study,
                  const std::filesystem::path& scratch, std::uint64_t& spooled)
        : composition_(composition),
          study_(study),
          scratch_(scratch),
          spooled_(spooled),
          format_(formatOf(composition.printer)),
          boxes_(films::DisplayFormat::parse(format_).value().boxes()),
          heartbeat_([this] { decoder::require(composition_.interest); }),
          isUsed_(study.states.size()) {
        place_.films = static_cast<std::size_t>(filmsOf(study, boxes_));
    }

    void run() {
        for (const FoundImage& image : study_.images) {
            heartbeat_();
            const std::string& uid = image.instance.sopInstanceUid;
            try {
                add(image);
            } catch (const NoRoom&) {
                throw;
            } catch (const std::runtime_error& fault) {
                composition_.failed(uid, fault.what());
            }
        }
        queue();
        finishStates();
    }

  private:
    void add(const FoundImage& found) {
        const std::string& uid = found.instance.sopInstanceUid;
        const ObjectHeader header = readHeader(dicom::ObjectFile{{}, openStored(found.instance)}, heartbeat_);
        const images::PixelSource source{openStored(found.instance), scratch_, composition_.decoders,
                                         composition_.interest};
        // All of its frames, or none.
        if (source.image().frames < found.frames)
            throw images::ImageRefusal{"it has fewer frames than its header says"};
        static_cast<void>(FrameReader{source, header.attributes, static_cast<std::size_t>(found.frames - 1)});
        const auto states = statesOf(uid);
        for (std::size_t frame = 0; frame < found.frames; ++frame) {
            FrameReader reader{source, header.attributes, frame};
            Look look = lookOf(header.attributes, source.image(), frame);
            for (const PresentationState* const state : states)
                state->apply(uid, frame, source.image(), look);
            const films::ImageLayout layout = layoutOf(reader, look, header.attributes);
            place(reader, look, layout, found, header.attributes);
            // With the last frame's film the whole image is done, also where that film is full by it.
            if (frame + 1 == found.frames)
                finishing_.push_back(uid);
            if (order_.films.front().images.size() == boxes_)
                queue();
        }
    }

    /// Those that refer to the image.
    [[nodiscard]] std::vector<const PresentationState*> statesOf(const std::string& uid) {
        std::vector<const PresentationState*> found;
        for (std::size_t i = 0; i < study_.states.size(); ++i) {
            if (!study_.states[i].refersTo(uid))
                continue;
            found.push_back(&study_.states[i]);
            isUsed_[i] = true;
        }
        return found;
    }

    void place(FrameReader& reader, const Look& look, const films::ImageLayout& layout,
               const FoundImage& found, const Header& header) {
        spooled_ += layout.bytes();
        if (spooled_ > MostSpoolBytes)
            throw NoRoom{"the films have more than 4 GB"};
        if (!folder_)
            begin(header);
        const auto position = static_cast<unsigned>(order_.films.front().images.size() + 1);
        const std::string name = "image-" + std::to_string(position);
        const std::filesystem::path path = folder_->entry().path / name;
        try {
            write(reader, look, path);
        } catch (...) {
            std::error_code error;
            std::filesystem::remove(path, error);
            throw;
        }
        order_.films.front().images.emplace(position, films::FilmImage{.file = name, .layout = layout});
        order_.isColour |= layout.samples > 1;
        if (found.seriesNumber != NoNumber) {
            place_.firstSeries = place_.firstSeries.value_or(found.seriesNumber);
            place_.lastSeries = found.seriesNumber;
        }
    }

    void write(FrameReader& reader, const Look& look, const std::filesystem::path& path) const {
        std::optional<images::OutputFile> file;
        requireRoom([&] { file.emplace(path); });
        renderFrame(
            reader, look, [&](std::span<const char> piece) { requireRoom([&] { file->write(piece); }); },
            heartbeat_);
        file->beginFlush();
        requireRoom([&] { file->close(); });
    }

    void begin(const Header& header) {
        requireRoom([this] { folder_.emplace(composition_.spool); });
        order_ = {.callingAeTitle = composition_.callingAeTitle,
                  .originator = composition_.originator,
                  .baseUid = composition_.baseUid};
        // What a look gives are presentation values.
        order_.luts.emplace(IdentityLut, films::PresentationLut{.shape = "IDENTITY"});
        order_.films.push_back({.displayFormat = format_, .settings = {}, .lut = IdentityLut});
        first_ = header;
        place_.firstSeries.reset();
        place_.lastSeries.reset();
    }

    /// Nothing happens while there is no image on a film.
    void queue() {
        if (!folder_ || order_.films.front().images.empty())
            return folder_.reset();
        order_.films.front().annotations = annotationsOf(first_, place_);
        order_.films.front().settings.insert_or_assign(DCM_AnnotationDisplayFormatID,
                                                       std::string{AnnotationFormat});
        requireRoom([this] {
            films::save(order_, folder_->entry().path);
            jobs::Spool::makeDurable(folder_->entry());
        });
        heartbeat_();
        requireRoom([this] { composition_.queue(order_, *folder_); });
        folder_.reset();
        ++place_.number;
        for (const std::string& uid : finishing_)
            composition_.completed(uid);
        finishing_.clear();
    }

    /// They are done with their study's films.
    void finishStates() {
        for (std::size_t i = 0; i < study_.states.size(); ++i) {
            const std::string& uid = study_.stateUids[i];
            if (!isUsed_[i]) {
                composition_.failed(uid, "it refers to no image that is printed with it");
                continue;
            }
            if (const std::string left = study_.states[i].leftOut(); !left.empty())
                composition_.log("a presentation state has what is not printed: " + left);
            composition_.completed(uid);
        }
    }

    const Composition& composition_;
    const FoundStudy& study_;
    const std::filesystem::path& scratch_;
    std::uint64_t& spooled_;  // bytes, of all films
    std::string format_;
    std::size_t boxes_;
    decoder::Heartbeat heartbeat_;
    std::vector<bool> isUsed_;                // each presentation state
    std::optional<films::NewFolder> folder_;  // of the film that is being composed
    films::PrintOrder order_;
    Header first_;  // of the film's first image
    FilmPlace place_;
    std::vector<std::string> finishing_;  // images whose last frame is on it
};

}  // namespace

void composeFilms(const Composition& composition, InstanceList& instances) {
    if (instances.size() > MostInstances)
        throw NoRoom{"there are more instances than one move may bring to a printer"};
    const std::size_t boxes = films::DisplayFormat::parse(formatOf(composition.printer)).value().boxes();
    const auto heartbeat = [&] { decoder::require(composition.interest); };
    const auto studies = survey(instances, MostFilms * boxes, composition.failed, heartbeat);
    std::uint64_t count = 0;  // some thousand studies of some thousand frames each
    for (const FoundStudy& study : studies)
        count += filmsOf(study, boxes);
    if (count > MostFilms) {
        std::string reason = std::to_string(count);
        reason.append(" films are more than one move may have: ").append(std::to_string(MostFilms));
        throw NoRoom{reason};
    }
    requireRoom([&] { composition.announce(static_cast<std::size_t>(count)); });
    std::optional<films::NewFolder> scratch;
    requireRoom([&] { scratch.emplace(composition.spool); });
    std::uint64_t spooled = 0;
    for (const FoundStudy& study : studies)
        StudyComposer{composition, study, scratch->entry().path, spooled}.run();
}

}  // namespace tessaly::tessalyd::composing
