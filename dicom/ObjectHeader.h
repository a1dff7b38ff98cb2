#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <array>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace tessaly::dicom {

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
};

/// Why a data set has no header that can be read. what() tells nothing of a patient.
class HeaderFault : public std::runtime_error {
  public:
    explicit HeaderFault(const std::string& what, std::string detail = {})
        : std::runtime_error(what), detail_(std::move(detail)) {}

    /// In the toolkit's own words; may be empty.
    [[nodiscard]] const std::string& detail() const noexcept { return detail_; }

  private:
    std::string detail_;
};

/// Reads the header from the beginning of a data set. `complete` says that `data` is all of it: without it,
/// nothing is returned while the header reaches beyond the data. `look` is shown the header's elements, if it
/// is there. Throws HeaderFault on what is no DICOM data set.
[[nodiscard]] std::optional<ObjectHeader> readHeader(std::span<const char> data, E_TransferSyntax syntax,
                                                     bool complete,
                                                     const std::function<void(DcmDataset&)>& look = {});

/// Reads the header of a file; no more of the file than that takes. Throws std::runtime_error, which names
/// the file, when it is missing, cannot be read or is no DICOM file.
[[nodiscard]] ObjectHeader readHeader(const std::filesystem::path& file);

/// Digits in groups between dots, at most 64 characters: a UID that is fit for a file name. Leading zeros,
/// which the standard does not allow and devices send, are let through.
[[nodiscard]] bool isUid(std::string_view text) noexcept;

}  // namespace tessaly::dicom
