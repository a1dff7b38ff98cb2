#include "console/server/LeadingNumber.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace tessaly::server {

int leadingNumber(const QString& text) {
    const std::string digits = text.trimmed().toStdString();
    const long long number = std::strtoll(digits.c_str(), nullptr, 10);  // saturates
    return static_cast<int>(
        std::clamp<long long>(number, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

}  // namespace tessaly::server
