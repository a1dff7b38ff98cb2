#include "tessalyd/services/print/AssociationSpool.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace tessaly::tessalyd::print {

AssociationSpool::~AssociationSpool() {
    if (entry_)
        jobs::Spool::remove(entry_->path);
}

const std::filesystem::path& AssociationSpool::folder() {
    if (!entry_)
        entry_.emplace(spool_.makeFolder("films"));
    return entry_->path;
}

std::string AssociationSpool::newName() {
    return "image-" + std::to_string(++names_);
}

base::FileDescriptor AssociationSpool::make(const std::string& name) {
    base::FileDescriptor made{
        ::open((folder() / name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600)};
    if (!made.isOpen())
        throw std::system_error{errno, std::generic_category(), "a file of the spool cannot be made"};
    return made;
}

void AssociationSpool::link(const std::string& name, const std::filesystem::path& folder) const {
    if (::link((entry_->path / name).c_str(), (folder / name).c_str()) < 0)
        throw std::system_error{errno, std::generic_category(), "a file of the spool cannot be linked"};
}

void AssociationSpool::remove(const std::string& name) noexcept {
    if (entry_ && !name.empty())
        ::unlink((entry_->path / name).c_str());
}

PixelFile::~PixelFile() {
    spool_.remove(name_);
}

void PixelFile::take(std::span<const char> pixels) noexcept {
    size_ += pixels.size();
    if (hasFailed_ || size_ > MostBytes)
        return;
    try {
        if (!file_.isOpen()) {
            name_ = spool_.newName();
            file_ = spool_.make(name_);
        }
    } catch (const std::exception&) {
        hasFailed_ = true;
        return;
    }
    while (!pixels.empty() && !hasFailed_) {
        const ssize_t written = ::write(file_.get(), pixels.data(), pixels.size());
        hasFailed_ = written < 0 && errno != EINTR;
        if (written > 0)
            pixels = pixels.subspan(static_cast<std::size_t>(written));
    }
}

std::string PixelFile::keep() {
    // The print command waits for the disk: the less is left to do by then, the sooner it is answered.
    if (file_.isOpen())
        ::sync_file_range(file_.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
    file_.reset();
    return std::exchange(name_, {});
}

}  // namespace tessaly::tessalyd::print
