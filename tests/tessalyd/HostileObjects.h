#pragma once

#include <string>
#include <vector>

namespace tessaly::test {

/// A data set as it is sent, in explicit little endian, whose every element is well-formed.
struct HostileObject {
    const char* kind;
    std::string transferSyntax;  ///< UID
    std::vector<char> dataSet;
};

/// Objects whose pixel data does harm to a decoder that trusts their headers, each of the instance given.
[[nodiscard]] std::vector<HostileObject> objectsAgainstDecoders(const std::string& instance);

/// Objects whose headers do harm to a reader that builds a tree of what it reads.
[[nodiscard]] std::vector<HostileObject> objectsAgainstReaders(const std::string& instance);

/// An identifier of a query at the level STUDY with so many values of one key.
[[nodiscard]] std::vector<char> identifierWithModalities(int count);

}  // namespace tessaly::test
