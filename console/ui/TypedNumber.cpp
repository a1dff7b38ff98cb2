#include "console/ui/TypedNumber.h"

#include <QRegularExpression>
#include <stdexcept>

#include "base/Number.h"
#include "console/ui/Guard.h"

namespace tessaly::ui {

using namespace Qt::StringLiterals;

std::optional<TypedNumber> typedNumber(const QString& text) {
    static const QRegularExpression number{u"^[+-]?([0-9]+\\.?[0-9]*|\\.[0-9]+)([eE][+-]?[0-9]+)?"_s};
    const QString inner = text.trimmed();
    const QString found = number.match(inner).captured();
    if (found.isEmpty())
        return std::nullopt;
    // What the type cannot hold comes as infinity or 0, which is what is wanted of it.
    return TypedNumber{.value = found.toDouble(), .isAll = found.size() == inner.size()};
}

std::optional<EnteredNumber> enteredNumber(const QString& text) {
    const auto typed = typedNumber(text);
    if (!typed || !typed->isAll)
        return std::nullopt;
    QString digits = text.trimmed();
    if (digits.startsWith(u'+'))
        digits.remove(0, 1);
    const auto value = base::decimalNumber(digits.toStdString());
    if (!value)
        return std::nullopt;
    return EnteredNumber{.value = *value, .text = digits};
}

std::int16_t shortNumber(const QString& text) {
    const auto typed = typedNumber(text);
    if (!typed || !typed->isAll)
        throw UncaughtFault{"Type mismatch"};
    const auto number = rounded<std::int16_t>(typed->value);
    if (!number)
        throw UncaughtFault{Overflow};
    return *number;
}

int leadingNumber(const QString& text) {
    const auto number = rounded<int>(typedNumber(text).value_or(TypedNumber{}).value);
    if (!number)
        throw std::overflow_error(Overflow);
    return *number;
}

}  // namespace tessaly::ui
