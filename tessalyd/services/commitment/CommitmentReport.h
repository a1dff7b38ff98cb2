#pragma once

#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "dicom/net/Command.h"
#include "jobs/Job.h"
#include "jobs/Runner.h"
#include "tessalyd/services/ServiceContext.h"
#include "tessalyd/services/commitment/CommitmentCheck.h"

namespace tessaly::tessalyd {

constexpr const char* CommitmentClass = "1.2.840.10008.1.20.1";
constexpr const char* CommitmentInstance = "1.2.840.10008.1.20.1.1";
/// The kind of the jobs.
constexpr const char* CommitmentKind = "COMMIT";

/// What a job of this kind keeps of its request: its subject.
struct CommitmentRequest {
    std::string requestor;  ///< calling AE title, which is also the job's target
    std::string calledAeTitle;
    std::string retrieveAeTitle;
    std::string transactionUid;
    std::string hash;          ///< of the list
    bool isDuplicate = false;  ///< another list has come under this transaction UID before

    [[nodiscard]] std::string text() const;
    /// Throws std::runtime_error.
    [[nodiscard]] static CommitmentRequest parse(const std::string& text);
};

/// The report on a request (PS3.4 J.3.3): every reference is in one of the two sequences; an empty one is
/// left out.
class CommitmentReport {
  public:
    /// Blocks while the objects are looked at. Throws as CommitmentCheck, and std::runtime_error where the
    /// list cannot be read.
    CommitmentReport(ServiceContext& shared, const jobs::Job& job, const std::stop_token& stop);

    /// 1: all are committed; 2: some are not.
    [[nodiscard]] std::uint16_t eventType() const noexcept { return failed_.empty() ? 1 : 2; }
    [[nodiscard]] const CommitmentRequest& request() const noexcept { return request_; }

    [[nodiscard]] dicom::Command command(std::uint16_t messageId) const;
    /// Its data set in a syntax of little endian, explicit or implicit.
    [[nodiscard]] std::vector<char> dataSet(dicom::TransferSyntax syntax) const;

  private:
    CommitmentRequest request_;
    // A line a reference, its UIDs and the reason with blanks between them: there may be 100,000.
    std::string committed_;
    std::string failed_;
};

/// Does the jobs of this kind: reports over an association of ours. The context outlives it.
[[nodiscard]] jobs::Handler commitmentHandler(ServiceContext& shared);

}  // namespace tessaly::tessalyd
