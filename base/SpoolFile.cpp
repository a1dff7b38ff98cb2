#include "base/SpoolFile.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>

namespace tessaly::base {

namespace {

using Length = std::uint32_t;

void require(bool succeeded) {
    if (!succeeded)
        throw std::system_error{errno, std::generic_category(), "temporary file"};
}

}  // namespace

void SpoolFile::add(std::string_view text) {
    const auto length = static_cast<Length>(text.size());
    const std::size_t at = memory_.size();
    memory_.resize(at + sizeof length + text.size());
    std::memcpy(memory_.data() + at, &length, sizeof length);
    if (!text.empty())
        std::memcpy(memory_.data() + at + sizeof length, text.data(), text.size());
    if (memory_.size() > most_)
        spill();
}

void SpoolFile::spill() {
    if (!file_)
        file_.reset(std::tmpfile());
    require(file_ && fwrite_unlocked(memory_.data(), 1, memory_.size(), file_.get()) == memory_.size());
    memory_.clear();
}

void SpoolFile::rewind() {
    at_ = 0;
    if (!file_)
        return;
    if (!memory_.empty()) {
        spill();
        memory_ = {};
    }
    require(std::fflush(file_.get()) == 0 && std::fseek(file_.get(), 0, SEEK_SET) == 0);
}

bool SpoolFile::next(std::string& text) {
    Length length = 0;
    if (!read(reinterpret_cast<char*>(&length), sizeof length))
        return false;
    text.resize(length);
    require(length == 0 || read(text.data(), length));
    return true;
}

/// False at the end.
bool SpoolFile::read(char* target, std::size_t size) {
    if (file_) {
        const std::size_t count = fread_unlocked(target, 1, size, file_.get());
        require(count == size || (count == 0 && std::ferror(file_.get()) == 0));
        return count == size;
    }
    if (at_ == memory_.size())
        return false;
    std::memcpy(target, memory_.data() + at_, size);
    at_ += size;
    return true;
}

}  // namespace tessaly::base
