#include "tessaly-db/PathMap.h"

#include <algorithm>
#include <stdexcept>

namespace tessaly::tool {

namespace {

bool isSlash(char c) {
    return c == '/' || c == '\\';
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool isLetter(char c) {
    return lower(c) >= 'a' && lower(c) <= 'z';
}

bool isOfWindows(const std::string& root) {
    return (root.size() > 1 && isLetter(root[0]) && root[1] == ':') || root.starts_with("\\\\");
}

/// Without slashes at its end: the path has its own behind the root. A root that is nothing but a slash
/// stays.
std::string bare(std::string root) {
    while (root.size() > 1 && isSlash(root.back()))
        root.pop_back();
    return root;
}

bool liesUnder(const std::string& path, const std::string& root) {
    if (path.size() < root.size())
        return false;
    const bool noCase = isOfWindows(root);
    const auto same = [noCase](char a, char b) {
        return a == b || (isSlash(a) && isSlash(b)) || (noCase && lower(a) == lower(b));
    };
    return std::equal(root.begin(), root.end(), path.begin(), same) &&
           (path.size() == root.size() || isSlash(path[root.size()]) || isSlash(root.back()));
}

}  // namespace

PathMap::PathMap(const std::vector<std::string>& texts) {
    for (const auto& text : texts) {
        const auto equals = text.find('=');
        if (equals == std::string::npos || equals == 0 || equals + 1 == text.size())
            throw std::runtime_error("--map wants OLD=NEW, not " + text);
        roots_.push_back({.from = bare(text.substr(0, equals)), .to = bare(text.substr(equals + 1))});
    }
    std::stable_sort(roots_.begin(), roots_.end(),
                     [](const Root& a, const Root& b) { return a.from.size() > b.from.size(); });
}

std::string PathMap::mapped(const std::string& path) const {
    for (const auto& root : roots_) {
        if (!liesUnder(path, root.from))
            continue;
        // A root that is a slash leaves it to the rest; a rest that is nothing but slashes is the root
        // itself.
        const auto rest = path.substr(root.from.size() - (isSlash(root.from.back()) ? 1 : 0));
        return std::all_of(rest.begin(), rest.end(), isSlash) ? root.to : root.to + rest;
    }
    return path;
}

}  // namespace tessaly::tool
