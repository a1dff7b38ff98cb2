#include "dicom/net/ObjectSender.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmnet/cond.h>

#include <cerrno>
#include <system_error>

#include "dicom/net/HostLookup.h"
#include "dicom/net/ToolkitNames.h"

namespace tessaly::dicom {

using Clock = IoLimits::Clock;
using Outcome = SendResult::Outcome;

namespace {

/// Ends the use of the association.
struct Broken {
    std::string reason;
};

void require(const OFCondition& condition) {
    if (condition.bad())
        throw Broken{condition.text()};
}

SendResult failed(const std::string& reason) {
    return {.outcome = Outcome::Failed, .detail = reason};
}

std::string commentIn(DcmDataset* detail) {
    OFString comment;
    if (detail != nullptr)
        detail->findAndGetOFString(DCM_ErrorComment, comment);
    return {comment.c_str(), comment.size()};
}

}  // namespace

ObjectSender::ObjectSender(Destination destination, const std::vector<ObjectKind>& kinds,
                           const std::stop_token& stop, const Limits& limits, Trace trace)
    : destination_(std::move(destination)),
      plan_(kinds),
      limits_(limits),
      trace_(std::move(trace)),
      stop_(stop),
      transport_(std::make_shared<IoLimits>(stop, IoLimits::NoDeadline, Pace{.silence = limits.silence}),
                 trace_.traffic) {}

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
            throw Broken{"stopped"};
        if (!association_ || number_ != *number)
            open(*number);
        return sendOpen(object, originator);
    } catch (const Broken& broken) {
        return giveUp(broken.reason);
    } catch (const std::exception& fault) {  // this side's own: no socket, for example
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
    IoLimits& ioLimits = transport_.ioLimits();
    const auto connectEnd = Clock::now() + limits_.connect;
    const HostAddress address = lookUpHost(destination_.host, connectEnd, stop_);
    if (!address.dotted)
        throw Broken{address.failure.empty() ? "nobody resolves the host's name" : address.failure};
    ioLimits.setDeadline(connectEnd);
    const auto peer = transport_.connect(*address.dotted, destination_.port, limits_.connect);
    if (!peer)
        throw Broken{std::generic_category().message(errno)};
    ioLimits.setDeadline(Clock::now() + limits_.silence);
    association_ = std::make_unique<OutboundAssociation>(transport_, limits_.silence);
    number_ = association;
    const OFCondition opened = association_->request(*peer, destination_.callingAeTitle,
                                                     destination_.calledAeTitle, plan_.contexts(association));
    if (opened == DUL_ASSOCIATIONREJECTED) {
        const T_ASC_RejectParameters rejection = association_->rejection();
        OFString words;
        throw Broken{ASC_printRejectParameters(words, &rejection)};
    }
    require(opened);
    ioLimits.setDeadline(IoLimits::NoDeadline);
    learnContexts();
}

void ObjectSender::learnContexts() {
    T_ASC_Parameters* parameters = association_->get()->params;
    if (trace_.association)
        trace_.association(parameters, ASC_ASSOC_AC);
    accepted_.clear();
    const int count = ASC_countPresentationContexts(parameters);
    for (int i = 0; i < count; ++i) {
        T_ASC_PresentationContext context;
        if (ASC_getPresentationContext(parameters, i, &context).good() &&
            context.resultReason == ASC_P_ACCEPTANCE)
            accepted_.try_emplace({context.abstractSyntax, context.acceptedTransferSyntax},
                                  context.presentationContextID);
    }
    nameForToolkit(*parameters);
}

void ObjectSender::close() {
    if (association_ && !failure_)
        association_->release();
    association_.reset();
    transport_.ioLimits().setDeadline(IoLimits::NoDeadline);
}

/// The peer is told, if the system takes that at once.
void ObjectSender::abort() {
    if (!association_)
        return;
    transport_.ioLimits().setDeadline(Clock::now());
    if (association_->get() != nullptr)
        association_->abort();
    association_.reset();
    transport_.ioLimits().setDeadline(IoLimits::NoDeadline);
}

const T_ASC_PresentationContextID* ObjectSender::contextFor(const ObjectKind& kind) const {
    const auto found = accepted_.find(kind);
    return found == accepted_.end() ? nullptr : &found->second;
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
        try {
            if (const auto converted = object.in(syntax))
                return sendOver(*context, *converted, originator);
        } catch (const std::exception& fault) {
            if (stop_.stop_requested())
                throw Broken{"stopped"};
            return failed(fault.what());
        }
    }
    return failed("the peer takes no syntax that the object can be sent in");
}

SendResult ObjectSender::sendOver(T_ASC_PresentationContextID context, OutgoingObject& object,
                                  const MoveOriginator* originator) {
    const std::uint16_t messageId = association_->get()->nextMsgID++;
    StoreRequest request{*association_->get(), context, messageId, buffer_};
    if (trace_.message) {
        T_DIMSE_Message message = request.message(object, originator);
        trace_.message(message, DIMSE_OUTGOING);
    }
    try {
        require(request.send(object, originator));
    } catch (const std::exception& fault) {
        if (request.hasBegun())
            abort();  // there is no other way to take back half an object; the next one opens another
        return failed(fault.what());
    }
    return receiveAnswer(messageId);
}

SendResult ObjectSender::receiveAnswer(std::uint16_t messageId) {
    transport_.ioLimits().setDeadline(Clock::now() + limits_.silence);
    T_ASC_PresentationContextID context = 0;
    T_DIMSE_Message answer{};
    DcmDataset* found = nullptr;
    const OFCondition received = DIMSE_receiveCommand(association_->get(), DIMSE_NONBLOCKING,
                                                      association_->limit(), &context, &answer, &found);
    const std::unique_ptr<DcmDataset> detail{found};
    require(received);
    transport_.ioLimits().setDeadline(IoLimits::NoDeadline);
    if (trace_.message)
        trace_.message(answer, DIMSE_INCOMING);
    const T_DIMSE_C_StoreRSP& response = answer.msg.CStoreRSP;
    if (answer.CommandField != DIMSE_C_STORE_RSP || response.MessageIDBeingRespondedTo != messageId)
        throw Broken{"the peer answers something else than what it was asked"};
    return resultOf(response.DimseStatus, commentIn(detail.get()));
}

}  // namespace tessaly::dicom
