#pragma once

#include <cstdint>

namespace tessaly::tessalyd::print {

/// Statuses of the print service class (PS3.4, H.2.4 and H.4), and those of PS3.7, annex C, that it gives.
enum Status : std::uint16_t {
    Success = 0x0000,
    AttributeListError = 0x0107,  ///< a warning
    AttributeOutOfRange = 0x0116,
    InvalidAttributeValue = 0x0106,
    ProcessingFailure = 0x0110,
    DuplicateInstance = 0x0111,
    NoSuchInstance = 0x0112,
    NoSuchClass = 0x0118,
    MissingAttribute = 0x0120,
    NoSuchAction = 0x0123,
    UnrecognizedOperation = 0x0211,
    ResourceLimitation = 0x0213,
    SessionIsEmpty = 0xb602,  ///< no image in any box of the session; a warning
    FilmIsEmpty = 0xb603,     ///< no image in the film box; a warning
    ImageReduced = 0xb604,
    DensityOutOfRange = 0xb605,
    SessionHasNoFilm = 0xc600,
    SessionQueueFull = 0xc601,
    FilmQueueFull = 0xc602,
    ImageLargerThanBox = 0xc603,
    NoRoomForImage = 0xc605
};

}  // namespace tessaly::tessalyd::print
