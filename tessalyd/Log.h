#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>

#include <filesystem>

#include "tessalyd/configuration/Configuration.h"

namespace tessaly::tessalyd {

/// The server's own messages: one line each, with whatever a peer sent in it escaped (printable()). Nothing
/// of a patient, and no study or series UID, goes in at levels Errors and Normal.
[[nodiscard]] const OFLogger& serverLog();

/// Where a dump of the layer goes. All but the upper layer's, which is the toolkit's own logger, are off
/// unless that dump is asked for, whatever the level.
[[nodiscard]] const OFLogger& dumpLog(Dump layer);

/// The log file: the one place that this process and the DICOM toolkit write to, from the constructor to the
/// destructor. At `maxBytes` it is renamed to *.1, *.2 and so on, the oldest of five being dropped. When
/// somebody removes or renames it, it is made anew within a second of the next message.
class LogFile {
  public:
    /// Makes missing folders. Throws std::filesystem::filesystem_error where it cannot.
    LogFile(const std::filesystem::path& file, long maxBytes);
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    /// May be called again at any time, also while other threads write.
    static void apply(const LogOptions& options);
};

}  // namespace tessaly::tessalyd
