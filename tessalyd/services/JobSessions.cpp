#include "tessalyd/services/JobSessions.h"

#include <chrono>
#include <memory>
#include <optional>

#include "db/DatabaseFile.h"
#include "db/Error.h"
#include "db/Retrying.h"
#include "db/Transaction.h"
#include "tessalyd/configuration/Configuration.h"

namespace tessaly::tessalyd {

namespace {

void requireInPlace(const db::Connection& connection) {
    if (!db::isInPlace(connection))
        throw db::Error{"the database's file is not the one that it was"};
}

}  // namespace

void JobSessions::write(const Work& work, const std::stop_token& stop) {
    run(
        [&work](const db::Connection& connection) {
            db::Transaction transaction{connection};
            work(connection);
            requireInPlace(connection);
            transaction.commit();
            requireInPlace(connection);  // or the job is in a file that nobody has any more
        },
        stop);
}

void JobSessions::run(const Work& work, const std::stop_token& stop) {
    using namespace std::chrono_literals;
    constexpr auto Patience = 30s;  // while all are in use
    const std::stop_callback wakes{stop, [this] { pool_.wake(); }};
    const auto attempt = [&] {
        if (isSuspended_)
            throw db::Error{"the database's file is not there"};
        auto lease = pool_.take(Patience, [&stop] { return stop.stop_requested(); });
        if (!lease)
            throw db::Stopped{};
        const auto isUnwanted = [stop] { return stop.stop_requested(); };
        if (lease->isEmpty()) {
            auto opened = std::make_unique<db::Connection>();
            opened->setLockWait(30s);  // beside stores, where one writes at a time
            opened->setStop(isUnwanted);
            openDatabase(*opened, db::Purpose::DurableWrites);
            lease->set(std::move(opened));
        }
        (*lease)->setStop(isUnwanted);
        try {
            work(**lease);
        } catch (const db::Conflict&) {
            throw;
        } catch (const db::Error&) {
            lease->discard();
            throw;
        }
        (*lease)->setStop({});
    };
    db::retrying(attempt, [this] { pool_.close(); });
}

}  // namespace tessaly::tessalyd
