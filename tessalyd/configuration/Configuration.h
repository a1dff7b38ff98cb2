#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <vector>

#include "db/Connection.h"
#include "db/DatabaseFile.h"

namespace tessaly::tessalyd {

/// How much goes into the log; the values are those of DicomServer.LogLevel, and each level writes all that
/// the one before it writes, and more.
enum class LogLevel { Errors = 0, Normal = 1, Warnings = 2, Debug = 3 };

/// A layer whose traffic is written into the log; the values are the bits of DicomServer.DumpLevel.
enum class Dump : unsigned { Socket = 1, Dul = 2, Vr = 4, Association = 16 };

struct LogOptions {
    LogLevel level = LogLevel::Normal;
    unsigned dumpBits = 0;

    [[nodiscard]] bool dumps(Dump layer) const noexcept {
        return (dumpBits & static_cast<unsigned>(layer)) != 0;
    }
};

/// One row of the table Port with the callers that it accepts.
struct PortConfiguration {
    std::string port;  ///< as the table has it; events name the port by this text
    std::string aeTitle;
    int maxConnections = 0;
    std::string root;
    bool checkCallingAE = false;
    bool checkCalledAE = false;
    bool saveCompressed = true;
    std::vector<std::string> acceptedCallers;  ///< AE titles

    /// The TCP port; nothing when the text is no number from 1 to 65535.
    [[nodiscard]] std::optional<std::uint16_t> number() const noexcept;
};

/// One row of DicomNodes: a remote application, and what it may do here.
struct NodeConfiguration {
    std::string name;
    std::string aeTitle;
    std::string localAeTitle;  ///< that this server presents to it
    std::string host;
    std::string port;
    bool store = false;  ///< objects may be sent to it
    bool query = false;  ///< it may query and retrieve
    bool print = false;  ///< it may print
};

struct Configuration {
    LogOptions log;
    std::chrono::seconds queryTimeout{0};
    std::vector<PortConfiguration> ports;  ///< in port order
    std::vector<NodeConfiguration> nodes;  ///< by name
    bool hasOlderRows = false;             ///< rows of the archive that an upgrade has not filled yet
    std::optional<db::DatabaseFile> databaseFile = {};  ///< that all this was read from, where there is one
};

/// Opens the configuration database. Throws db::Error.
void openDatabase(db::Connection& connection, db::Purpose purpose = db::Purpose::General);

/// Reads everything that the server is configured by. Without a row of DicomServer its columns have the
/// values above. Throws db::Error, and std::runtime_error for tables that an upgrade has to come before.
[[nodiscard]] Configuration readConfiguration(const db::Connection& connection);

/// The reading of the configuration was given up.
class ReadingStopped : public std::runtime_error {
  public:
    ReadingStopped() : std::runtime_error("stopped before the database had answered") {}
};

/// Opens the database and reads the configuration. Blocks until that is done or `stop` comes. A call of the
/// database cannot be ended from outside, so it runs on a thread of its own. On a stop, that thread is left
/// behind; it touches nothing but its own result and ends with the database's time-out. Throws
/// std::runtime_error, and ReadingStopped.
[[nodiscard]] Configuration fetchConfiguration(const std::stop_token& stop);

/// True while a thread that fetchConfiguration() has left behind is in the database's driver. Thread-safe.
[[nodiscard]] bool isReadingLeftBehind() noexcept;

}  // namespace tessaly::tessalyd
