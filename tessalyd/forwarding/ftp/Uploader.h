#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "tessalyd/forwarding/ftp/Fault.h"
#include "tessalyd/forwarding/ftp/Transfer.h"

namespace tessaly::tessalyd::ftp {

/// Uploads files to the server of an FTP node, over one connection after the other. A file stands under its
/// final name only when all of it is there: it is sent as `NAME.part`, its size is compared where the server
/// tells sizes, then it is renamed, over one that has the name already. Belongs to one thread; a stop ends
/// what is under way within some milliseconds.
class Uploader {
  public:
    /// Connects to nobody yet.
    Uploader(Node node, std::stop_token stop, const Limits& limits = {});
    ~Uploader();
    Uploader(const Uploader&) = delete;
    Uploader& operator=(const Uploader&) = delete;

    /// The folder is one below the node's destination, with slashes, and is made where it is missing; it and
    /// the name are printable ASCII. Blocks until the file stands there under its name. Throws Fault or
    /// Stopped; of a file that failed, what has come of it is removed there as far as that is possible.
    void put(Source& source, const std::string& folder, const std::string& name);

  private:
    using Result = Transfer::Result;

    [[nodiscard]] std::string resolvedHost() const;
    [[nodiscard]] Transfer& transfer();
    [[nodiscard]] Result run(const std::vector<std::string>& folder, const std::string& name, Source* source,
                             const std::vector<std::string>& commands);
    void removePart(const std::vector<std::string>& folder, const std::string& part);

    const Node node_;
    Address address_;
    std::vector<std::string> destination_;
    std::stop_token stop_;
    const Limits limits_;
    std::unique_ptr<Transfer> transfer_;
    bool hasSize_ = true;  // the server knows the command, as far as is known
};

}  // namespace tessaly::tessalyd::ftp
