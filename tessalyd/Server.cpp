#include "tessalyd/Server.h"

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <stdexcept>
#include <system_error>

#include "archive/StoredPath.h"
#include "tessalyd/Log.h"
#include "tessalyd/Printable.h"
#include "tessalyd/association/AssociationHandler.h"
#include "tessalyd/services/AllServices.h"
#include "tessalyd/store/ArchiveReport.h"

namespace tessaly::tessalyd {

namespace {

/// Connections beyond the ports' limits: those that are being rejected, or have not said yet what they want.
constexpr std::size_t SpareThreads = 64;

/// What gives the right to bind ports below 1024.
std::string remedy() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    return "Ports below 1024 need a right: sudo setcap cap_net_bind_service=+ep " +
           (error ? std::string{"tessalyd"} : program.native()) + ", and start the server anew";
}

std::vector<std::string> rootsOf(const Configuration& configuration) {
    std::vector<std::string> roots;
    for (const PortConfiguration& port : configuration.ports)
        roots.push_back(port.root);
    return roots;
}

std::vector<jobs::Spool> spoolsOf(const Configuration& configuration) {
    std::vector<jobs::Spool> spools;
    for (const PortConfiguration& port : configuration.ports)
        spools.emplace_back(archive::localPath(port.root));
    return spools;
}

void reportJob(jobs::Severity severity, const std::string& line) {
    const std::string text = printable(line);
    if (severity == jobs::Severity::Error)
        OFLOG_ERROR(serverLog(), text.c_str());
    else if (severity == jobs::Severity::Info)
        OFLOG_INFO(serverLog(), text.c_str());
    else
        OFLOG_DEBUG(serverLog(), text.c_str());
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += (text.empty() ? "" : "; ") + line;
    return text;
}

}  // namespace

Server::Server(OpenAssociations::Event opened, OpenAssociations::Event ended, decoder::Pool::Options decoding,
               std::vector<std::string> addresses, const jobs::RunnerOptions& jobs,
               std::chrono::seconds peerTimeout, const AssociationLimits& limits)
    : addresses_(addresses.empty() ? std::vector<std::string>{{}} : std::move(addresses)),
      decoders_(std::move(decoding)),
      limits_(limits),
      transport_(limits_),
      open_(std::move(opened), std::move(ended)),
      shared_(decoders_),
      jobs_(
          jobHandlers(shared_, peerTimeout),
          [](db::Connection& connection) { openDatabase(connection, db::Purpose::DurableWrites); }, reportJob,
          jobs),
      services_(allServices(shared_)) {
    shared_.wakeJobs = [this] { jobs_.wake(); };
    shared_.quietTime = jobs.firstRetry;
}

Server::~Server() {
    shutDown();
}

void Server::start(const std::stop_token& stop) {
    if (listening_)
        return;
    shared_.closeSessions();  // another file may be the database by now
    const Configuration configuration = fetchConfiguration(stop);
    configure(configuration);
    bindAll(configuration.ports);
    cleaner_.emplace(rootsOf(configuration), reportArchive);
    jobs_.start(spoolsOf(configuration));
    watchDatabase(configuration);
    listening_ = true;
    if (configuration.hasOlderRows)
        OFLOG_INFO(serverLog(),
                   "older rows of the archive lack what queries need of them: run tessaly-db upgrade");
    OFLOG_INFO(serverLog(),
               "listening on " << portsBound_ << " of " << configuration.ports.size() << " ports");
}

void Server::configure(const Configuration& configuration) {
    LogFile::apply(configuration.log);
    const auto associations =
        std::accumulate(configuration.ports.begin(), configuration.ports.end(), std::size_t{0},
                        [](std::size_t sum, const PortConfiguration& port) {
                            return sum + static_cast<std::size_t>(std::max(port.maxConnections, 0));
                        });
    shared_.index.configure(configuration.queryTimeout, associations);
    shared_.configure(configuration);
    threads_.setLimit(associations + SpareThreads);
    shared_.index.rememberRoots(rootsOf(configuration));
    shared_.index.resume();
    shared_.jobs.resume();
}

void Server::watchDatabase(const Configuration& configuration) {
    watch_.emplace(configuration.databaseFile, DatabaseWatch::Actions{.lost =
                                                                          [this] {
                                                                              shared_.index.suspend();
                                                                              shared_.jobs.suspend();
                                                                              jobs_.stop();
                                                                              shared_.closeSessions();
                                                                          },
                                                                      .back =
                                                                          [this] {
                                                                              shared_.index.resume();
                                                                              shared_.jobs.resume();
                                                                              jobs_.start();
                                                                          }});
}

void Server::bindAll(const std::vector<PortConfiguration>& ports) {
    std::vector<std::string> faults;
    std::vector<std::string> lastingFaults;
    for (const PortConfiguration& port : ports) {
        if (!port.number()) {
            lastingFaults.push_back("port " + port.port + ": cannot listen: not a TCP port");
            continue;
        }
        ports_.push_back(std::make_shared<const PortConfiguration>(port));
        for (const std::string& address : addresses_) {
            Endpoint endpoint{.port = ports_.back(), .address = address};
            if (const auto fault = bind(endpoint)) {
                faults.push_back("port " + endpoint.name() + ": cannot listen: " + *fault);
                missing_.push_back(std::move(endpoint));
            } else {
                OFLOG_INFO(serverLog(), "port " << endpoint.name() << ": listening as " << port.aeTitle);
            }
        }
    }
    if (listeners_.empty() && hasMissing()) {
        forgetPorts();
        faults.insert(faults.end(), lastingFaults.begin(), lastingFaults.end());
        throw std::runtime_error{joined(faults)};
    }
    for (const std::string& fault : lastingFaults)
        OFLOG_ERROR(serverLog(), fault);
    for (const std::string& fault : faults)
        OFLOG_ERROR(serverLog(), fault << "; trying again");
    countBound();
}

void Server::bindMissing() {
    std::vector<Endpoint> missing;
    for (Endpoint& endpoint : missing_) {
        if (bind(endpoint))
            missing.push_back(std::move(endpoint));
        else  // at the level of the line before it, so that no level has the one without the other
            OFLOG_ERROR(serverLog(),
                        "port " << endpoint.name() << ": listening now as " << endpoint.port->aeTitle);
    }
    missing_ = std::move(missing);
    countBound();
}

std::optional<std::string> Server::bind(const Endpoint& endpoint) {
    try {
        listeners_.push_back(std::make_unique<Listener>(
            *endpoint.port,
            [this, port = endpoint.port](base::FileDescriptor socket, const std::stop_token& listening) {
                accept(port, std::move(socket), listening);
            },
            endpoint.address));
        return std::nullopt;
    } catch (const std::system_error& error) {
        constexpr int FirstForEverybody = 1024;
        const bool lacksRight =
            error.code() == std::errc::permission_denied && *endpoint.port->number() < FirstForEverybody;
        return lacksRight ? error.what() + (". " + remedy()) : error.what();
    }
}

std::string Server::Endpoint::name() const {
    return address.empty() ? port->port : port->port + " of " + address;
}

bool Server::isBound(const PortConfiguration& port) const {
    return std::none_of(missing_.begin(), missing_.end(),
                        [&port](const Endpoint& endpoint) { return endpoint.port.get() == &port; });
}

void Server::countBound() {
    portsBound_ = static_cast<int>(
        std::count_if(ports_.begin(), ports_.end(), [this](const auto& port) { return isBound(*port); }));
}

void Server::accept(const std::shared_ptr<const PortConfiguration>& port, base::FileDescriptor socket,
                    const std::stop_token& listening) {
    // Shared, because a std::function is to be copyable and the socket is not.
    auto held = std::make_shared<base::FileDescriptor>(std::move(socket));
    const auto started = threads_.start(peerAddress(*held), [this, port, held, listening](
                                                                AssociationThreads::Connection& connection) {
        AssociationHandler{{transport_, open_, services_, log_, limits_}, port, connection, listening}.run(
            std::move(*held));
    });
    if (started == AssociationThreads::Started::InPlaceOfAnother)
        log_.add(PeerLog::Event::Connection,
                 "port " + port->port + ": too many connections; one without an association was closed");
    else if (started == AssociationThreads::Started::No)
        log_.add(PeerLog::Event::Connection,
                 "port " + port->port + ": no thread for another connection; it was closed");
}

void Server::stop() {
    forgetPorts();
    // Whoever maintains the database may replace its file now. First the watch, which starts jobs again.
    watch_.reset();
    jobs_.stop();
    shared_.closeSessions();
    if (listening_.exchange(false))
        OFLOG_INFO(serverLog(), "listening no more");
}

void Server::forgetPorts() {
    listeners_.clear();
    missing_.clear();
    ports_.clear();
    portsBound_ = 0;
}

Server::Status Server::status() const {
    return {.listening = listening_, .openAssociations = open_.total(), .portsBound = portsBound_};
}

void Server::shutDown() {
    stop();
    threads_.finish();
    cleaner_.reset();
    shared_.closeSessions();
}

}  // namespace tessaly::tessalyd
