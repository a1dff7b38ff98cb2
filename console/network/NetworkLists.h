#pragma once

#include <QString>

namespace tessaly::network {

/// The lists of the network's pages, for what changes their rows. Each reload refills a list from the
/// database and reports its own failure in a message box. On the user-interface thread.
class NetworkLists {
  public:
    virtual ~NetworkLists() = default;

    virtual void LoadNodes() = 0;
    virtual void LoadFTPNodes() = 0;
    virtual void LoadPortNodes(const QString& port) = 0;
    virtual void LoadPorts() = 0;

    /// The port selected in the list of listening ports. Throws std::runtime_error when none is.
    [[nodiscard]] virtual QString selectedPort() const = 0;
};

}  // namespace tessaly::network
