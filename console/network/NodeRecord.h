#pragma once

#include <QString>

namespace tessaly::network {

/// One row of DicomNodes.
struct NodeRecord {
    QString name;  ///< key
    QString aeTitle;
    QString host;
    QString port;          ///< text, never checked to be a number
    QString localAeTitle;  ///< the title that the server presents to the node, one of its ports'
    bool store = false;
    bool query = false;
    bool print = false;
};

}  // namespace tessaly::network
