// The number at the beginning of a text, as the query time-out is read.

#include <QString>
#include <cmath>
#include <stdexcept>

#include "console/ui/TypedNumber.h"
#include "tests/fuzz/Fuzz.h"

void tessaly::fuzz::tryInput(std::string_view input) {
    const QString text = QString::fromUtf8(input.data(), static_cast<qsizetype>(input.size()));
    bool isNumber = false;
    const double exact = text.trimmed().toDouble(&isNumber);
    isNumber = isNumber && std::isfinite(exact);
    try {
        const int number = ui::leadingNumber(text);
        require(ui::leadingNumber(QString::number(number)) == number);
        require(ui::leadingNumber(QString::number(number) + QStringLiteral(" s")) == number);
        require(!isNumber || std::abs(exact - number) <= 0.5);
    } catch (const std::overflow_error&) {
        require(!isNumber || !(exact > -2147483648.5 && exact < 2147483647.5));
    }
}
