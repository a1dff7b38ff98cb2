#include "dicom/Verifier.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmnet/assoc.h>
#include <dcmtk/dcmnet/cond.h>
#include <dcmtk/dcmnet/dimse.h>
#include <dcmtk/dcmnet/diutil.h>
#include <dcmtk/oflog/oflog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "dicom/BoundedTransport.h"
#include "dicom/HostLookup.h"

namespace tessaly::dicom {

using namespace std::chrono_literals;
using Clock = Bounds::Clock;
using Outcome = VerificationResult::Outcome;

namespace {

constexpr std::size_t LongestAETitle = 16;
constexpr auto ReleaseLimit = 1s;  // courtesy to the peer; the answer is known by then

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

std::string withoutBlanks(const std::string& text) {
    if (isBlank(text))
        return {};
    const auto first = text.find_first_not_of(' ');
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::uint16_t portNumber(const std::string& text) {
    const std::string digits = withoutBlanks(text);
    int number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc{} || end != digits.data() + digits.size() || number < 1 || number > 65535)
        throw std::runtime_error("Port '" + text + "' is no number from 1 to 65535");
    return static_cast<std::uint16_t>(number);
}

void checkAETitle(const std::string& title, const std::string& whose) {
    if (title.size() > LongestAETitle)
        throw std::runtime_error("The " + whose + " AE title '" + title + "' is longer than 16 characters");
    if (!std::all_of(title.begin(), title.end(), [](char c) { return c >= ' ' && c <= '~' && c != '\\'; }))
        throw std::runtime_error("The " + whose + " AE title '" + title +
                                 "' has characters that DICOM does not allow in it");
}

/// One verification with one peer: the library's network and association, freed in the order that it wants.
class Exchange {
  public:
    Exchange(BoundedTransport& transport, std::chrono::seconds limit)
        : transport_(transport), limit_(static_cast<int>(limit.count())) {
        require(ASC_initializeNetwork(NET_REQUESTOR, 0, limit_, &network_));
        require(ASC_setTransportLayer(network_, &transport_, 0));
    }
    ~Exchange() {
        if (association_ != nullptr) {
            ASC_dropAssociation(association_);
            ASC_destroyAssociation(&association_);
        }
        ASC_dropNetwork(&network_);
    }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    VerificationResult run(const VerificationRequest& request, const std::string& address);

  private:
    static void require(const OFCondition& condition) {
        if (condition.bad())
            throw std::runtime_error(condition.text());
    }
    [[nodiscard]] OFCondition associate(const VerificationRequest& request, const std::string& address);
    [[nodiscard]] VerificationResult failure(const OFCondition& condition) const;
    void release();

    BoundedTransport& transport_;
    int limit_;  // in seconds; the transport's own limit is the exact one
    T_ASC_Network* network_ = nullptr;
    T_ASC_Association* association_ = nullptr;
};

OFCondition Exchange::associate(const VerificationRequest& request, const std::string& address) {
    T_ASC_Parameters* parameters = nullptr;  // the association takes it over
    require(ASC_createAssociationParameters(&parameters, ASC_DEFAULTMAXPDU));
    std::array<char, HOST_NAME_MAX + 1> self{};
    (void)gethostname(self.data(), self.size() - 1);
    ASC_setAPTitles(
        parameters,
        request.callingAETitle.empty() ? Verifier::DefaultCallingAETitle : request.callingAETitle.c_str(),
        request.calledAETitle.c_str(), nullptr);
    ASC_setPresentationAddresses(parameters, self.data(), address.c_str());
    std::array<const char*, 2> syntaxes{UID_LittleEndianImplicitTransferSyntax,
                                        UID_LittleEndianExplicitTransferSyntax};
    ASC_addPresentationContext(parameters, 1, UID_VerificationSOPClass, syntaxes.data(),
                               static_cast<int>(syntaxes.size()));
    return ASC_requestAssociation(network_, parameters, &association_, nullptr, nullptr, DUL_NOBLOCK, limit_);
}

VerificationResult Exchange::failure(const OFCondition& condition) const {
    VerificationResult result{.detail = condition.text()};
    if (transport_.bounds().isStopped()) {
        result.outcome = Outcome::Stopped;
    } else if (condition == DUL_ASSOCIATIONREJECTED) {
        T_ASC_RejectParameters reject{};
        ASC_getRejectParameters(association_->params, &reject);
        result.outcome = Outcome::Rejected;
        result.rejectSource = reject.source;
        result.rejectReason = reject.reason & 0xff;  // the library adds the source to it
        OFString words;
        result.detail = ASC_printRejectParameters(words, &reject);
    } else if (transport_.bounds().isExpired() || condition == DUL_READTIMEOUT) {
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

void Exchange::release() {
    Bounds& bounds = transport_.bounds();
    bounds.setDeadline(std::min(bounds.deadline(), Clock::now() + ReleaseLimit));
    ASC_releaseAssociation(association_);
}

VerificationResult Exchange::run(const VerificationRequest& request, const std::string& address) {
    if (const OFCondition condition = associate(request, address); condition.bad())
        return failure(condition);
    if (ASC_countAcceptedPresentationContexts(association_->params) == 0) {
        release();
        return {.outcome = Outcome::NoPresentationContext, .detail = "No presentation context accepted"};
    }
    DIC_US status = 0;
    DcmDataset* statusDetail = nullptr;
    const OFCondition condition = DIMSE_echoUser(association_, association_->nextMsgID++, DIMSE_NONBLOCKING,
                                                 limit_, &status, &statusDetail);
    delete statusDetail;
    if (condition.bad()) {
        VerificationResult result = failure(condition);
        ASC_abortAssociation(association_);
        return result;
    }
    release();
    return {.outcome = status == STATUS_Success ? Outcome::Success : Outcome::Failed,
            .status = status,
            .detail = DU_cechoStatusString(status)};
}

}  // namespace

VerificationResult Verifier::verify(const VerificationRequest& request, const std::stop_token& stop) const {
    const std::uint16_t port = portNumber(request.port);
    checkAETitle(request.callingAETitle, "calling");
    checkAETitle(request.calledAETitle, "called");
    if (isBlank(request.calledAETitle) ||
        (isBlank(request.callingAETitle) && !request.callingAETitle.empty()))
        return {.outcome = Outcome::Untitled, .detail = "An AE title is blank"};
    configureLibraryOnce();

    const auto deadline = Clock::now() + limits_.total;
    BoundedTransport transport{std::make_shared<Bounds>(stop, deadline)};
    const HostAddress address =
        lookUpHost(request.host, std::min(deadline, Clock::now() + limits_.resolve), stop);
    if (transport.bounds().isStopped())
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
        const Outcome outcome = transport.bounds().isStopped() ? Outcome::Stopped
                                : reason == ETIMEDOUT          ? Outcome::TimedOut
                                                               : Outcome::Unreachable;
        return {.outcome = outcome, .detail = std::generic_category().message(reason)};
    }
    return Exchange{transport, std::chrono::ceil<std::chrono::seconds>(limits_.total)}.run(request, *peer);
}

}  // namespace tessaly::dicom
