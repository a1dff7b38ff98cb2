#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tessaly::maintenance {

/// True for a plain file that is not hidden. A look-up without an answer (no right, an archive that is not
/// mounted properly) throws std::system_error: it is no reason to forget an image.
[[nodiscard]] bool isOrdinaryFile(const std::string& path);

/// Looks up the files of many images, most of which lie beside the one before: after some look-ups in a row a
/// small folder is listed once instead of being asked for every name. What is known of a folder holds until
/// forget(), to be called whenever it may have changed: as soon as the user, or the window's events, had a
/// turn, and in any case every few milliseconds.
class ImageFiles {
  public:
    /// What isOrdinaryFile() says.
    [[nodiscard]] bool isThere(const std::string& path);
    void forget() noexcept;

  private:
    void list();

    std::string folder_;        ///< of the last look-up, with its last slash
    int inRow_ = 0;             ///< look-ups in it one after another
    bool worthListing_ = true;  ///< small, and can be read
    bool listed_ = false;
    std::vector<std::string> names_;  ///< of its plain files, sorted
};

}  // namespace tessaly::maintenance
