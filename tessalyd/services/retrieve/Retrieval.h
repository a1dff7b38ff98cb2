#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tessalyd/association/Association.h"
#include "tessalyd/search/InstanceList.h"
#include "tessalyd/services/ServiceContext.h"
#include "tessalyd/services/retrieve/SubOperations.h"

namespace tessaly::tessalyd {

/// What C-GET and C-MOVE do alike, for one association and in its thread: what is asked for, what is
/// answered, what is counted.
class Retrieval {
  public:
    explicit Retrieval(ServiceContext& shared) : shared_(shared), settings_(shared.settings()) {}

    [[nodiscard]] ServiceContext& shared() const noexcept { return shared_; }
    [[nodiscard]] const RemoteNodes& nodes() const noexcept { return *settings_->nodes; }

    /// The SOP classes of both information models, as a service supports them.
    [[nodiscard]] static bool isGet(const char* sopClass);
    [[nodiscard]] static bool isMove(const char* sopClass);

    /// What the request's identifier asks for; nothing when it was cancelled meanwhile. Throws
    /// RequestFailure.
    [[nodiscard]] std::optional<InstanceList> find(const Request& request, Association& association);

    /// Sends that the retrieval goes on.
    static void answerPending(const Request& request, Association& association,
                              const SubOperations& operations);
    /// Sends the final answer, and counts.
    void answerFinally(const Request& request, Association& association, const SubOperations& operations,
                       bool cancelled = false);
    /// The same with an error comment: 64 characters of ASCII at most.
    void answerFinally(const Request& request, Association& association, const SubOperations& operations,
                       const std::string& comment);
    /// The same with a status that refuses the rest.
    void refuseFinally(const Request& request, Association& association, const SubOperations& operations,
                       std::uint16_t status, const std::string& comment);
    /// Counts what has been done, where nobody can be answered any more.
    void count(const SubOperations& operations);

    /// For the log; empty while nothing was asked for. `name` is that of the service.
    [[nodiscard]] std::string summary(const char* name) const;

  private:
    ServiceContext& shared_;
    std::shared_ptr<const ServiceSettings> settings_;
    bool wasAsked_ = false;
    std::size_t found_ = 0;
    std::size_t sent_ = 0;
    std::size_t failed_ = 0;
};

}  // namespace tessaly::tessalyd
