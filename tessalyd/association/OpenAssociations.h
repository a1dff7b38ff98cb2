#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace tessaly::tessalyd {

/// What an event says of an association. The titles are as the peer sent them, without the blanks around
/// them.
struct AssociationNames {
    std::string port;
    std::string callingAETitle;
    std::string calledAETitle;

    /// For the log, which escapes what is not printable.
    [[nodiscard]] std::string text() const {
        return callingAETitle + " > " + calledAETitle + " on port " + port;
    }
};

/// Counts the open associations, keeps the limits of the ports, and reports each opening and each end, in
/// order and with the total of open ones. Thread-safe.
class OpenAssociations {
  public:
    /// Called with a lock held, so that events come in the order of their totals: it is to be quick and to
    /// call nothing of this class.
    using Event = std::function<void(const AssociationNames&, int total)>;

    OpenAssociations(Event opened, Event ended) : opened_(std::move(opened)), ended_(std::move(ended)) {}

    /// One open association; its destructor is the one end of it.
    class Entry {
      public:
        Entry(OpenAssociations& owner, AssociationNames names) : owner_(&owner), names_(std::move(names)) {}
        ~Entry() {
            if (owner_ != nullptr)
                owner_->end(names_);
        }
        Entry(Entry&& other) noexcept
            : owner_(std::exchange(other.owner_, nullptr)), names_(std::move(other.names_)) {}
        Entry& operator=(Entry&&) = delete;

      private:
        OpenAssociations* owner_;
        AssociationNames names_;
    };

    /// Nothing when the port has `limit` of them open.
    [[nodiscard]] std::optional<Entry> open(AssociationNames names, int limit);

    [[nodiscard]] int total() const;

  private:
    void end(const AssociationNames& names);

    Event opened_;
    Event ended_;
    mutable std::mutex mutex_;
    std::map<std::string, int> onPort_;
    int total_ = 0;
};

}  // namespace tessaly::tessalyd
