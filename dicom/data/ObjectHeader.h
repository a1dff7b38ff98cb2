#pragma once

#include <dcmtk/config/osconfig.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "dicom/data/AttributeReader.h"
#include "dicom/data/Inflater.h"
#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::dicom {

class ObjectFile;

/// What the archive's tables keep of an object; text is UTF-8, without padding.
struct ObjectHeader {
    std::string patientId;
    std::string patientName;
    std::array<std::string, 3> nameGroups;  ///< of the patient's name, as queries compare them
    std::string birthDate;
    std::string sex;

    std::string studyInstanceUid;
    std::string studyId;
    std::string studyDate;
    std::string studyTime;
    std::string accessionNumber;
    std::string studyDescription;
    std::string referringPhysicianName;

    std::string seriesInstanceUid;
    std::string modality;
    std::string seriesNumber;
    std::string seriesDescription;
    std::string seriesDate;
    std::string seriesTime;
    std::string bodyPartExamined;
    std::string protocolName;

    std::string sopInstanceUid;
    std::string sopClassUid;
    std::string instanceNumber;
    long long numberInSeries = 0;  ///< the instance number, for sorting; 0 where there is none
    std::string contentDate;
    std::string contentTime;
    std::optional<long long> pixelRows;
    std::optional<long long> pixelColumns;
    std::optional<long long> numberOfFrames;
    std::string transferSyntaxUid;  ///< that of the file
    /// Bytes, where the file has just been written. Not known of a file that is read: its size would prove
    /// nothing later on.
    std::optional<long long> fileSize;
};

/// A header that does not end within so many bytes is not looked for any further.
constexpr std::size_t LongestHeader = std::size_t{64} << 20U;

/// Reads the header of an object while its data set arrives, in whatever pieces. No more is held than the
/// header's values. A deflated data set is inflated as far as its header goes; the rest is not looked at.
class HeaderReader {
  public:
    /// `observer` is told all that the header consists of; it may be null, and must outlive the reader.
    explicit HeaderReader(TransferSyntax syntax, ElementVisitor* observer = nullptr);

    /// The next bytes of the data set. Returns true when the header has ended. Throws HeaderFault on what is
    /// no header of an object, or does not end within LongestHeader.
    bool take(std::span<const char> bytes);
    /// True when the header has ended, and more bytes are ignored.
    [[nodiscard]] bool isDone() const noexcept { return attributes_.isDone(); }
    /// The header, when it or the whole data set has ended. Throws HeaderFault where the data set has ended
    /// within an element.
    [[nodiscard]] ObjectHeader header() const;

  private:
    bool takeInflated(std::span<const char> bytes);

    AttributeReader attributes_;
    std::unique_ptr<Inflater> inflater_;  // of a deflated data set
    std::size_t taken_ = 0;               // as the elements are counted
};

/// Reads the header of a file; no more of the file than that takes. Throws std::runtime_error, which names
/// the file, when it is missing, cannot be read or is no DICOM file.
[[nodiscard]] ObjectHeader readHeader(const std::filesystem::path& file);
/// The same of a file that is open, from where its reading stands.
[[nodiscard]] ObjectHeader readHeader(ObjectFile& object);

/// Digits in groups between dots, at most 64 characters: a UID that is fit for a file name. Leading zeros,
/// which the standard does not allow and devices send, are let through.
[[nodiscard]] bool isUid(std::string_view text) noexcept;

}  // namespace tessaly::dicom
