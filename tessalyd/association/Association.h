#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/assoc.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "dicom/net/MessageStream.h"
#include "tessalyd/association/AssociationLimits.h"
#include "tessalyd/association/OpenAssociations.h"
#include "tessalyd/association/PeerLog.h"
#include "tessalyd/association/Service.h"
#include "tessalyd/configuration/Configuration.h"

namespace tessaly::tessalyd {

/// An open association with its requestor, as its services see it. Belongs to the association's thread. What
/// waits for the requestor waits as long as the limits of the association say, and is woken by a stop. Every
/// call throws AssociationEnded if the association is over, released by the requestor or broken, or if the
/// requestor breaks the protocol.
class Association {
  public:
    Association(T_ASC_Association& association, const PortConfiguration& port, AssociationNames names,
                std::vector<AcceptedContext> contexts, std::stop_token stop, const AssociationLimits& limits,
                PeerLog& log);

    [[nodiscard]] const AssociationNames& names() const noexcept { return names_; }
    [[nodiscard]] const PortConfiguration& port() const noexcept { return port_; }
    [[nodiscard]] std::span<const AcceptedContext> contexts() const noexcept { return contexts_; }
    /// Lines that the requestor causes, with its names before them.
    void log(PeerLog::Event event, const std::string& what) const {
        log_.add(event, names_.text() + ": " + what);
    }
    [[nodiscard]] PeerLog& log() const noexcept { return log_; }
    /// Stopped when the association is to be aborted.
    [[nodiscard]] const std::stop_token& stop() const noexcept { return stop_; }

    /// The next request, from a requestor that may be idle until then. For the dispatcher. `whileIdle`, where
    /// there is any, is called about once a second until it comes: it may send requests of ours by notify().
    [[nodiscard]] Request receiveRequest(const std::function<void()>& whileIdle = {});

    /// Takes the whole data set of the request. Returns false if it came in another context than the command.
    /// A data set that is not taken is passed over by whatever is called next. What the sink throws comes
    /// through.
    [[nodiscard]] bool receiveDataSet(const dicom::MessageStream::Sink& sink);

    /// True from a C-CANCEL of the current request on. Never waits for the requestor: neither for the rest of
    /// half a message nor until it takes what it is sent. Throws AssociationEnded on a stop too. Responses of
    /// the last milliseconds go out with this, as far as the system takes them.
    [[nodiscard]] bool isCancelled();

    /// Sends a response to the request, pending or final.
    void respond(const Request& request, std::uint16_t status, DcmDataset* dataSet = nullptr);
    /// The same with attributes that the service has added to Command::responseTo().
    void respond(const Request& request, const dicom::Command& response, DcmDataset* dataSet = nullptr);
    /// The final response to a request that fails.
    void respond(const Request& request, const RequestFailure& failure);

    /// The response to a request of ours, its data set as it came.
    struct Response {
        dicom::Command command;
        std::vector<char> dataSet;
    };
    /// Sends a request of ours to the requestor, in a context whose role fits, and waits for the response.
    /// The data set of a response may have 4 MB.
    [[nodiscard]] Response invoke(const AcceptedContext& context, const dicom::Command& request,
                                  DcmDataset* dataSet = nullptr);
    /// Sends a request of ours and waits for nothing: the response may come at any time, between requests or
    /// within one, and is passed on then, or to nobody. For what an SCU need not be asked, N-EVENT-REPORT.
    /// The data set, if there is one, is in the context's transfer syntax.
    using Answered = std::function<void(const dicom::Command& response)>;
    void notify(const AcceptedContext& context, dicom::Command request, std::span<const char> dataSet = {},
                Answered answered = {});
    /// The same in parts: what is sent otherwise, and its response. A C-CANCEL that comes before the response
    /// is noted.
    [[nodiscard]] dicom::MessageStream& messages() noexcept { return messages_; }
    /// Waits so long for a message, or the end of the association. Throws on a stop.
    [[nodiscard]] bool waitForMessage(std::chrono::seconds atMost);
    [[nodiscard]] dicom::Command receiveResponse(std::uint16_t messageId);

  private:
    [[nodiscard]] Request receive(std::chrono::seconds timeout);
    [[nodiscard]] std::optional<Request> receiveOther(std::chrono::seconds timeout);
    [[nodiscard]] const AcceptedContext& context(T_ASC_PresentationContextID id) const;

    T_ASC_Association& association_;
    dicom::MessageStream messages_;
    const PortConfiguration& port_;
    AssociationLimits limits_;
    PeerLog& log_;
    AssociationNames names_;
    std::vector<AcceptedContext> contexts_;
    std::stop_token stop_;
    std::optional<std::uint16_t> current_;  // the message ID of the request that is being answered
    bool isCancelled_ = false;
    std::map<std::uint16_t, Answered> notified_;  // by the message IDs of requests without a response so far
};

}  // namespace tessaly::tessalyd
