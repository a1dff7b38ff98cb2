#include "tessalyd/Server.h"

#include <algorithm>
#include <numeric>
#include <system_error>

#include "tessalyd/Log.h"
#include "tessalyd/association/AssociationHandler.h"
#include "tessalyd/services/AllServices.h"

namespace tessaly::tessalyd {

namespace {

/// Seconds for a connection's association request, and for a peer that is to close after an abort.
constexpr int RequestPatience = 10;

/// Connections beyond the ports' limits: those that are being rejected, or have not said yet what they want.
constexpr std::size_t SpareThreads = 64;

}  // namespace

Server::Server(OpenAssociations::Event opened, OpenAssociations::Event ended,
               std::vector<std::string> addresses)
    : addresses_(addresses.empty() ? std::vector<std::string>{{}} : std::move(addresses)),
      transport_(RequestPatience),
      open_(std::move(opened), std::move(ended)),
      services_(allServices(index_, queries_)) {}

Server::~Server() {
    shutDown();
}

void Server::start() {
    if (listening_)
        return;
    closeSessions();  // another file may be the database by now
    db::Connection connection;
    openDatabase(connection);
    const Configuration configuration = readConfiguration(connection);
    configure(configuration);
    watchDatabase(connection);
    for (const PortConfiguration& port : configuration.ports)
        listen(port);
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
    index_.configure(configuration.queryTimeout, associations);
    queries_.configure(configuration);
    threads_.setLimit(associations + SpareThreads);
    std::vector<std::string> roots;
    for (const PortConfiguration& port : configuration.ports)
        roots.push_back(port.root);
    index_.rememberRoots(roots);
    cleaner_.emplace(std::move(roots));
}

void Server::watchDatabase(const db::Connection& connection) {
    index_.resume();
    watch_.emplace(connection, DatabaseWatch::Actions{.lost =
                                                          [this] {
                                                              index_.suspend();
                                                              closeSessions();
                                                          },
                                                      .back = [this] { index_.resume(); }});
}

void Server::listen(const PortConfiguration& port) {
    const auto shared = std::make_shared<const PortConfiguration>(port);
    bool everywhere = true;
    for (const std::string& address : addresses_) {
        const std::string name = address.empty() ? port.port : port.port + " of " + address;
        try {
            listeners_.push_back(std::make_unique<Listener>(
                port,
                [this, shared](FileDescriptor socket, const std::stop_token& listening) {
                    accept(shared, std::move(socket), listening);
                },
                address));
            OFLOG_INFO(serverLog(), "port " << name << ": listening as " << port.aeTitle);
        } catch (const std::system_error& error) {
            OFLOG_ERROR(serverLog(), "port " << name << ": cannot listen: " << error.what());
            everywhere = false;
        }
    }
    portsBound_ += everywhere ? 1 : 0;
}

void Server::accept(const std::shared_ptr<const PortConfiguration>& port, FileDescriptor socket,
                    const std::stop_token& listening) {
    // Shared, because a std::function is to be copyable and the socket is not.
    auto held = std::make_shared<FileDescriptor>(std::move(socket));
    const bool started = threads_.start([this, port, held, listening](const std::stop_token& stop) {
        AssociationHandler{{transport_, open_, services_}, port, stop, listening}.run(std::move(*held));
    });
    if (!started)
        OFLOG_WARN(serverLog(), "port " << port->port << ": too many connections; one was closed");
}

void Server::stop() {
    listeners_.clear();
    portsBound_ = 0;
    // Whoever maintains the database may replace its file now.
    watch_.reset();
    closeSessions();
    if (listening_.exchange(false))
        OFLOG_INFO(serverLog(), "listening no more");
}

Server::Status Server::status() const {
    return {.listening = listening_, .openAssociations = open_.total(), .portsBound = portsBound_};
}

void Server::shutDown() {
    stop();
    threads_.finish();
    cleaner_.reset();
    closeSessions();
}

/// Those that nobody uses at the moment; the others when they come back.
void Server::closeSessions() {
    index_.close();
    queries_.close();
}

}  // namespace tessaly::tessalyd
