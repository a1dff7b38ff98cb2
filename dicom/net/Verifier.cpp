#include "dicom/net/Verifier.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdeftag.h>
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
#include "dicom/net/AssociationEnded.h"
#include "dicom/net/OutboundAssociation.h"

namespace tessaly::dicom {

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

Outcome outcomeOf(AssociationFailure::Kind kind) {
    switch (kind) {
        case AssociationFailure::Kind::Stopped:
            return Outcome::Stopped;
        case AssociationFailure::Kind::TimedOut:
            return Outcome::TimedOut;
        case AssociationFailure::Kind::Unreachable:
            return Outcome::Unreachable;
        case AssociationFailure::Kind::Rejected:
            return Outcome::Rejected;
        case AssociationFailure::Kind::Aborted:
            return Outcome::Aborted;
        case AssociationFailure::Kind::Faulty:
            break;
    }
    return Outcome::Faulty;
}

VerificationResult resultOf(const AssociationFailure& failure) {
    return {.outcome = outcomeOf(failure.kind()),
            .rejectSource = failure.rejectSource(),
            .rejectReason = failure.rejectReason(),
            .detail = failure.what()};
}

/// Sends one C-ECHO and takes its response.
VerificationResult echo(OutboundAssociation& association, std::chrono::milliseconds limit) {
    MessageStream& messages = association.messages();
    auto request = Command::request(CommandField::CEcho, messages.nextMessageId());
    request.set(DCM_AffectedSOPClassUID, UID_VerificationSOPClass);
    try {
        messages.send(association.contexts().front(), request);
        const std::uint16_t status = association.receiveResponse(request.messageId(), limit).status();
        association.release();
        return {.outcome = status == STATUS_Success ? Outcome::Success : Outcome::Failed,
                .status = status,
                .detail = DU_cechoStatusString(status)};
    } catch (const AssociationEnded& ended) {
        VerificationResult result = resultOf(association.failure(ended.reason()));
        association.abort();
        return result;
    }
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

    const std::string& calling = request.callingAeTitle;
    try {
        const auto association =
            openAssociation({.host = request.host,
                             .port = port,
                             .callingAeTitle = calling.empty() ? DefaultCallingAeTitle : calling,
                             .calledAeTitle = request.calledAeTitle},
                            {{.sopClass = UID_VerificationSOPClass,
                              .transferSyntaxes = {UID_LittleEndianImplicitTransferSyntax,
                                                   UID_LittleEndianExplicitTransferSyntax}}},
                            {.resolve = limits_.resolve,
                             .connect = ConnectLimit,
                             .reach = limits_.total,
                             .answer = limits_.total,
                             .deadline = IoLimits::Clock::now() + limits_.total},
                            stop);
        if (association->contexts().empty()) {
            association->release();
            return {.outcome = Outcome::NoPresentationContext, .detail = "No presentation context accepted"};
        }
        return echo(*association, limits_.total);
    } catch (const AssociationFailure& failure) {
        return resultOf(failure);
    }
}

}  // namespace tessaly::dicom
