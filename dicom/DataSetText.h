#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <limits>
#include <string>
#include <string_view>

namespace tessaly::dicom {

/// A data set's values as UTF-8, whatever character set they are in. The data set is converted in place, and
/// is to outlive this.
class DataSetText {
  public:
    static constexpr std::size_t Unlimited = std::numeric_limits<std::size_t>::max();

    /// Where a value's bytes are not in the character set that they claim to be in, `unreadable` stands for
    /// every one that is not ASCII.
    explicit DataSetText(DcmDataset& dataset, std::string_view unreadable = "?");

    /// The first `width` characters of a value, controls as blanks, without the blanks around it; empty when
    /// there is none.
    [[nodiscard]] std::string value(const DcmTagKey& tag, std::size_t width = Unlimited) const;

  private:
    DcmDataset& dataset_;
    std::string unreadable_;
    bool utf8_;
};

}  // namespace tessaly::dicom
