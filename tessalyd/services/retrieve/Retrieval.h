#pragma once

#include <memory>
#include <optional>
#include <string>

#include "decoder/Pool.h"
#include "tessalyd/association/Requester.h"
#include "tessalyd/search/InstanceList.h"
#include "tessalyd/services/retrieve/QueryAccess.h"
#include "tessalyd/services/retrieve/SubOperations.h"

namespace tessaly::tessalyd {

/// What C-GET and C-MOVE do alike, for one association and in its thread: who may, what is asked for, what is
/// answered, what is counted.
class Retrieval {
  public:
    /// Both outlive it.
    Retrieval(QueryAccess& access, decoder::Pool& decoders)
        : access_(access), decoders_(decoders), rules_(access.rules()) {}

    [[nodiscard]] const QueryRules& rules() const noexcept { return *rules_; }

    [[nodiscard]] decoder::Pool& decoders() const noexcept { return decoders_; }

    /// The SOP classes of both information models, as a service supports them.
    [[nodiscard]] static bool isGet(const char* sopClass);
    [[nodiscard]] static bool isMove(const char* sopClass);

    /// Looks after the requester, without waiting: also its end and a stop are seen, as AssociationEnded.
    [[nodiscard]] static bool isCancelled(Requester& requester);

    /// What the request's identifier asks for; nothing when it was cancelled meanwhile. Throws
    /// RequestFailure.
    [[nodiscard]] std::optional<InstanceList> find(const Request& request, Requester& requester);

    /// Sends that the retrieval goes on.
    static void answerPending(const Request& request, Requester& requester, const SubOperations& operations);
    /// Sends the final answer, and counts.
    void answerFinally(const Request& request, Requester& requester, const SubOperations& operations,
                       bool cancelled = false);
    /// Counts what has been done, where nobody can be answered any more.
    void count(const SubOperations& operations);

    /// For the log; empty while nothing was asked for. `name` is that of the service.
    [[nodiscard]] std::string summary(const char* name) const;

  private:
    QueryAccess& access_;
    decoder::Pool& decoders_;
    std::shared_ptr<const QueryRules> rules_;
    bool wasAsked_ = false;
    std::size_t found_ = 0;
    std::size_t sent_ = 0;
    std::size_t failed_ = 0;
};

}  // namespace tessaly::tessalyd
