// How fast the server stores on PostgreSQL, beside the same on SQLite, in turns on the same disk: with one
// sender and with eight. Both flush what they have promised to keep; engine, server and senders share the
// machine. How many statements an object costs there. Prints tables; judges nothing.

#include <QCoreApplication>
#include <QFile>
#include <QRegularExpression>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "bench/Bench.h"
#include "bench/StoreLoad.h"
#include "tests/support/ScratchBus.h"
#include "tests/support/ScratchCluster.h"
#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/RequestorAssociation.h"

using namespace Qt::StringLiterals;
using namespace tessaly::bench;
using namespace tessaly::test;

namespace {

constexpr int Rounds = 3;

enum class Engine { Sqlite, Postgresql };

std::unique_ptr<Daemon> serverOn(Engine engine) {
    qputenv("TESSALY_TEST_ENGINE", engine == Engine::Postgresql ? "postgresql" : "");
    set(Tcp::AsItComes);  // the variable is the sender's alone: the server does without
    auto server = std::make_unique<Daemon>();
    server->launch();
    set(Tcp::NoDelay);
    return server;
}

double load() {
    std::array<double, 1> average{};
    return ::getloadavg(average.data(), 1) == 1 ? average[0] : -1;
}

/// Objects a second.
double rateOn(Engine engine, const QStringList& folders, int objects) {
    Daemon& server = keep(serverOn(engine));
    const double seconds = send(server.port(), folders);
    if (server.database.value(u"SELECT COUNT(*) FROM Image"_s).toInt() != objects || !server.terminate())
        throw std::runtime_error("the server has not stored all, or does not end");
    return objects / seconds;
}

void compareEngines(const Objects& made) {
    QStringList eight;
    for (int sender = 0; sender < Senders; ++sender)
        eight << made.folder(0, sender);
    constexpr int All = Senders * Part;
    std::printf("senders     SQLite            PostgreSQL        ratio   load before\n");
    for (const auto& [name, folders] :
         {std::pair{"one", QStringList{made.folder(0)}}, std::pair{"eight", eight}}) {
        const double before = load();
        double sqlite = 0;
        double postgresql = 0;
        for (int round = 0; round < Rounds; ++round) {  // in turns
            sqlite = std::max(sqlite, rateOn(Engine::Sqlite, folders, All));
            postgresql = std::max(postgresql, rateOn(Engine::Postgresql, folders, All));
        }
        std::printf("%-8s %6.0f objects/s  %6.0f objects/s  %6.2f %8.2f\n", name, sqlite, postgresql,
                    postgresql / sqlite, before);
        std::fflush(stdout);
    }
}

/// What the database server has been told since, one line a statement.
QStringList statementsSince(qint64 start) {
    QFile log{ScratchCluster::instance().address() + u"/log"_s};
    if (!log.open(QIODevice::ReadOnly) || !log.seek(start))
        throw std::runtime_error("the database server has no log");
    static const QRegularExpression statement{u"LOG:  (?:statement|execute [^:]*): (.*)"_s};
    QStringList found;
    for (auto line = statement.globalMatch(QString::fromUtf8(log.readAll())); line.hasNext();)
        found << line.next().captured(1);
    return found;
}

void countStatements() {
    const auto& cluster = ScratchCluster::instance();
    cluster.administer(u"ALTER ROLE %1 SET log_statement='all'"_s.arg(ScratchCluster::Owner));
    const auto server = serverOn(Engine::Postgresql);
    RequestorAssociation association{server->port()};
    const auto store = [&](const char* study, const char* series, const char* instance) {
        const ObjectSpec spec{.study = study, .series = series, .instance = instance};
        if (association.store(*makeObject(spec)).status != 0)
            throw std::runtime_error("an object is not stored");
    };
    store("1.2.9", "1.2.9.1", "1.2.9.1.1");  // the connection is open, the statements are prepared
    std::printf("\nstatements that an object costs, COMMIT and BEGIN among them\n");
    for (const auto& [what, study, series, instance] :
         {std::array{"of a series that is known", "1.2.9", "1.2.9.1", "1.2.9.1.2"},
          std::array{"of a new series", "1.2.9", "1.2.9.2", "1.2.9.2.1"},
          std::array{"of a new study", "1.2.8", "1.2.8.1", "1.2.8.1.1"},
          std::array{"stored again", "1.2.9", "1.2.9.1", "1.2.9.1.2"}}) {
        const qint64 start = QFile{cluster.address() + u"/log"_s}.size();
        store(study, series, instance);
        std::printf("%-28s %3d\n", what, static_cast<int>(statementsSince(start).size()));
    }
    association.release();
    cluster.administer(u"ALTER ROLE %1 RESET log_statement"_s.arg(ScratchCluster::Owner));
}

}  // namespace

int main(int argc, char** argv) {
    return tessaly::runBench([&] {
        const ScratchBus bus;
        const QCoreApplication application{argc, argv};
        ScratchCluster::keepPromises();
        (void)ScratchCluster::instance();  // before the databases that are kept to the end
        const Objects objects{1};
        compareEngines(objects);
        countStatements();
    });
}
