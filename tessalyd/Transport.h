#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/assoc.h>

#include <memory>

#include "tessalyd/FileDescriptor.h"
#include "tessalyd/Interrupter.h"

namespace tessaly::tessalyd {

/// Frees an association however far it got, closing its socket without a word to the peer.
struct AssociationDeleter {
    void operator()(T_ASC_Association* association) const noexcept { ASC_destroyAssociation(&association); }
};
using AssociationPtr = std::unique_ptr<T_ASC_Association, AssociationDeleter>;

/// The DICOM toolkit's side of all connections of this process. It does not listen: it is given accepted
/// sockets. Its connections
/// - acknowledge every segment at once and send at once: a sender that is not tuned waits for the
///   acknowledgement of each small segment before it sends the next one, and would otherwise store some ten
///   objects a second;
/// - read ahead, so that a PDU's header costs no call of its own;
/// - can be woken by their Interrupter from whatever they wait for.
class Transport {
  public:
    /// `timeout` bounds the wait for an association request and for a peer that is to close.
    /// Throws std::runtime_error.
    explicit Transport(int timeoutSeconds);
    ~Transport();
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    /// Waits for the association request on an accepted socket. May be called by several threads at once;
    /// `interrupter` is to outlive the association, which is made whether or not the result is good.
    [[nodiscard]] OFCondition receive(FileDescriptor socket, Interrupter& interrupter,
                                      AssociationPtr& association);

  private:
    T_ASC_Network* network_ = nullptr;
};

}  // namespace tessaly::tessalyd
