#include <malloc.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QTimer>
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <thread>

#include "dicom/net/transport/SocketAddress.h"
#include "tessalyd/configuration/Configuration.h"
#include "tessalyd/control/ControlObject.h"
#include "tessalyd/control/EndSignals.h"

using namespace Qt::StringLiterals;

namespace {

using namespace tessaly::tessalyd;

std::filesystem::path stateFolder() {
    if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state != '\0')
        return state;
    const char* home = std::getenv("HOME");
    return std::filesystem::path{home != nullptr ? home : "/"} / ".local" / "state";
}

/// Every store takes some buffers and gives them back. Kept by the heap, they cost no call of the kernel, for
/// which the threads of all associations would wait. The heap keeps so much for each of its arenas, of which
/// there are fewer than the library would make.
void keepFreedMemory() {
    constexpr int Kept = 4 << 20;
    constexpr int Step = 1 << 20;
    const int cores = std::max(2, static_cast<int>(std::thread::hardware_concurrency()));
    mallopt(M_TRIM_THRESHOLD, Kept);
    mallopt(M_TOP_PAD, Step);
    mallopt(M_ARENA_MAX, 2 * cores);
}

/// Returns to the system the free pages between the blocks in use: what a flood of associations or a query of
/// many values took would stay with the server for good.
void returnFreePages() {
    constexpr std::size_t Kept = 16 << 20;
    if (mallinfo2().fordblks > Kept)
        malloc_trim(0);
}

/// A core would have images in it, and the passwords of the database.
void leaveNoCore() {
    const rlimit none{.rlim_cur = 0, .rlim_max = 0};
    setrlimit(RLIMIT_CORE, &none);
    prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}

/// Beside this program where it was built, and where it was installed to.
std::filesystem::path decoderProgram() {
    const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    auto built = folder / "tessaly-decoder";
    return std::filesystem::exists(built) ? built : folder / TESSALY_DECODER;
}

int fail(const std::string& why) {
    std::cerr << "tessalyd: " << why << '\n';
    return EXIT_FAILURE;
}

int serve(const Options& options) {
    EndSignals endSignals;  // before the bus, which makes a thread
    const QString name = u"org.tessaly.Server"_s;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return fail("no session bus: " + bus.lastError().message().toStdString());
    ControlObject control{bus, options};
    // The object first: the call that started this process comes as soon as the name is owned.
    bus.registerObject(u"/org/tessaly/Server"_s, &control);
    if (!bus.registerService(name))
        return fail("another process is org.tessaly.Server already");
    QObject::connect(&endSignals, &EndSignals::received, &control, &ControlObject::Terminate);
    QObject::connect(&control, &ControlObject::finished, qApp, &QCoreApplication::quit);
    // Without its bus the server could not be controlled any more, and a new one could not have its ports.
    bus.connect({}, u"/org/freedesktop/DBus/Local"_s, u"org.freedesktop.DBus.Local"_s, u"Disconnected"_s,
                &control, SLOT(Terminate()));
    QTimer memoryTimer;
    QObject::connect(&memoryTimer, &QTimer::timeout, qApp, returnFreePages);
    memoryTimer.start(std::chrono::seconds{5});
    control.run();
    const int result = QCoreApplication::exec();
    control.close();
    bus.unregisterService(name);  // last: who waits for this may take the ports and the files at once
    return result;
}

/// What CLI11 says of an option's value that is no address; nothing of one that is.
std::string numericAddress(const std::string& text) {
    return tessaly::dicom::SocketAddress::parse(text) ? std::string{}
                                                      : text + " is neither an IPv4 nor an IPv6 address";
}

int run(int argc, char** argv) {
    CLI::App commandLine{"The Tessaly DICOM server"};
    const std::filesystem::path state = stateFolder() / "tessaly";
    Options options{.logFile = state / "tessalyd.log",
                    .lingerMark = state / "runs-without-session",
                    .logBytes = 10L << 20U,
                    .grace = std::chrono::seconds{15}};
    std::string logFile = options.logFile;
    long graceSeconds = options.grace.count();
    commandLine.add_option("--log-file", logFile, "Log file")->capture_default_str();
    commandLine.add_option("--log-size", options.logBytes, "Size in bytes at which a new log file is begun")
        ->capture_default_str()
        ->check(CLI::Range(200L << 10U, 1L << 40U));
    commandLine
        .add_option("--grace", graceSeconds,
                    "Seconds that open associations have to end when the server is stopped")
        ->capture_default_str()
        ->check(CLI::Range(0, 3600));
    commandLine
        .add_option("--listen", options.addresses,
                    "IPv4 or IPv6 address to listen on; may be given several times (default: all)")
        ->check(numericAddress)
        ->type_name("ADDRESS")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    commandLine
        .add_option("--decode-limit", options.decoding.decodeLimit,
                    "Bytes that the decoded pixels of one object may have")
        ->capture_default_str()
        ->check(CLI::Range(std::uint64_t{1} << 20U, std::uint64_t{0xfffffffe}));
    commandLine
        .add_option("--decode-memory", options.decoding.decodeMemory,
                    "Bytes of memory that all decoders together may have")
        ->capture_default_str()
        ->check(CLI::Range(std::uint64_t{128} << 20U, std::uint64_t{1} << 50U));
    long firstRetry = options.jobs.firstRetry.count();
    long giveUp = options.jobs.giveUp.count();
    commandLine
        .add_option(
            "--first-retry", firstRetry,
            "Seconds until a job that met a transient fault is tried again, the first time; the others "
            "are 2, 5, 10, 30 and 60 times as long")
        ->capture_default_str()
        ->check(CLI::Range(1, 86400));
    commandLine
        .add_option("--give-up", giveUp, "Seconds after which a job that meets transient faults is given up")
        ->capture_default_str()
        ->check(CLI::Range(1, 31536000));
    long peerTimeout = options.peerTimeout.count();
    commandLine
        .add_option(
            "--peer-timeout", peerTimeout,
            "Seconds that a printer has for each answer; for the one to a print command three times as "
            "many")
        ->capture_default_str()
        ->check(CLI::Range(1, 3600));
    CLI11_PARSE(commandLine, argc, argv);
    options.peerTimeout = std::chrono::seconds{peerTimeout};
    options.logFile = logFile;
    options.grace = std::chrono::seconds{graceSeconds};
    options.jobs.firstRetry = std::chrono::seconds{firstRetry};
    options.jobs.giveUp = std::chrono::seconds{giveUp};
    options.decoding.program = decoderProgram();

    leaveNoCore();
    constexpr mode_t NotForOthers = 027;  // images and the log are of patients
    umask(NotForOthers);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow any more fails its write, not the server
    keepFreedMemory();
    QCoreApplication application{argc, argv};
    const int status = serve(options);
    // A return would take the driver apart while the thread that was left behind is in it.
    if (isReadingLeftBehind())
        std::_Exit(status);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& fault) {
        return fail(fault.what());
    }
}
