#include "tessalyd/services/PrintQueue.h"

#include <stdexcept>

#include "db/Error.h"
#include "jobs/JobTable.h"
#include "tessalyd/forwarding/films/FilmPrinter.h"
#include "tessalyd/forwarding/films/NewUid.h"

namespace tessaly::tessalyd::printqueue {

void requireRoom(ServiceContext& shared, const films::PrinterRow& printer, std::size_t more,
                 const std::stop_token& stop) {
    // Before the transaction that adds: one that reads first does not wait for others that write.
    shared.jobs.run(
        [&](const db::Connection& connection) {
            const auto waiting = jobs::countUnfinished(connection, films::PrintKind, printer.lane());
            if (waiting + static_cast<long long>(more) > static_cast<long long>(MostWaiting))
                throw std::runtime_error{"the printer has " + std::to_string(waiting) +
                                         " jobs already, and " + std::to_string(MostWaiting) +
                                         " is the most"};
        },
        stop);
}

std::string add(ServiceContext& shared, const films::PrintOrder& order, const films::PrinterRow& printer,
                films::NewFolder& folder, const std::stop_token& stop) {
    requireRoom(shared, printer, 1, stop);
    std::string uid = films::newUid(order.baseUid);
    const std::string path = folder.entry().path.native();
    try {
        shared.jobs.write(
            [&](const db::Connection& connection) {
                jobs::add(connection, {.kind = films::PrintKind,
                                       .target = printer.lane(),
                                       .key = uid,
                                       .subject = path,
                                       .spool = path});
            },
            stop);
    } catch (const db::OutcomeUnknown&) {
        folder.keep();  // if it has no job, it goes at the next start
        throw;
    }
    folder.keep();
    shared.wakeJobs();
    return uid;
}

}  // namespace tessaly::tessalyd::printqueue
