#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "base/FileDescriptor.h"
#include "tests/fuzz/Fuzz.h"

namespace tessaly::fuzz {

/// A file in memory of this data set, whatever that is, behind a meta header.
inline base::FileDescriptor objectInMemory(std::string_view dataSet, std::string syntax) {
    syntax.resize(syntax.size() + syntax.size() % 2, '\0');
    const auto element = [](char number, const char* vr, const std::string& value) {
        return std::string{'\2', '\0', number, '\0'} + vr + static_cast<char>(value.size()) + '\0' + value;
    };
    const std::string meta =
        element(2, "UI", "1.22") + element(3, "UI", "1.23") + element(0x10, "UI", syntax);
    const std::string head = std::string(128, '\0') + "DICM" +
                             element(0, "UL", {static_cast<char>(meta.size()), '\0', '\0', '\0'}) + meta;
    base::FileDescriptor file{::memfd_create("object", MFD_CLOEXEC)};
    for (const std::string_view part : {std::string_view{head}, dataSet})
        require(::write(file.get(), part.data(), part.size()) == static_cast<ssize_t>(part.size()));
    return file;
}

}  // namespace tessaly::fuzz
