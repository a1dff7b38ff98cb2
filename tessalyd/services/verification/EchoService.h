#pragma once

#include "tessalyd/association/Service.h"

namespace tessaly::tessalyd {

/// C-ECHO: the requestor verifies that it is understood.
class EchoService final : public Service {
  public:
    [[nodiscard]] std::span<const SupportedContext> contexts() const noexcept override;
    [[nodiscard]] std::span<const CommandField> commands() const noexcept override;
    void answer(const Request& request, Association& association) override;
};

}  // namespace tessaly::tessalyd
