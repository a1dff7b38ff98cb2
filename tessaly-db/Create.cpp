#include "tessaly-db/Create.h"

#include <sodium.h>

#include <array>
#include <cstdlib>
#include <stdexcept>

#include "db/Query.h"
#include "tessaly-db/DataSource.h"
#include "tessaly-db/InterruptGuard.h"
#include "tessaly-db/Target.h"
#include "tessaly-db/Users.h"

namespace tessaly::tool {

namespace fs = std::filesystem;

namespace {

/// A root of this site's own, without asking a registry: 2.25 is for UIDs made of a random UUID, written as
/// one decimal number. At most 44 of a UID's 64 characters, which leaves the server 19 behind its dot.
std::string randomBaseUid() {
    if (sodium_init() < 0)
        throw std::runtime_error("No base UID can be made: libsodium does not start");
    std::array<unsigned char, 16> uuid{};
    randombytes_buf(uuid.data(), uuid.size());
    uuid[6] = static_cast<unsigned char>((uuid[6] & 0x0FU) | 0x40U);  // version 4: random
    uuid[8] = static_cast<unsigned char>((uuid[8] & 0x3FU) | 0x80U);  // the variant of RFC 4122
    unsigned __int128 number = 0;
    for (const unsigned char byte : uuid)
        number = number << 8U | byte;
    std::string digits;
    for (; number != 0; number /= 10)
        digits.insert(digits.begin(), static_cast<char>('0' + static_cast<int>(number % 10)));
    return "2.25." + digits;
}

/// The folder as the table keeps it: whole, and within the width of its column.
std::string makeImageRoot(const fs::path& wanted) {
    constexpr std::size_t Width = 255;
    const fs::path root = fs::absolute(wanted).lexically_normal();
    if (root.string().size() > Width)
        throw std::runtime_error("The image folder's path is longer than " + std::to_string(Width) +
                                 " characters");
    fs::create_directories(root);
    if (!fs::is_directory(root))
        throw std::runtime_error(root.string() + " is no folder");
    return root.string();
}

void addRows(const db::Connection& connection, const NewDatabase& wanted, const fs::path& root) {
    db::execute(connection, "INSERT INTO DicomServer (LogLevel, DumpLevel, QueryTimeout) VALUES (1, 0, 30)");
    db::execute(connection, "INSERT INTO SiteData (Organization, BaseUID) VALUES ('Unknown', ?)",
                {db::varchar(randomBaseUid())});
    db::execute(connection,
                "INSERT INTO Port (Port, AETitle, MaxConnections, Root, CheckCallingAE, CheckCalledAE,"
                " SaveCompressed) VALUES ('11112', 'TESSALY', 10, ?, 0, 0, 1)",
                {db::varchar(makeImageRoot(root))});
    addAdministrator(connection, wanted.administrator, wanted.password);
}

/// Beside the database where it is a file, or else where a first use makes one.
fs::path defaultImageRoot(const std::string& dsn) {
    if (keepsFile(dsn))
        return databaseFile(dsn).parent_path() / "images";
    if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && *data != '\0')
        return fs::path{data} / "tessaly" / "images";
    const char* home = std::getenv("HOME");
    return fs::path{home != nullptr ? home : "/"} / ".local" / "share" / "tessaly" / "images";
}

}  // namespace

void createDatabase(const NewDatabase& wanted) {
    const InterruptGuard breakOff;
    Target target{wanted.dsn};
    target.makeTables();
    target.makeIndexes();
    InterruptGuard::check();
    addRows(target.connection(), wanted,
            wanted.imageRoot.empty() ? defaultImageRoot(wanted.dsn) : wanted.imageRoot);
    breakOff.noMore();
    target.keep();
}

}  // namespace tessaly::tool
