#pragma once

#include <string>
#include <string_view>

namespace tessaly {

/// Turns a password into the form that Users.UserPwd holds: the same text always gives the same form. Used by
/// whatever compares or stores a password.
class PasswordEncoder {
  public:
    /// Characters of every encoded form: what the password boxes of the user editor hold, so that an
    /// unrelated edit of a user stores the form again byte for byte.
    static constexpr std::size_t EncodedLength = 16;

    /// `password` is UTF-8 and not empty: the empty password has no encoded form, the caller keeps it as it
    /// is. Takes some 50 ms and 64 MiB of memory by design. Throws std::runtime_error when memory fails.
    [[nodiscard]] std::string encode(std::string_view password) const;
};

}  // namespace tessaly
