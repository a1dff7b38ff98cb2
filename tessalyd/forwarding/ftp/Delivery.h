#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "db/Connection.h"
#include "decoder/Pool.h"
#include "tessalyd/forwarding/ftp/Fault.h"
#include "tessalyd/forwarding/ftp/Uploader.h"
#include "tessalyd/search/InstanceLookup.h"

namespace tessaly::tessalyd::ftp {

/// One attempt to deliver objects to an FTP node: `<study>/<series>/<object>.dcm` below its destination, or
/// volumes in the series' folder, and last in that folder a file "complete", once nothing of the series has
/// failed. Belongs to one thread.
class Delivery {
  public:
    struct Events {
        /// An object stands there under its name, or failed. Its series' last one is told when all of the
        /// series is done.
        std::function<void()> delivered = [] {};
        std::function<void(const std::string& sopInstanceUid)> failed = [](const std::string& /*uid*/) {};
    };
    /// Connects to nobody yet. Throws Fault. The connection and the decoders outlive it.
    Delivery(const Node& node, const db::Connection& connection, decoder::Pool& decoders,
             std::stop_token stop, Events events);

    /// The next object, by what the tables say of it now; those of a series come one after the other. Throws
    /// Stopped and db::Error; what fails is counted.
    void add(const std::string& sopInstanceUid);
    /// Behind the last one. Throws likewise.
    void finish();

    [[nodiscard]] std::size_t failed() const noexcept { return failed_; }
    /// What is to be said of it all: why the server takes nothing more, else the first fault, of which a
    /// transient one comes before a permanent one. Nothing where nothing has failed.
    [[nodiscard]] const std::optional<Fault>& fault() const noexcept { return final_ ? final_ : fault_; }

  private:
    struct Series {
        std::string uid;
        std::string folder;
        std::vector<LocatedInstance> instances;  // of a volume
        std::vector<std::string> untold;         // put, but not counted yet
        std::uint64_t files = 0;
        std::uint64_t bytes = 0;
        bool hasFailed = false;
    };

    [[nodiscard]] LocatedInstance locate(const std::string& sopInstanceUid);
    void addTo(Series& series, const LocatedInstance& instance);
    void finish(Series& series);
    void put(Series& series, Source& source, const std::string& name);
    void tell(Series& series, std::size_t keep) const;
    void fail(Series* series, const std::string& sopInstanceUid, const Fault& fault);

    InstanceLookup lookup_;
    decoder::Pool& decoders_;
    const std::string nodeType_;
    std::stop_token stop_;
    Events events_;
    Uploader uploader_;
    std::optional<Series> series_;
    std::size_t failed_ = 0;
    int refusals_ = 0;            // one after the other
    std::optional<Fault> final_;  // the server takes nothing more in this attempt
    std::optional<Fault> fault_;
};

}  // namespace tessaly::tessalyd::ftp
