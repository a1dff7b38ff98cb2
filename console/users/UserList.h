#pragma once

namespace tessaly::users {

/// The list of users, for what changes its rows.
class UserList {
  public:
    virtual ~UserList() = default;

    /// Refills the list from the database and reports its own failure in a message box.
    virtual void LoadUsers() = 0;
};

}  // namespace tessaly::users
