#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

namespace tessaly::dicom {

/// Inflates a raw deflate stream (RFC 1951) while it arrives, in constant memory. A thousand bytes may come
/// out for one that goes in, so who calls says when it is enough.
class Inflater {
  public:
    enum class State : std::uint8_t {
        Open,    ///< more bytes are needed
        Ended,   ///< the stream has come to its end; what came behind it is ignored
        Enough,  ///< the taker wants no more
        Broken,  ///< the bytes are no such stream
    };
    /// Is given the next inflated bytes. Returns true when it wants no more.
    using Take = std::function<bool(std::span<const char>)>;

    /// Throws std::bad_alloc.
    Inflater();
    ~Inflater();
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    /// The next bytes of the stream. They are ignored unless the state is Open. What `take` throws comes
    /// through.
    State inflate(std::span<const char> deflated, const Take& take);
    [[nodiscard]] State state() const noexcept { return state_; }

  private:
    struct Stream;
    std::unique_ptr<Stream> stream_;
    State state_ = State::Open;
};

}  // namespace tessaly::dicom
