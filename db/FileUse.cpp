#include "db/FileUse.h"

#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <utility>
#include <vector>

#include "db/Error.h"

namespace tessaly::db::detail {

namespace {

struct Known {
    std::optional<DatabaseFile> file;
    std::optional<DatabaseFile> log;
    int sessions = 0;                                               ///< of this process, on this file
    std::vector<std::pair<DatabaseFile, std::string>> former = {};  ///< with the names of their logs
};

struct Registry {
    std::mutex mutex;
    std::map<std::string, std::string> paths;  ///< by what a connect string says of the database
    std::map<std::string, Known> files;        ///< by path
};

/// Never destroyed: connections of static life are closed after it would be.
Registry& registry() {
    static Registry* const all = std::make_unique<Registry>().release();
    return *all;
}

/// The words of a connect string that tell which database it is.
std::string databaseOf(const std::string& connectString) {
    std::string words;
    std::istringstream all{connectString};
    for (std::string word; std::getline(all, word, ';');) {
        for (const char* name : {"DSN=", "Database=", "Driver="})
            if (::strncasecmp(word.c_str(), name, std::strlen(name)) == 0)
                words += word + ';';
    }
    return words;
}

std::optional<DatabaseFile> logOf(const std::string& path) {
    return DatabaseFile::at(path + "-wal");
}

bool isRenamed(const std::string& from, const std::string& to) {
    return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0;
}

/// Returns the log's new name. Its content is wanted when the former file comes back.
std::string setAside(const std::string& log) {
    for (int number = 1;; ++number) {
        std::string name = log + ".former-" + std::to_string(number);
        if (isRenamed(log, name))
            return name;
        if (errno != EEXIST)
            throw Error("The log of the former database file cannot be renamed: " + log);
    }
}

/// With the registry locked.
void requireFree(Known& known, const std::string& path) {
    const auto now = DatabaseFile::at(path);
    if (!known.file || !now || now == known.file)
        return;
    if (known.sessions > 0)
        throw Error("The database file was replaced by another while the former one is in use: " + path);
    if (known.log && logOf(path) == known.log) {
        known.former.emplace_back(*known.file, setAside(path + "-wal"));
        ::unlink((path + "-shm").c_str());  // an index of the log, with nothing of its own
    }
    const auto back = std::find_if(known.former.begin(), known.former.end(),
                                   [&now](const auto& one) { return one.first == *now; });
    if (back == known.former.end())
        return;
    if (!isRenamed(back->second, path + "-wal"))
        throw Error("The log of the database file cannot be renamed: " + back->second);
    known.former.erase(back);
}

}  // namespace

void FileUse::requireFree(const std::string& connectString) {
    Registry& all = registry();
    const std::lock_guard lock{all.mutex};
    if (const auto path = all.paths.find(databaseOf(connectString)); path != all.paths.end())
        detail::requireFree(all.files[path->second], path->second);
}

FileUse::FileUse(const std::string& connectString, const std::string& path)
    : path_(path), file_(DatabaseFile::at(path)) {
    Registry& all = registry();
    const std::lock_guard lock{all.mutex};
    Known& known = all.files[path_];
    detail::requireFree(known, path_);
    all.paths[databaseOf(connectString)] = path_;
    if (known.file != file_)
        known = {.file = file_, .log = {}, .former = std::move(known.former)};
    ++known.sessions;
}

FileUse::~FileUse() {
    Registry& all = registry();
    const std::lock_guard lock{all.mutex};
    if (Known& known = all.files[path_]; known.file == file_)
        --known.sessions;
}

void FileUse::noteLog() {
    if (!file_ || !file_->isInPlace())
        return;
    Registry& all = registry();
    const std::lock_guard lock{all.mutex};
    if (Known& known = all.files[path_]; known.file == file_)
        known.log = logOf(path_);
}

}  // namespace tessaly::db::detail
