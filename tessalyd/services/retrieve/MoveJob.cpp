#include "tessalyd/services/retrieve/MoveJob.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <stdexcept>
#include <vector>

#include "tessalyd/Log.h"
#include "tessalyd/association/CommandDump.h"
#include "tessalyd/search/StoredObject.h"

namespace tessaly::tessalyd {

namespace {

using Outcome = dicom::SendResult::Outcome;

/// The dumps that are asked for, of what goes to others.
dicom::OutboundTrace dumps() {
    const auto isOn = [](Dump layer) { return dumpLog(layer).isEnabledFor(OFLogger::DEBUG_LOG_LEVEL); };
    dicom::OutboundTrace trace{.traffic = {}, .association = {}, .message = commandDump()};
    if (isOn(Dump::Socket)) {
        trace.traffic.received = [](int socket, ssize_t bytes) {
            OFLOG_DEBUG(dumpLog(Dump::Socket), "socket " << socket << ": received " << bytes << " bytes");
        };
        trace.traffic.sent = [](int socket, std::size_t bytes) {
            OFLOG_DEBUG(dumpLog(Dump::Socket), "socket " << socket << ": sent " << bytes << " bytes");
        };
    }
    if (isOn(Dump::Association)) {
        trace.association = [](T_ASC_Parameters* parameters, ASC_associateType type) {
            OFString text;
            ASC_dumpParameters(text, parameters, type);
            OFLOG_DEBUG(dumpLog(Dump::Association), "association to a destination" << OFendl << text);
        };
    }
    return trace;
}

/// A stored object whose conversion a stop ends.
class StoppableObject final : public dicom::OutgoingObject {
  public:
    StoppableObject(const StoredInstance& instance, decoder::Pool& decoders, decoder::Interest interest)
        : object_(instance), decoders_(decoders), interest_(std::move(interest)) {}

    [[nodiscard]] const dicom::ObjectKind& kind() const noexcept override { return object_.kind(); }
    [[nodiscard]] const std::string& sopInstanceUid() const noexcept override {
        return object_.sopInstanceUid();
    }
    [[nodiscard]] std::size_t size() const noexcept override { return object_.size(); }
    void read(std::span<char> target) override { object_.read(target); }
    [[nodiscard]] std::unique_ptr<OutgoingObject> in(const std::string& transferSyntax) override {
        auto converted = object_.convertedTo(transferSyntax, decoders_, interest_);
        if (!converted)
            throw std::runtime_error{"stopped"};
        return converted;
    }

  private:
    StoredObject object_;
    decoder::Pool& decoders_;
    decoder::Interest interest_;
};

std::vector<dicom::ObjectKind> kindsOf(const InstanceList& instances) {
    std::vector<dicom::ObjectKind> kinds;
    for (const auto& [sopClass, transferSyntax] : instances.kinds())
        kinds.push_back({sopClass, transferSyntax});
    return kinds;
}

}  // namespace

MoveJob::MoveJob(Order order, InstanceList instances, OutboundSlots& outboundSlots, decoder::Pool& decoders,
                 PeerLog& log)
    : order_(std::move(order)),
      instances_(std::move(instances)),
      outboundSlots_(outboundSlots),
      decoders_(decoders),
      log_(log),
      progress_(instances_.size()),
      thread_([this](const std::stop_token& stop) { run(stop); }) {}

MoveJob::~MoveJob() {
    thread_.request_stop();
    thread_.join();
}

void MoveJob::cancel() {
    constexpr std::chrono::milliseconds ForOneObject{300};
    isCancelled_ = true;
    if (waitForEnd(ForOneObject))
        return;
    thread_.request_stop();
    progress_.awaitEnd();
}

void MoveJob::run(const std::stop_token& stop) {
    try {
        sendAll(stop);
    } catch (const std::exception& fault) {
        log(std::string{"move given up: "} + fault.what());
        progress_.failRest();  // the rest of the list cannot be had
    }
    progress_.end();
}

void MoveJob::sendAll(const std::stop_token& stop) {
    const auto slot = outboundSlots_.take(order_.originator.aeTitle, stop);
    if (!slot)
        return;
    const auto kinds = kindsOf(instances_);
    dicom::ObjectSender sender{order_.destination, kinds, stop, order_.limits, dumps()};
    std::size_t associations = 1;
    for (const auto& kind : kinds)
        associations = std::max(associations, sender.associationOf(kind.sopClass) + 1);
    for (std::size_t number = 0; number < associations; ++number) {
        instances_.restart();
        while (const auto instance = instances_.next()) {
            if (stop.stop_requested() || isCancelled_)
                return;
            if (sender.associationOf(instance->sopClassUid) == number)
                send(sender, *instance, stop);
        }
    }
    if (unlogged_ > 0)
        log(std::to_string(unlogged_) + " more objects not sent");
}

void MoveJob::send(dicom::ObjectSender& sender, const StoredInstance& instance, const std::stop_token& stop) {
    if (sender.failure()) {
        ++unlogged_;
        return progress_.fail(instance.sopInstanceUid);
    }
    const dicom::SendResult result = trySend(sender, instance, stop);
    if (result.outcome == Outcome::Failed)
        return fail(instance, result);
    if (result.outcome == Outcome::Success)
        progress_.complete();
    else if (result.outcome == Outcome::Warning)
        progress_.warn();
}

dicom::SendResult MoveJob::trySend(dicom::ObjectSender& sender, const StoredInstance& instance,
                                   const std::stop_token& stop) {
    try {
        StoppableObject object{instance, decoders_, {.stop = stop, .requestor = order_.requestor}};
        return sender.send(object, &order_.originator);
    } catch (const std::exception& fault) {  // the file; the sender has other ways to say what failed
        return {.outcome = Outcome::Failed, .detail = fault.what()};
    }
}

void MoveJob::log(const std::string& failure) {
    log_.add(PeerLog::Event::Failure, order_.name + ": " + failure);
}

void MoveJob::fail(const StoredInstance& instance, const dicom::SendResult& result) {
    log(instance.sopInstanceUid + " not sent: " + result.detail);
    if (!result.comment.empty())
        log_.add(PeerLog::Event::Fault,
                 order_.name + ": " + instance.sopInstanceUid + ": the peer's comment: " + result.comment);
    progress_.fail(instance.sopInstanceUid);
}

}  // namespace tessaly::tessalyd
