#include "tessalyd/association/CommandDump.h"

#include "tessalyd/Log.h"

namespace tessaly::tessalyd {

dicom::MessageStream::Trace commandDump() {
    return [](dicom::MessageStream::Direction direction, T_ASC_PresentationContextID context,
              const dicom::Command& command) {
        if (!dumpLog(Dump::Vr).isEnabledFor(OFLogger::DEBUG_LOG_LEVEL))
            return;
        const char* const what = direction == dicom::MessageStream::Direction::Sent ? "sent" : "received";
        OFLOG_DEBUG(dumpLog(Dump::Vr),
                    what << " in presentation context " << int{context} << ": " << command.text());
    };
}

}  // namespace tessaly::tessalyd
