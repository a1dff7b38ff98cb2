#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QString>
#include <algorithm>
#include <chrono>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>

#include "dicom/net/ObjectSender.h"

namespace tessaly::test {

inline const std::string Implicit = UID_LittleEndianImplicitTransferSyntax;
inline const std::string Explicit = UID_LittleEndianExplicitTransferSyntax;
inline const std::string Rle = UID_RLELosslessTransferSyntax;
inline const std::string Ct = UID_CTImageStorage;

/// No test waits for a peer's limit in vain.
constexpr dicom::ObjectSender::Limits Short{.connect = std::chrono::milliseconds{300},
                                            .silence = std::chrono::milliseconds{300}};
constexpr dicom::ObjectSender::Limits Long{.connect = std::chrono::hours{1},
                                           .silence = std::chrono::hours{1}};

inline dicom::PeerAddress at(std::uint16_t port) {
    return {.host = "127.0.0.1", .port = port, .callingAeTitle = "TESSALY", .calledAeTitle = "PEER"};
}
inline dicom::PeerAddress at(const QString& port) {
    return at(port.toUShort());
}

/// An object that is nothing but a number of bytes.
class Bytes : public dicom::OutgoingObject {
  public:
    explicit Bytes(std::size_t size = 100, dicom::ObjectKind kind = {Ct, Explicit})
        : kind_(std::move(kind)), size_(size) {}

    [[nodiscard]] const dicom::ObjectKind& kind() const noexcept override { return kind_; }
    [[nodiscard]] const std::string& sopInstanceUid() const noexcept override { return instance_; }
    [[nodiscard]] std::size_t size() const noexcept override { return size_; }
    void read(std::span<char> target) override {
        at_ += target.size();
        if (at_ > failsAt)
            throw std::runtime_error{"the disk fails"};
        std::fill(target.begin(), target.end(), '\0');
    }
    [[nodiscard]] std::unique_ptr<dicom::OutgoingObject> in(const std::string& syntax) override {
        return syntax == convertsTo
                   ? std::make_unique<Bytes>(size_, dicom::ObjectKind{kind_.sopClass, syntax})
                   : nullptr;
    }

    std::size_t failsAt = std::numeric_limits<std::size_t>::max();
    std::string convertsTo;

  private:
    dicom::ObjectKind kind_;
    std::string instance_ = "1.2.3.4";
    std::size_t size_;
    std::size_t at_ = 0;
};

inline int alwaysSuccess(int /*number*/) {
    return 0;
}

}  // namespace tessaly::test
