#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <optional>
#include <span>
#include <string>

#include "dicom/data/ElementWalk.h"

namespace tessaly::tessalyd {

/// An object whose storage is to be committed. Both are UIDs.
struct Reference {
    std::string sopClass;
    std::string sopInstance;
};

/// Reads the data set of a storage commitment request (PS3.4 J.3.2.1.1) while it comes. Nothing is kept of it
/// but the transaction UID and the references, as text.
class CommitmentParser final : public dicom::ElementVisitor {
  public:
    static constexpr std::size_t MostReferences = 100'000;
    static constexpr std::size_t MostBytes = std::size_t{64} << 20U;

    explicit CommitmentParser(dicom::TransferSyntax syntax);

    /// The next bytes of the data set. Whatever comes behind a fault is passed over.
    void take(std::span<const char> bytes);
    /// When all bytes have been taken.
    enum class Result {
        Good,
        TooLarge,  ///< more references or bytes than MostReferences and MostBytes
        Invalid    ///< the transaction UID or the references are missing, empty, cut off or no UIDs
    };
    [[nodiscard]] Result finish();

    [[nodiscard]] const std::string& transactionUid() const noexcept { return transactionUid_; }
    /// For CommitmentList: a line a reference.
    [[nodiscard]] const std::string& references() const noexcept { return references_; }

    [[nodiscard]] bool element(const dicom::ElementHead& head) override;
    void value(std::span<const char> piece) override;

  private:
    void endItem();

    dicom::ElementWalk walk_;
    std::string transactionUid_;
    std::string references_;
    Reference item_;
    std::string* current_ = nullptr;  // the value that is being read
    std::size_t taken_ = 0;
    std::size_t count_ = 0;
    bool isInSequence_ = false;
    bool isInItem_ = false;
    bool isInvalid_ = false;
};

/// The references of a request, read one after the other from where it was put aside.
class CommitmentList {
  public:
    /// Throws std::runtime_error if there is no such file.
    explicit CommitmentList(const std::filesystem::path& file);

    /// The next one; nullopt behind the last. Throws std::runtime_error if the file cannot be read.
    [[nodiscard]] std::optional<Reference> next();

  private:
    std::ifstream stream_;
    std::string line_;
};

}  // namespace tessaly::tessalyd
