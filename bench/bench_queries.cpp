// How fast queries are answered over the wire, beside other products' archives with the same studies in the
// same run, one requestor for all. Then the server alone with 100,000 studies, and its peak of memory. Prints
// tables; judges nothing.

#include <dcmtk/dcmdata/dcdeftag.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <chrono>
#include <cstdio>
#include <functional>

#include "bench/Bench.h"
#include "tests/dicom/net/Peers.h"
#include "tests/support/ScratchBus.h"
#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/Finding.h"
#include "tests/tessalyd/Objects.h"
#include "tests/tessalyd/StockedArchive.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

constexpr int Rounds = 3;

struct Server {
    const char* name;
    QString port;
    std::string called;
    int studies;
};

/// Nagle's algorithm at the requestor's end.
enum class Tcp { AsItComes, NoDelay };

struct Work {
    const char* name;
    Tcp tcp;
    int requests;
    DcmDataset (*ask)(int i, int studies);
};

DcmDataset study(const DcmTagKey& key, const std::string& value) {
    std::vector<AskedKey> keys{{key, value}};
    for (const DcmTagKey& tag : {DCM_StudyDate, DCM_StudyTime, DCM_AccessionNumber, DCM_StudyDescription,
                                 DCM_PatientName, DCM_PatientID, DCM_StudyInstanceUID}) {
        if (tag != key)
            keys.emplace_back(tag, "");
    }
    return identifier("STUDY", keys);
}

DcmDataset exactStudy(int i, int studies) {
    return study(DCM_StudyInstanceUID, std::string{"1.2.3."} + std::to_string(1 + i * 7919LL % studies));
}
DcmDataset name(int i, int studies) {
    return study(DCM_PatientName, std::string{"Family"} + std::to_string(i * 7919LL % (studies / 10)) + "X*");
}
DcmDataset everything(int, int) {
    return study(DCM_StudyInstanceUID, "");
}

struct Rate {
    double requests = 0;
    double answers = 0;
};

Rate measure(const Server& server, const Work& work) {
    if (work.tcp == Tcp::NoDelay)
        qputenv("TCP_NODELAY", "1");
    else
        qunsetenv("TCP_NODELAY");
    RequestorAssociation peer{server.port, "TESSALY", server.called, Finding::contexts()};
    int answers = 0;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < work.requests; ++i) {
        const Finding::Rest rest = findAll(peer, work.ask(i, server.studies));
        if (rest.last.status != 0 || rest.pending == 0)
            throw std::runtime_error(std::string{server.name} + " does not answer");
        answers += rest.pending;
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    peer.release();
    return {.requests = work.requests / time.count(), .answers = answers / time.count()};
}

Rate best(const Server& server, const Work& work, int rounds) {
    Rate result;
    for (int round = 0; round < rounds; ++round) {
        const Rate one = measure(server, work);
        result = {.requests = std::max(result.requests, one.requests),
                  .answers = std::max(result.answers, one.answers)};
    }
    return result;
}

void store(const QString& folder, const Server& server) {
    const Outcome outcome =
        run(u"storescu"_s, {u"-aet"_s, u"TESSALY"_s, u"-aec"_s, QString::fromStdString(server.called),
                            u"+sd"_s, u"localhost"_s, server.port, folder});
    if (outcome.exitCode != 0)
        throw std::runtime_error(std::string{server.name} + ": " + outcome.output.right(500).toStdString());
}

double peakMegabytes(const Daemon& daemon) {
    QFile status{u"/proc/%1/status"_s.arg(daemon.process.processId())};
    if (!status.open(QIODevice::ReadOnly))
        throw std::runtime_error("the server is gone");
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.simplified().split(' ').at(1).toDouble() / 1024;
    }
    throw std::runtime_error("no VmHWM");
}

std::unique_ptr<Daemon> startDaemon() {
    auto daemon = std::make_unique<Daemon>();
    daemon->database.run(u"INSERT INTO DicomNodes (Name, AETitle, Query) VALUES ('bench', 'TESSALY', 1)"_s);
    return daemon;
}

/// Objects of so many studies, ten of a family name.
void writeStudies(const QString& folder, int studies) {
    constexpr int Side = 8;
    for (int i = 1; i <= studies; ++i) {
        const std::string study = std::string{"1.2.3."} + std::to_string(i);
        writeObject({.patientId = std::string{"P"} + std::to_string(i),
                     .patientName =
                         std::string{"Family"} + std::to_string((i - 1) / 10) + "X^Given" + std::to_string(i),
                     .study = study,
                     .series = study + ".1",
                     .instance = study + ".1.1",
                     .side = Side},
                    folder + u"/%1.dcm"_s.arg(i));
    }
}

void compare(int studies, bool withPlainIndex) {
    const QTemporaryDir folder;
    writeStudies(folder.path(), studies);
    qputenv("TCP_NODELAY", "1");
    const auto orthanc = Product::orthanc();
    const auto dcmqrscp = withPlainIndex ? Product::dcmqrscp() : nullptr;
    qunsetenv("TCP_NODELAY");  // this server does without
    const auto daemon = startDaemon();
    daemon->launch();
    const Server here{"tessalyd", daemon->port(), "TESSALY", studies};
    std::vector<Server> others{{"Orthanc", orthanc->port(), "ORTHANC", studies}};
    if (dcmqrscp)
        others.push_back({"dcmqrscp", dcmqrscp->port(), "DCMQRSCP", studies});
    qputenv("TCP_NODELAY", "1");
    store(folder.path(), here);
    for (const Server& other : others)
        store(folder.path(), other);

    std::printf("\n%d studies of one image\n%-34s %12s %12s", studies, "work", "requests/s", "answers/s");
    for (const Server& other : others)
        std::printf(" %10s/s %7s", other.name, "ratio");
    std::printf("\n");
    const std::array works{Work{"exact study, TCP_NODELAY", Tcp::NoDelay, 1000, exactStudy},
                           Work{"exact study, as it comes", Tcp::AsItComes, 1000, exactStudy},
                           Work{"beginning of a name, TCP_NODELAY", Tcp::NoDelay, 300, name},
                           Work{"all studies, TCP_NODELAY", Tcp::NoDelay, 3, everything}};
    for (const Work& work : works) {
        const Rate rate = best(here, work, Rounds);
        std::printf("%-34s %12.0f %12.0f", work.name, rate.requests, rate.answers);
        for (const Server& other : others) {
            Work less = work;
            less.requests = std::max(1, work.requests / (work.tcp == Tcp::NoDelay ? 20 : 50));
            const Rate there = best(other, less, 2);
            std::printf(" %12.1f %7.1f", there.requests, rate.requests / there.requests);
        }
        std::printf("\n");
        std::fflush(stdout);
    }
}

void alone(int studies) {
    const auto daemon = startDaemon();
    const QString numbers =
        u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<%1) "_s.arg(studies);
    daemon->database.run(u"BEGIN"_s);
    daemon->database.run(numbers +
                         u"INSERT INTO Patient (ID, PatientID, Name, NameAlphabetic) SELECT i, 'P'||i, "
                         "'Family'||((i-1)/10)||'X^Given'||i, 'family'||((i-1)/10)||'x^given'||i FROM n"_s);
    daemon->database.run(numbers +
                         u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath, StudyDate, "
                         "Description) SELECT '1.2.3.'||i, i, '/archive/'||i, "
                         "CAST(20000101+i%28 AS TEXT), 'Thorax' FROM n"_s);
    daemon->database.run(u"COMMIT"_s);
    daemon->database.release();
    daemon->launch();
    const Server here{"tessalyd", daemon->port(), "TESSALY", studies};
    std::printf("\n%d studies\n%-34s %12s %12s %8s\n", studies, "work", "requests/s", "answers/s", "MB");
    const std::array works{Work{"exact study, TCP_NODELAY", Tcp::NoDelay, 1000, exactStudy},
                           Work{"beginning of a name, TCP_NODELAY", Tcp::NoDelay, 300, name},
                           Work{"all studies, TCP_NODELAY", Tcp::NoDelay, 1, everything}};
    for (const Work& work : works) {
        const Rate rate = best(here, work, Rounds);
        std::printf("%-34s %12.0f %12.0f %8.1f\n", work.name, rate.requests, rate.answers,
                    peakMegabytes(*daemon));
        std::fflush(stdout);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const ScratchBus bus;
    const QCoreApplication application{argc, argv};
    return tessaly::runBench([&] {
        compare(200, true);
        compare(2000, false);
        alone(100'000);
    });
}
