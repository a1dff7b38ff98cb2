// How fast the server stores and answers, beside other products' receivers on the same disk in the same run:
// from one sender as it comes, from one and from eight with TCP_NODELAY. Its peak of memory, and associations
// for a C-ECHO. Prints tables; judges nothing.

#include <fcntl.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <thread>
#include <vector>

#include "archive/SharedFlush.h"
#include "bench/Bench.h"
#include "bench/StoreLoad.h"
#include "dicom/net/Verifier.h"
#include "tests/dicom/net/Peers.h"
#include "tests/support/ScratchBus.h"
#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/RequestorAssociation.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::bench;
using namespace tessaly::test;

namespace {

constexpr int Rounds = 3;

/// Objects a second at a receiver that the senders have for themselves; the tessalyd among them must have
/// all.
double rateAtTessalyd(Tcp tcp, const QStringList& folders, int objects) {
    set(Tcp::AsItComes);  // the variable is the sender's alone: the server does without
    Daemon& daemon = keep(std::make_unique<Daemon>());
    daemon.launch();
    set(tcp);
    const double seconds = send(daemon.port(), folders);
    if (daemon.images().size() != objects || !daemon.terminate())
        throw std::runtime_error("the server has not stored all, or does not end");
    return objects / seconds;
}

double rateAt(std::unique_ptr<Product> (*product)(), Tcp tcp, const QStringList& folders, int objects) {
    set(tcp);
    return objects / send(keep(product()).port(), folders);
}

void compareStores(const Objects& made) {
    const QStringList few{made.folder(0, 0)};
    const QStringList all{made.folder(0)};
    QStringList eight;
    for (int sender = 0; sender < Senders; ++sender)
        eight << made.folder(0, sender);
    constexpr int All = Senders * Part;

    struct Row {
        const char* sender;
        const char* other;
        std::function<double()> here;
        std::function<double()> there;
        int roundsThere;
    };
    const std::vector<Row> rows{
        {"one, as it comes", "storescp as it comes", [&] { return rateAtTessalyd(Tcp::AsItComes, all, All); },
         [&] { return rateAt(Product::storescp, Tcp::AsItComes, few, Part); }, 1},
        {"one, TCP_NODELAY", "storescp, TCP_NODELAY", [&] { return rateAtTessalyd(Tcp::NoDelay, all, All); },
         [&] { return rateAt(Product::storescp, Tcp::NoDelay, all, All); }, Rounds},
        {"eight, TCP_NODELAY", "Orthanc, TCP_NODELAY",
         [&] { return rateAtTessalyd(Tcp::NoDelay, eight, All); },
         [&] { return rateAt(Product::orthanc, Tcp::NoDelay, eight, All); }, Rounds}};
    std::printf("senders             tessalyd        other product                  ratio\n");
    for (const Row& row : rows) {
        double here = 0;
        double there = 0;
        for (int round = 0; round < Rounds; ++round) {  // in turns
            here = std::max(here, row.here());
            if (round < row.roundsThere)
                there = std::max(there, row.there());
        }
        std::printf("%-18s %6.0f objects/s   %-22s %6.0f/s %6.2f\n", row.sender, here, row.other, there,
                    here / there);
        std::fflush(stdout);
    }
}

/// What the flushes of one store cost on this disk, in plain C: the file, its folder, the database's log.
void measureFlushes() {
    static const QTemporaryDir folder;  // stays, as what was stored does
    const int root = ::open(qPrintable(folder.path()), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const int log = ::openat(root, "log", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const std::vector<char> object(33'000, 'x');
    const std::vector<char> pages(4L * 4096, 'x');
    enum Flushed { Nothing, File, Folder, Log };
    const auto millisecondsOf = [&](Flushed flushed) {
        constexpr int Objects = 500;
        bool good = root >= 0 && log >= 0;
        const double seconds = secondsOf([&] {
            for (int i = 0; i < Objects; ++i) {
                const std::string name = std::to_string(flushed) + '.' + std::to_string(i);
                const int file = ::openat(root, "part", O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
                good = good && ::write(file, object.data(), object.size()) == ssize_t(object.size()) &&
                       (flushed < File || ::fsync(file) == 0) &&
                       ::renameat(root, "part", root, name.c_str()) == 0 &&
                       (flushed < Folder || ::fsync(root) == 0) &&
                       ::pwrite(log, pages.data(), pages.size(), i % 100 * ssize_t(pages.size())) > 0 &&
                       (flushed < Log || ::fdatasync(log) == 0);
                ::close(file);
            }
        });
        if (!good)
            throw std::runtime_error("the disk cannot be measured");
        return seconds * 1000 / Objects;
    };
    (void)millisecondsOf(Log);  // the log has its size
    std::printf("\nthis disk, an object of 33 KB written and renamed, its pages written to a log\n");
    for (const auto& [flushed, what] : {std::pair{Nothing, "nothing flushed"},
                                        {File, "the file flushed"},
                                        {Folder, "the file and its folder"},
                                        {Log, "the file, its folder and the log"}})
        std::printf("%-34s %8.3f ms\n", what, millisecondsOf(flushed));
    ::close(log);
    ::close(root);
}

/// The same flushes by eight threads at once, each with a folder of its own, in plain C, without a network
/// and without senders: the file and its folder by each, and the log by one for all that wait.
void flushSideBySide() {
    const QTemporaryDir& folder = keep(std::make_unique<QTemporaryDir>());
    const std::vector<char> object(33'000, 'x');
    const std::vector<char> pages(4L * 4096, 'x');
    const int log = ::open(qPrintable(folder.filePath(u"log"_s)), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    std::atomic<bool> good{log >= 0};
    tessaly::archive::SharedFlush flushes;
    const auto write = [&](int thread) {
        const QString path = folder.filePath(QString::number(thread));
        QDir{}.mkpath(path);
        const int root = ::open(qPrintable(path), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        for (int i = 0; i < Batches * Part && good; ++i) {
            const std::string name = std::to_string(i);
            const int file = ::openat(root, "part", O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
            good =
                good && ::write(file, object.data(), object.size()) == ssize_t(object.size()) &&
                ::fsync(file) == 0 && ::renameat(root, "part", root, name.c_str()) == 0 &&
                ::fsync(root) == 0 && flushes.run({0, 0}, [&] {
                    return ::pwrite(log, pages.data(), pages.size(), i % Part * ssize_t(pages.size())) > 0 &&
                           ::fdatasync(log) == 0;
                });
            ::close(file);
        }
        ::close(root);
    };
    {
        std::vector<std::jthread> threads;
        threads.reserve(Senders);
        for (int thread = 0; thread < Senders; ++thread)
            threads.emplace_back(write, thread);
    }
    ::close(log);
    if (!good)
        throw std::runtime_error("the disk cannot be measured");
}

/// Seconds that all processors together have worked since the machine's start, for the kernel's own threads,
/// which write to the disk, as well.
double busySeconds() {
    QFile statistics{u"/proc/stat"_s};
    if (!statistics.open(QIODevice::ReadOnly))
        throw std::runtime_error("no statistics of the processors");
    const QList<QByteArray> ticks = statistics.readLine().simplified().split(' ');
    double sum = 0;
    for (const int column : {1, 2, 3, 6, 7})  // user, nice, system, interrupts; not idle, nor waiting
        sum += ticks.at(column).toDouble();
    return sum / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

/// What eight senders could have at most on this machine: what they cost by themselves, with a receiver that
/// writes nothing, and what making their objects safe costs in plain C have to be paid by the same
/// processors.
void measureBound(const Objects& made) {
    constexpr int All = Batches * Senders * Part;
    struct Cost {
        double rate = 0;            ///< objects a second
        double busy = 0;            ///< processors at work, on the average
        double milliseconds = 1e9;  ///< of processor time, an object
        void best(double seconds, double processor) {
            rate = std::max(rate, All / seconds);
            if (processor * 1000 / All < milliseconds) {
                milliseconds = processor * 1000 / All;
                busy = processor / seconds;
            }
        }
    };
    const auto measure = [](Cost& cost, const std::function<double()>& work) {
        const double before = busySeconds();
        const double seconds = work();
        cost.best(seconds, busySeconds() - before);
    };
    const auto sendAll = [&](const QString& port) {
        double seconds = 0;
        for (int batch = 0; batch < Batches; ++batch) {
            QStringList eight;
            for (int sender = 0; sender < Senders; ++sender)
                eight << made.folder(batch, sender);
            seconds += send(port, eight);
        }
        return seconds;
    };
    Cost senders;
    Cost flushes;
    Cost here;
    for (int round = 0; round < Rounds; ++round) {  // in turns
        set(Tcp::NoDelay);
        const Product& ignoring = keep(Product::storescp({u"--ignore"_s, u"--fork"_s}));
        measure(senders, [&] { return sendAll(ignoring.port()); });
        measure(flushes, [] { return secondsOf(flushSideBySide); });
        set(Tcp::AsItComes);
        Daemon& daemon = keep(std::make_unique<Daemon>());
        daemon.launch();
        set(Tcp::NoDelay);
        measure(here, [&] { return sendAll(daemon.port()); });
        if (!daemon.terminate())
            throw std::runtime_error("the server does not end");
    }
    std::printf("\neight at once                              objects/s   processors   ms an object\n");
    const auto print = [](const char* what, const Cost& cost) {
        std::printf("%-42s %9.0f %12.2f %14.3f\n", what, cost.rate, cost.busy, cost.milliseconds);
    };
    print("senders, and a receiver that writes nothing", senders);
    print("files, folders and log flushed in plain C", flushes);
    print("tessalyd and its senders", here);
    const auto processors = static_cast<double>(::sysconf(_SC_NPROCESSORS_ONLN));
    std::printf("at most, where the first two are paid      %9.0f\n",
                std::min(flushes.rate, processors * 1000 / (senders.milliseconds + flushes.milliseconds)));
}

/// Of another process, in MB.
double peakMemory(qint64 process) {
    QFile status{u"/proc/%1/status"_s.arg(process)};
    if (status.open(QIODevice::ReadOnly)) {
        for (const QByteArray& line : status.readAll().split('\n')) {
            if (line.startsWith("VmHWM:"))
                return line.simplified().split(' ').at(1).toDouble() / 1024;
        }
    }
    throw std::runtime_error("no peak of memory");
}

void measureMemory(const Objects& made) {
    set(Tcp::NoDelay);
    Daemon daemon;
    daemon.launch();
    std::printf("\ntessalyd's peak of memory, eight senders\nno object         %6.1f MB\n",
                peakMemory(daemon.process.processId()));
    for (int batch = 0; batch < Batches; ++batch) {
        QStringList folders;
        for (int sender = 0; sender < Senders; ++sender)
            folders << made.folder(batch, sender);
        (void)send(daemon.port(), folders);
        std::printf("%6d objects    %6.1f MB\n", (batch + 1) * Senders * Part,
                    peakMemory(daemon.process.processId()));
    }
}

/// Associations a second, each opened for one C-ECHO and released.
double echoes(int count, const std::function<bool()>& echo) {
    return count / secondsOf([&] {
               for (int i = 0; i < count; ++i) {
                   if (!echo())
                       throw std::runtime_error("an echo failed");
               }
           });
}
bool echoOfTheToolkit(const QString& port) {
    RequestorAssociation association{port};
    const bool answered = association.isOpen() && association.echo();
    association.release();
    return answered;
}
bool echoOfTheConsole(const QString& port) {
    return dicom::Verifier{}
               .verify({.host = "127.0.0.1", .port = port.toStdString(), .calledAeTitle = "ANY"})
               .outcome == dicom::VerificationResult::Outcome::Success;
}

void compareEchoes() {
    set(Tcp::AsItComes);
    const auto untuned = Product::storescp();
    Daemon daemon;
    daemon.launch();
    set(Tcp::NoDelay);
    const auto tuned = Product::storescp();
    constexpr int Few = 100;  // where each one waits for acknowledgements
    constexpr int Many = 1'000;
    std::printf("\nassociations with one C-ECHO, a second     tessalyd   storescp\n");
    const auto print = [](const char* client, double here, double there) {
        std::printf("%-42s %8.0f %10.0f\n", client, here, there);
    };
    set(Tcp::AsItComes);
    print("the toolkit as it comes", echoes(Many, [&] { return echoOfTheToolkit(daemon.port()); }),
          echoes(Few, [&] { return echoOfTheToolkit(untuned->port()); }));
    print("the console's verification", echoes(Many, [&] { return echoOfTheConsole(daemon.port()); }),
          echoes(Few, [&] { return echoOfTheConsole(untuned->port()); }));
    set(Tcp::NoDelay);
    print("the toolkit, TCP_NODELAY at both ends",
          echoes(Many, [&] { return echoOfTheToolkit(daemon.port()); }),
          echoes(Many, [&] { return echoOfTheToolkit(tuned->port()); }));
}

}  // namespace

int main(int argc, char** argv) {
    return tessaly::runBench([&] {
        const ScratchBus bus;
        const QCoreApplication application{argc, argv};
        const Objects objects;
        compareStores(objects);
        measureFlushes();
        measureBound(objects);
        measureMemory(objects);
        compareEchoes();
    });
}
