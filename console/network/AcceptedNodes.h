#pragma once

#include <QString>

#include "db/Query.h"

namespace tessaly::network {

/// Writes rows of PortRemoteNodes: which nodes a listening port accepts. A pair of port and node that is
/// written stands there once afterwards, also where a row of a vanished port or node was left over; no other
/// row is removed. Throws db::Error.
class AcceptedNodes {
  public:
    AcceptedNodes();

    void accept(const QString& port, const QString& node);

    /// Nodes that are new are accepted on every port there is, ports that are new accept every node there is.
    void acceptOnEveryPort(const QString& node);
    void acceptEveryNode(const QString& port);

    /// Moves the nodes of one port number to another. Two statements: the caller has a transaction open.
    static void renumber(const QString& from, const QString& to);

  private:
    db::Query rewrite_;
    db::Query insert_;
};

}  // namespace tessaly::network
