#pragma once

#include <QString>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/UnusedPort.h"

namespace tessaly::test {

/// A report as another toolkit reads it.
struct Report {
    int eventType = 0;
    std::string calling;
    std::string transactionUid;
    std::string retrieveAeTitle;
    std::vector<std::string> committed;  ///< instances
    std::map<std::string, int> failed;   ///< the reasons by their instances
    bool hasCommitted = false;           ///< the sequence is there
    bool hasFailed = false;
    bool roleWasProposed = false;  ///< the sender had proposed itself as SCP
};

/// Takes associations of storage commitment as SCU, by the toolkit's own classes, until it is destroyed.
class ReportReceiver {
  public:
    explicit ReportReceiver(const QString& port = unusedPort(), int status = 0);
    ~ReportReceiver();

    [[nodiscard]] QString port() const { return port_; }
    void setStatus(int status);
    [[nodiscard]] std::vector<Report> reports() const;

  private:
    class Acceptor;
    QString port_;
    std::unique_ptr<Acceptor> acceptor_;
};

}  // namespace tessaly::test
