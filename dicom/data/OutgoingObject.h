#pragma once

#include <compare>
#include <cstddef>
#include <memory>
#include <span>
#include <string>

namespace tessaly::dicom {

/// What a presentation context is for; both are UIDs.
struct ObjectKind {
    std::string sopClass;
    std::string transferSyntax;
    auto operator<=>(const ObjectKind&) const =
        default;  // NOLINT(modernize-use-nullptr): the check's mistake
};

/// An object on its way to a peer. Used by one thread.
class OutgoingObject {
  public:
    virtual ~OutgoingObject() = default;

    [[nodiscard]] virtual const ObjectKind& kind() const noexcept = 0;
    [[nodiscard]] virtual const std::string& sopInstanceUid() const noexcept = 0;
    /// Bytes of its data set.
    [[nodiscard]] virtual std::size_t size() const noexcept = 0;
    /// The next bytes of the data set, no more than are left of it. Throws std::exception when they cannot be
    /// had: what() is for the log.
    virtual void read(std::span<char> target) = 0;

    /// The same object, from its beginning, in another syntax; nullptr where there is no way to make it.
    /// Throws std::exception, whose what() is for the log, when it cannot be read or made.
    [[nodiscard]] virtual std::unique_ptr<OutgoingObject> in(const std::string& transferSyntax) = 0;
};

}  // namespace tessaly::dicom
