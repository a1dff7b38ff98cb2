#pragma once

#include <QString>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

// Numbers as people type them, for boxes that are free text.

namespace tessaly::ui {

struct TypedNumber {
    double value = 0;    ///< infinite where it is beyond all bounds
    bool isAll = false;  ///< there is nothing but blanks around it
};

/// The number that the text begins with: sign, digits with a decimal point, exponent, whatever the locale;
/// blanks in front of it are no matter. Nothing where it begins with none; "nan" and "inf" are words.
[[nodiscard]] std::optional<TypedNumber> typedNumber(const QString& text);

/// A text that is a number and nothing else.
struct EnteredNumber {
    double value = 0;
    QString text;  ///< as a statement's value takes it: the digits as typed, no blanks around them, no plus
};

/// The number that the whole text is, as typedNumber() reads it; blanks around it are no matter. Nothing
/// where the text is anything else, or a number that is too large or too close to zero to be held. A form
/// checks and stores by this one reading.
[[nodiscard]] std::optional<EnteredNumber> enteredNumber(const QString& text);

/// The description of a number that does not fit into what is to hold it.
inline constexpr const char* Overflow = "Overflow";

/// The nearest whole number, of two the even one; nothing when Integer cannot hold it.
template <class Integer>
[[nodiscard]] std::optional<Integer> rounded(double value) {
    using Limits = std::numeric_limits<Integer>;
    static_assert(Limits::digits < std::numeric_limits<double>::digits);
    const double whole = std::nearbyint(value);  // to even, as long as nobody changes the rounding mode
    if (!(whole >= Limits::min() && whole <= Limits::max()))
        return std::nullopt;
    return static_cast<Integer>(whole);
}

/// The whole text as a signed 16-bit number, rounded. Blanks around it are no matter. Throws UncaughtFault,
/// "Type mismatch" for what is no number and Overflow for one beyond the range.
[[nodiscard]] std::int16_t shortNumber(const QString& text);

/// The number that the text begins with, rounded; 0 where it begins with none. Throws std::overflow_error,
/// Overflow, for one beyond the range.
[[nodiscard]] int leadingNumber(const QString& text);

}  // namespace tessaly::ui
