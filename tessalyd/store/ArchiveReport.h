#pragma once

#include <string>

#include "archive/Report.h"
#include "tessalyd/Log.h"

namespace tessaly::tessalyd {

/// Puts what the archive reports into the server's log.
inline void reportArchive(archive::Severity severity, const std::string& line) {
    switch (severity) {
        case archive::Severity::Debug:
            OFLOG_DEBUG(serverLog(), line.c_str());
            break;
        case archive::Severity::Info:
            OFLOG_INFO(serverLog(), line.c_str());
            break;
        case archive::Severity::Error:
            OFLOG_ERROR(serverLog(), line.c_str());
            break;
    }
}

}  // namespace tessaly::tessalyd
