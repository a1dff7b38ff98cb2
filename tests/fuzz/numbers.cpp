// Stored numbers and flags, what is typed into number columns, and what of them is copied.

#include <charconv>
#include <cmath>
#include <string>

#include "db/Number.h"
#include "tessaly-db/PlainNumber.h"
#include "tests/fuzz/Fuzz.h"

void tessaly::fuzz::tryInput(std::string_view input) {
    const auto number = db::toNumber(input);
    const auto whole = db::toWholeNumber(input);
    const auto integer = db::toInteger(input);
    require(!number || std::isfinite(*number));
    if (whole) {
        require(integer == whole);
        require(number && *number == static_cast<double>(*whole));
        // As written again it is the same, leading zeros aside.
        require(db::toWholeNumber(std::to_string(*whole)) == whole);
    } else if (integer) {
        require(number && static_cast<double>(*integer) == std::trunc(*number));
    }
    for (const char c : input)
        require(!number || c != ' ');
    if (const auto plain = tool::plainNumber(input)) {
        require(tool::plainNumber(*plain) == plain);
        require(plain->find_first_not_of("-.0123456789") == std::string::npos);
        require(!number || db::toNumber(*plain) == number);
        require(!whole || db::toWholeNumber(*plain) == whole);
    }
}
