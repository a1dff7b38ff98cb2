#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

#include "tessalyd/forwarding/composing/Header.h"
#include "tessalyd/forwarding/films/PrintOrder.h"

namespace tessaly::tessalyd::composing {

/// Which of a study's films it is, and what it has.
struct FilmPlace {
    std::size_t number = 1;  ///< from 1 on
    std::size_t films = 1;   ///< of the study, as far as all its images can be printed
    std::optional<std::int64_t> firstSeries;
    std::optional<std::int64_t> lastSeries;
};

/// The texts beside a film's images: patient, study, series and film. `image` is one of the film's.
[[nodiscard]] std::map<unsigned, films::FilmAnnotation> annotationsOf(const Header& image,
                                                                      const FilmPlace& place);

}  // namespace tessaly::tessalyd::composing
