#pragma once

#include <QProcess>
#include <QTemporaryDir>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ScratchBus.h"
#include "tests/support/ScratchDatabase.h"
#include "tests/tessalyd/Objects.h"

namespace tessaly::test {

/// Several servers on one database and one archive: each on an address of its own, 127.0.0.1 and upwards, and
/// on a bus of its own. All listen on two ports, whose roots are two folders.
class SharedArchive {
  public:
    explicit SharedArchive(int servers);
    /// Ends them all; the test fails unless those that were not killed end with exit code 0.
    ~SharedArchive();
    SharedArchive(const SharedArchive&) = delete;
    SharedArchive& operator=(const SharedArchive&) = delete;

    /// Starts one, with these arguments too, and waits until it listens.
    void launch(int server, const QStringList& arguments = {});
    /// kill -9.
    void kill(int server);

    [[nodiscard]] int servers() const { return static_cast<int>(servers_.size()); }
    /// For a RequestorAssociation: an address and one of the two ports.
    [[nodiscard]] QString target(int server, int port) const;

    /// Files below the roots; with the names of temporary ones: those alone.
    [[nodiscard]] QStringList files() const;
    [[nodiscard]] QStringList temporaryFiles() const;

    ScratchDatabase database;

  private:
    struct Server {
        ScratchBus bus;
        QProcess process;
        QString log;
        bool killed = false;
    };

    std::vector<QString> roots_;
    std::vector<QString> ports_;
    std::vector<std::unique_ptr<Server>> servers_;
};

/// Senders, a thread each, that do not give up: an object that is not acknowledged is sent again, to the next
/// server where this one is not to be reached.
class Senders {
  public:
    /// `objects` of the sender of that number, in order. Some may be other senders' too.
    Senders(const SharedArchive& archive, int senders,
            const std::function<std::vector<ObjectSpec>(int sender)>& objects);
    /// Waits until all have sent all, or have been told to give up by this.
    ~Senders();
    Senders(const Senders&) = delete;
    Senders& operator=(const Senders&) = delete;

    [[nodiscard]] bool areDone() const { return running_ == 0; }
    [[nodiscard]] int acknowledged() const { return acknowledged_; }
    /// Every status other than success that came, and how often.
    [[nodiscard]] std::map<int, int> refusals() const;
    /// By SOP instance UID: of what was acknowledged, once for each. To be asked when they are done.
    [[nodiscard]] const std::map<std::string, ObjectSpec>& objects() const { return objects_; }

  private:
    void send(const SharedArchive& archive, int sender, const std::vector<ObjectSpec>& objects);

    mutable std::mutex mutex_;
    std::map<std::string, ObjectSpec> objects_;
    std::map<int, int> refusals_;
    std::atomic<int> running_{0};
    std::atomic<int> acknowledged_{0};
    std::atomic<bool> givenUp_{false};
    std::vector<std::thread> threads_;
};

/// The test fails unless the archive has each of the objects once, with the bytes that were sent, and nothing
/// else.
void compareWithArchive(const std::map<std::string, ObjectSpec>& objects, const SharedArchive& archive);

}  // namespace tessaly::test
