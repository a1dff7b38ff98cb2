#pragma once

#include "tessalyd/association/Service.h"

namespace tessaly::tessalyd {

/// C-ECHO: the requester asks whether it is understood.
class EchoService final : public Service {
  public:
    [[nodiscard]] T_DIMSE_Command command() const noexcept override { return DIMSE_C_ECHO_RQ; }
    [[nodiscard]] std::span<const SupportedContext> supportedContexts() const noexcept override;
    void answer(const Request& request, Requester& requester) override;
};

}  // namespace tessaly::tessalyd
