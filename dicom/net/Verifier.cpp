#include "dicom/net/Verifier.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmnet/assoc.h>
#include <dcmtk/dcmnet/cond.h>
#include <dcmtk/dcmnet/dimse.h>
#include <dcmtk/dcmnet/diutil.h>
#include <dcmtk/oflog/oflog.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "base/TcpPort.h"
#include "base/Text.h"
#include "dicom/net/HostLookup.h"
#include "dicom/net/OutboundAssociation.h"
#include "dicom/net/transport/BoundedTransport.h"

namespace tessaly::dicom {

using Clock = IoLimits::Clock;
using Outcome = VerificationResult::Outcome;

namespace {

constexpr std::size_t LongestAeTitle = 16;

/// What DCMTK knows only for a whole process.
void configureLibraryOnce() {
    static const bool configured = [] {
        OFLog::configure(OFLogger::OFF_LOG_LEVEL);  // the result says it all; the console writes no log
        return true;
    }();
    (void)configured;
}

bool isBlank(const std::string& text) {
    return text.find_first_not_of(' ') == std::string::npos;
}

std::uint16_t portNumber(const std::string& text) {
    const auto number = base::tcpPort(base::trimmed(text));
    if (!number)
        throw std::runtime_error("Port '" + text + "' is no number from 1 to 65535");
    return *number;
}

void checkAeTitle(const std::string& title, const std::string& whose) {
    if (title.size() > LongestAeTitle)
        throw std::runtime_error("The " + whose + " AE title '" + title + "' is longer than 16 characters");
    if (!std::all_of(title.begin(), title.end(), [](char c) { return c >= ' ' && c <= '~' && c != '\\'; }))
        throw std::runtime_error("The " + whose + " AE title '" + title +
                                 "' has characters that DICOM does not allow in it");
}

/// One verification with one peer.
class Exchange {
  public:
    Exchange(BoundedTransport& transport, std::chrono::milliseconds limit)
        : transport_(transport), association_(transport, limit) {}

    VerificationResult run(const VerificationRequest& request, const std::string& peer);

  private:
    [[nodiscard]] VerificationResult failure(const OFCondition& condition) const;

    BoundedTransport& transport_;
    OutboundAssociation association_;
};

VerificationResult Exchange::failure(const OFCondition& condition) const {
    VerificationResult result{.detail = condition.text()};
    if (transport_.ioLimits().isStopped()) {
        result.outcome = Outcome::Stopped;
    } else if (condition == DUL_ASSOCIATIONREJECTED) {
        const T_ASC_RejectParameters reject = association_.rejection();
        result.outcome = Outcome::Rejected;
        result.rejectSource = reject.source;
        result.rejectReason = reject.reason & 0xff;  // the library adds the source to it
        OFString words;
        result.detail = ASC_printRejectParameters(words, &reject);
    } else if (transport_.ioLimits().isExpired() || condition == DUL_READTIMEOUT) {
        result.outcome = Outcome::TimedOut;
    } else if (condition == DUL_PEERABORTEDASSOCIATION || condition == DUL_PEERREQUESTEDRELEASE ||
               condition == DUL_NETWORKCLOSED || condition.code() == DULC_TCPIOERROR) {
        result.outcome = Outcome::Aborted;
    } else if (condition == DIMSE_NOVALIDPRESENTATIONCONTEXTID) {
        result.outcome = Outcome::NoPresentationContext;
    } else {
        result.outcome = Outcome::Faulty;
    }
    return result;
}

VerificationResult Exchange::run(const VerificationRequest& request, const std::string& peer) {
    const std::string& calling = request.callingAeTitle;
    const OFCondition opened = association_.request(
        peer, calling.empty() ? Verifier::DefaultCallingAeTitle : calling, request.calledAeTitle,
        {{UID_VerificationSOPClass,
          {UID_LittleEndianImplicitTransferSyntax, UID_LittleEndianExplicitTransferSyntax}}});
    if (opened.bad())
        return failure(opened);
    if (ASC_countAcceptedPresentationContexts(association_.get()->params) == 0) {
        association_.release();
        return {.outcome = Outcome::NoPresentationContext, .detail = "No presentation context accepted"};
    }
    DIC_US status = 0;
    DcmDataset* statusDetail = nullptr;
    const OFCondition condition =
        DIMSE_echoUser(association_.get(), association_.get()->nextMsgID++, DIMSE_NONBLOCKING,
                       association_.limit(), &status, &statusDetail);
    delete statusDetail;
    if (condition.bad()) {
        VerificationResult result = failure(condition);
        association_.abort();
        return result;
    }
    association_.release();
    return {.outcome = status == STATUS_Success ? Outcome::Success : Outcome::Failed,
            .status = status,
            .detail = DU_cechoStatusString(status)};
}

}  // namespace

VerificationResult Verifier::verify(const VerificationRequest& request, const std::stop_token& stop) const {
    const std::uint16_t port = portNumber(request.port);
    checkAeTitle(request.callingAeTitle, "calling");
    checkAeTitle(request.calledAeTitle, "called");
    if (isBlank(request.calledAeTitle) ||
        (isBlank(request.callingAeTitle) && !request.callingAeTitle.empty()))
        return {.outcome = Outcome::Untitled, .detail = "An AE title is blank"};
    configureLibraryOnce();

    const auto deadline = Clock::now() + limits_.total;
    BoundedTransport transport{std::make_shared<IoLimits>(stop, deadline)};
    const HostAddress address =
        lookUpHost(request.host, std::min(deadline, Clock::now() + limits_.resolve), stop);
    if (transport.ioLimits().isStopped())
        return {.outcome = Outcome::Stopped, .detail = "Stopped while the host's name was looked up"};
    if (!address.dotted) {
        return address.failure.empty()
                   ? VerificationResult{.outcome = Outcome::TimedOut,
                                        .detail = "Nobody resolves the host's name"}
                   : VerificationResult{.outcome = Outcome::Unreachable, .detail = address.failure};
    }
    const auto peer = transport.connect(*address.dotted, port, ConnectLimit);
    if (!peer) {
        const int reason = errno;
        const Outcome outcome = transport.ioLimits().isStopped() ? Outcome::Stopped
                                : reason == ETIMEDOUT            ? Outcome::TimedOut
                                                                 : Outcome::Unreachable;
        return {.outcome = outcome, .detail = std::generic_category().message(reason)};
    }
    return Exchange{transport, limits_.total}.run(request, *peer);
}

}  // namespace tessaly::dicom
