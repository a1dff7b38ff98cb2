#pragma once

#include <span>

#include "dicom/data/ElementListing.h"
#include "dicom/data/ObjectHeader.h"

namespace tessaly::tessalyd {

using dicom::isUid;
using dicom::ObjectHeader;

/// As dicom::HeaderReader, for an object that is received: shows the header in the log where that is asked
/// for, and throws StoreFailure.
class IncomingHeader {
  public:
    explicit IncomingHeader(dicom::TransferSyntax syntax);

    /// The next bytes of the data set. Returns true when the header has ended.
    bool take(std::span<const char> bytes);
    /// The header, when it or the whole data set has ended.
    [[nodiscard]] ObjectHeader header();

  private:
    template <class Work>
    auto guarded(const Work& work);
    void show();

    bool isShown_;
    dicom::ElementListing listing_;
    dicom::HeaderReader reader_;
};

}  // namespace tessaly::tessalyd
