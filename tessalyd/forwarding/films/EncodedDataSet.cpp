#include "tessalyd/forwarding/films/EncodedDataSet.h"

#include <span>
#include <stdexcept>

#include "dicom/data/SinkStream.h"

namespace tessaly::tessalyd::films {

std::vector<char> encoded(DcmDataset& dataSet, dicom::TransferSyntax syntax) {
    std::vector<char> bytes;
    dicom::SinkStream stream{
        [&bytes](std::span<const char> block) { bytes.insert(bytes.end(), block.begin(), block.end()); }};
    dataSet.transferInit();
    const OFCondition written =
        dataSet.write(stream, syntax.toolkitName(), EET_ExplicitLength, nullptr, EGL_withoutGL);
    dataSet.transferEnd();
    stream.rethrow();
    if (written.bad())
        throw std::runtime_error{written.text()};
    return bytes;
}

}  // namespace tessaly::tessalyd::films
