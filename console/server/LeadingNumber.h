#pragma once

#include <QString>

namespace tessaly::server {

/// The number that the text begins with, a fraction cut; 0 where it begins with none. Beyond the range it is
/// the range's nearest end.
[[nodiscard]] int leadingNumber(const QString& text);

}  // namespace tessaly::server
