#include "tessalyd/services/print/PrintJobs.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <algorithm>

#include "db/Error.h"
#include "jobs/JobTable.h"
#include "tessalyd/Log.h"
#include "tessalyd/forwarding/films/EncodedDataSet.h"
#include "tessalyd/forwarding/films/FilmPrinter.h"
#include "tessalyd/forwarding/films/NewFolder.h"
#include "tessalyd/forwarding/films/PrintClasses.h"
#include "tessalyd/services/PrintQueue.h"

namespace tessaly::tessalyd::print {

namespace {

using films::PrintJobEvent;
using films::PrintKind;

const AcceptedContext* contextOf(const Association& association) {
    const auto contexts = association.contexts();
    const auto found = std::find_if(contexts.begin(), contexts.end(), [](const AcceptedContext& one) {
        return one.sopClass == UID_PrintJobSOPClass && one.has(Role::Scu);
    });
    return found == contexts.end() ? nullptr : &*found;
}

PrintJobEvent eventOf(jobs::State state) {
    switch (state) {
        case jobs::State::Waiting:
            return PrintJobEvent::Pending;
        case jobs::State::Running:
            return PrintJobEvent::Printing;
        case jobs::State::Done:
            return PrintJobEvent::Done;
        default:
            return PrintJobEvent::Failure;
    }
}

}  // namespace

std::string PrintJobs::add(const films::PrintOrder& order, const films::PrinterRow& printer,
                           const AssociationSpool& spool, const std::stop_token& stop) {
    films::NewFolder folder{spool.spool()};
    for (const films::Film& film : order.films)
        for (const auto& [position, image] : film.images)
            spool.link(image.file, folder.entry().path);
    films::save(order, folder.entry().path);
    jobs::Spool::makeDurable(folder.entry());
    return printqueue::add(shared_, order, printer, folder, stop);
}

void PrintJobs::watch(const std::string& uid, const std::string& printer) {
    watched_.push_back({.uid = uid, .printer = printer});
}

bool PrintJobs::canReport(const Association& association) {
    return contextOf(association) != nullptr;
}

void PrintJobs::report(Association& association) {
    const AcceptedContext* const context = contextOf(association);
    if (watched_.empty() || context == nullptr)
        return;
    try {
        for (Watched& job : watched_) {
            const auto found = find(job.uid, association);
            tell(association, *context, job, found ? found->state : jobs::State::GivenUp);
        }
    } catch (const db::Error& error) {  // it is asked again soon
        OFLOG_DEBUG(serverLog(), "print jobs: " << error.what());
    }
    std::erase_if(watched_, [](const Watched& job) { return job.isOver; });
}

void PrintJobs::tell(Association& association, const AcceptedContext& context, Watched& job,
                     jobs::State state) {
    if (job.told == state)
        return;
    // One that was quick has waited and was printed nevertheless.
    if (!job.told && state != jobs::State::Waiting)
        tell(association, context, job, jobs::State::Waiting);
    if (state == jobs::State::Done && job.told != jobs::State::Running)
        tell(association, context, job, jobs::State::Running);
    auto command =
        dicom::Command::request(CommandField::NEventReport, association.messages().nextMessageId());
    command.set(DCM_AffectedSOPClassUID, UID_PrintJobSOPClass);
    command.set(DCM_AffectedSOPInstanceUID, job.uid);
    command.set(DCM_EventTypeID, static_cast<std::uint16_t>(eventOf(state)));
    DcmDataset dataSet;
    dataSet.putAndInsertString(DCM_ExecutionStatusInfo, infoOf(state));
    dataSet.putAndInsertString(DCM_PrinterName, job.printer.c_str());
    association.notify(context, command, films::encoded(dataSet, context.syntax()));
    job.told = state;
    // One that failed may be tried again, but the requestor has to be told once that it is not coming.
    job.isOver = state != jobs::State::Waiting && state != jobs::State::Running;
}

std::optional<jobs::Job> PrintJobs::find(const std::string& uid, const Association& association) {
    auto session = shared_.sessions.take([&] { return association.stop().stop_requested(); });
    if (!session)
        return std::nullopt;
    return jobs::find(session->connection(), PrintKind, uid);
}

const char* PrintJobs::statusOf(jobs::State state) {
    switch (state) {
        case jobs::State::Waiting:
            return "PENDING";
        case jobs::State::Running:
            return "PRINTING";
        case jobs::State::Done:
            return "DONE";
        default:
            return "FAILURE";
    }
}

const char* PrintJobs::infoOf(jobs::State state) {
    return state == jobs::State::GivenUp || state == jobs::State::Uncertain ? "UNKNOWN" : "NORMAL";
}

}  // namespace tessaly::tessalyd::print
