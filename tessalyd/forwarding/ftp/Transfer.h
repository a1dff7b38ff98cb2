#pragma once

#include <chrono>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "tessalyd/forwarding/ftp/Conversation.h"
#include "tessalyd/forwarding/ftp/Node.h"
#include "tessalyd/forwarding/ftp/Source.h"

namespace tessaly::tessalyd::ftp {

/// How long a server may take.
struct Limits {
    std::chrono::seconds connect{10};
    std::chrono::seconds answer{60};  ///< to a command
    std::chrono::seconds idle{60};    ///< while a file does not get on
};

/// One control connection to an FTP server, kept from operation to operation and made anew where the server
/// has closed it. A stop ends what waits on it within some milliseconds. Belongs to one thread; SIGPIPE is
/// ignored in the process.
class Transfer {
  public:
    /// Connects to nobody yet. Throws std::runtime_error where the library cannot be had.
    Transfer(const Address& address, const Node& node, const std::string& resolved, std::stop_token stop,
             const Limits& limits);
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    enum class Outcome {
        Done,
        Refused,        ///< by a reply; the connection is there
        FolderRefused,  ///< likewise
        NotConnected,   ///< nobody is there, or not in time
        NotSecure,      ///< no TLS, or a certificate that is not to be trusted
        LoginRefused,
        TimedOut,  ///< after the connection
        Broken,
        SourceFailed,  ///< what was to be uploaded cannot be read
        Other
    };
    struct Result {
        Outcome outcome = Outcome::Done;
        Conversation conversation;
        std::string detail;  ///< the library's words, where they have nothing of the server's
    };
    /// Enters a folder (Node.h: partsOf), which is made where it is missing, uploads the source under a name,
    /// if there is one, and then sends the commands; one that begins with * may be refused. `expectedSize`
    /// is what a SIZE among them is to give.
    [[nodiscard]] Result run(const std::vector<std::string>& folder, const std::string& name, Source* source,
                             const std::vector<std::string>& commands);

  private:
    class Handles;
    std::unique_ptr<Handles> handles_;
};

}  // namespace tessaly::tessalyd::ftp
