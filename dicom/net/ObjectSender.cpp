#include "dicom/net/ObjectSender.h"

#include <dcmtk/dcmdata/dcuid.h>

#include <algorithm>

#include "dicom/net/AssociationEnded.h"

namespace tessaly::dicom {

using Outcome = SendResult::Outcome;

namespace {

SendResult failed(const std::string& reason) {
    return {.outcome = Outcome::Failed, .detail = reason};
}

}  // namespace

ObjectSender::ObjectSender(PeerAddress peer, const std::vector<ObjectKind>& kinds, std::stop_token stop,
                           const Limits& limits, OutboundTrace trace)
    : peer_(std::move(peer)),
      plan_(kinds),
      limits_(limits),
      trace_(std::move(trace)),
      stop_(std::move(stop)) {}

ObjectSender::~ObjectSender() {
    close();
}

SendResult ObjectSender::send(OutgoingObject& object, const MoveOriginator* originator) {
    if (failure_)
        return *failure_;
    const auto number = plan_.associationOf(object.kind().sopClass);
    if (!number)
        return failed("the SOP class " + object.kind().sopClass + " was not proposed");
    try {
        if (stop_.stop_requested())
            return giveUp("stopped");
        if (!association_ || number_ != *number)
            open(*number);
        return sendOpen(object, originator);
    } catch (const std::exception& fault) {  // the peer's, or this side's own: no socket, for example
        return giveUp(fault.what());
    }
}

SendResult ObjectSender::giveUp(const std::string& reason) {
    abort();
    failure_ = failed(reason);
    if (stop_.stop_requested())
        failure_ = SendResult{.outcome = Outcome::Stopped, .detail = "stopped"};
    return *failure_;
}

void ObjectSender::open(std::size_t association) {
    close();
    association_ = openAssociation(peer_, plan_.contexts(association),
                                   {.resolve = limits_.connect,
                                    .connect = limits_.connect,
                                    .reach = limits_.connect,
                                    .answer = limits_.silence,
                                    .pace = {.silence = limits_.silence}},
                                   stop_, trace_);
    number_ = association;
}

void ObjectSender::close() {
    if (association_ && !failure_)
        association_->release();
    association_.reset();
}

void ObjectSender::abort() {
    if (association_)
        association_->abort();
    association_.reset();
}

const AcceptedContext* ObjectSender::contextFor(const ObjectKind& kind) const {
    const auto& contexts = association_->contexts();
    const auto found = std::find_if(contexts.begin(), contexts.end(), [&](const AcceptedContext& one) {
        return one.transferSyntax == kind.transferSyntax && one.sopClass == kind.sopClass;
    });
    return found == contexts.end() ? nullptr : &*found;
}

SendResult ObjectSender::sendOpen(OutgoingObject& object, const MoveOriginator* originator) {
    const ObjectKind& kind = object.kind();
    if (const auto* context = contextFor(kind))
        return sendOver(*context, object, originator);
    for (const char* syntax :
         {UID_LittleEndianExplicitTransferSyntax, UID_LittleEndianImplicitTransferSyntax}) {
        const auto* context = contextFor({kind.sopClass, syntax});
        if (context == nullptr)
            continue;
        std::unique_ptr<OutgoingObject> converted;
        try {
            converted = object.in(syntax);
        } catch (const std::exception& fault) {
            if (stop_.stop_requested())
                return giveUp("stopped");
            return failed(fault.what());
        }
        if (converted)
            return sendOver(*context, *converted, originator);
    }
    return failed("the peer takes no syntax that the object can be sent in");
}

SendResult ObjectSender::sendOver(const AcceptedContext& context, OutgoingObject& object,
                                  const MoveOriginator* originator) {
    const std::uint16_t messageId = association_->messages().nextMessageId();
    StoreRequest request{association_->messages(), context.id, messageId, buffer_};
    try {
        request.send(object, originator);
    } catch (const AssociationEnded&) {
        throw;
    } catch (const std::exception& fault) {
        if (request.hasBegun())
            abort();  // there is no other way to take back half an object; the next one opens another
        return failed(fault.what());
    }
    return resultOf(association_->receiveResponse(messageId, limits_.silence));
}

}  // namespace tessaly::dicom
