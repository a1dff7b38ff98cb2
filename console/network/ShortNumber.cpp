#include "console/network/ShortNumber.h"

#include "console/ui/Guard.h"
#include "console/ui/TypedNumber.h"

namespace tessaly::network {

std::int16_t shortNumber(const QString& text) {
    const auto typed = ui::typedNumber(text);
    if (!typed || !typed->isAll)
        throw ui::UncaughtFault{"Type mismatch"};
    const auto number = ui::rounded<std::int16_t>(typed->value);
    if (!number)
        throw ui::UncaughtFault{ui::Overflow};
    return *number;
}

}  // namespace tessaly::network
