#pragma once

#include <vector>

#include "tessalyd/association/Service.h"
#include "tessalyd/services/retrieve/Retrieval.h"

namespace tessaly::tessalyd {

/// C-GET: objects go back over the association that asks for them.
class GetService final : public Service {
  public:
    explicit GetService(ServiceContext& shared) : retrieval_(shared) {}

    [[nodiscard]] std::span<const SupportedContext> contexts() const noexcept override;
    [[nodiscard]] std::span<const CommandField> commands() const noexcept override;
    void answer(const Request& request, Association& association) override;
    [[nodiscard]] std::string summary() const override { return retrieval_.summary("C-GET"); }

  private:
    class Sending;

    Retrieval retrieval_;
    std::vector<char> buffer_;  // for one object after the other
};

/// The context that an object goes over to a requestor that receives: that of its own syntax, else one that
/// every object can be decoded for; nothing where there is none.
[[nodiscard]] const AcceptedContext* contextFor(std::span<const AcceptedContext> contexts,
                                                const std::string& sopClass, dicom::TransferSyntax stored);

}  // namespace tessaly::tessalyd
