#pragma once

#include <QString>

namespace tessaly::server {

/// The number that the text begins with, rounded as a port's limit of connections is, a half to the even
/// neighbour; 0 where it begins with none. Throws std::overflow_error, "Overflow", for one beyond the range.
[[nodiscard]] int leadingNumber(const QString& text);

}  // namespace tessaly::server
