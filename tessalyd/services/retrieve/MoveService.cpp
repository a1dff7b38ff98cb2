#include "tessalyd/services/retrieve/MoveService.h"

#include <array>
#include <optional>
#include <system_error>

#include "base/TcpPort.h"
#include "base/Text.h"
#include "dicom/data/TransferSyntaxes.h"
#include "tessalyd/services/retrieve/MoveJob.h"

namespace tessaly::tessalyd {

namespace {

/// How often a requester is looked after while objects go elsewhere.
constexpr std::chrono::milliseconds LookInterval{100};

}  // namespace

std::span<const SupportedContext> MoveService::supportedContexts() const noexcept {
    static constexpr std::array Offers{SupportedContext{
        .covers = Retrieval::isMove, .requester = Role::Scu, .preference = [](dicom::TransferSyntax syntax) {
            return dicom::isUncompressed(syntax) ? 1 : 0;
        }}};
    return Offers;
}

void MoveService::answer(const Request& request, Requester& requester) {
    retrieval_.rules().require(requester);
    const QueryRules::Destination to = destination(request, requester);
    auto instances = retrieval_.find(request, requester);
    if (!instances)
        return retrieval_.answerFinally(request, requester, SubOperations{0}, true);
    if (instances->size() == 0)
        return retrieval_.answerFinally(request, requester, SubOperations{0});
    move(request, requester, to, std::move(*instances));
}

QueryRules::Destination MoveService::destination(const Request& request, const Requester& requester) const {
    const std::string title{base::trimmed(request.message.msg.CMoveRQ.MoveDestination)};
    auto found = retrieval_.rules().destination(title, requester.names().calledAeTitle);
    if (found)
        return std::move(*found);
    requester.log(PeerLog::Event::Refusal, "no node with the AE title " + title + " may be sent to");
    throw RequestFailure{STATUS_MOVE_Refused_MoveDestinationUnknown, "The move destination is unknown"};
}

void MoveService::move(const Request& request, Requester& requester,
                       const QueryRules::Destination& destination, InstanceList instances) {
    std::optional<MoveJob> started;
    try {
        started.emplace(MoveJob::Order{.destination = {.host = destination.host,
                                                       .port = base::tcpPort(destination.port).value_or(0),
                                                       .callingAeTitle = destination.callingAeTitle,
                                                       .calledAeTitle = destination.aeTitle},
                                       .originator = {.aeTitle = requester.names().callingAeTitle,
                                                      .messageId = request.message.msg.CMoveRQ.MessageID},
                                       .name = requester.names().text() + ", to " + destination.node,
                                       .requester = requester.names().address},
                        std::move(instances), outboundSlots_, retrieval_.decoders(), requester.log());
    } catch (const std::system_error& error) {
        requester.log(PeerLog::Event::Failure, std::string{"move not begun: "} + error.what());
        throw RequestFailure{STATUS_MOVE_Refused_OutOfResourcesSubOperations, "No thread is to be had"};
    }
    MoveJob& job = *started;
    PendingPace pace{PendingPace::Clock::now()};
    bool cancelled = false;
    try {
        while (!cancelled && !job.waitForEnd(LookInterval)) {
            cancelled = Retrieval::isCancelled(requester);
            if (cancelled)
                job.cancel();
            else if (pace.isDue(PendingPace::Clock::now()))
                Retrieval::answerPending(request, requester, job.progress());
        }
    } catch (const AssociationEnded&) {
        retrieval_.count(job.progress());
        throw;
    }
    const SubOperations done = job.progress();
    // What was cancelled when all was done was not cancelled.
    retrieval_.answerFinally(request, requester, done, cancelled && done.remaining() > 0);
}

}  // namespace tessaly::tessalyd
