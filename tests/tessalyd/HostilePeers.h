#pragma once

#include <QString>
#include <atomic>
#include <functional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace tessaly::test {

/// Peers that mean harm, each in a thread of its own, each repeating one kind of it until the destructor,
/// which waits for their end. What becomes of them does not matter: they begin again.
class HostilePeers {
  public:
    /// `ports` of the server on this machine: objects are sent to the first as they are, and to the second to
    /// be decoded. Queries are sent as the node with the AE title `querier`.
    HostilePeers(QString asTheyCome, QString decoding, std::string querier);
    ~HostilePeers();
    HostilePeers(const HostilePeers&) = delete;
    HostilePeers& operator=(const HostilePeers&) = delete;

    /// How often each kind has been tried to its end, by its name.
    struct Tally {
        const char* kind;
        std::atomic<int> rounds{0};
        explicit Tally(const char* name) : kind(name) {}
    };
    [[nodiscard]] const std::vector<std::unique_ptr<Tally>>& tallies() const { return tallies_; }

  private:
    using Round = std::function<void(const std::stop_token&)>;

    void repeat(const char* kind, Round round);
    void startPeers();
    void startSenders();
    void startRequestors();

    QString asTheyCome_;
    QString decoding_;
    std::string querier_;
    std::vector<std::unique_ptr<Tally>> tallies_;
    std::vector<std::jthread> threads_;
};

}  // namespace tessaly::test
