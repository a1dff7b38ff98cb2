#pragma once

#include <QString>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dicom/net/OutboundAssociation.h"

namespace tessaly::test {

/// What a request says, right unless a test says otherwise.
struct CommitmentAsk {
    std::string transactionUid = "1.2.826.0.1.99";
    std::vector<std::pair<std::string, std::string>> references = {};  ///< class and instance
    std::string sopClass = "1.2.840.10008.1.20.1";
    std::string sopInstance = "1.2.840.10008.1.20.1.1";
    std::uint16_t actionType = 1;
    bool hasDataSet = true;
};

/// A modality that asks for storage commitment.
class Committer {
  public:
    /// Opens the association, with a port of this machine or of an address: "127.0.0.2:104". Throws
    /// std::runtime_error.
    explicit Committer(const QString& port, const std::string& calling = "CT",
                       const std::string& syntax = "1.2.840.10008.1.2.1",
                       const std::string& called = "TESSALY");
    ~Committer();

    /// The status of the answer.
    [[nodiscard]] int ask(const CommitmentAsk& ask);
    /// Sends the bytes as the request's data set.
    [[nodiscard]] int askBytes(const CommitmentAsk& ask, std::span<const char> dataSet);

    /// Waits for a report over this association and answers it, which goes out with what comes next. Returns
    /// its event type; 0 if none comes.
    [[nodiscard]] int hearReport(std::uint16_t answer = 0);

  private:
    std::unique_ptr<dicom::OutboundAssociation> association_;
};

/// The data set of a request in that syntax, its sequence and items of undefined length.
[[nodiscard]] std::vector<char> commitmentDataSet(const CommitmentAsk& ask, const std::string& syntax);

}  // namespace tessaly::test
