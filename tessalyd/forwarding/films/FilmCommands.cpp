// The part of FilmSender that has films printed, and reads what a printer says of it.

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <algorithm>

#include "tessalyd/forwarding/films/FilmSender.h"
#include "tessalyd/forwarding/films/PrintClasses.h"

namespace tessaly::tessalyd::films {

namespace {

using dicom::CommandField;
using Kind = jobs::Outcome::Kind;

bool is(std::uint16_t type, PrintJobEvent event) {
    return type == static_cast<std::uint16_t>(event);
}

}  // namespace

void FilmSender::print() {
    constexpr int Patience = 3;
    const Reply reply = link_.exchange({.context = meta_,
                                        .field = CommandField::NAction,
                                        .sopClass = UID_BasicFilmBoxSOPClass,
                                        .instance = film_,
                                        .action = PrintAction},
                                       nullptr, Patience);
    require(reply, name_ + ", printing");
    const std::string job =
        reply.attributes.textInItem(ReferencedPrintJobSequence, DCM_ReferencedSOPInstanceUID);
    if (!job.empty() && link_.contextOf(UID_PrintJobSOPClass) != nullptr)
        printJobs_.push_back(job);
}

void FilmSender::remove() {
    const Reply reply = link_.exchange({.context = meta_,
                                        .field = CommandField::NDelete,
                                        .sopClass = UID_BasicFilmBoxSOPClass,
                                        .instance = film_});
    if (verdictOf(reply.status) != Verdict::Success)
        environment_.log(name_ + ": its deletion was answered with " + hexadecimal(reply.status));
}

void FilmSender::finish() {
    constexpr std::chrono::milliseconds Interval{500};
    const auto until = std::chrono::steady_clock::now() + environment_.answer;
    requireNoFailure();
    while (!printJobs_.empty()) {
        std::erase_if(printJobs_, [this](const std::string& job) { return isOver(job); });
        requireNoFailure();
        if (printJobs_.empty())
            break;
        if (std::chrono::steady_clock::now() >= until) {
            environment_.log("it has not said yet that the films are done");
            break;
        }
        link_.listen(Interval);
    }
    static_cast<void>(link_.exchange({.context = meta_,
                                      .field = CommandField::NDelete,
                                      .sopClass = UID_BasicFilmSessionSOPClass,
                                      .instance = session_}));
    link_.release();
}

/// One that the printer does not know any more is over.
bool FilmSender::isOver(const std::string& printJob) {
    if (done_.contains(printJob) || failureInfo_.contains(printJob))
        return true;
    const Reply reply = link_.exchange({.context = link_.contextOf(UID_PrintJobSOPClass),
                                        .field = CommandField::NGet,
                                        .sopClass = UID_PrintJobSOPClass,
                                        .instance = printJob});
    const Verdict verdict = verdictOf(reply.status);
    if (verdict != Verdict::Success && verdict != Verdict::Warning)
        return true;
    const std::string status = reply.attributes.text(DCM_ExecutionStatus).value_or("");
    if (status == "FAILURE")
        failureInfo_.emplace(printJob, reply.attributes.text(DCM_ExecutionStatusInfo).value_or(""));
    return status != "PENDING" && status != "PRINTING";
}

void FilmSender::noteEvent(const PrinterLink::Event& event) {
    const bool isOfJob = event.sopClass == UID_PrintJobSOPClass;
    environment_.log(std::string{isOfJob ? "its print job reports event " : "it reports event "} +
                     std::to_string(event.type) + (event.info.empty() ? "" : ": " + event.info));
    if (isOfJob && is(event.type, PrintJobEvent::Done))
        done_.insert(event.instance);
    if (isOfJob && is(event.type, PrintJobEvent::Failure))
        failureInfo_.emplace(event.instance, event.info);
}

void FilmSender::requireNoFailure() const {
    if (failureInfo_.empty())
        return;
    const std::string& info = failureInfo_.begin()->second;
    throw PrintFault{Kind::GiveUp,
                     "the printer's own print job says FAILURE" + (info.empty() ? info : ": " + info)};
}

void FilmSender::require(const Reply& reply, const std::string& what) const {
    const Verdict verdict = verdictOf(reply.status);
    if (verdict == Verdict::Success)
        return;
    const std::string line = what + " was answered with " + hexadecimal(reply.status);
    if (!reply.comment.empty())
        environment_.debug(what + ": the printer's comment: " + reply.comment);
    if (verdict != Verdict::Warning)
        throw PrintFault{verdict == Verdict::Busy ? Kind::Retry : Kind::GiveUp, line};
    environment_.log(line);
}

FilmSender::Reply FilmSender::withRetry(const std::string& what,
                                        const std::function<Reply(bool isBare)>& request) {
    Reply reply = request(false);
    if (verdictOf(reply.status) == Verdict::Unacceptable) {
        environment_.log(what + " was answered with " + hexadecimal(reply.status) +
                         ": once more without the optional attributes");
        reply = request(true);
    }
    require(reply, what);
    return reply;
}

}  // namespace tessaly::tessalyd::films
