#include "tessalyd/association/OpenAssociations.h"

#include <algorithm>

namespace tessaly::tessalyd {

namespace {

/// Of the places that one address has while others want one.
int fairShare(const Places& places) {
    return std::max(places.all / 2, 1);
}

}  // namespace

std::optional<OpenAssociations::Entry> OpenAssociations::open(AssociationNames names, Peer peer,
                                                              const Places& places) {
    std::optional<std::stop_source> displaced;  // stopped without the lock, which its thread will want
    std::unique_lock lock{mutex_};
    Port& port = ports_[names.port];
    if (!hasRoom(port, peer, places)) {
        noteKnock(port, peer);
        Record* const other = displaceable(port, peer, places);
        if (other == nullptr)
            return std::nullopt;
        other->isDisplaced = true;
        displaced.emplace(other->peer.stop);
    }
    const auto record = port.records.emplace(port.records.end(), std::move(names), std::move(peer));
    opened_(record->names, ++total_);
    std::optional<Entry> entry{std::in_place, *this, record};
    lock.unlock();
    if (displaced)
        displaced->request_stop();
    return entry;
}

bool OpenAssociations::hasRoom(const Port& port, const Peer& peer, const Places& places) const {
    int taken = 0;
    int nodes = 0;
    int own = 0;
    for (const Record& record : port.records) {
        if (record.isDisplaced)
            continue;
        ++taken;
        nodes += record.peer.isNode ? 1 : 0;
        own += record.peer.address == peer.address ? 1 : 0;
    }
    const int kept = peer.isNode ? 0 : std::max(places.reserved - nodes, 0);
    if (taken + kept >= places.all)
        return false;
    const auto oldest = Clock::now() - knockMemory_;
    const bool othersKnock = std::any_of(port.knocks.begin(), port.knocks.end(), [&](const Knock& knock) {
        return knock.address != peer.address && knock.time > oldest && (knock.isNode || !peer.isNode);
    });
    return !othersKnock || own < fairShare(places);
}

OpenAssociations::Record* OpenAssociations::displaceable(Port& port, const Peer& peer, const Places& places) {
    std::map<std::uint64_t, int> byAddress;
    for (const Record& record : port.records)
        byAddress[record.peer.address] += record.isDisplaced ? 0 : 1;
    Record* idlest = nullptr;
    for (Record& record : port.records) {
        if (record.isDisplaced || record.peer.address == peer.address ||
            byAddress[record.peer.address] <= fairShare(places) || (record.peer.isNode && !peer.isNode) ||
            !record.peer.stop.stop_possible() || record.idleSince == Busy)
            continue;
        if (idlest == nullptr || record.idleSince < idlest->idleSince)
            idlest = &record;
    }
    return idlest;
}

void OpenAssociations::noteKnock(Port& port, const Peer& peer) {
    constexpr std::size_t Remembered = 2;  // that of whoever asks next, and another's
    std::erase_if(port.knocks, [&peer](const Knock& knock) { return knock.address == peer.address; });
    port.knocks.push_back({.address = peer.address, .isNode = peer.isNode, .time = Clock::now()});
    if (port.knocks.size() > Remembered)
        port.knocks.erase(port.knocks.begin());
}

void OpenAssociations::end(Records::iterator record) {
    const std::lock_guard lock{mutex_};
    const AssociationNames names = std::move(record->names);
    ports_[names.port].records.erase(record);
    ended_(names, --total_);
}

int OpenAssociations::total() const {
    const std::lock_guard lock{mutex_};
    return total_;
}

}  // namespace tessaly::tessalyd
