#include "tessalyd/store/IncomingHeader.h"

#include <dcmtk/dcmnet/dimse.h>

#include "tessalyd/Log.h"
#include "tessalyd/store/StoreFailure.h"

namespace tessaly::tessalyd {

IncomingHeader::IncomingHeader(dicom::TransferSyntax syntax)
    : isShown_(dumpLog(Dump::Vr).isEnabledFor(OFLogger::DEBUG_LOG_LEVEL)),
      reader_(syntax, isShown_ ? &listing_ : nullptr) {}

template <class Work>
auto IncomingHeader::guarded(const Work& work) {
    try {
        return work();
    } catch (const dicom::HeaderFault& fault) {
        show();
        throw StoreFailure{STATUS_STORE_Error_CannotUnderstand, fault.what()};
    }
}

bool IncomingHeader::take(std::span<const char> bytes) {
    return guarded([&] { return reader_.take(bytes); });
}

ObjectHeader IncomingHeader::header() {
    ObjectHeader header = guarded([this] { return reader_.header(); });
    show();
    return header;
}

void IncomingHeader::show() {
    if (isShown_)
        OFLOG_DEBUG(dumpLog(Dump::Vr), "header of the object" << OFendl << listing_.take().c_str());
}

}  // namespace tessaly::tessalyd
