#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tessaly::tessalyd {

/// Follows what a peer sends through its PDUs, and stops at a command that is longer than any that this
/// server takes: the DICOM toolkit collects and parses commands of every length, and calls itself for each
/// sequence that lies in another.
class CommandLengthLimit {
  public:
    /// Some 300 bytes are usual.
    static constexpr std::uint64_t LongestCommand = 4096;

    /// The next bytes of the connection. False from a command on that is too long, or lengths that do not fit
    /// together.
    [[nodiscard]] bool follow(std::span<const char> bytes);

    /// Where in a message the bytes end. A command and its data set count as two messages; what is no part of
    /// either, a release for one, as a command.
    enum class Phase { Between, Command, DataSet };
    [[nodiscard]] Phase phase() const noexcept { return phase_; }
    /// Messages of which the first byte has come.
    [[nodiscard]] std::uint64_t begun() const noexcept { return begun_; }
    /// Bytes of the message that has not come whole.
    [[nodiscard]] std::uint64_t incomplete() const noexcept { return incomplete_; }

  private:
    void endBody();
    [[nodiscard]] bool beginPdu();
    [[nodiscard]] bool beginPdv();
    [[nodiscard]] std::uint32_t length(std::size_t offset) const;

    std::array<unsigned char, 6> header_{};  // of a PDU and of a PDV alike
    std::size_t collected_ = 0;
    std::uint64_t body_ = 0;     // to be passed over before the next header
    std::uint64_t pduLeft_ = 0;  // of a PDU of PDVs
    std::uint64_t command_ = 0;
    bool isLast_ = false;  // what ends next ends its message
    Phase phase_ = Phase::Between;
    std::uint64_t begun_ = 0;
    std::uint64_t incomplete_ = 0;
};

}  // namespace tessaly::tessalyd
