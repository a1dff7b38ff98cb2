#pragma once

#include <optional>
#include <string>

#include "tessalyd/association/Service.h"
#include "tessalyd/forwarding/films/PrinterRow.h"
#include "tessalyd/services/retrieve/Retrieval.h"

namespace tessaly::tessalyd {

/// C-MOVE: objects go to another node, over an association of their own, to an FTP node, or on films to a
/// printer.
class MoveService final : public Service {
  public:
    explicit MoveService(ServiceContext& shared) : retrieval_(shared) {}

    [[nodiscard]] std::span<const SupportedContext> contexts() const noexcept override;
    [[nodiscard]] std::span<const CommandField> commands() const noexcept override;
    void answer(const Request& request, Association& association) override;
    [[nodiscard]] std::string summary() const override { return retrieval_.summary("C-MOVE"); }

  private:
    [[nodiscard]] std::optional<RemoteNodes::Destination> dicomNode(const Request& request,
                                                                    const Association& association) const;
    struct Printer {
        films::PrinterRow row;
        std::string baseUid;  ///< of the site
    };
    /// A destination that is no DICOM node: at most one of them.
    struct Elsewhere {
        std::optional<std::string> ftp;  ///< its name
        std::optional<Printer> printer;
    };
    [[nodiscard]] Elsewhere findElsewhere(const Request& request, Association& association) const;
    void move(const Request& request, Association& association, const RemoteNodes::Destination& destination,
              InstanceList instances);
    void print(const Request& request, Association& association, const Printer& printer,
               InstanceList instances);

    Retrieval retrieval_;
};

}  // namespace tessaly::tessalyd
