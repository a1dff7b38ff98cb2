#include "tessalyd/association/Association.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmnet/dimse.h>
#include <dcmtk/dcmnet/dul.h>

#include <algorithm>

#include "tessalyd/association/CommandDump.h"

namespace tessaly::tessalyd {

Association::Association(T_ASC_Association& association, const PortConfiguration& port,
                         AssociationNames names, std::vector<AcceptedContext> contexts, std::stop_token stop,
                         const AssociationLimits& limits, PeerLog& log)
    : association_(association),
      messages_(association, commandDump()),
      port_(port),
      limits_(limits),
      log_(log),
      names_(std::move(names)),
      contexts_(std::move(contexts)),
      stop_(std::move(stop)) {}

Request Association::receiveRequest(const std::function<void()>& whileIdle) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds IdleInterval{1};
    isCancelled_ = false;
    current_.reset();  // a C-CANCEL that comes too late stops nothing
    const auto end = Clock::now() + limits_.idle;
    std::optional<Request> received;
    while (!received) {
        while (whileIdle && Clock::now() < end && !waitForMessage(IdleInterval))
            whileIdle();
        received = receiveOther(limits_.idle);
    }
    if (received->command.isResponse())
        throw AssociationEnded{DIMSE_BADCOMMANDTYPE};
    current_ = received->command.messageId();
    return std::move(*received);
}

Request Association::receive(std::chrono::seconds timeout) {
    std::optional<Request> received;
    while (!received)
        received = receiveOther(timeout);
    return *received;
}

/// Returns nullopt for a C-CANCEL, which is noted, and for the response to a notification.
std::optional<Request> Association::receiveOther(std::chrono::seconds timeout) {
    auto [id, command] = messages_.receive(timeout);
    if (!command.isResponse() && command.field() == CommandField::CCancel) {
        isCancelled_ = isCancelled_ || current_ == command.messageId();
        return std::nullopt;
    }
    if (auto notified = command.isResponse() ? notified_.extract(command.messageId())
                                             : std::map<std::uint16_t, Answered>::node_type{}) {
        messages_.passOverDataSet(limits_.answer);
        if (notified.mapped())
            notified.mapped()(command);
        return std::nullopt;
    }
    return Request{.command = std::move(command), .context = &context(id)};
}

const AcceptedContext& Association::context(T_ASC_PresentationContextID id) const {
    const auto found = std::find_if(contexts_.begin(), contexts_.end(),
                                    [id](const AcceptedContext& context) { return context.id == id; });
    if (found == contexts_.end())
        throw AssociationEnded{ASC_BADPRESENTATIONCONTEXTID};
    return *found;
}

bool Association::receiveDataSet(const dicom::MessageStream::Sink& sink) {
    return messages_.receiveDataSet(limits_.answer, sink);
}

bool Association::isCancelled() {
    if (stop_.stop_requested())
        throw AssociationEnded{DUL_NETWORKCLOSED};
    messages_.passOverDataSet(limits_.answer);
    while (!isCancelled_ && messages_.hasMore()) {
        // One request at a time is what has been negotiated: before its response nothing else may come.
        if (receiveOther(limits_.answer))
            throw AssociationEnded{DIMSE_BADCOMMANDTYPE};
    }
    return isCancelled_;
}

void Association::respond(const Request& request, std::uint16_t status, DcmDataset* dataSet) {
    respond(request, dicom::Command::responseTo(request.command, status), dataSet);
}

void Association::respond(const Request& request, const dicom::Command& response, DcmDataset* dataSet) {
    messages_.send(*request.context, response, dataSet);
}

void Association::respond(const Request& request, const RequestFailure& failure) {
    constexpr std::size_t LongestComment = 64;
    messages_.passOverDataSet(limits_.answer);  // a requestor that still sends it does not read yet
    auto response = dicom::Command::responseTo(request.command, failure.status());
    response.set(DCM_ErrorComment, std::string_view{failure.what()}.substr(0, LongestComment));
    if (const auto& element = failure.detail().offendingElement)
        response.set(DCM_OffendingElement, *element);
    respond(request, response, failure.detail().dataSet.get());
}

Association::Response Association::invoke(const AcceptedContext& context, const dicom::Command& request,
                                          DcmDataset* dataSet) {
    constexpr std::size_t Longest = std::size_t{4} << 20U;
    messages_.passOverDataSet(limits_.answer);
    messages_.send(context, request, dataSet);
    Response response{.command = receiveResponse(request.messageId()), .dataSet = {}};
    const bool belongs = receiveDataSet([&](std::span<const char> part) {
        if (response.dataSet.size() + part.size() > Longest)
            throw AssociationEnded{DIMSE_BADDATA};
        response.dataSet.insert(response.dataSet.end(), part.begin(), part.end());
    });
    if (response.command.hasDataSet() && !belongs)
        throw AssociationEnded{DIMSE_BADDATA};
    return response;
}

void Association::notify(const AcceptedContext& context, dicom::Command request,
                         std::span<const char> dataSet, Answered answered) {
    constexpr std::size_t MostUnanswered = 1000;
    if (notified_.size() >= MostUnanswered)
        throw AssociationEnded{DIMSE_NODATAAVAILABLE};
    messages_.passOverDataSet(limits_.answer);
    messages_.sendCommand(context.id, request.setHasDataSet(!dataSet.empty()));
    if (!dataSet.empty())
        messages_.sendDataSet(context.id, dataSet, true);
    notified_.insert_or_assign(request.messageId(), std::move(answered));
}

bool Association::waitForMessage(std::chrono::seconds atMost) {
    const bool arrived =
        messages_.hasMore() || ASC_dataWaiting(&association_, static_cast<int>(atMost.count()));
    if (!arrived && stop_.stop_requested())
        throw AssociationEnded{DIMSE_NODATAAVAILABLE};
    return arrived;
}

dicom::Command Association::receiveResponse(std::uint16_t messageId) {
    Request received = receive(limits_.answer);
    if (!received.command.isResponse() || received.command.messageId() != messageId)
        throw AssociationEnded{DIMSE_BADCOMMANDTYPE};
    return std::move(received.command);
}

}  // namespace tessaly::tessalyd
