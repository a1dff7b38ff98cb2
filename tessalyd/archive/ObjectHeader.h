#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctypes.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tessaly::tessalyd {

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

/// Reads the header from the beginning of a data set. `complete` says that `data` is all of it: without it,
/// nothing is returned while the header reaches beyond the data. Throws StoreFailure on what is no DICOM data
/// set.
[[nodiscard]] std::optional<ObjectHeader> readHeader(std::span<const char> data, E_TransferSyntax syntax,
                                                     bool complete);

/// Digits in groups between dots, at most 64 characters: a UID that is fit for a file name. Leading zeros,
/// which the standard does not allow and devices send, are let through.
[[nodiscard]] bool isUid(std::string_view text) noexcept;

}  // namespace tessaly::tessalyd
