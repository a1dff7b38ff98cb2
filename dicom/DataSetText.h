#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcspchrs.h>

#include <limits>
#include <memory>
#include <string>
#include <string_view>

namespace tessaly::dicom {

/// A data set's values as UTF-8, whatever character set they are in. The data set stays as it is, and is to
/// outlive this.
class DataSetText {
  public:
    static constexpr std::size_t Unlimited = std::numeric_limits<std::size_t>::max();

    /// Where a value's bytes are not in the character set that they claim to be in, `unreadable` stands for
    /// every one that is not ASCII. That is for this value alone: what else is in the data set, be it
    /// unreadable or not read, is no matter.
    explicit DataSetText(DcmDataset& dataset, std::string_view unreadable = "?");

    /// The first `width` characters of a value, controls as blanks, without the blanks around it; empty when
    /// there is none.
    [[nodiscard]] std::string value(const DcmTagKey& tag, std::size_t width = Unlimited) const;

  private:
    [[nodiscard]] std::string decoded(const DcmElement& element, const std::string& bytes) const;

    DcmDataset& dataset_;
    std::string unreadable_;
    std::unique_ptr<DcmSpecificCharacterSet> converter_;  // null where the set is unknown
    bool knowsEscapes_ = false;  // the converter has all of the sets, not the first alone
};

}  // namespace tessaly::dicom
