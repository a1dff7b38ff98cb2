#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

#include "decoder/Pool.h"
#include "dicom/net/ObjectSender.h"
#include "tessalyd/association/OutboundSlots.h"
#include "tessalyd/association/PeerLog.h"
#include "tessalyd/search/InstanceList.h"
#include "tessalyd/services/retrieve/MoveProgress.h"

namespace tessaly::tessalyd {

/// Sends the objects of one C-MOVE, in a thread of its own: whoever waits for it can tell its requestor
/// meanwhile how far it is, whatever the destination does. The destructor stops it and waits for its end,
/// which is soon.
class MoveJob {
  public:
    struct Order {
        dicom::PeerAddress destination;
        dicom::MoveOriginator originator;
        std::string name;             ///< of requestor and destination, for the log
        std::uint64_t requestor = 0;  ///< its host (SocketAddress::hostKey)
        dicom::ObjectSender::Limits limits = {};
    };

    /// Slots, decoders and log outlive it.
    MoveJob(Order order, InstanceList instances, OutboundSlots& outboundSlots, decoder::Pool& decoders,
            PeerLog& log);
    ~MoveJob();
    MoveJob(const MoveJob&) = delete;
    MoveJob& operator=(const MoveJob&) = delete;

    /// Waits so long; true once it is over.
    [[nodiscard]] bool waitForEnd(std::chrono::milliseconds atMost) { return progress_.waitForEnd(atMost); }
    /// What has been done by now.
    [[nodiscard]] SubOperations progress() const { return progress_.operations(); }

    /// Ends it after the object that is on its way, or, when that takes long, in the middle of it.
    void cancel();

  private:
    void run(const std::stop_token& stop);
    void sendAll(const std::stop_token& stop);
    void send(dicom::ObjectSender& sender, const StoredInstance& instance, const std::stop_token& stop);
    [[nodiscard]] dicom::SendResult trySend(dicom::ObjectSender& sender, const StoredInstance& instance,
                                            const std::stop_token& stop);
    void fail(const StoredInstance& instance, const dicom::SendResult& result);
    void log(const std::string& failure);
    const Order order_;
    InstanceList instances_;
    OutboundSlots& outboundSlots_;
    decoder::Pool& decoders_;
    PeerLog& log_;
    std::size_t unlogged_ = 0;  // failures that one line stands for

    MoveProgress progress_;
    std::atomic<bool> isCancelled_ = false;

    std::jthread thread_;  // last: it uses the others
};

}  // namespace tessaly::tessalyd
