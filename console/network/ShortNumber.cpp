#include "console/network/ShortNumber.h"

#include <cmath>
#include <limits>

#include "console/ui/Guard.h"

namespace tessaly::network {

std::int16_t shortNumber(const QString& text) {
    bool isNumber = false;
    const double exact = text.trimmed().toDouble(&isNumber);
    if (!isNumber || !std::isfinite(exact))
        throw ui::UncaughtFault{"Type mismatch"};
    const double rounded = std::nearbyint(exact);  // to even, as long as nobody changes the rounding mode
    using Limits = std::numeric_limits<std::int16_t>;
    if (rounded < Limits::min() || rounded > Limits::max())
        throw ui::UncaughtFault{"Overflow"};
    return static_cast<std::int16_t>(rounded);
}

}  // namespace tessaly::network
