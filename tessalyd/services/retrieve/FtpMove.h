#pragma once

#include <optional>
#include <string>

#include "jobs/Job.h"
#include "tessalyd/association/Service.h"
#include "tessalyd/search/InstanceList.h"
#include "tessalyd/services/retrieve/Retrieval.h"

namespace tessaly::tessalyd {

/// A C-MOVE whose destination is an FTP node: a job that goes on whatever becomes of the requestor, unless
/// that cancels it. The answer is that of its first attempt, whichever server on the database makes it. In
/// the association's thread.
class FtpMove {
  public:
    /// All outlive it.
    FtpMove(Retrieval& retrieval, const Request& request, Association& association)
        : retrieval_(retrieval), request_(request), association_(association) {}

    /// Sends all answers. Throws RequestFailure while there is no job.
    void run(const std::string& node, InstanceList instances);

  private:
    [[nodiscard]] long long begin(const std::string& node, InstanceList instances);
    [[nodiscard]] std::optional<jobs::Job> look(long long number);
    void follow(long long number);
    void cancel(long long number);
    void answer(const std::optional<jobs::Job>& job);

    Retrieval& retrieval_;
    const Request& request_;
    Association& association_;
    std::size_t total_ = 0;
    jobs::Job last_;  // as it was seen last
};

}  // namespace tessaly::tessalyd
