#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/dimse.h>

#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "tessalyd/Configuration.h"
#include "tessalyd/archive/ArchiveIndex.h"
#include "tessalyd/association/AssociationPolicy.h"
#include "tessalyd/association/OpenAssociations.h"
#include "tessalyd/association/Transport.h"

namespace tessaly::tessalyd {

/// What all associations share; outlives them.
struct AssociationServices {
    Transport& transport;
    OpenAssociations& open;
    ArchiveIndex& index;
};

/// Serves one connection from its accepted socket to its end, in the calling thread.
class AssociationHandler {
  public:
    /// `listening` is stopped when the port is given up: the association is then no longer accepted, but goes
    /// on if it was before.
    AssociationHandler(const AssociationServices& services, std::shared_ptr<const PortConfiguration> port,
                       Interrupter& interrupter, std::stop_token listening);

    /// Never throws.
    void run(FileDescriptor socket) noexcept;

  private:
    void answer();
    void reject(Refusal refusal);
    void serve();
    [[nodiscard]] OFCondition receiveCommand(T_ASC_PresentationContextID& context, T_DIMSE_Message& message);
    [[nodiscard]] OFCondition handle(T_ASC_PresentationContextID context, T_DIMSE_Message& message);
    [[nodiscard]] OFCondition store(T_ASC_PresentationContextID context, T_DIMSE_C_StoreRQ& request);
    [[nodiscard]] OFCondition receiveObject(T_ASC_PresentationContextID context,
                                            const T_DIMSE_C_StoreRQ& request, T_DIMSE_C_StoreRSP& response,
                                            std::string& comment);
    void end(const OFCondition& reason);
    void dump(const char* what, ASC_associateType type) const;
    void dump(T_DIMSE_Message& message, DIMSE_direction direction) const;

    AssociationServices services_;
    std::shared_ptr<const PortConfiguration> port_;
    Interrupter& interrupter_;
    std::stop_token listening_;
    AssociationPtr association_;
    AssociationNames names_;
    std::optional<OpenAssociations::Entry> entry_;  // while it is open
    std::vector<char> buffer_;
    int stored_ = 0;
    int refused_ = 0;
};

}  // namespace tessaly::tessalyd
