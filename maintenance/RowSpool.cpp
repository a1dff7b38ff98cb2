#include "maintenance/RowSpool.h"

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace tessaly::maintenance {

namespace {

using Length = std::uint32_t;

void check(bool succeeded) {
    if (!succeeded)
        throw std::system_error(errno, std::generic_category(), "temporary file");
}

}  // namespace

RowSpool::RowSpool(std::size_t columns) : columns_(columns), file_(std::tmpfile()) {
    check(file_ != nullptr);
}

void RowSpool::add(std::string_view cell) {
    const auto length = static_cast<Length>(cell.size());
    check(fwrite_unlocked(&length, sizeof length, 1, file_.get()) == 1 &&
          fwrite_unlocked(cell.data(), 1, cell.size(), file_.get()) == cell.size());
}

void RowSpool::rewind() {
    check(std::fflush(file_.get()) == 0 && std::fseek(file_.get(), 0, SEEK_SET) == 0);
}

bool RowSpool::next(std::vector<std::string>& cells) {
    cells.resize(columns_);
    for (std::string& cell : cells) {
        Length length = 0;
        if (fread_unlocked(&length, sizeof length, 1, file_.get()) != 1) {
            check(std::ferror(file_.get()) == 0);
            return false;
        }
        cell.resize(length);
        check(fread_unlocked(cell.data(), 1, length, file_.get()) == length);
    }
    return true;
}

}  // namespace tessaly::maintenance
