#include "tessalyd/archive/ObjectHeader.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmnet/dimse.h>

#include <QUtf8StringView>
#include <algorithm>
#include <memory>
#include <sstream>

#include "tessalyd/Log.h"
#include "tessalyd/archive/CodeExtensions.h"
#include "tessalyd/archive/DataSetWalk.h"
#include "tessalyd/archive/StoreFailure.h"

namespace tessaly::tessalyd {

namespace {

/// Longer values are not read: none of the header's is nearly as long.
constexpr Uint32 LongestValue = 4096;

/// Stands for a value that is not read: there is nothing in it.
class Unread final : public DcmInputStreamFactory {
  public:
    DcmInputStream* create() const override {
        auto stream = std::make_unique<DcmInputBufferStream>();
        stream->setEos();
        return stream.release();
    }
    DcmInputStreamFactory* clone() const override { return new Unread; }
    DcmInputStreamFactoryType ident() const override { return DFT_DcmInputFileStreamFactory; }
};

/// Lets the toolkit pass over long values. From an ordinary buffer it reads each of them, into memory as
/// large as the length that the sender claims, up to 4 GB.
class HeaderStream final : public DcmInputBufferStream {
  public:
    DcmInputStreamFactory* newFactory() const override { return new Unread; }
};

/// The first `width` characters of a value, controls as blanks; where its bytes are not in the character set
/// that they claim to be in, every one that is not ASCII becomes a question mark.
std::string text(DcmDataset& dataset, const DcmTagKey& tag, std::size_t width, bool isUtf8) {
    OFString found;
    dataset.findAndGetOFStringArray(tag, found);
    std::string value{found.c_str(), found.length()};
    if (auto converted = isUtf8 ? std::nullopt : fromCodeExtensions(value))
        value = std::move(*converted);
    else if (!isUtf8 || !QUtf8StringView{value.data(), static_cast<qsizetype>(value.size())}.isValidUtf8()) {
        const auto notAscii = [](char c) { return static_cast<signed char>(c) < 0; };
        std::replace_if(value.begin(), value.end(), notAscii, '?');
    }
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
    std::replace_if(value.begin(), value.end(), isControl, ' ');
    value.resize(value.find_last_not_of(' ') + 1);
    const auto startsCharacter = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; };
    std::size_t end = 0;
    for (std::size_t characters = 0; end < value.size(); ++end) {
        if (startsCharacter(value[end]) && characters++ == width)
            break;
    }
    value.resize(end);
    return value;
}

std::string uid(DcmDataset& dataset, const DcmTagKey& tag) {
    constexpr std::size_t Unlimited = LongestValue;  // what is too long must fail, not fit
    return text(dataset, tag, Unlimited, false);
}

void dump(DcmDataset& dataset) {
    const OFLogger& log = dumpLog(Dump::Vr);
    if (!log.isEnabledFor(OFLogger::DEBUG_LOG_LEVEL))
        return;
    std::ostringstream text;
    dataset.print(text);
    OFLOG_DEBUG(log, "header of the object" << OFendl << text.str().c_str());
}

/// Some devices name the only set that they use as if others might follow it.
void nameOnlySetPlainly(DcmDataset& dataset) {
    OFString found;
    dataset.findAndGetOFStringArray(DCM_SpecificCharacterSet, found);
    const std::string_view set{found.c_str(), found.length()};
    constexpr std::string_view WithExtensions = "ISO 2022 IR ";
    if (set.starts_with(WithExtensions) && set.find('\\') == std::string_view::npos)
        dataset.putAndInsertOFStringArray(DCM_SpecificCharacterSet,
                                          "ISO_IR " + found.substr(WithExtensions.size()));
}

ObjectHeader extract(DcmDataset& dataset) {
    nameOnlySetPlainly(dataset);
    const bool utf8 = dataset.convertToUTF8().good();
    const auto value = [&](const DcmTagKey& tag, std::size_t width) {
        return text(dataset, tag, width, utf8);
    };
    return {
        .patientId = value(DCM_PatientID, 64),
        .patientName = value(DCM_PatientName, 324),
        .birthDate = value(DCM_PatientBirthDate, 8),
        .sex = value(DCM_PatientSex, 16),
        .studyInstanceUid = uid(dataset, DCM_StudyInstanceUID),
        .studyId = value(DCM_StudyID, 16),
        .studyDate = value(DCM_StudyDate, 8),
        .studyTime = value(DCM_StudyTime, 16),
        .accessionNumber = value(DCM_AccessionNumber, 16),
        .studyDescription = value(DCM_StudyDescription, 64),
        .seriesInstanceUid = uid(dataset, DCM_SeriesInstanceUID),
        .modality = value(DCM_Modality, 16),
        .seriesNumber = value(DCM_SeriesNumber, 12),
        .seriesDescription = value(DCM_SeriesDescription, 64),
        .sopInstanceUid = uid(dataset, DCM_SOPInstanceUID),
        .sopClassUid = uid(dataset, DCM_SOPClassUID),
        .instanceNumber = value(DCM_InstanceNumber, 12),
        .transferSyntaxUid = {},
    };
}

}  // namespace

std::optional<ObjectHeader> readHeader(std::span<const char> data, E_TransferSyntax syntax, bool complete) {
    const DcmTagKey behind{DCM_InstanceNumber.getGroup(),
                           static_cast<Uint16>(DCM_InstanceNumber.getElement() + 1)};
    if (nestsTooDeep(data, syntax, behind))
        throw StoreFailure{STATUS_STORE_Error_CannotUnderstand,
                           "Sequences of the object are nested too deeply"};
    HeaderStream stream;
    stream.setBuffer(data.data(), static_cast<offile_off_t>(data.size()));
    if (complete)
        stream.setEos();
    DcmDataset dataset;
    dataset.transferInit();
    const OFCondition read = dataset.readUntilTag(stream, syntax, EGL_noChange, LongestValue, behind);
    dataset.transferEnd();
    if (read == EC_StreamNotifyClient && !complete)
        return std::nullopt;
    if (read.bad())
        throw StoreFailure{STATUS_STORE_Error_CannotUnderstand, "The data set cannot be read", read.text()};
    dump(dataset);
    return extract(dataset);
}

bool isUid(std::string_view text) noexcept {
    constexpr std::size_t Longest = 64;
    if (text.empty() || text.size() > Longest)
        return false;
    bool digitBefore = false;
    for (const char c : text) {
        const bool digit = c >= '0' && c <= '9';
        if (!digit && !(c == '.' && digitBefore))
            return false;
        digitBefore = digit;
    }
    return digitBefore;
}

}  // namespace tessaly::tessalyd
