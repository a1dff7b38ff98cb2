#include "tessalyd/forwarding/volumes/ImageHeader.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <utility>

#include "tessalyd/forwarding/images/HeaderValues.h"
#include "tessalyd/forwarding/images/HeaderWalk.h"
#include "tessalyd/forwarding/volumes/HeaderFields.h"
#include "tessalyd/forwarding/volumes/VolumeRefusal.h"

namespace tessaly::tessalyd::volumes {

namespace {

using dicom::ElementHead;
using images::binaryDouble;
using images::binaryLong;
using images::dateTime;
using images::decimals;
using images::integer;
using images::midnightOf;
using images::timeOfDay;
using images::valuesOf;

constexpr std::size_t LongestValue = 1024;  // none that is wanted is nearly as long
constexpr std::size_t LongestCode = 16;     // as the standard has it
constexpr double LeastSpacing = 1e-6;       // mm

// Sequences and items around what a functional group says: the groups' sequence and its item, the group and
// its item.
constexpr std::size_t ItemDepth = 1;
constexpr std::size_t GroupDepth = 2;
constexpr std::size_t ValueDepth = 4;

std::optional<Vector> vectorOf(const std::optional<std::vector<double>>& numbers, std::size_t from = 0) {
    return numbers ? std::optional{Vector{(*numbers)[from], (*numbers)[from + 1], (*numbers)[from + 2]}}
                   : std::nullopt;
}

std::optional<double> only(const std::optional<std::vector<double>>& numbers) {
    return numbers ? std::optional{numbers->front()} : std::nullopt;
}

/// Keeps what is wanted of an object.
class Visitor final : public images::HeaderVisitor {
  public:
    explicit Visitor(std::size_t mostFrames) : mostFrames_(mostFrames) {}

    [[nodiscard]] bool element(const ElementHead& head) override {
        commit();
        if (head.depth == 0 && head.tag >= DCM_PixelData) {
            header_.hasPixelData = head.tag == DCM_PixelData;
            return false;
        }
        if (head.depth < path_.size())
            path_[head.depth] = head.tag;
        if (head.depth == 0) {
            header_.hasModalityTable |= head.tag == DCM_ModalityLUTSequence;
            want(head, OfObject);
        } else if (head.depth == ItemDepth && head.tag == DCM_Item &&
                   path_[0] == DCM_PerFrameFunctionalGroupsSequence) {
            if (frames_.size() == mostFrames_)
                throw VolumeRefusal{"it has too many frames"};
            frames_.emplace_back();
        } else if (head.depth == ValueDepth && isInGroups()) {
            want(head, path_[GroupDepth]);
        }
        return true;
    }

    void value(std::span<const char> piece) override {
        if (field_)
            bytes_.append(piece.data(), piece.size());
    }

    [[nodiscard]] bool wantsValue() const noexcept override { return field_.has_value(); }

    [[nodiscard]] ImageHeader finish() {
        commit();
        if (object_.acquisitionTime && date_)
            *object_.acquisitionTime += *date_;
        if (acquired_)
            object_.acquisitionTime = acquired_;
        const std::uint64_t count = header_.image.frames;
        if (count > mostFrames_)
            throw VolumeRefusal{"it has too many frames"};
        if (count > 1)  // where all frames are said to be at one place, none is said to be anywhere
            object_.position.reset();
        if (frames_.empty() && (count == 1 || shared_.position))
            frames_.resize(count);
        if (frames_.empty() || frames_.size() != count)
            throw VolumeRefusal{"it does not say where its frames are"};
        for (FrameAttributes& frame : frames_) {
            frame.complete(shared_);
            frame.complete(object_);
        }
        header_.frames = std::move(frames_);
        return std::move(header_);
    }

  private:
    [[nodiscard]] bool isInGroups() const {
        return path_[0] == DCM_PerFrameFunctionalGroupsSequence
                   ? !frames_.empty()
                   : path_[0] == DCM_SharedFunctionalGroupsSequence;
    }

    void want(const ElementHead& head, const DcmTagKey& group) {
        if (head.length > LongestValue)
            return;
        field_ = fieldOf(group, head.tag);
        littleEndian_ = head.littleEndian || head.vr == EVR_UN;
    }

    /// The value that has come is whole.
    void commit() {
        if (!field_)
            return;
        const bool isOfObject = path_[0] != DCM_PerFrameFunctionalGroupsSequence &&
                                path_[0] != DCM_SharedFunctionalGroupsSequence;
        if (isOfObject)
            takeOfObject(*field_);
        else
            take(*field_, path_[0] == DCM_SharedFunctionalGroupsSequence ? shared_ : frames_.back(), true);
        field_.reset();
        bytes_.clear();
    }

    void takeOfObject(Field field) {
        decoder::ImageDescription& image = header_.image;
        const auto word = [this] { return dicom::unsignedShort(bytes_, littleEndian_).value_or(0); };
        switch (field) {
            case Field::InstanceNumber:
                header_.instanceNumber = integer(bytes_).value_or(0);
                break;
            case Field::SamplesPerPixel:
                image.samplesPerPixel = word();
                break;
            case Field::Photometric:
                image.photometric = valuesOf(bytes_).front();
                break;
            case Field::Frames:
                image.frames = static_cast<std::uint64_t>(std::max<std::int64_t>(
                    0, valuesOf(bytes_).front().empty() ? 1 : integer(bytes_).value_or(0)));
                break;
            case Field::Rows:
                image.rows = word();
                break;
            case Field::Columns:
                image.columns = word();
                break;
            case Field::BitsAllocated:
                image.bitsAllocated = word();
                break;
            case Field::BitsStored:
                image.bitsStored = word();
                break;
            case Field::HighBit:
                image.highBit = word();
                break;
            case Field::Representation:
                image.pixelRepresentation = word();
                break;
            case Field::AcquisitionDate:
                date_ = midnightOf(bytes_);
                break;
            case Field::AcquisitionDateTime:
                acquired_ = dateTime(bytes_);
                break;
            default:
                take(field, object_, false);
        }
    }

    void take(Field field, FrameAttributes& frame, bool isInGroup) {
        switch (field) {
            case Field::Position:
                frame.position = vectorOf(decimals(bytes_, 3));
                break;
            case Field::Orientation:
                if (const auto numbers = decimals(bytes_, 6))
                    frame.orientation = {*vectorOf(numbers), *vectorOf(numbers, 3)};
                break;
            case Field::Spacing:
                if (const auto numbers = decimals(bytes_, 2);
                    numbers && (*numbers)[0] >= LeastSpacing && (*numbers)[1] >= LeastSpacing)
                    frame.spacing = {(*numbers)[0], (*numbers)[1]};
                break;
            case Field::SliceThickness:
                frame.sliceThickness = only(decimals(bytes_, 1));
                break;
            case Field::SliceSpacing:
                frame.sliceSpacing = only(decimals(bytes_, 1));
                break;
            case Field::EchoTime:
                frame.echoTime = isInGroup ? binaryDouble(bytes_, littleEndian_) : only(decimals(bytes_, 1));
                break;
            case Field::RepetitionTime:
                frame.repetitionTime = only(decimals(bytes_, 1));
                break;
            case Field::Slope:
                frame.slope = only(decimals(bytes_, 1));
                break;
            case Field::Intercept:
                frame.intercept = only(decimals(bytes_, 1));
                break;
            case Field::TemporalPosition:
                frame.temporalPosition = isInGroup ? binaryLong(bytes_, littleEndian_) : integer(bytes_);
                break;
            case Field::AcquisitionTime:
                frame.acquisitionTime = timeOfDay(bytes_);
                break;
            case Field::AcquisitionDateTime:
                frame.acquisitionTime = dateTime(bytes_);
                break;
            case Field::Type:
                takeType(frame);
                break;
            default:
                break;
        }
    }

    void takeType(FrameAttributes& frame) {
        const auto values = valuesOf(bytes_);
        header_.isMosaic |= std::find(values.begin(), values.end(), "MOSAIC") != values.end();
        if (values.size() > 2)
            frame.type = values[2].substr(0, LongestCode);
    }

    const std::size_t mostFrames_;
    ImageHeader header_;
    FrameAttributes object_;
    FrameAttributes shared_;
    std::vector<FrameAttributes> frames_;
    std::optional<std::int64_t> date_;
    std::optional<std::int64_t> acquired_;
    std::array<DcmTagKey, ValueDepth + 1> path_;  // the last element at each depth
    std::optional<Field> field_;                  // whose value comes now
    std::string bytes_;
    bool littleEndian_ = true;
};

}  // namespace

void FrameAttributes::complete(const FrameAttributes& other) {
    const auto take = [](auto& mine, const auto& theirs) {
        if (!mine)
            mine = theirs;
    };
    take(position, other.position);
    take(orientation, other.orientation);
    take(spacing, other.spacing);
    take(sliceThickness, other.sliceThickness);
    take(sliceSpacing, other.sliceSpacing);
    take(echoTime, other.echoTime);
    take(repetitionTime, other.repetitionTime);
    take(slope, other.slope);
    take(intercept, other.intercept);
    take(temporalPosition, other.temporalPosition);
    take(acquisitionTime, other.acquisitionTime);
    take(type, other.type);
}

ImageHeader readImageHeader(const dicom::ObjectFile& object, std::size_t mostFrames,
                            const decoder::Heartbeat& heartbeat) {
    Visitor visitor{mostFrames};
    images::walkHeader(object, visitor, heartbeat);
    return visitor.finish();
}

}  // namespace tessaly::tessalyd::volumes
