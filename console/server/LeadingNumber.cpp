#include "console/server/LeadingNumber.h"

#include <stdexcept>

#include "console/ui/TypedNumber.h"

namespace tessaly::server {

int leadingNumber(const QString& text) {
    const auto number = ui::rounded<int>(ui::typedNumber(text).value_or(ui::TypedNumber{}).value);
    if (!number)
        throw std::overflow_error(ui::Overflow);
    return *number;
}

}  // namespace tessaly::server
