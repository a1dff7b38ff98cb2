#include "maintenance/FileSwap.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>
#include <vector>

namespace tessaly::maintenance {

namespace fs = std::filesystem;

namespace {

constexpr const char* AccessList = "system.posix_acl_access";

void check(bool succeeded, const fs::path& file) {
    if (!succeeded)
        throw std::system_error(errno, std::generic_category(), file.string());
}

void flush(const fs::path& path, int flags) {
    const base::FileDescriptor file{open(path.c_str(), flags | O_RDONLY | O_CLOEXEC)};
    check(file.isOpen() && fsync(file.get()) == 0, path);
}

/// Names of the extended attributes; none where the file system has no such thing.
std::vector<std::string> attributeNames(const fs::path& file) {
    const ssize_t room = listxattr(file.c_str(), nullptr, 0);
    std::string list(room > 0 ? static_cast<std::size_t>(room) : 0, '\0');
    const ssize_t length = list.empty() ? 0 : listxattr(file.c_str(), list.data(), list.size());
    std::vector<std::string> names;
    for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(names.back().size()) + 1)
        names.emplace_back(list.c_str() + at);
    return names;
}

void copyAttribute(const fs::path& model, const fs::path& file, const std::string& name) {
    const ssize_t size = getxattr(model.c_str(), name.c_str(), nullptr, 0);
    check(size >= 0, model);
    std::vector<char> value(static_cast<std::size_t>(size));
    check(getxattr(model.c_str(), name.c_str(), value.data(), value.size()) == size, model);
    check(setxattr(file.c_str(), name.c_str(), value.data(), value.size(), 0) == 0, file);
}

/// A folder may give each new file an access list that the model has not.
void removeAccessList(const fs::path& file) {
    check(removexattr(file.c_str(), AccessList) == 0 || errno == ENODATA || errno == ENOTSUP, file);
}

}  // namespace

bool copyAttributes(const fs::path& model, const fs::path& file) {
    struct stat wanted {};
    struct stat present {};
    check(stat(model.c_str(), &wanted) == 0, model);
    check(stat(file.c_str(), &present) == 0, file);
    if (wanted.st_uid != present.st_uid || wanted.st_gid != present.st_gid) {
        const bool given = chown(file.c_str(), wanted.st_uid, wanted.st_gid) == 0;
        if (!given && errno == EPERM)
            return false;
        check(given, file);
    }
    const std::vector<std::string> names = attributeNames(model);
    // Before the mode, whose bits of the group are those of the list's mask where there is one.
    if (std::find(names.begin(), names.end(), AccessList) == names.end())
        removeAccessList(file);
    check(chmod(file.c_str(), wanted.st_mode & 07777U) == 0, file);
    for (const std::string& name : names) {
        // The other name spaces belong to the system, which labels each file itself.
        if (name.starts_with("user.") || name == AccessList)
            copyAttribute(model, file, name);
    }
    return true;
}

void EarlyFlush::advance() noexcept {
    constexpr off_t Portion = off_t{4} << 20;  // no more at once than the disk takes without a wait
    if (waiting() < Portion)
        return;
    sync_file_range(file_.get(), handed_, Portion, SYNC_FILE_RANGE_WRITE);
    handed_ += Portion;
}

void EarlyFlush::finish() noexcept {
    constexpr off_t ToTheEnd = 0;
    if (waiting() > 0)
        sync_file_range(file_.get(), handed_, ToTheEnd, SYNC_FILE_RANGE_WRITE);
}

off_t EarlyFlush::waiting() noexcept {
    if (!file_.isOpen())
        file_ = base::FileDescriptor{open(path_.c_str(), O_RDONLY | O_CLOEXEC)};
    struct stat found {};
    return file_.isOpen() && fstat(file_.get(), &found) == 0 ? found.st_size - handed_ : 0;
}

void flushFile(const fs::path& file) {
    flush(file, 0);
}

void replaceFile(const fs::path& file, const fs::path& target) {
    const fs::path folder = target.parent_path();
    flush(folder, O_DIRECTORY);
    check(rename(file.c_str(), target.c_str()) == 0, target);
    flush(folder, O_DIRECTORY);
}

}  // namespace tessaly::maintenance
