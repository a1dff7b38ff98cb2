#include "tessalyd/forwarding/composing/FilmText.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <string>

#include "dicom/data/TextDecoder.h"

namespace tessaly::tessalyd::composing {

namespace {

constexpr std::size_t Longest = 64;  // characters of Text String

bool isAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

/// The first characters of a text in UTF-8.
std::string shortened(std::string text) {
    std::size_t characters = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool isContinued = (static_cast<unsigned char>(text[at]) & 0xc0U) == 0x80U;
        if (!isContinued && ++characters > Longest) {
            text.resize(at);
            break;
        }
    }
    return text;
}

films::FilmAnnotation annotation(const std::string& text) {
    films::FilmAnnotation made{.text = shortened(text)};
    // A backslash would part the value.
    std::replace(made.text.begin(), made.text.end(), '\\', ' ');
    if (!isAscii(made.text))
        made.characterSet = "ISO_IR 192";
    return made;
}

std::string joined(const std::string& first, const std::string& second) {
    std::string both = first;
    both.append(first.empty() || second.empty() ? "" : "  ").append(second);
    return both;
}

}  // namespace

std::map<unsigned, films::FilmAnnotation> annotationsOf(const Header& image, const FilmPlace& place) {
    const dicom::TextDecoder decoder{image.text(DCM_SpecificCharacterSet)};
    const auto text = [&](const DcmTagKey& tag, DcmEVR vr) {
        return decoder.decode(std::string{image.text(tag)}, vr, Longest);
    };
    std::string series;
    if (place.firstSeries) {
        series = "Series " + std::to_string(*place.firstSeries);
        if (place.lastSeries && place.lastSeries != place.firstSeries)
            series.append(" to ").append(std::to_string(*place.lastSeries));
    }
    std::string film = "Film ";
    film.append(std::to_string(place.number)).append("/").append(std::to_string(place.films));
    std::map<unsigned, films::FilmAnnotation> annotations;
    unsigned position = 0;
    for (const std::string& line :
         {joined(text(DCM_PatientName, EVR_PN), text(DCM_PatientID, EVR_LO)),
          joined(text(DCM_StudyDescription, EVR_LO), text(DCM_StudyDate, EVR_DA)), joined(series, film)})
        annotations.emplace(++position, annotation(line));
    return annotations;
}

}  // namespace tessaly::tessalyd::composing
