// Stored numbers and flags, what is typed into number columns, and what of them is copied.

#include <charconv>
#include <cmath>
#include <string>

#include "base/Number.h"
#include "tests/fuzz/Fuzz.h"

void tessaly::fuzz::tryInput(std::string_view input) {
    const auto number = base::decimalNumber(input);
    const auto whole = base::wholeNumber(input);
    const auto integer = base::wholePart(input);
    require(!number || std::isfinite(*number));
    if (whole) {
        require(integer == whole);
        require(number && *number == static_cast<double>(*whole));
        // As written again it is the same, leading zeros aside.
        require(base::wholeNumber(std::to_string(*whole)) == whole);
    } else if (integer) {
        require(number && static_cast<double>(*integer) == std::trunc(*number));
    }
    for (const char c : input)
        require(!number || c != ' ');
    if (const auto plain = base::plainNumber(input)) {
        require(base::plainNumber(*plain) == plain);
        require(plain->find_first_not_of("-.0123456789") == std::string::npos);
        require(!number || base::decimalNumber(*plain) == number);
        require(!whole || base::wholeNumber(*plain) == whole);
    }
}
