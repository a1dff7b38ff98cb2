#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/assoc.h>

#include <chrono>
#include <string>
#include <vector>

#include "dicom/net/transport/BoundedTransport.h"

namespace tessaly::dicom {

struct ProposedContext {
    std::string sopClass;
    std::vector<std::string> transferSyntaxes;
};

/// An association asked for by this side: the toolkit's network and association, freed in the order that it
/// wants. Closed without a word when it is destroyed.
class OutboundAssociation {
  public:
    /// The transport outlives it. `limit` is what the toolkit is told; the transport's limits are the exact
    /// ones. Throws std::runtime_error.
    OutboundAssociation(BoundedTransport& transport, std::chrono::milliseconds limit);
    ~OutboundAssociation();
    OutboundAssociation(const OutboundAssociation&) = delete;
    OutboundAssociation& operator=(const OutboundAssociation&) = delete;

    /// Once. `peer` is what BoundedTransport::connect() has returned.
    [[nodiscard]] OFCondition request(const std::string& peer, const std::string& callingAeTitle,
                                      const std::string& calledAeTitle,
                                      const std::vector<ProposedContext>& contexts);
    /// After a request that was rejected.
    [[nodiscard]] T_ASC_RejectParameters rejection() const;

    [[nodiscard]] T_ASC_Association* get() const noexcept { return association_; }
    /// In seconds, for the toolkit's calls.
    [[nodiscard]] int limit() const noexcept { return limit_; }

    /// A courtesy to the peer, which has a second for its part of it.
    void release();
    void abort();

  private:
    BoundedTransport& transport_;
    int limit_;
    T_ASC_Network* network_ = nullptr;
    T_ASC_Association* association_ = nullptr;
};

}  // namespace tessaly::dicom
