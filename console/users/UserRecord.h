#pragma once

#include <QString>

namespace tessaly::users {

/// One row of Users, with what a new user starts with.
struct UserRecord {
    QString name;      ///< key
    QString password;  ///< as the password boxes hold it: the stored form until the user types another
    QString signature = QStringLiteral("");  ///< a null text is NULL
    bool update = true;
    bool remove = true;
    bool move = true;
    bool send = true;
    bool refert = true;
    bool import = true;
    bool backup = true;
    bool roi = true;
    bool modTags = false;
    bool admin = false;
    bool windowsLogin = false;
};

}  // namespace tessaly::users
