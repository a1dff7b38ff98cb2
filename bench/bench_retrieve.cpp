// How fast objects are fetched (C-GET) and moved (C-MOVE), beside another product's archive in the same run,
// and beside the bound that its sender and receiver set by themselves; the server's peak of memory. Prints
// tables; judges nothing. An argument says how many objects there are.

#include <dcmtk/dcmdata/dcdeftag.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>

#include "bench/Bench.h"
#include "tests/support/ScratchBus.h"
#include "tests/support/UnusedPort.h"
#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/Objects.h"
#include "tests/tessalyd/services/retrieve/Retriever.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

constexpr int UsualCount = 2'000;
constexpr int Rounds = 3;
constexpr int MostSingleMoves = 200;
constexpr int Side = 128;  // 33 KB
const std::string Study = "1.2.3.4";

double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void need(bool good, const std::string& what) {
    if (!good)
        throw std::runtime_error{what};
}

/// Runs a program to its end, however long it takes.
Outcome runToEnd(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    const bool ended = process.waitForFinished(-1);
    return {.exitCode = ended ? process.exitCode() : -1, .output = QString::fromLocal8Bit(process.readAll())};
}

/// A process that listens; killed at the end.
class Peer {
  public:
    Peer(const QString& program, const QStringList& arguments, const QString& port) {
        process_.setProcessChannelMode(QProcess::MergedChannels);
        process_.setStandardOutputFile(QProcess::nullDevice());
        process_.start(program, arguments);
        need(QTest::qWaitFor(
                 [&port] {
                     QTcpSocket probe;
                     probe.connectToHost(u"127.0.0.1"_s, port.toUShort());
                     return probe.waitForConnected(1000);
                 },
                 PatienceMs),
             program.toStdString() + " does not listen");
    }
    ~Peer() {
        process_.kill();
        process_.waitForFinished();
    }

  private:
    QProcess process_;
};

QStringList keys(const QString& level, const QStringList& more) {
    QStringList all{u"-S"_s, u"-k"_s, u"QueryRetrieveLevel=%1"_s.arg(level)};
    for (const QString& key : more)
        all << u"-k"_s << key;
    return all;
}

void callTool(const QString& tool, const QStringList& options, const QString& port) {
    const Outcome done = runToEnd(tool, QStringList{u"-aet"_s, u"VIEWER"_s, u"-aec"_s, u"TESSALY"_s} +
                                            options + QStringList{u"127.0.0.1"_s, port});
    need(done.exitCode == 0, tool.toStdString() + ": " + done.output.right(2000).toStdString());
}

void get(const QString& port) {
    callTool(u"getscu"_s,
             keys(u"STUDY"_s, {u"StudyInstanceUID="_s + QString::fromStdString(Study)}) +
                 QStringList{u"--ignore"_s},
             port);
}

void move(const QString& port) {
    callTool(u"movescu"_s,
             keys(u"STUDY"_s, {u"StudyInstanceUID="_s + QString::fromStdString(Study)}) +
                 QStringList{u"-aem"_s, u"DEST"_s},
             port);
}

/// One association, one image a request.
void moveOneByOne(const QString& port, int moves) {
    Retriever viewer{port, {}};
    for (int i = 0; i < moves; ++i) {
        viewer.ask(Retriever::MoveStudyRoot, "IMAGE",
                   {{DCM_StudyInstanceUID, Study},
                    {DCM_SeriesInstanceUID, Study + ".1"},
                    {DCM_SOPInstanceUID, Study + ".1." + std::to_string(i)}},
                   "DEST");
        const Retrieved moved = viewer.collect();
        need(moved.status == 0 && moved.counters.completed == 1, "an image was not moved");
    }
    viewer.release();
}

void send(const QString& folder, const QString& port) {
    const Outcome done =
        runToEnd(u"storescu"_s, {u"-aec"_s, u"TESSALY"_s, u"+sd"_s, u"127.0.0.1"_s, port, folder});
    need(done.exitCode == 0, "storescu: " + done.output.right(2000).toStdString());
}

double peakMemory(qint64 process) {
    QFile status{u"/proc/%1/status"_s.arg(process)};
    need(status.open(QIODevice::ReadOnly), "no process to measure");
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.simplified().split(' ').at(1).toDouble() / 1024;
    }
    return 0;
}

void writeConfiguration(const QString& file, const QString& port, const QString& folder,
                        const QString& destination) {
    QFile configuration{file};
    need(configuration.open(QIODevice::WriteOnly), "no configuration");
    configuration.write(
        u"NetworkTCPPort = %1\nMaxPDUSize = 131072\nMaxAssociations = 16\n"
        "HostTable BEGIN\ndest = (DEST, 127.0.0.1, %2)\nHostTable END\n"
        "VendorTable BEGIN\nVendorTable END\n"
        "AETable BEGIN\nTESSALY %3 RW (100, 4096mb) ANY\nAETable END\n"_s.arg(port, destination, folder)
            .toUtf8());
}

void measure(int many) {
    const int singleMoves = std::min(many, MostSingleMoves);
    const QTemporaryDir scratch;
    const QString folder = scratch.filePath(u"objects"_s);
    QDir{}.mkpath(folder);
    for (int i = 0; i < many; ++i)
        writeObject({.study = Study,
                     .series = Study + ".1",
                     .instance = Study + ".1." + std::to_string(i),
                     .side = Side,
                     .seed = i},
                    folder + u"/%1.dcm"_s.arg(i));

    qputenv("TCP_NODELAY", "1");
    const QString destinationPort = unusedPort();
    const Peer destination{u"storescp"_s, {u"--ignore"_s, destinationPort}, destinationPort};

    Daemon daemon;
    const auto addNode = [&daemon](const QString& title, const QString& port, int store, int query) {
        daemon.database.run(
            u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port, Store, Query) "
            "VALUES (?, ?, 'TESSALY', '127.0.0.1', ?, ?, ?)"_s,
            {title, title, port, store, query});
    };
    addNode(u"VIEWER"_s, u"104"_s, 0, -1);
    addNode(u"DEST"_s, destinationPort, -1, 0);
    qunsetenv("TCP_NODELAY");  // the server does without
    daemon.launch();
    qputenv("TCP_NODELAY", "1");
    send(folder, daemon.port());
    std::printf("%d objects of %d KB are stored\n", many, Side * Side * 2 / 1000);
    std::fflush(stdout);

    const QString otherPort = unusedPort();
    const QString otherFolder = scratch.filePath(u"other"_s);
    QDir{}.mkpath(otherFolder);
    writeConfiguration(scratch.filePath(u"other.cfg"_s), otherPort, otherFolder, destinationPort);
    const Peer other{u"dcmqrscp"_s, {u"-c"_s, scratch.filePath(u"other.cfg"_s)}, otherPort};
    send(folder, otherPort);

    struct Row {
        const char* what;
        int count;
        std::function<void(const QString&)> work;
    };
    std::printf("objects a second, best of %d                 tessalyd   dcmqrscp   ratio\n", Rounds);
    for (const Row& row :
         {Row{"C-GET by getscu, TCP_NODELAY", many, get}, Row{"C-MOVE by movescu, TCP_NODELAY", many, move},
          Row{"C-MOVE, one image a request", singleMoves,
              [singleMoves](const QString& port) { moveOneByOne(port, singleMoves); }}}) {
        double here = 0;
        double there = 0;
        for (int round = 0; round < Rounds; ++round) {  // in turns
            here = std::max(here, row.count / secondsOf([&] { row.work(daemon.port()); }));
            there = std::max(there, row.count / secondsOf([&] { row.work(otherPort); }));
        }
        std::printf("%-42s %10.0f %10.0f %7.2f\n", row.what, here, there, here / there);
        std::fflush(stdout);
    }
    double bound = 0;
    for (int round = 0; round < Rounds; ++round)
        bound = std::max(bound, many / secondsOf([&] { send(folder, destinationPort); }));
    std::printf("%-42s %10.0f\n", "bound: storescu to storescp --ignore", bound);
    qunsetenv("TCP_NODELAY");
    std::printf("%-42s %10.0f\n", "C-GET by getscu as it comes",
                many / secondsOf([&] { get(daemon.port()); }));
    constexpr int Fetched = 10'000;
    for (int fetched = 0; fetched < Fetched; fetched += many)
        get(daemon.port());
    std::printf("\n%d objects; tessalyd's peak of memory after more than %d fetched: %.1f MB\n", many,
                Fetched, peakMemory(daemon.process.processId()));
}

}  // namespace

int main(int argc, char** argv) {
    return tessaly::runBench([&] {
        const ScratchBus bus;
        const QCoreApplication application{argc, argv};
        measure(argc > 1 ? std::max(std::atoi(argv[1]), 1) : UsualCount);
    });
}
