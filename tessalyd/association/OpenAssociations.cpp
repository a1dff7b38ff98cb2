#include "tessalyd/association/OpenAssociations.h"

namespace tessaly::tessalyd {

std::optional<OpenAssociations::Entry> OpenAssociations::open(AssociationNames names, int limit) {
    const std::lock_guard lock{mutex_};
    int& count = onPort_[names.port];
    if (count >= limit)
        return std::nullopt;
    ++count;
    ++total_;
    opened_(names, total_);
    return std::optional<Entry>{std::in_place, *this, std::move(names)};
}

void OpenAssociations::end(const AssociationNames& names) {
    const std::lock_guard lock{mutex_};
    --onPort_[names.port];
    --total_;
    ended_(names, total_);
}

int OpenAssociations::total() const {
    const std::lock_guard lock{mutex_};
    return total_;
}

}  // namespace tessaly::tessalyd
