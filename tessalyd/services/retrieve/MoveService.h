#pragma once

#include "tessalyd/association/Service.h"
#include "tessalyd/services/retrieve/Retrieval.h"

namespace tessaly::tessalyd {

/// C-MOVE: objects go to another node, over an association of their own.
class MoveService final : public Service {
  public:
    /// Both outlive it.
    MoveService(QueryAccess& access, decoder::Pool& decoders)
        : retrieval_(access, decoders), outboundSlots_(access.outboundSlots()) {}

    [[nodiscard]] T_DIMSE_Command command() const noexcept override { return DIMSE_C_MOVE_RQ; }
    [[nodiscard]] std::span<const SupportedContext> supportedContexts() const noexcept override;
    void answer(const Request& request, Requester& requester) override;
    [[nodiscard]] std::string summary() const override { return retrieval_.summary("C-MOVE"); }

  private:
    [[nodiscard]] QueryRules::Destination destination(const Request& request,
                                                      const Requester& requester) const;
    void move(const Request& request, Requester& requester, const QueryRules::Destination& destination,
              InstanceList instances);

    Retrieval retrieval_;
    OutboundSlots& outboundSlots_;
};

}  // namespace tessaly::tessalyd
