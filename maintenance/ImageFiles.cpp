#include "maintenance/ImageFiles.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>
#include <system_error>

namespace tessaly::maintenance {

namespace {

constexpr int ListAfter = 4;               // look-ups in a row; fewer are cheaper one by one
constexpr std::size_t SmallFolder = 1000;  // entries: some tenths of a millisecond

}  // namespace

bool isOrdinaryFile(const std::string& path) {
    if (path[path.rfind('/') + 1] == '.')
        return false;
    struct stat status {};
    if (stat(path.c_str(), &status) == 0)
        return S_ISREG(status.st_mode);
    if (errno == ENOENT || errno == ENOTDIR || errno == ENAMETOOLONG || errno == ELOOP)
        return false;
    throw std::system_error(errno, std::generic_category(), path);
}

bool ImageFiles::isThere(const std::string& path) {
    const std::size_t nameAt = path.rfind('/') + 1;
    if (path.compare(0, nameAt, folder_) != 0) {
        forget();
        folder_.assign(path, 0, nameAt);
        inRow_ = 0;
        worthListing_ = true;
    }
    if (++inRow_ > ListAfter && !listed_ && worthListing_)
        list();
    if (listed_ && std::binary_search(names_.begin(), names_.end(), std::string_view{path}.substr(nameAt)))
        return true;
    return isOrdinaryFile(path);  // a link, a file that has just come: whatever the list does not say
}

void ImageFiles::forget() noexcept {
    listed_ = false;
    names_.clear();
}

void ImageFiles::list() {
    struct Close {
        void operator()(DIR* folder) const { closedir(folder); }
    };
    const std::unique_ptr<DIR, Close> folder{opendir(folder_.c_str())};
    worthListing_ = folder != nullptr;
    std::size_t count = 0;
    while (const dirent* entry = worthListing_ ? readdir(folder.get()) : nullptr) {
        if (entry->d_type == DT_REG && entry->d_name[0] != '.')
            names_.emplace_back(entry->d_name);
        worthListing_ = ++count <= SmallFolder;
    }
    std::sort(names_.begin(), names_.end());
    listed_ = worthListing_;
}

}  // namespace tessaly::maintenance
