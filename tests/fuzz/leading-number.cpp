// The number at the beginning of a text, as the query time-out is read.

#include <QString>

#include "console/server/LeadingNumber.h"
#include "tests/fuzz/Fuzz.h"

void tessaly::fuzz::tryInput(std::string_view input) {
    const QString text = QString::fromUtf8(input.data(), static_cast<qsizetype>(input.size()));
    const int number = server::leadingNumber(text);
    require(server::leadingNumber(QString::number(number)) == number);
    bool isWhole = false;
    const int whole = text.trimmed().toInt(&isWhole);
    require(!isWhole || number == whole);
}
