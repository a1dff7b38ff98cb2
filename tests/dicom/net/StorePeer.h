#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/dimse.h>

#include <QList>
#include <QString>
#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace tessaly::test {

/// A peer of our own that takes objects of every storage class, one association after the other, and answers
/// as a test says.
class StorePeer {
  public:
    struct Received {
        int association = 0;
        std::string syntax;
        T_DIMSE_C_StoreRQ command{};
    };
    /// Instead of a status.
    enum Answer { Nothing = -1, Close = -2, AnotherMessage = -3 };

    /// `syntaxes` are those that it accepts; `answer` gives the status for the n-th object, from 0 on.
    StorePeer(std::vector<std::string> syntaxes, std::function<int(int)> answer);
    ~StorePeer();
    StorePeer(const StorePeer&) = delete;
    StorePeer& operator=(const StorePeer&) = delete;

    [[nodiscard]] std::uint16_t port() const { return static_cast<std::uint16_t>(port_); }
    [[nodiscard]] QList<Received> received() const;
    [[nodiscard]] int associations() const { return associations_; }

  private:
    void serve();
    void meet(int socket);
    [[nodiscard]] OFCondition take(T_ASC_Association& association);

    std::vector<std::string> syntaxes_;
    std::function<int(int)> answer_;
    int port_ = 0;
    int listener_ = -1;
    std::atomic<bool> ending_ = false;
    std::atomic<int> associations_ = 0;
    mutable std::mutex mutex_;
    QList<Received> received_;
    std::jthread thread_;
};

}  // namespace tessaly::test
