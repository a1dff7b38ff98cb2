#include "archive/FormerFile.h"

#include <fcntl.h>
#include <unistd.h>

#include "archive/FileLock.h"
#include "archive/Folder.h"

namespace tessaly::archive {

namespace fs = std::filesystem;

FormerFile::FormerFile(const fs::path& path) : name_(path.filename()) {
    const fs::path folder = path.parent_path();
    const fs::path study = folder.parent_path();
    folder_ = openBeneath(openRoot(study.parent_path()), study.filename() / folder.filename(),
                          O_PATH | O_DIRECTORY);
    if (!folder_.isOpen())
        return;
    file_ = lockedAt(folder_, name_);
    found_ = entryAt(folder_, name_);
}

void FormerFile::remove() const noexcept {
    if (!found_)
        return;
    const auto found = entryAt(folder_, name_);
    if (found && isSameFile(*found_, *found))
        ::unlinkat(folder_.get(), name_.c_str(), 0);
}

}  // namespace tessaly::archive
