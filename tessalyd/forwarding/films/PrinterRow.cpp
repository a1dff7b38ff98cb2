#include "tessalyd/forwarding/films/PrinterRow.h"

#include <algorithm>
#include <cmath>

#include "base/Number.h"
#include "base/Text.h"
#include "db/Query.h"

namespace tessaly::tessalyd::films {

namespace {

constexpr double MostOfShort = 65535;

std::string trimmedText(db::ResultSet& rows, const char* column) {
    return std::string{base::trimmed(rows.text(column))};
}

/// Nothing for NULL and what does not fit into 16 bits.
std::optional<double> numberOf(db::ResultSet& rows, const char* column) {
    const auto number = base::decimalNumber(base::trimmed(rows.text(column)));
    return number && *number >= 0 && *number <= MostOfShort ? number : std::nullopt;
}

std::string whole(std::optional<double> number) {
    return number ? std::to_string(std::lround(*number)) : std::string{};
}

/// Hundredths. Who typed a fraction meant the optical density itself.
std::string density(db::ResultSet& rows, const char* column) {
    constexpr double Hundredths = 100;
    constexpr double Most = 10;
    auto number = numberOf(rows, column);
    if (number && *number != std::floor(*number) && *number < Most)
        *number *= Hundredths;
    return whole(number);
}

/// 1 stands for eight bits, as the console has it.
unsigned bitsOf(db::ResultSet& rows) {
    constexpr long Eight = 8;
    constexpr long Ten = 10;
    const long bits = std::lround(numberOf(rows, "Force8bit").value_or(0));
    return bits == 1 || bits == Eight ? 8 : bits == Ten ? 10 : 12;
}

PrinterRow rowOf(db::ResultSet& rows) {
    return {.name = trimmedText(rows, "Name"),
            .aeTitle = trimmedText(rows, "AETitle"),
            .host = trimmedText(rows, "Host"),
            .port = trimmedText(rows, "Port"),
            .copies = whole(numberOf(rows, "Copies")),
            .priority = trimmedText(rows, "Priority"),
            .medium = trimmedText(rows, "Medium"),
            .destination = trimmedText(rows, "Destination"),
            .illumination = whole(numberOf(rows, "Illumination")),
            .reflection = whole(numberOf(rows, "Reflection")),
            .minDensity = density(rows, "MinDensity"),
            .maxDensity = density(rows, "MaxDensity"),
            .border = trimmedText(rows, "Border"),
            .polarity = trimmedText(rows, "Polarity"),
            .emptyDensity = trimmedText(rows, "EmptyDensity"),
            .filmSize = trimmedText(rows, "FilmSize"),
            .resolution = trimmedText(rows, "Resolution"),
            .orientation = trimmedText(rows, "Orientation"),
            .magnification = trimmedText(rows, "Magnification"),
            .smoothing = trimmedText(rows, "Smoothing"),
            .trim = trimmedText(rows, "Trim"),
            .userParams = trimmedText(rows, "UserParams"),
            .layout = trimmedText(rows, "Layout"),
            .gridWidth = static_cast<unsigned>(std::lround(numberOf(rows, "GridSizeDx").value_or(0))),
            .gridHeight = static_cast<unsigned>(std::lround(numberOf(rows, "GridSizeDy").value_or(0))),
            .forcesGrayscale = rows.flag("ForceBW"),
            .isDefault = rows.flag("DefaultPrinter"),
            .bits = bitsOf(rows)};
}

template <class Condition>
const PrinterRow* firstWhere(const std::vector<PrinterRow>& printers, Condition condition) {
    const auto found = std::find_if(printers.begin(), printers.end(), condition);
    return found == printers.end() ? nullptr : &*found;
}

}  // namespace

std::string PrinterRow::lane() const {
    std::string lower = name;
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

std::vector<PrinterRow> readPrinters(const db::Connection& connection) {
    db::Query query{connection, "SELECT * FROM Printers ORDER BY Name"};
    std::vector<PrinterRow> printers;
    for (db::ResultSet rows = query.open(); rows.next();)
        printers.push_back(rowOf(rows));
    return printers;
}

const PrinterRow* printerNamed(const std::vector<PrinterRow>& printers, std::string_view name) {
    return firstWhere(printers, [&](const PrinterRow& row) { return base::sameName(row.name, name); });
}

const PrinterRow* printerFor(const std::vector<PrinterRow>& printers, std::string_view calledAeTitle) {
    if (const PrinterRow* const named = printerNamed(printers, calledAeTitle))
        return named;
    if (const PrinterRow* const titled =
            firstWhere(printers, [&](const PrinterRow& row) { return row.aeTitle == calledAeTitle; }))
        return titled;
    return firstWhere(printers, [](const PrinterRow& row) { return row.isDefault; });
}

}  // namespace tessaly::tessalyd::films
