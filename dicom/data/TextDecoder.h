#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcspchrs.h>
#include <dcmtk/dcmdata/dcvr.h>

#include <limits>
#include <memory>
#include <string>
#include <string_view>

namespace tessaly::dicom {

/// True for the representations whose values are characters.
[[nodiscard]] bool isText(DcmEVR vr) noexcept;

/// Converts the texts of one data set to UTF-8, whatever character set they are in.
class TextDecoder {
  public:
    static constexpr std::size_t Unlimited = std::numeric_limits<std::size_t>::max();

    /// `characterSets` is the value of Specific Character Set, or empty. Where the bytes of a value are not
    /// in the character set that they claim to be in, `unreadable` replaces every byte that is not ASCII.
    /// That is for this value alone.
    explicit TextDecoder(std::string_view characterSets, std::string_view unreadable = "?");

    /// The first `width` characters of a value, controls as blanks, without the blanks around each of several
    /// values.
    [[nodiscard]] std::string decode(std::string value, DcmEVR vr, std::size_t width = Unlimited) const;

  private:
    [[nodiscard]] std::string convert(const std::string& bytes, DcmEVR vr) const;

    std::string unreadable_;
    std::unique_ptr<DcmSpecificCharacterSet> converter_;  // null where the set is unknown
    bool knowsEscapes_ = false;  // the converter has all of the sets, not the first alone
};

}  // namespace tessaly::dicom
