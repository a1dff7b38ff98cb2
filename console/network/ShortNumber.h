#pragma once

#include <QString>
#include <cstdint>

namespace tessaly::network {

/// The text as a signed 16-bit number. Blanks around it are no matter; a fraction is rounded, a half to the
/// even neighbour; the decimal sign is the point. Throws ui::UncaughtFault, "Type mismatch" for what is no
/// number and "Overflow" for one beyond the range.
[[nodiscard]] std::int16_t shortNumber(const QString& text);

}  // namespace tessaly::network
