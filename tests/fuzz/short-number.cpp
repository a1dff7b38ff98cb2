// Numbers of a port's limit of connections, as they are typed.

#include <QString>
#include <cmath>
#include <exception>

#include "console/ui/TypedNumber.h"
#include "tests/fuzz/Fuzz.h"

void tessaly::fuzz::tryInput(std::string_view input) {
    const QString text = QString::fromUtf8(input.data(), static_cast<qsizetype>(input.size()));
    bool isNumber = false;
    const double exact = text.trimmed().toDouble(&isNumber);
    try {
        const auto number = ui::shortNumber(text);
        // A number that is too small for the type is 0 there and none for the toolkit.
        require((isNumber || exact == 0) && std::abs(exact - number) <= 0.5);
        require(ui::shortNumber(QString::number(number)) == number);
    } catch (const std::exception&) {
        require(!isNumber || !(exact > -32768.5 && exact < 32767.5));
    }
}
