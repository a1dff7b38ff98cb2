// UIDs, file names, the text of East Asian devices, and what becomes of foreign text in the log.

#include <QUtf8StringView>
#include <algorithm>
#include <string>

#include "archive/ArchiveFile.h"
#include "dicom/data/CodeExtensions.h"
#include "tessalyd/Printable.h"
#include "tessalyd/store/IncomingHeader.h"
#include "tests/fuzz/Fuzz.h"

namespace {

/// The text that was made printable.
std::string unescaped(std::string_view shown) {
    std::string text;
    while (!shown.empty()) {
        if (shown.starts_with("\\x")) {
            text += static_cast<char>(std::stoi(std::string{shown.substr(2, 2)}, nullptr, 16));
            shown.remove_prefix(4);
        } else {
            shown.remove_prefix(shown.front() == '\\' ? 1 : 0);
            text += shown.front();
            shown.remove_prefix(1);
        }
    }
    return text;
}

}  // namespace

void tessaly::fuzz::tryInput(std::string_view input) {
    const std::string shown = tessalyd::printable(input);
    require(QUtf8StringView{shown.data(), static_cast<qsizetype>(shown.size())}.isValidUtf8());
    require(
        std::none_of(shown.begin(), shown.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; }));
    require(unescaped(shown) == input);
    if (tessalyd::isUid(input)) {
        // It becomes a part of a path.
        require(!input.empty() && input.size() <= 64 && input.front() != '.');
        require(input.find_first_not_of("0123456789.") == std::string_view::npos);
        require(input.find("..") == std::string_view::npos);
    }
    if (archive::isTemporaryName(input))
        require(input.find('/') == std::string_view::npos && input.front() == '.');
    if (const auto text = dicom::fromCodeExtensions(std::string{input}))
        require(QUtf8StringView{text->data(), static_cast<qsizetype>(text->size())}.isValidUtf8());
}
