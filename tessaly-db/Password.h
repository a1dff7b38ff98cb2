#pragma once

#include <string>

namespace tessaly::tool {

/// A password as its user types it. Nothing here knows a default one.
struct Password {
    std::string text;
    bool random = false;  ///< nobody knows it yet: it must be told once
};

/// Asks for the user's new password twice and without echo when standard input is a terminal; makes a random
/// one otherwise, or when `random` is wanted. Throws std::runtime_error when the two differ, the password
/// does not fit the console's boxes or the question is broken off.
[[nodiscard]] Password newPassword(const std::string& user, bool random);

}  // namespace tessaly::tool
