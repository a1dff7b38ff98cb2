#include "tessalyd/forwarding/ftp/DeliverySpool.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "dicom/data/ObjectHeader.h"

namespace tessaly::tessalyd::ftp {

namespace {

constexpr const char* List = "list";
constexpr const char* Failed = "failed";
constexpr const char* NewFailed = "failed.new";
constexpr std::size_t BlockSize = std::size_t{64} << 10U;

[[noreturn]] void fail(const char* what) {
    throw std::system_error{errno, std::generic_category(), what};
}

base::FileDescriptor create(const std::filesystem::path& path) {
    base::FileDescriptor file{
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600)};
    if (!file.isOpen())
        fail("a file of the spool cannot be made");
    return file;
}

void write(const base::FileDescriptor& file, std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const ssize_t written = ::write(file.get(), text.data() + at, text.size() - at);
        if (written < 0 && errno != EINTR)
            fail("a file of the spool cannot be written");
        at += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    }
    text.clear();
}

/// Passes over what is no UID: nothing of that kind was written.
void visitLines(const base::FileDescriptor& file, const DeliverySpool::Visit& visit) {
    std::array<char, BlockSize> block{};
    std::string line;
    for (;;) {
        const ssize_t count = ::read(file.get(), block.data(), block.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            fail("a file of the spool cannot be read");
        if (count == 0)
            return;
        for (const char c : std::string_view{block.data(), static_cast<std::size_t>(count)}) {
            if (c != '\n') {
                line += c;
                continue;
            }
            if (dicom::isUid(line))
                visit(line);
            line.clear();
        }
    }
}

}  // namespace

jobs::Spool::Entry DeliverySpool::make(const jobs::Spool& spool, const Next& next) {
    jobs::Spool::Entry entry = spool.makeFolder("FTP");
    try {
        const base::FileDescriptor file = create(entry.path / List);
        std::string text;
        while (const auto uid = next()) {
            text.append(*uid).append(1, '\n');
            if (text.size() >= BlockSize)
                write(file, text);
        }
        write(file, text);
        jobs::Spool::makeDurable(entry);
    } catch (...) {
        jobs::Spool::remove(entry.path);
        throw;
    }
    return entry;
}

void DeliverySpool::forEach(const Visit& visit) const {
    const base::FileDescriptor file{::open((folder_ / List).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)};
    if (!file.isOpen())
        fail("the list of objects cannot be read");
    visitLines(file, visit);
}

void DeliverySpool::forEachFailed(const Visit& visit) const {
    const base::FileDescriptor file{::open((folder_ / Failed).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)};
    if (!file.isOpen() && errno != ENOENT)
        fail("the list of objects that failed cannot be read");
    if (file.isOpen())
        visitLines(file, visit);
}

DeliverySpool::Failures::Failures(const DeliverySpool& spool)
    : folder_(spool.folder_), file_(create(folder_ / NewFailed)) {}

void DeliverySpool::Failures::add(const std::string& sopInstanceUid) {
    text_.append(sopInstanceUid).append(1, '\n');
    if (text_.size() >= BlockSize)
        flush();
}

void DeliverySpool::Failures::flush() {
    write(file_, text_);
}

void DeliverySpool::Failures::keep() {
    flush();
    std::filesystem::rename(folder_ / NewFailed, folder_ / Failed);
}

}  // namespace tessaly::tessalyd::ftp
