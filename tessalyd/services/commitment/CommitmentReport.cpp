#include "tessalyd/services/commitment/CommitmentReport.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <array>
#include <charconv>
#include <stdexcept>
#include <string_view>

#include "dicom/net/AssociationEnded.h"
#include "dicom/net/OutboundAssociation.h"

namespace tessaly::tessalyd {

namespace {

using jobs::Outcome;

/// Writes elements in little endian.
class Encoder {
  public:
    explicit Encoder(bool isExplicit) : isExplicit_(isExplicit) {}

    void text(const DcmTagKey& tag, const char* vr, std::string_view value, char padding) {
        const std::size_t length = value.size() + value.size() % 2;
        head(tag, vr, length);
        bytes_.insert(bytes_.end(), value.begin(), value.end());
        if (length > value.size())
            bytes_.push_back(padding);
    }
    void uid(const DcmTagKey& tag, std::string_view value) { text(tag, "UI", value, '\0'); }
    void number(const DcmTagKey& tag, std::uint16_t value) {
        head(tag, "US", sizeof value);
        put(value, sizeof value);
    }
    /// A sequence of what another one has written, or an item.
    void sequence(const DcmTagKey& tag, const Encoder& content) {
        head(tag, "SQ", content.bytes_.size());
        append(content);
    }
    void item(const Encoder& content) {
        tagOf(DCM_Item);
        put(content.bytes_.size(), 4);
        append(content);
    }
    void clear() { bytes_.clear(); }

    [[nodiscard]] std::vector<char> take() { return std::move(bytes_); }
    [[nodiscard]] bool isExplicit() const noexcept { return isExplicit_; }

  private:
    void append(const Encoder& content) {
        bytes_.insert(bytes_.end(), content.bytes_.begin(), content.bytes_.end());
    }
    void tagOf(const DcmTagKey& tag) {
        put(tag.getGroup(), 2);
        put(tag.getElement(), 2);
    }
    void head(const DcmTagKey& tag, std::string_view vr, std::size_t length) {
        tagOf(tag);
        if (!isExplicit_)
            return put(length, 4);
        bytes_.insert(bytes_.end(), vr.begin(), vr.end());
        if (vr == "SQ")
            put(0, 2);
        put(length, vr == "SQ" ? 4 : 2);
    }
    void put(std::uint64_t number, std::size_t size) {
        for (std::size_t i = 0; i < size; ++i)
            bytes_.push_back(static_cast<char>(number >> (8 * i) & 0xffU));
    }

    bool isExplicit_;
    std::vector<char> bytes_;
};

/// Takes the text up to a separator off.
std::string_view takeWord(std::string_view& text, char separator) {
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return word;
}

/// Nothing for a sequence without items, which is left out.
void putSequence(Encoder& target, const DcmTagKey& tag, std::string_view lines) {
    if (lines.empty())
        return;
    Encoder items{target.isExplicit()};
    Encoder item{target.isExplicit()};
    while (!lines.empty()) {
        std::string_view line = takeWord(lines, '\n');
        item.clear();
        item.uid(DCM_ReferencedSOPClassUID, takeWord(line, ' '));
        item.uid(DCM_ReferencedSOPInstanceUID, takeWord(line, ' '));
        FailureReason reason = Committed;
        std::from_chars(line.data(), line.data() + line.size(), reason);
        if (reason != Committed)
            item.number(DCM_FailureReason, reason);
        items.item(item);
    }
    target.sequence(tag, items);
}

Outcome report(ServiceContext& shared, jobs::Attempt& attempt) {
    const CommitmentReport report{shared, attempt.job(), attempt.stop()};
    const auto& request = report.request();
    const auto to = shared.settings()->nodes->reportedTo(request.requestor, request.calledAeTitle);
    if (!to)
        return {.kind = Outcome::Kind::Retry, .reason = "no node has this AE title any more"};
    try {
        // The peer is the SCU, whoever asks for the association (PS3.4 J.3.3.1.2).
        const auto association =
            dicom::openAssociation(to->peer,
                                   {{.sopClass = CommitmentClass,
                                     .transferSyntaxes = {UID_LittleEndianExplicitTransferSyntax,
                                                          UID_LittleEndianImplicitTransferSyntax},
                                     .roles = dicom::bit(dicom::Role::Scp)}},
                                   {}, attempt.stop());
        if (association->contexts().empty()) {
            association->release();
            return {.kind = Outcome::Kind::Retry, .reason = "the node takes no reports"};
        }
        constexpr std::chrono::seconds AnswerTimeout{60};
        const auto& context = association->contexts().front();
        dicom::MessageStream& messages = association->messages();
        const auto command = report.command(messages.nextMessageId());
        try {
            messages.sendCommand(context.id, command);
            messages.sendDataSet(context.id, report.dataSet(context.syntax()), true);
            const auto status = association->receiveResponse(command.messageId(), AnswerTimeout).status();
            association->release();
            if (status == 0)
                return {};
            std::array<char, 8> text{};
            std::snprintf(text.data(), text.size(), "%04X", status);
            return {.kind = Outcome::Kind::Retry,
                    .reason = std::string{"the node answers with status "} + text.data()};
        } catch (const dicom::AssociationEnded& ended) {
            throw association->failure(ended.reason());
        }
    } catch (const dicom::AssociationFailure& failure) {
        return {.kind = failure.kind() == dicom::AssociationFailure::Kind::Stopped ? Outcome::Kind::Stopped
                                                                                   : Outcome::Kind::Retry,
                .reason = failure.what()};
    }
}

}  // namespace

std::string CommitmentRequest::text() const {
    std::string all;
    for (const std::string* part : {&requestor, &calledAeTitle, &retrieveAeTitle, &transactionUid, &hash})
        all.append(*part).append("\n");
    return all.append(isDuplicate ? "duplicate" : "");
}

CommitmentRequest CommitmentRequest::parse(const std::string& text) {
    std::string_view rest = text;
    CommitmentRequest request;
    for (std::string* part : {&request.requestor, &request.calledAeTitle, &request.retrieveAeTitle,
                              &request.transactionUid, &request.hash})
        *part = takeWord(rest, '\n');
    if (request.hash.empty())
        throw std::runtime_error{"the job's request is damaged"};
    request.isDuplicate = !rest.empty();
    return request;
}

CommitmentReport::CommitmentReport(ServiceContext& shared, const jobs::Job& job, const std::stop_token& stop)
    : request_(CommitmentRequest::parse(job.subject)) {
    const auto add = [this](const Reference& reference, FailureReason reason) {
        std::string& target = reason == Committed ? committed_ : failed_;
        target.append(reference.sopClass).append(" ").append(reference.sopInstance);
        if (reason != Committed)
            target.append(" ").append(std::to_string(reason));
        target.append("\n");
    };
    CommitmentList list{job.spool};
    if (!request_.isDuplicate) {
        CommitmentCheck{shared, stop}.run(list, add);
        return;
    }
    while (const auto reference = list.next())
        add(*reference, DuplicateTransaction);
}

dicom::Command CommitmentReport::command(std::uint16_t messageId) const {
    auto command = dicom::Command::request(dicom::CommandField::NEventReport, messageId);
    command.set(DCM_AffectedSOPClassUID, CommitmentClass)
        .set(DCM_AffectedSOPInstanceUID, CommitmentInstance)
        .set(DCM_EventTypeID, eventType())
        .setHasDataSet(true);
    return command;
}

std::vector<char> CommitmentReport::dataSet(dicom::TransferSyntax syntax) const {
    Encoder encoder{syntax.uid() == std::string_view{UID_LittleEndianExplicitTransferSyntax}};
    encoder.text(DCM_RetrieveAETitle, "AE", request_.retrieveAeTitle, ' ');
    encoder.uid(DCM_TransactionUID, request_.transactionUid);
    putSequence(encoder, DCM_FailedSOPSequence, failed_);
    putSequence(encoder, DCM_ReferencedSOPSequence, committed_);
    return encoder.take();
}

jobs::Handler commitmentHandler(ServiceContext& shared) {
    return [&shared](jobs::Attempt& attempt) { return report(shared, attempt); };
}

}  // namespace tessaly::tessalyd
