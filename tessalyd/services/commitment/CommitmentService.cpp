#include "tessalyd/services/commitment/CommitmentService.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmnet/dimse.h>

#include <QCryptographicHash>
#include <array>
#include <cstring>
#include <system_error>

#include "archive/StoredPath.h"
#include "db/Error.h"
#include "jobs/JobTable.h"
#include "jobs/Spool.h"
#include "tessalyd/Log.h"
#include "tessalyd/Printable.h"
#include "tessalyd/association/Association.h"

namespace tessaly::tessalyd {

namespace {

// PS3.7 annex C.
constexpr std::uint16_t ProcessingFailure = 0x0110;
constexpr std::uint16_t NoSuchSopInstance = 0x0112;
constexpr std::uint16_t InvalidArgument = 0x0115;
constexpr std::uint16_t NoSuchSopClass = 0x0118;
constexpr std::uint16_t NoSuchActionType = 0x0123;
constexpr std::uint16_t NotAuthorized = 0x0124;
constexpr std::uint16_t ResourceLimitation = 0x0213;

std::string hashOf(const std::string& text) {
    return QCryptographicHash::hash({text.data(), static_cast<qsizetype>(text.size())},
                                    QCryptographicHash::Sha256)
        .toHex()
        .toStdString();
}

/// Takes what a job of the same key asks for already into account. Returns false if there is nothing to be
/// done anew: the report on the same list waits.
bool begin(const db::Connection& connection, const jobs::NewJob& job) {
    if (jobs::add(connection, job))
        return true;
    const auto first = jobs::find(connection, job.kind, job.key);
    // This list may have its job already, by an attempt of which nobody could say whether it was kept.
    return (first && first->spool == job.spool) || jobs::renew(connection, job);
}

/// Whether the report on that list is asked for, or was.
bool isOf(const jobs::Job& job, const CommitmentRequest& request) {
    return CommitmentRequest::parse(job.subject).hash == request.hash;
}

}  // namespace

CommitmentService::~CommitmentService() {
    if (reported_)  // whoever was told has not answered: it is tried again
        finish(
            {.state = jobs::State::Waiting, .attempts = reported_->attempts, .error = reported_->lastError});
}

std::span<const SupportedContext> CommitmentService::contexts() const noexcept {
    static constexpr std::array Supported{SupportedContext{
        .covers = [](const char* sopClass) { return std::strcmp(sopClass, CommitmentClass) == 0; },
        .requestor = Role::Scu,
        .preference =
            [](dicom::TransferSyntax syntax) {
                return syntax == dicom::TransferSyntax{EXS_LittleEndianExplicit} ||
                               syntax == dicom::TransferSyntax{EXS_LittleEndianImplicit}
                           ? 1
                           : 0;
            }}};
    return Supported;
}

std::span<const CommandField> CommitmentService::commands() const noexcept {
    static constexpr std::array Commands{CommandField::NAction};
    return Commands;
}

void CommitmentService::check(const Request& request, const Association& association) const {
    const AssociationNames& names = association.names();
    const bool isNode = settings_->nodes->reportedTo(names.callingAeTitle, names.calledAeTitle) &&
                        printable(names.callingAeTitle) == names.callingAeTitle;
    if (!isNode) {
        association.log(PeerLog::Event::Refusal, "commitment refused: no node has this AE title");
        throw RequestFailure{NotAuthorized, "No node has the calling AE title: no report can be sent"};
    }
    if (request.command.sopClassUid() != request.context->sopClass)
        throw RequestFailure{NoSuchSopClass, "The SOP class is not that of the presentation context"};
    if (request.command.sopInstanceUid() != CommitmentInstance)
        throw RequestFailure{NoSuchSopInstance, "The SOP instance is not that of storage commitment"};
    if (request.command.number(DCM_ActionTypeID) != 1)
        throw RequestFailure{NoSuchActionType, "The action type is not 1"};
    if (!request.command.hasDataSet())
        throw RequestFailure{InvalidArgument, "The request has no data set"};
}

void CommitmentService::answer(const Request& request, Association& association) {
    check(request, association);
    CommitmentParser list{request.context->syntax()};
    if (!association.receiveDataSet([&list](std::span<const char> part) { list.take(part); }))
        throw RequestFailure{InvalidArgument, "Command and data set do not belong together"};
    switch (list.finish()) {
        case CommitmentParser::Result::Good:
            break;
        case CommitmentParser::Result::TooLarge:
            throw RequestFailure{ResourceLimitation, "More than 100,000 references, or 64 MB"};
        case CommitmentParser::Result::Invalid:
            throw RequestFailure{InvalidArgument,
                                 "The transaction UID or the references are missing or not valid"};
    }
    try {
        accept(list, association);
    } catch (const std::runtime_error& fault) {  // of the database or the disk
        association.log(PeerLog::Event::Failure, std::string{"commitment refused: "} + fault.what());
        throw RequestFailure{ProcessingFailure, "The request cannot be kept now"};
    }
    ++requests_;
    association.respond(request, STATUS_Success);
    shared_.wakeJobs();
}

void CommitmentService::accept(const CommitmentParser& list, const Association& association) {
    const AssociationNames& names = association.names();
    const bool isTitle =
        !names.calledAeTitle.empty() && printable(names.calledAeTitle) == names.calledAeTitle;
    CommitmentRequest wanted{.requestor = names.callingAeTitle,
                             .calledAeTitle = isTitle ? names.calledAeTitle : port_.aeTitle,
                             .retrieveAeTitle = port_.aeTitle,
                             .transactionUid = list.transactionUid(),
                             .hash = hashOf(list.references())};
    const auto spooled = jobs::Spool{archive::localPath(port_.root)}.write(
        CommitmentKind, {list.references().data(), list.references().size()});
    bool isKept = false;
    try {
        shared_.jobs.write(
            [&](const db::Connection& connection) {
                wanted.isDuplicate = false;
                jobs::NewJob job{.kind = CommitmentKind,
                                 .target = wanted.requestor,
                                 .key = wanted.requestor + '/' + wanted.transactionUid,
                                 .subject = wanted.text(),
                                 .spool = spooled.path};
                isKept = jobs::add(connection, job);
                if (isKept)
                    return;
                const auto first = jobs::find(connection, job.kind, job.key);
                if (first && !isOf(*first, wanted)) {
                    // The UID names another list: all of this one fails (PS3.4 J.3.3.1.1.2).
                    wanted.isDuplicate = true;
                    job.key += '/' + wanted.hash;
                    job.subject = wanted.text();
                }
                isKept = begin(connection, job);
            },
            association.stop());
    } catch (const db::OutcomeUnknown&) {
        throw;  // there may be a job: its list stays until the next start finds that there is none
    } catch (...) {
        jobs::Spool::remove(spooled.path);
        throw;
    }
    if (!isKept)
        jobs::Spool::remove(spooled.path);
}

bool CommitmentService::hasNews(const Association& association) {
    for (const AcceptedContext& context : association.contexts())
        if (context.sopClass == CommitmentClass && context.has(Role::Scu))
            return settings_->nodes
                ->reportedTo(association.names().callingAeTitle, association.names().calledAeTitle)
                .has_value();
    return false;
}

/// A report that could not be delivered goes to a requestor that has come by itself.
void CommitmentService::whileIdle(Association& association) {
    constexpr std::chrono::seconds LookInterval{3};
    constexpr std::chrono::seconds AnswerTimeout{10};
    if (reported_ && Clock::now() > nextLook_ - LookInterval + AnswerTimeout) {
        // It does not listen here: the job's own attempts go on, and this association is not tried again.
        isDeaf_ = true;
        finish(
            {.state = jobs::State::Waiting, .attempts = reported_->attempts, .error = reported_->lastError});
    }
    if (reported_ || isDeaf_ || Clock::now() < nextLook_)
        return;
    nextLook_ = Clock::now() + LookInterval;
    try {
        reportOne(association);
    } catch (const AssociationEnded&) {
        throw;
    } catch (const std::exception& fault) {  // the job's own attempts go on
        OFLOG_DEBUG(serverLog(), association.names().text().c_str() << ": no report: " << fault.what());
        if (reported_)
            finish({.state = jobs::State::Waiting,
                    .attempts = reported_->attempts,
                    .error = reported_->lastError});
    }
}

void CommitmentService::reportOne(Association& association) {
    if (owner_.empty())
        owner_ = jobs::newOwner();
    shared_.jobs.write(
        [&](const db::Connection& connection) {
            reported_ =
                jobs::claimFailed(connection, CommitmentKind, association.names().callingAeTitle, owner_);
        },
        association.stop());
    if (!reported_)
        return;
    const CommitmentReport report{shared_, *reported_, association.stop()};
    for (const AcceptedContext& context : association.contexts()) {
        if (context.sopClass != CommitmentClass || !context.has(Role::Scu))
            continue;
        const auto command = report.command(association.messages().nextMessageId());
        association.notify(
            context, command, report.dataSet(context.syntax()), [this](const dicom::Command& response) {
                if (!reported_)
                    return;
                if (response.status() == 0)
                    ++reports_;
                finish({.state = response.status() == 0 ? jobs::State::Done : jobs::State::Waiting,
                        .delay = std::chrono::seconds{response.status() == 0 ? 0 : 60},
                        .attempts = reported_->attempts,
                        .error = reported_->lastError});
            });
        return;
    }
}

void CommitmentService::finish(const jobs::Ending& ending) noexcept {
    const jobs::Job job = *reported_;
    reported_.reset();
    try {
        bool isOurs = false;
        shared_.jobs.run(
            [&](const db::Connection& connection) {
                isOurs = jobs::finish(connection, job.number, owner_, ending);
            },
            {});
        if (isOurs && ending.state == jobs::State::Done)
            jobs::Spool::remove(job.spool);
    } catch (const std::exception& fault) {  // its lease ends by itself
        OFLOG_DEBUG(serverLog(), "job " << job.number << ": " << fault.what());
    }
}

std::string CommitmentService::summary() const {
    std::string text;
    if (requests_ > 0)
        text = std::to_string(requests_) + " commitments asked for";
    if (reports_ > 0)
        text += std::string{text.empty() ? "" : ", "} + std::to_string(reports_) + " reports delivered";
    return text;
}

}  // namespace tessaly::tessalyd
