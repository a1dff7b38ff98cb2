#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/assoc.h>
#include <dcmtk/dcmnet/dul.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "dicom/net/Command.h"
#include "dicom/net/PresentationContext.h"

class DcmDataset;

namespace tessaly::dicom {

/// The DIMSE messages of one open association, on either side: a command set each, and a data set for some.
/// Belongs to the association's thread. Every call blocks within the limits of the connection, and throws
/// AssociationEnded if the association is over or the peer breaks the protocol.
class MessageStream {
  public:
    struct Received {
        T_ASC_PresentationContextID context = 0;
        Command command;
    };
    enum class Direction { Sent, Received };
    /// Sees every command set, for dumps.
    using Trace = std::function<void(Direction, T_ASC_PresentationContextID, const Command&)>;
    /// Takes a data set piece by piece.
    using Sink = std::function<void(std::span<const char>)>;

    /// The association outlives it.
    explicit MessageStream(T_ASC_Association& association, Trace trace = {});

    /// Waits so long for the next message. A data set that is still due is passed over first.
    [[nodiscard]] Received receive(std::chrono::seconds timeout);
    /// Takes the data set of the command that came last. Returns false if it came in another presentation
    /// context than its command. What the sink throws comes through; the rest of the data set is due then.
    [[nodiscard]] bool receiveDataSet(std::chrono::seconds timeout, const Sink& sink);
    /// Whether the command that came last has a data set that was not taken yet.
    [[nodiscard]] bool isDataSetDue() const noexcept { return isDataSetDue_; }
    void passOverDataSet(std::chrono::seconds timeout);
    /// Whether a whole message has come, or the connection is over. Never waits.
    [[nodiscard]] bool hasMore() const;

    [[nodiscard]] std::uint16_t nextMessageId() noexcept { return association_.nextMsgID++; }

    /// Sends a message, its data set in the transfer syntax of the context.
    void send(const AcceptedContext& context, Command command, DcmDataset* dataSet = nullptr);
    /// Sends the command of a message whose data set follows in parts.
    void sendCommand(T_ASC_PresentationContextID context, const Command& command);
    void sendDataSet(T_ASC_PresentationContextID context, std::span<const char> part, bool isLast);
    /// Bytes that go out in one PDU: parts of a multiple of it leave none half full.
    [[nodiscard]] std::size_t bytesPerPdu() const noexcept { return association_.sendPDVLength; }

  private:
    [[nodiscard]] DUL_PDV nextPart(std::chrono::seconds timeout);
    void write(T_ASC_PresentationContextID context, DUL_DATAPDV type, std::span<const char> bytes,
               bool isLast);

    T_ASC_Association& association_;
    Trace trace_;
    std::vector<char> encoded_;
    T_ASC_PresentationContextID commandContext_ = 0;
    bool isDataSetDue_ = false;
};

}  // namespace tessaly::dicom
