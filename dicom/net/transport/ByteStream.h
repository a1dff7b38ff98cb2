#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace tessaly::dicom {

/// The bytes of a connection, in whatever way they go over the line. Nothing here waits: what cannot be done
/// at once says what it waits for, and whoever calls waits for that within the limits of the connection
/// (IoLimits, Patience) and calls again. Belongs to the connection's thread.
class ByteStream {
  public:
    enum class Kind {
        Bytes,        ///< so many; a handshake is done
        WantsToRead,  ///< the socket is to be readable first
        WantsToWrite,
        Ended,  ///< the peer has closed its side in good order
        Failed
    };
    struct Outcome {
        Kind kind = Kind::Failed;
        std::size_t bytes = 0;
    };
    using Parts = std::array<std::span<const char>, 2>;

    ByteStream() = default;
    virtual ~ByteStream() = default;
    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;

    /// What comes before the first byte; called until it is done.
    [[nodiscard]] virtual Outcome handshake() = 0;
    /// `target` is not empty.
    [[nodiscard]] virtual Outcome read(std::span<char> target) = 0;
    /// Writes the beginning of the parts, of which not both are empty. After WantsToRead or WantsToWrite the
    /// same bytes come again, and perhaps more behind them.
    [[nodiscard]] virtual Outcome write(const Parts& parts) = 0;
    /// Bytes that were written and that the peer has not taken yet.
    [[nodiscard]] virtual std::size_t queued() const = 0;
};

/// A TCP socket as it is, which outlives this. Its segments go out, and are acknowledged, at once.
class SocketStream final : public ByteStream {
  public:
    explicit SocketStream(int socket);

    [[nodiscard]] Outcome handshake() override { return {.kind = Kind::Bytes}; }
    [[nodiscard]] Outcome read(std::span<char> target) override;
    [[nodiscard]] Outcome write(const Parts& parts) override;
    [[nodiscard]] std::size_t queued() const override;

  private:
    int socket_;
};

}  // namespace tessaly::dicom
