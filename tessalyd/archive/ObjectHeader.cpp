#include "tessalyd/archive/ObjectHeader.h"

#include <dcmtk/dcmnet/dimse.h>

#include <sstream>

#include "tessalyd/Log.h"
#include "tessalyd/archive/StoreFailure.h"

namespace tessaly::tessalyd {

namespace {

void dump(DcmDataset& dataset) {
    const OFLogger& log = dumpLog(Dump::Vr);
    if (!log.isEnabledFor(OFLogger::DEBUG_LOG_LEVEL))
        return;
    std::ostringstream text;
    dataset.print(text);
    OFLOG_DEBUG(log, "header of the object" << OFendl << text.str().c_str());
}

}  // namespace

std::optional<ObjectHeader> readHeader(std::span<const char> data, E_TransferSyntax syntax, bool complete) {
    try {
        return dicom::readHeader(data, syntax, complete, dump);
    } catch (const dicom::HeaderFault& fault) {
        throw StoreFailure{STATUS_STORE_Error_CannotUnderstand, fault.what(), fault.detail()};
    }
}

}  // namespace tessaly::tessalyd
