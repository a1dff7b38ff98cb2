#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <memory>

namespace tessaly::test {

/// A session bus of the test's own; the process's session bus from its construction on, so make it before
/// anything uses D-Bus. Ends with everything that it activated.
class ScratchBus {
  public:
    ScratchBus();
    ~ScratchBus();
    ScratchBus(const ScratchBus&) = delete;
    ScratchBus& operator=(const ScratchBus&) = delete;

    [[nodiscard]] QString address() const { return address_; }
    /// Takes the bus away from everybody, and brings it back under the same address.
    void stop();
    void start();
    /// Makes `name` activatable: the bus starts `command` when somebody asks for it.
    void offer(const QString& name, const QString& command) const;
    /// Takes the offer back.
    void withdraw(const QString& name) const;

  private:
    void reload() const;

    QTemporaryDir folder_;
    std::unique_ptr<QProcess> daemon_;
    QString address_;
};

}  // namespace tessaly::test
