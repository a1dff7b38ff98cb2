#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcostrma.h>
#include <dcmtk/dcmnet/dimse.h>

#include <chrono>
#include <optional>
#include <span>
#include <stop_token>
#include <vector>

#include "tessalyd/association/AssociationLimits.h"
#include "tessalyd/association/OpenAssociations.h"
#include "tessalyd/association/PeerLog.h"
#include "tessalyd/association/Service.h"
#include "tessalyd/configuration/Configuration.h"

namespace tessaly::tessalyd {

/// Who has asked, and the open association with it, as its services see it. Belongs to the association's
/// thread. What waits for the requester waits as long as the limits of the association say, and is woken by a
/// stop; it throws AssociationEnded when the association is over, released by the requester or broken, or
/// when the requester says what it must not say.
class Requester {
  public:
    Requester(T_ASC_Association& association, const PortConfiguration& port, AssociationNames names,
              std::vector<AcceptedContext> contexts, std::stop_token stop, const AssociationLimits& limits,
              PeerLog& log);

    [[nodiscard]] const AssociationNames& names() const noexcept { return names_; }
    [[nodiscard]] const PortConfiguration& port() const noexcept { return port_; }
    [[nodiscard]] std::span<const AcceptedContext> contexts() const noexcept { return contexts_; }
    /// Lines that the requester causes, with its names before them.
    void log(PeerLog::Event event, const std::string& what) const {
        log_.add(event, names_.text() + ": " + what);
    }
    [[nodiscard]] PeerLog& log() const noexcept { return log_; }
    /// For the toolkit's calls; what they return goes through require().
    [[nodiscard]] T_ASC_Association* association() const noexcept { return &association_; }
    /// Stopped when the association is to be aborted.
    [[nodiscard]] const std::stop_token& stop() const noexcept { return stop_; }

    /// Takes the whole data set of the request. False when it came in another context than the command. A
    /// data set that is not taken is passed over by whatever is called next.
    [[nodiscard]] bool receiveDataSet(DcmOutputStream& target);

    /// True from a C-CANCEL of the request on that is being answered. Never waits for the requester, neither
    /// for the rest of what it has said half of nor until it takes what it is sent. Some milliseconds after
    /// the last answer, what the system takes of it goes out with this.
    [[nodiscard]] bool isCancelled();

    /// The next command that is no C-CANCEL: the answer to what a service has asked the requester.
    [[nodiscard]] Request receive();
    /// The same, from a requester that may be idle.
    [[nodiscard]] Request receiveRequest();

    /// Writes a message that a service sends into the log's dump, if there is one.
    void dump(T_DIMSE_Message& message, DIMSE_direction direction = DIMSE_OUTGOING) const;

    /// The final answer to a request that comes to nothing.
    void refuse(const Request& request, const RequestFailure& failure);

    /// Throws AssociationEnded unless the condition is good.
    static void require(const OFCondition& condition);

  private:
    [[nodiscard]] Request receive(std::chrono::seconds timeout);
    [[nodiscard]] std::optional<Request> receiveUnlessCancel(std::chrono::seconds timeout);
    [[nodiscard]] const AcceptedContext& context(T_ASC_PresentationContextID id) const;
    void passOverDataSet();
    [[nodiscard]] bool hasMore() const;

    T_ASC_Association& association_;
    const PortConfiguration& port_;
    AssociationLimits limits_;
    PeerLog& log_;
    AssociationNames names_;
    std::vector<AcceptedContext> contexts_;
    std::stop_token stop_;
    std::optional<DIC_US> current_;  // the message ID of the request that is being answered
    bool cancelled_ = false;
    bool dataSetDue_ = false;
    T_ASC_PresentationContextID commandContext_ = 0;
};

}  // namespace tessaly::tessalyd
