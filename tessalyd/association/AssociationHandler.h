#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/assoc.h>

#include <memory>
#include <optional>
#include <stop_token>

#include "tessalyd/association/AssociationLimits.h"
#include "tessalyd/association/AssociationPolicy.h"
#include "tessalyd/association/AssociationThreads.h"
#include "tessalyd/association/Negotiation.h"
#include "tessalyd/association/OpenAssociations.h"
#include "tessalyd/association/PeerLog.h"
#include "tessalyd/association/Service.h"
#include "tessalyd/association/Transport.h"
#include "tessalyd/configuration/Configuration.h"

namespace tessaly::tessalyd {

/// Owns one connection from its accepted socket to its end: who is let in, what is negotiated, how it ends.
/// The requests in between go to the services by their presentation contexts. Works in the calling thread.
class AssociationHandler {
  public:
    /// What all associations share; outlives them.
    struct Shared {
        Transport& transport;
        OpenAssociations& open;
        const ServiceFactory& services;
        PeerLog& log;
        const AssociationLimits& limits;
    };

    /// `listening` is stopped when the port is given up: the association is then no longer accepted, but goes
    /// on if it was before. The stop of `connection`, which outlives this, ends it.
    AssociationHandler(const Shared& shared, std::shared_ptr<const PortConfiguration> port,
                       AssociationThreads::Connection& connection, std::stop_token listening);

    /// Never throws.
    void run(base::FileDescriptor socket) noexcept;

  private:
    void answer();
    void reject(Rejection rejection);
    void serve(Association& association, const Negotiated& negotiated, const PeerServices& peerServices);
    void dispatch(const Request& request, Association& association, const Negotiated& negotiated,
                  const RemoteNodes* nodes) const;
    void end(const OFCondition& reason);
    [[nodiscard]] OpenAssociations::Peer peer() const;
    void dump(const char* what, ASC_associateType type) const;

    Shared shared_;
    std::shared_ptr<const PortConfiguration> port_;
    AssociationThreads::Connection& connection_;
    std::stop_token stop_;
    std::stop_token listening_;
    AssociationPtr association_;
    AssociationNames names_;
    std::optional<OpenAssociations::Entry> entry_;  // while it is open
};

}  // namespace tessaly::tessalyd
