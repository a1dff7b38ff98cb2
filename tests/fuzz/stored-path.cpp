// Paths of the archive and of the database file.

#include <QString>
#include <stdexcept>

#include "archive/StoredPath.h"
#include "maintenance/FileCompaction.h"
#include "maintenance/Relocation.h"
#include "tests/fuzz/Fuzz.h"

namespace {

using tessaly::fuzz::require;

void relocate(const std::string& path, const QString& from, const QString& to) {
    using tessaly::maintenance::relocatedPath;
    const auto moved = relocatedPath(path, from, to);
    if (!moved)
        return;
    const std::string root = to.toStdString();
    require(moved->starts_with(root));
    // What follows the root is kept byte for byte.
    require(path.ends_with(std::string_view{*moved}.substr(root.size())));
    // The root does match itself.
    require(relocatedPath(*moved, to, from).has_value());
}

void compact(const std::string& path) {
    try {
        const std::string temporary = tessaly::maintenance::temporaryPathOf(path);
        require(temporary.ends_with("2.mdb") && temporary != path);
    } catch (const std::runtime_error&) {
        require(path.find(".mdb") == std::string::npos);
    }
}

}  // namespace

void tessaly::fuzz::tryInput(std::string_view input) {
    const std::string path = takePart(input);
    const std::string from = takePart(input);
    relocate(path, QString::fromStdString(from), QString::fromStdString(std::string{input}));
    compact(path);
    const std::string local = tessaly::archive::localPath(path);
    require(local.size() == path.size() && local.find('\\') == std::string::npos);
}
