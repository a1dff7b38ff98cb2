#pragma once

#include <QString>

#include "db/Query.h"

namespace tessaly::network {

/// Writes rows of PortRemoteNodes: which nodes a listening port accepts. Throws db::Error.
class AcceptedNodes {
  public:
    AcceptedNodes();

    void accept(const QString& port, const QString& node);

    /// Nodes that are new are accepted on every port there is, ports that are new accept every node there is.
    void acceptOnEveryPort(const QString& node);
    void acceptEveryNode(const QString& port);

    /// Remove the rows under a number that no port has, and those under a name that no node has. They are
    /// nobody's, no list shows them, and a port or a node that is to be called so could not write its own.
    static void dropOfVanishedPort(const QString& port);
    static void dropOfVanishedNode(const QString& node);

  private:
    db::Query insert_;
};

}  // namespace tessaly::network
