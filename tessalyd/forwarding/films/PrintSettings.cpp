#include "tessalyd/forwarding/films/PrintSettings.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <vector>

namespace tessaly::tessalyd::films {

namespace {

std::optional<unsigned> digitsOf(std::string_view text, unsigned most) {
    unsigned number = 0;
    const auto [stop, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = fault == std::errc{} && stop == text.data() + text.size();
    return isNumber && number <= most ? std::optional{number} : std::nullopt;
}

bool isOneOf(std::string_view value, std::initializer_list<std::string_view> terms) {
    return std::find(terms.begin(), terms.end(), value) != terms.end();
}

bool isText(std::string_view value, std::size_t most) {
    constexpr char Escape = 0x1b;
    return value.size() <= most && std::all_of(value.begin(), value.end(), [](char c) {
               return c == Escape || static_cast<unsigned char>(c) >= ' ';
           });
}

// Terms of PS3.3, C.13. What the standard leaves to the makers of printers is taken as far as it is a term.

bool isCopies(std::string_view value) {
    constexpr unsigned Most = 99;
    return digitsOf(value, Most).value_or(0) > 0;
}
bool isPriority(std::string_view value) {
    return isOneOf(value, {"HIGH", "MED", "LOW"});
}
bool isMedium(std::string_view value) {
    return isOneOf(value, {"PAPER", "CLEAR FILM", "BLUE FILM", "MAMMO CLEAR FILM", "MAMMO BLUE FILM"});
}
bool isDestination(std::string_view value) {
    constexpr std::string_view Bin = "BIN_";
    return isOneOf(value, {"MAGAZINE", "PROCESSOR"}) ||
           (value.starts_with(Bin) && digitsOf(value.substr(Bin.size()), 99).has_value());
}
bool isLabel(std::string_view value) {
    return isText(value, 64);
}
bool isOwner(std::string_view value) {
    return isText(value, 16);
}
bool isOrientation(std::string_view value) {
    return isOneOf(value, {"PORTRAIT", "LANDSCAPE"});
}
bool isFilmSize(std::string_view value) {
    return isOneOf(value, {"8INX10IN", "8_5INX11IN", "10INX12IN", "10INX14IN", "11INX14IN", "11INX17IN",
                           "14INX14IN", "14INX17IN", "24CMX24CM", "24CMX30CM", "A4", "A3"});
}
bool isMagnification(std::string_view value) {
    return isOneOf(value, {"REPLICATE", "BILINEAR", "CUBIC", "NONE"});
}
bool isTerm(std::string_view value) {
    constexpr std::size_t Longest = 16;
    return value.size() <= Longest && std::all_of(value.begin(), value.end(), [](char c) {
               return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == ' ';
           });
}
bool isShort(std::string_view value) {
    constexpr unsigned Most = 65535;
    return digitsOf(value, Most).has_value();
}
bool isBorder(std::string_view value) {
    return isOneOf(value, {"BLACK", "WHITE"}) || isShort(value);
}
bool isDensity(std::string_view value) {
    constexpr unsigned Most = 500;  // no film gets any darker
    return digitsOf(value, Most).has_value();
}
bool isYesOrNo(std::string_view value) {
    return isOneOf(value, {"YES", "NO"});
}
bool isParameters(std::string_view value) {
    return isText(value, 1024);
}
bool isResolution(std::string_view value) {
    return isOneOf(value, {"STANDARD", "HIGH"});
}
bool isPolarity(std::string_view value) {
    return isOneOf(value, {"NORMAL", "REVERSE"});
}
bool isLength(std::string_view value) {
    double number = 0;
    const auto [stop, fault] = std::from_chars(value.data(), value.data() + value.size(), number);
    return fault == std::errc{} && stop == value.data() + value.size() && number > 0;
}
bool isCropping(std::string_view value) {
    return isOneOf(value, {"DECIMATE", "CROP", "FAIL"});
}

struct Attribute {
    DcmTagKey tag;
    SettingsOf what;
    bool (*isUsable)(std::string_view);
    std::string PrinterRow::*column = nullptr;
    const char* byItself = "";  ///< what printers do where nothing is said; empty where that differs
};

const std::vector<Attribute>& attributes() {
    using Row = PrinterRow;
    static const std::vector<Attribute> All{
        {DCM_SpecificCharacterSet, SettingsOf::Session, isLabel},
        {DCM_NumberOfCopies, SettingsOf::Session, isCopies, &Row::copies, "1"},
        {DCM_PrintPriority, SettingsOf::Session, isPriority, &Row::priority, "MED"},
        {DCM_MediumType, SettingsOf::Session, isMedium, &Row::medium},
        {DCM_FilmDestination, SettingsOf::Session, isDestination, &Row::destination},
        {DCM_FilmSessionLabel, SettingsOf::Session, isLabel},
        {DCM_MemoryAllocation, SettingsOf::Session, isShort},
        {DCM_OwnerID, SettingsOf::Session, isOwner},
        {DCM_AnnotationDisplayFormatID, SettingsOf::Film, isTerm},
        {DCM_FilmOrientation, SettingsOf::Film, isOrientation, &Row::orientation, "PORTRAIT"},
        {DCM_FilmSizeID, SettingsOf::Film, isFilmSize, &Row::filmSize},
        {DCM_MagnificationType, SettingsOf::Film, isMagnification, &Row::magnification},
        {DCM_SmoothingType, SettingsOf::Film, isTerm, &Row::smoothing},
        {DCM_BorderDensity, SettingsOf::Film, isBorder, &Row::border},
        {DCM_EmptyImageDensity, SettingsOf::Film, isBorder, &Row::emptyDensity},
        {DCM_MinDensity, SettingsOf::Film, isDensity, &Row::minDensity},
        {DCM_MaxDensity, SettingsOf::Film, isDensity, &Row::maxDensity},
        {DCM_Trim, SettingsOf::Film, isYesOrNo, &Row::trim, "NO"},
        {DCM_ConfigurationInformation, SettingsOf::Film, isParameters, &Row::userParams},
        {DCM_Illumination, SettingsOf::Film, isShort, &Row::illumination},
        {DCM_ReflectedAmbientLight, SettingsOf::Film, isShort, &Row::reflection},
        {DCM_RequestedResolutionID, SettingsOf::Film, isResolution, &Row::resolution},
        {DCM_Polarity, SettingsOf::Image, isPolarity, &Row::polarity, "NORMAL"},
        {DCM_MagnificationType, SettingsOf::Image, isMagnification},
        {DCM_SmoothingType, SettingsOf::Image, isTerm},
        {DCM_ConfigurationInformation, SettingsOf::Image, isParameters},
        {DCM_RequestedImageSize, SettingsOf::Image, isLength},
        {DCM_RequestedDecimateCropBehavior, SettingsOf::Image, isCropping}};
    return All;
}

/// Numbers of a row may be any; its terms are those that somebody has chosen for this printer.
bool isUsableColumn(const Attribute& attribute, const std::string& value) {
    const DcmEVR vr = DcmTag{attribute.tag}.getEVR();
    return !value.empty() && ((vr != EVR_US && vr != EVR_IS) || attribute.isUsable(value));
}

bool isOfDensity(const DcmTagKey& tag) {
    return tag == DCM_MinDensity || tag == DCM_MaxDensity;
}

/// A film cannot be darker in its lightest parts than in its darkest.
bool areReversed(const Settings& settings) {
    const auto least = settings.find(DCM_MinDensity);
    const auto greatest = settings.find(DCM_MaxDensity);
    if (least == settings.end() || greatest == settings.end())
        return false;
    return digitsOf(least->second, 65535).value_or(0) >= digitsOf(greatest->second, 65535).value_or(0);
}

}  // namespace

SentSettings sentSettings(SettingsOf what, const AttributeSet& sent, const PrinterRow& printer) {
    SentSettings taken;
    for (const Attribute& attribute : attributes()) {
        if (attribute.what != what || !sent.has(attribute.tag))
            continue;
        const auto value = sent.text(attribute.tag);
        if (value && value->empty())
            continue;
        // A value that somebody has given to the printer is one that it has.
        const bool isUsable = value && (attribute.isUsable(*value) ||
                                        (attribute.column != nullptr && printer.*attribute.column == *value));
        if (isUsable)
            taken.settings.emplace(attribute.tag, *value);
        else
            (isOfDensity(attribute.tag) ? taken.hasUnusableDensity : taken.hasUnusable) = true;
    }
    if (areReversed(taken.settings)) {
        taken.settings.erase(DCM_MinDensity);
        taken.settings.erase(DCM_MaxDensity);
        taken.hasUnusableDensity = true;
    }
    return taken;
}

Settings settingsThatHold(SettingsOf what, const Settings& sent, const PrinterRow& printer) {
    Settings all = sent;
    for (const Attribute& attribute : attributes()) {
        if (attribute.what != what || attribute.column == nullptr)
            continue;
        if (const std::string& value = printer.*attribute.column; isUsableColumn(attribute, value))
            all.try_emplace(attribute.tag, value);
    }
    if (what == SettingsOf::Session)
        all.try_emplace(DCM_NumberOfCopies, "1");
    if (areReversed(all)) {  // one of them was sent
        for (const DcmTagKey& tag : {DCM_MinDensity, DCM_MaxDensity})
            if (!sent.contains(tag))
                all.erase(tag);
    }
    return all;
}

Settings settingsForResponse(SettingsOf what, const Settings& sent, const PrinterRow& printer) {
    Settings all = settingsThatHold(what, sent, printer);
    for (const Attribute& attribute : attributes())
        if (attribute.what == what && attribute.tag != DCM_SpecificCharacterSet)
            all.try_emplace(attribute.tag, attribute.byItself);
    return all;
}

void put(const Settings& settings, DcmItem& target) {
    for (const auto& [tag, value] : settings) {
        if (value.empty())
            target.insertEmptyElement(tag);
        else if (DcmTag{tag}.getEVR() == EVR_US)
            target.putAndInsertUint16(tag, static_cast<Uint16>(digitsOf(value, 65535).value_or(0)));
        else
            target.putAndInsertString(tag, value.data(), static_cast<Uint32>(value.size()));
    }
}

}  // namespace tessaly::tessalyd::films
