// Names and passwords for the console's boxes.

#include <QString>
#include <QUtf8StringView>
#include <algorithm>
#include <stdexcept>

#include "tessaly-db/Text.h"
#include "tests/fuzz/Fuzz.h"

void tessaly::fuzz::tryInput(std::string_view input) {
    try {
        tool::requireTypeable(input, "The text");
    } catch (const std::runtime_error&) {
        return;
    }
    const QUtf8StringView view{input.data(), static_cast<qsizetype>(input.size())};
    require(view.isValidUtf8());
    constexpr int BoxLimit = 16;
    const QString text = view.toString();
    require(!text.isEmpty() && text.size() <= BoxLimit);
    require(
        std::none_of(text.begin(), text.end(), [](QChar c) { return c.category() == QChar::Other_Control; }));
}
