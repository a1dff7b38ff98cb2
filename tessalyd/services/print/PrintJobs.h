#pragma once

#include <chrono>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "jobs/Job.h"
#include "tessalyd/association/Association.h"
#include "tessalyd/forwarding/films/PrintOrder.h"
#include "tessalyd/services/ServiceContext.h"
#include "tessalyd/services/print/AssociationSpool.h"

namespace tessaly::tessalyd::print {

/// The jobs that an association has had made: their making, and what its requestor is told of them.
class PrintJobs {
  public:
    /// The context outlives it.
    explicit PrintJobs(ServiceContext& shared) : shared_(shared) {}

    /// Makes a durable job of the order, and returns the UID of its Print Job. Nothing is made if there is no
    /// room for it. Throws std::runtime_error, which tells why.
    [[nodiscard]] std::string add(const films::PrintOrder& order, const films::PrinterRow& printer,
                                  const AssociationSpool& spool, const std::stop_token& stop);
    /// Its changes are reported from now on, if the association has a context for reports.
    void watch(const std::string& uid, const std::string& printer);

    /// Whether the association has a context for reports.
    [[nodiscard]] static bool canReport(const Association& association);
    /// Reports what has changed.
    void report(Association& association);

    /// The job of any association. Returns nullopt if there is none. Throws db::Error.
    [[nodiscard]] std::optional<jobs::Job> find(const std::string& uid, const Association& association);

    /// PENDING, PRINTING, DONE or FAILURE.
    [[nodiscard]] static const char* statusOf(jobs::State state);
    /// A term of PS3.3, C.13.8, for what keeps it from being printed; NORMAL otherwise.
    [[nodiscard]] static const char* infoOf(jobs::State state);

  private:
    struct Watched {
        std::string uid;
        std::string printer;
        std::optional<jobs::State> told = {};
        bool isOver = false;
    };
    void tell(Association& association, const dicom::AcceptedContext& context, Watched& job,
              jobs::State state);

    ServiceContext& shared_;
    std::vector<Watched> watched_;
};

}  // namespace tessaly::tessalyd::print
