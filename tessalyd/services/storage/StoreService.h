#pragma once

#include <optional>
#include <string>

#include "tessalyd/association/Service.h"
#include "tessalyd/services/ServiceContext.h"
#include "tessalyd/services/storage/UnlistedClasses.h"

namespace tessaly::tessalyd {

/// C-STORE: an object goes into the archive.
class StoreService final : public Service {
  public:
    /// All outlive it.
    StoreService(ServiceContext& shared, UnlistedClasses& unlisted) : shared_(shared), unlisted_(unlisted) {}

    [[nodiscard]] std::span<const SupportedContext> contexts() const noexcept override;
    [[nodiscard]] std::span<const CommandField> commands() const noexcept override;
    void answer(const Request& request, Association& association) override;
    [[nodiscard]] std::string summary() const override;

  private:
    void store(const Request& request, Association& association);

    [[nodiscard]] const std::optional<std::string>& ftpNode(const db::Connection& connection,
                                                            const Association& association);

    ServiceContext& shared_;
    UnlistedClasses& unlisted_;
    std::vector<char> buffer_;  // for one object after the other
    int stored_ = 0;
    int notStored_ = 0;
    bool isNodeKnown_ = false;
    std::optional<std::string> ftpNode_;  // whose name is the called AE title
};

}  // namespace tessaly::tessalyd
