// The SQL texts that make the tables.

#include "schema/Schema.h"
#include "tests/fuzz/Fuzz.h"

void tessaly::fuzz::tryInput(std::string_view input) {
    constexpr std::string_view Blanks = " \t\r\n";
    for (const std::string& statement : schema::statements(input)) {
        require(!statement.empty() && statement.find(';') == std::string::npos);
        require(statement.find("--") == std::string::npos);
        require(Blanks.find(statement.front()) == std::string_view::npos);
        require(Blanks.find(statement.back()) == std::string_view::npos);
    }
}
