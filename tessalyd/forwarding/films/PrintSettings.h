#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <cstdint>
#include <map>
#include <string>

#include "tessalyd/forwarding/films/AttributeSet.h"
#include "tessalyd/forwarding/films/PrinterRow.h"

namespace tessaly::tessalyd::films {

/// What the settings of a print are of. The SOP class of each has its own attributes.
enum class SettingsOf : std::uint8_t { Session, Film, Image };

/// Attributes with their values as text, a number as its digits.
using Settings = std::map<DcmTagKey, std::string>;

/// What a requestor has sent. A value that cannot be used is not among the settings, as if it had not come.
struct SentSettings {
    Settings settings;
    bool hasUnusable = false;         ///< such values came, of other attributes than
    bool hasUnusableDensity = false;  ///< the least and the greatest density
};

[[nodiscard]] SentSettings sentSettings(SettingsOf what, const AttributeSet& sent, const PrinterRow& printer);

/// The settings that hold: what was sent, and what the printer's row has for the rest. What neither has is
/// left to the printer, and missing here.
[[nodiscard]] Settings settingsThatHold(SettingsOf what, const Settings& sent, const PrinterRow& printer);

/// What a response to a requestor says: the settings that hold, and for the rest what printers do by
/// themselves, or an empty value.
[[nodiscard]] Settings settingsForResponse(SettingsOf what, const Settings& sent, const PrinterRow& printer);

/// Writes them into a data set.
void put(const Settings& settings, DcmItem& target);

}  // namespace tessaly::tessalyd::films
