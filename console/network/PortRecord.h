#pragma once

#include <QString>

namespace tessaly::network {

/// One row of Port, as the editor shows it.
struct PortRecord {
    QString port;  ///< key
    QString aeTitle;
    QString maxConnections;
    QString root;
    bool checkCallingAE = false;
    bool checkCalledAE = false;
    bool decode = false;  ///< the opposite of the column SaveCompressed
};

}  // namespace tessaly::network
