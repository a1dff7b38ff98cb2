#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "dicom/net/OutboundAssociation.h"
#include "tessalyd/forwarding/films/AttributeSet.h"

namespace tessaly::tessalyd::films {

/// What a status of a printer means to a job.
enum class Verdict : std::uint8_t {
    Success,
    Warning,
    Unacceptable,  ///< it does not know an attribute or a value
    Busy,          ///< it has no room now
    Failure
};
[[nodiscard]] Verdict verdictOf(std::uint16_t status) noexcept;
/// "C601", for logs.
[[nodiscard]] std::string hexadecimal(std::uint16_t status);

/// An association with a printer: requests and their responses, one at a time. What the printer reports
/// between them is answered. Belongs to one thread. Every call throws dicom::AssociationFailure if the
/// association is over, was stopped, or an answer takes too long.
class PrinterLink {
  public:
    struct Event {
        std::string sopClass;
        std::string instance;
        std::uint16_t type = 0;
        std::string info;  ///< Execution Status Info or Printer Status Info
    };
    using EventSink = std::function<void(const Event&)>;

    /// Proposes the SOP classes, each in little endian, explicit and implicit. `answer` is the time for each
    /// response.
    PrinterLink(const dicom::PeerAddress& printer, const std::vector<std::string>& sopClasses,
                std::chrono::milliseconds answer, const std::stop_token& stop, EventSink events);

    /// Null if the printer does not take the class.
    [[nodiscard]] const dicom::AcceptedContext* contextOf(const std::string& sopClass) const;

    struct Reply {
        std::uint16_t status = 0;
        std::string comment;
        std::string instance;  ///< Affected SOP Instance UID
        AttributeSet attributes;
    };
    struct Request {
        const dicom::AcceptedContext* context = nullptr;
        dicom::CommandField field = dicom::CommandField::NGet;
        std::string sopClass;
        std::string instance;
        std::uint16_t action = 0;  ///< of N-ACTION
    };
    /// `patience` times the usual one is the time for the response.
    Reply exchange(const Request& request, DcmDataset* dataSet = nullptr, int patience = 1);

    /// A data set with an image in a sequence of one item.
    struct ImageDataSet {
        DcmDataset& before;  ///< attributes in front of the sequence
        DcmTagKey sequence;
        DcmDataset& item;  ///< attributes of the item in front of the pixel data
        std::uint64_t pixelBytes = 0;
        DcmDataset& behind;  ///< attributes behind the sequence
    };
    /// Hands the pixels on in pieces, that many bytes together.
    using PixelSource = std::function<void(const std::function<void(std::span<const char>)>&)>;
    Reply exchangeImage(const Request& request, const ImageDataSet& dataSet, const PixelSource& pixels);

    /// Waits so long for what the printer reports.
    void listen(std::chrono::milliseconds atMost);

    /// Answers what has been reported by now, and releases the association.
    void release();

  private:
    [[nodiscard]] dicom::Command commandOf(const Request& request);
    [[nodiscard]] Reply receiveReply(std::uint16_t messageId, int patience);
    [[nodiscard]] AttributeSet receiveAttributes(dicom::IoLimits::Clock::time_point until,
                                                 const dicom::MessageStream::Received& received);
    void answerEvent(dicom::IoLimits::Clock::time_point until,
                     const dicom::MessageStream::Received& received);
    [[nodiscard]] const dicom::AcceptedContext& context(T_ASC_PresentationContextID id) const;

    std::chrono::milliseconds answer_;
    EventSink events_;
    std::unique_ptr<dicom::OutboundAssociation> association_;
};

}  // namespace tessaly::tessalyd::films
