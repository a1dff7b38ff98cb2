#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/assoc.h>

#include <memory>
#include <stop_token>

#include "base/FileDescriptor.h"
#include "tessalyd/association/AssociationLimits.h"

namespace tessaly::tessalyd {

/// Frees an association however far it got, closing its socket without a word to the peer.
struct AssociationDeleter {
    void operator()(T_ASC_Association* association) const noexcept { ASC_destroyAssociation(&association); }
};
using AssociationPtr = std::unique_ptr<T_ASC_Association, AssociationDeleter>;

/// The DICOM toolkit's side of all connections that peers make to this process. It does not listen: it is
/// given accepted sockets. Its connections are bounded, and break off at a command that is longer than any
/// that this server takes.
class Transport {
  public:
    /// Throws std::runtime_error.
    explicit Transport(const AssociationLimits& limits = {});
    ~Transport();
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    /// Waits for the association request on an accepted socket. May be called by several threads at once. The
    /// association is made whether or not the result is good; `stop` holds for all its life.
    [[nodiscard]] OFCondition receive(base::FileDescriptor socket, const std::stop_token& stop,
                                      AssociationPtr& association);

  private:
    AssociationLimits limits_;
    T_ASC_Network* network_ = nullptr;
};

}  // namespace tessaly::tessalyd
