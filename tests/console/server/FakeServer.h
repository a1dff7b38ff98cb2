#pragma once

#include <QVariant>

#include "tests/support/ScratchBus.h"

namespace tessaly::test {

/// The fake server on a bus of the test's own, and the strings that move it. Starts nothing by itself: the
/// bus does when somebody asks for the server. Ends what is left of its processes when it goes.
class FakeServer {
  public:
    FakeServer();
    ~FakeServer();
    FakeServer(const FakeServer&) = delete;
    FakeServer& operator=(const FakeServer&) = delete;

    [[nodiscard]] ScratchBus& bus() { return bus_; }
    /// What the bus starts from now on: the fake server, one that never takes the name, one that fails.
    void offer();
    void offerSilent();
    void offerFailing();
    void withdraw();

    /// Makes the running server do one of the things of FakeObject's second half; returns what it says.
    QVariant tell(const QString& method, const QVariantList& arguments = {}) const;
    /// The process that runs now; throws when none does.
    [[nodiscard]] int process() const;
    [[nodiscard]] bool runs() const;
    /// SIGSTOP, SIGCONT, SIGKILL.
    void hang() const;
    [[nodiscard]] bool isHung(int process) const;
    void resume(int process) const;
    void kill(int process) const;

    /// The calls that came so far, without the processes' numbers; "created" for each process.
    [[nodiscard]] QStringList calls() const;
    /// Kills every process that the bus started, stopped and silent ones too, and forgets the calls.
    void endAll() const;

  private:
    [[nodiscard]] QList<std::pair<QString, int>> log() const;
    [[nodiscard]] QString logPath() const { return folder_.filePath(QStringLiteral("calls")); }
    void offer(const QString& command);

    QTemporaryDir folder_;
    ScratchBus bus_;
};

}  // namespace tessaly::test
