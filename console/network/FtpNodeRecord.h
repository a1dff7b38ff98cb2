#pragma once

#include <QString>

namespace tessaly::network {

/// One row of FtpNodes.
struct FtpNodeRecord {
    QString name;  ///< key
    QString host;
    QString user;
    QString password;  ///< in clear text, as the server needs it
    QString destination;
    QString type;
};

}  // namespace tessaly::network
