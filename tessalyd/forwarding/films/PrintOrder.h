#pragma once

#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "tessalyd/forwarding/films/DisplayFormat.h"
#include "tessalyd/forwarding/films/ImagePixels.h"
#include "tessalyd/forwarding/films/PrintSettings.h"

namespace tessaly::tessalyd::films {

/// A Presentation LUT: one of the shapes of the standard, or a table.
struct PresentationLut {
    std::string shape = {};  ///< "IDENTITY" or "LIN OD"; empty with a table
    LookupTable table = {};
    std::string explanation = {};
};

/// An image in its box, as it was sent; its pixels are a file of the spool folder.
struct FilmImage {
    std::string file;  ///< its name in the folder
    ImageLayout layout;
    Settings settings = {};
    std::string lut = {};  ///< a key of PrintOrder::luts; empty: that of the film
};

struct FilmAnnotation {
    std::string text;
    std::string characterSet = {};  ///< Specific Character Set, as it was sent
};

struct Film {
    std::string displayFormat;  ///< one that DisplayFormat::parse() takes
    Settings settings = {};
    std::string lut = {};                       ///< a key of PrintOrder::luts; empty: none
    std::map<unsigned, FilmImage> images = {};  ///< by their positions, from 1 on
    std::map<unsigned, FilmAnnotation> annotations = {};
};

/// What is printed by one job: the attributes as a requestor sent them, of one film session. What it left out
/// is filled in when it is printed.
struct PrintOrder {
    std::string callingAeTitle;  ///< that the printer is called with
    std::string originator;      ///< the AE title of whoever sent the films; empty: this server
    std::string baseUid;         ///< what instances of ours are named below
    bool isColour = false;
    Settings session = {};
    std::map<std::string, PresentationLut> luts = {};
    std::vector<Film> films = {};
};

/// Writes the order into a spool folder, beside the files of its images. Throws std::system_error.
void save(const PrintOrder& order, const std::filesystem::path& folder);

/// There is no order in a folder, or none that can be read: it can never be printed.
class NoSuchOrder : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};
/// Throws NoSuchOrder, and std::system_error where the folder cannot be read now.
[[nodiscard]] PrintOrder loadOrder(const std::filesystem::path& folder);

}  // namespace tessaly::tessalyd::films
