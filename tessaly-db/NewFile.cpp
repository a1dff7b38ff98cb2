#include "tessaly-db/NewFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

namespace tessaly::tool {

namespace fs = std::filesystem;

namespace {

fs::path withSuffix(fs::path file, std::string_view suffix) {
    return file += suffix;
}

/// For a call that failed; `what` is a sentence's beginning that the reason ends.
[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void sync(const fs::path& path, int flags) {
    const int file = open(path.c_str(), flags | O_CLOEXEC);
    const bool good = file >= 0 && fsync(file) == 0;
    const int reason = errno;
    if (file >= 0)
        close(file);
    errno = reason;
    if (!good)
        fail("Cannot write " + path.string());
}

/// Gives a file a name that is free. Some file systems have no rename that refuses a taken name, others no
/// second name for a file: hence both ways.
bool renameToFree(const fs::path& from, const fs::path& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    return link(from.c_str(), to.c_str()) == 0 && unlink(from.c_str()) == 0;
}

}  // namespace

void NewFile::requireFree(const fs::path& place, const db::Dialect& dialect) {
    if (fs::exists(fs::symlink_status(place)))
        throw std::runtime_error("There is a file " + place.string() + " already: it is left as it is");
    for (const db::SideFile& side : dialect.sideFiles())
        if (const auto left = withSuffix(place, side.suffix);
            side.hasContent && fs::exists(fs::symlink_status(left)))
            throw std::runtime_error(left.string() +
                                     " belongs to a database that is gone: move it away first");
}

NewFile::NewFile(fs::path place, const db::Dialect& dialect) : dialect_(dialect), place_(std::move(place)) {
    requireFree(place_, dialect_);
    fs::create_directories(place_.parent_path());
    std::string name = place_.string() + ".XXXXXX";
    const int file = mkostemp(name.data(), O_CLOEXEC);  // mode 0600
    if (file < 0)
        fail("Cannot make a file in " + place_.parent_path().string());
    close(file);
    temporary_ = name;
}

NewFile::~NewFile() {
    if (temporary_.empty())
        return;
    unlink(temporary_.c_str());
    for (const db::SideFile& side : dialect_.sideFiles())
        unlink(withSuffix(temporary_, side.suffix).c_str());
}

void NewFile::putInPlace() {
    for (const db::SideFile& side : dialect_.sideFiles())
        if (fs::exists(withSuffix(temporary_, side.suffix)))
            throw std::runtime_error("The new database is still in use");
    sync(temporary_, O_RDWR);
    if (!renameToFree(temporary_, place_))
        fail("Cannot put " + place_.string() + " in place");
    temporary_.clear();
    sync(place_.parent_path(), O_RDONLY | O_DIRECTORY);
}

}  // namespace tessaly::tool
