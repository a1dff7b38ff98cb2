#pragma once

#include "decoder/Pool.h"
#include "tessalyd/association/Service.h"
#include "tessalyd/services/storage/UnlistedClasses.h"
#include "tessalyd/store/ArchiveIndex.h"

namespace tessaly::tessalyd {

/// C-STORE: an object goes into the archive.
class StoreService final : public Service {
  public:
    /// All outlive it.
    StoreService(ArchiveIndex& index, decoder::Pool& decoders, UnlistedClasses& unlisted)
        : index_(index), decoders_(decoders), unlisted_(unlisted) {}

    [[nodiscard]] T_DIMSE_Command command() const noexcept override { return DIMSE_C_STORE_RQ; }
    [[nodiscard]] std::span<const SupportedContext> supportedContexts() const noexcept override;
    void answer(const Request& request, Requester& requester) override;
    [[nodiscard]] std::string summary() const override;

  private:
    void store(const Request& request, Requester& requester);

    ArchiveIndex& index_;
    decoder::Pool& decoders_;
    UnlistedClasses& unlisted_;
    std::vector<char> buffer_;  // for one object after the other
    int stored_ = 0;
    int notStored_ = 0;
};

}  // namespace tessaly::tessalyd
