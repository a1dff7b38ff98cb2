#include "tessalyd/configuration/Configuration.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "base/TcpPort.h"
#include "base/Text.h"
#include "db/Query.h"
#include "schema/BackfillMark.h"
#include "schema/Schema.h"
#include "schema/Upgrade.h"

namespace tessaly::tessalyd {

namespace {

/// Blanks around titles, hosts and ports carry no meaning.
std::string trimmedText(db::ResultSet& rows, const char* column) {
    return std::string{base::trimmed(rows.text(column))};
}

std::vector<std::string> acceptedCallers(const db::Connection& connection, const std::string& port) {
    db::Query query{connection,
                    "SELECT DicomNodes.AETitle FROM PortRemoteNodes, DicomNodes "
                    "WHERE PortRemoteNodes.Port=? AND DicomNodes.Name=PortRemoteNodes.Name"};
    query.bind(1, db::varchar(port));
    std::vector<std::string> titles;
    for (db::ResultSet rows = query.open(); rows.next();) {
        // A node without a title accepts nobody, not the caller that gives none.
        if (std::string title = trimmedText(rows, "AETitle"); !title.empty())
            titles.push_back(std::move(title));
    }
    return titles;
}

std::vector<PortConfiguration> readPorts(const db::Connection& connection) {
    db::Query query{connection, "SELECT * FROM Port ORDER BY Port"};
    std::vector<PortConfiguration> ports;
    for (db::ResultSet rows = query.open(); rows.next();) {
        ports.push_back({
            .port = rows.text("Port"),
            .aeTitle = trimmedText(rows, "AETitle"),
            .maxConnections = static_cast<int>(rows.integer("MaxConnections")),
            .root = rows.text("Root"),
            .checkCallingAE = rows.flag("CheckCallingAE"),
            .checkCalledAE = rows.flag("CheckCalledAE"),
            .saveCompressed = rows.flag("SaveCompressed"),
            .acceptedCallers = {},
        });
    }
    for (PortConfiguration& port : ports)
        port.acceptedCallers = acceptedCallers(connection, port.port);
    return ports;
}

std::vector<NodeConfiguration> readNodes(const db::Connection& connection) {
    db::Query query{connection, "SELECT * FROM DicomNodes ORDER BY Name"};
    std::vector<NodeConfiguration> nodes;
    for (db::ResultSet rows = query.open(); rows.next();) {
        nodes.push_back({
            .name = rows.text("Name"),
            .aeTitle = trimmedText(rows, "AETitle"),
            .localAeTitle = trimmedText(rows, "LocalAETitle"),
            .host = trimmedText(rows, "Host"),
            .port = trimmedText(rows, "Port"),
            .store = rows.flag("Store"),
            .query = rows.flag("Query"),
            .print = rows.flag("Print"),
        });
    }
    return nodes;
}

/// Shared with the thread that asks the database, which may outlive the caller.
struct Reading {
    std::mutex mutex;
    std::condition_variable_any ended;
    std::optional<Configuration> configuration;
    std::optional<std::string> fault;

    [[nodiscard]] bool hasEnded() const { return configuration || fault; }
};

std::atomic<int> readings = 0;  // threads that are in the database's driver

void read(Reading& reading) {
    std::optional<Configuration> configuration;
    std::optional<std::string> fault;
    try {
        db::Connection connection;
        openDatabase(connection);
        configuration = readConfiguration(connection);
    } catch (const std::exception& error) {
        fault = error.what();
    }
    const std::lock_guard lock{reading.mutex};
    reading.configuration = std::move(configuration);
    reading.fault = std::move(fault);
    reading.ended.notify_all();
}

}  // namespace

std::optional<std::uint16_t> PortConfiguration::number() const noexcept {
    return base::tcpPort(port);
}

void openDatabase(db::Connection& connection, db::Purpose purpose) {
    connection.setConnectString("DSN=DicomFDB");
    connection.setPurpose(purpose);
    connection.setCursorDriver(db::Connection::CursorDriver::IfNeeded);
    connection.establish();
}

Configuration readConfiguration(const db::Connection& connection) {
    // Said now and in words that help, not by the engine when an object comes.
    schema::requireUpgraded(connection, {"DicomServer", "Port", "PortRemoteNodes", "DicomNodes", "Patient",
                                         "Study", "Series", "Image", "FtpNodes", "Job", "JobItem"});
    Configuration configuration;
    db::Query query{connection, "SELECT * FROM DicomServer"};
    if (db::ResultSet row = query.open(); row.next()) {
        configuration.log.level = static_cast<LogLevel>(std::clamp(row.integer("LogLevel"), 0LL, 3LL));
        configuration.log.dumpBits = static_cast<unsigned>(row.integer("DumpLevel"));
        configuration.queryTimeout = std::chrono::seconds{std::max(row.integer("QueryTimeout"), 0LL)};
    }
    configuration.databaseFile = db::fileOf(connection);
    configuration.ports = readPorts(connection);
    configuration.nodes = readNodes(connection);
    configuration.hasOlderRows = schema::isKnown(connection) && schema::filledTo(connection).has_value();
    return configuration;
}

Configuration fetchConfiguration(const std::stop_token& stop) {
    const auto reading = std::make_shared<Reading>();
    ++readings;
    try {
        std::thread{[reading] {
            read(*reading);
            --readings;
        }}.detach();
    } catch (...) {
        --readings;
        throw;
    }
    std::unique_lock lock{reading->mutex};
    if (!reading->ended.wait(lock, stop, [&reading] { return reading->hasEnded(); }))
        throw ReadingStopped{};
    if (reading->fault)
        throw std::runtime_error{*reading->fault};
    return std::move(*reading->configuration);
}

bool isReadingLeftBehind() noexcept {
    return readings > 0;
}

}  // namespace tessaly::tessalyd
