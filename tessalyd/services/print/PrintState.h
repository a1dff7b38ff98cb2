#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tessalyd/forwarding/films/PrintOrder.h"
#include "tessalyd/forwarding/films/PrinterRow.h"

namespace tessaly::tessalyd::print {

/// What a requestor has created over one association, by instance UIDs.
struct PrintState {
    static constexpr std::size_t MostSessions = 8;
    static constexpr std::size_t MostFilms = 100;
    static constexpr std::size_t MostLuts = 32;
    static constexpr unsigned AnnotationBoxes = 6;  ///< of a film with an Annotation Display Format ID

    struct Session {
        bool isColour = false;
        films::Settings settings = {};
        std::vector<std::string> films = {};  ///< in the order of their creation
    };
    struct FilmBox {
        std::string session;
        bool isColour = false;
        films::Film film;
        films::DisplayFormat format;
        std::vector<std::string> imageBoxes = {};
        std::vector<std::string> annotationBoxes = {};
    };
    /// A box of a film.
    struct Box {
        std::string film;
        unsigned position = 0;
    };

    films::PrinterRow printer = {};
    std::string baseUid = {};
    std::map<std::string, Session> sessions = {};
    std::map<std::string, FilmBox> films = {};
    std::map<std::string, Box> imageBoxes = {};
    std::map<std::string, Box> annotationBoxes = {};
    std::map<std::string, films::PresentationLut> luts = {};

    [[nodiscard]] bool knows(const std::string& uid) const {
        return sessions.contains(uid) || films.contains(uid) || imageBoxes.contains(uid) ||
               annotationBoxes.contains(uid) || luts.contains(uid);
    }
};

}  // namespace tessaly::tessalyd::print
