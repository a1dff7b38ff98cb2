// UIDs, file names and the text of East Asian devices.

#include <QUtf8StringView>
#include <algorithm>

#include "dicom/CodeExtensions.h"
#include "tessalyd/archive/ArchiveFile.h"
#include "tessalyd/archive/ObjectHeader.h"
#include "tests/fuzz/Fuzz.h"

void tessaly::fuzz::tryInput(std::string_view input) {
    if (tessalyd::isUid(input)) {
        // It becomes a part of a path.
        require(!input.empty() && input.size() <= 64 && input.front() != '.');
        require(input.find_first_not_of("0123456789.") == std::string_view::npos);
        require(input.find("..") == std::string_view::npos);
    }
    if (tessalyd::isTemporaryName(input))
        require(input.find('/') == std::string_view::npos && input.front() == '.');
    if (const auto text = dicom::fromCodeExtensions(std::string{input}))
        require(QUtf8StringView{text->data(), static_cast<qsizetype>(text->size())}.isValidUtf8());
}
