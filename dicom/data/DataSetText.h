#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <string>
#include <string_view>

#include "dicom/data/TextDecoder.h"

namespace tessaly::dicom {

/// The values of a data set as TextDecoder reads them. The data set stays as it is, and must outlive this.
class DataSetText {
  public:
    explicit DataSetText(DcmDataset& dataset, std::string_view unreadable = "?");

    /// As TextDecoder::decode; empty when there is no value.
    [[nodiscard]] std::string value(const DcmTagKey& tag, std::size_t width = TextDecoder::Unlimited) const;

  private:
    DcmDataset& dataset_;
    TextDecoder decoder_;
};

}  // namespace tessaly::dicom
