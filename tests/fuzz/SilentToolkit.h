#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>

namespace tessaly::fuzz {

/// Turns the toolkit's messages off: inputs that are made up would fill the screen with them.
inline void silenceToolkit() {
    static const bool isSilent = [] {
        OFLog::configure(OFLogger::OFF_LOG_LEVEL);
        return true;
    }();
    static_cast<void>(isSilent);
}

}  // namespace tessaly::fuzz
