#include "dicom/data/DataSetText.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcelem.h>

namespace tessaly::dicom {

namespace {

/// As it is: the toolkit would look each of several values up from the beginning, for minutes in long lists.
std::string wholeValue(DcmItem& dataset, const DcmTagKey& tag, DcmEVR* vr = nullptr) {
    DcmElement* element = nullptr;
    OFString found;
    if (dataset.findAndGetElement(tag, element).bad() || element->getOFStringArray(found, OFFalse).bad())
        return {};
    if (vr != nullptr)
        *vr = element->ident();
    return {found.c_str(), found.length()};
}

}  // namespace

DataSetText::DataSetText(DcmDataset& dataset, std::string_view unreadable)
    : dataset_(dataset), decoder_(wholeValue(dataset, DCM_SpecificCharacterSet), unreadable) {}

std::string DataSetText::value(const DcmTagKey& tag, std::size_t width) const {
    DcmEVR vr = EVR_UNKNOWN;
    std::string bytes = wholeValue(dataset_, tag, &vr);
    return decoder_.decode(std::move(bytes), vr, width);
}

}  // namespace tessaly::dicom
