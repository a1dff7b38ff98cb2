#include "dicom/data/NameFolding.h"

#include <QString>
#include <algorithm>

#include "base/Text.h"

namespace tessaly::dicom {

namespace {

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<signed char>(c) >= 0; });
}

/// Letters that carry no accent to take away and yet are written without what sets them apart.
struct Plain {
    char16_t letter;
    QLatin1StringView plain;
};
constexpr std::array PlainLetters{
    Plain{u'\u00f8', QLatin1StringView{"o"}},  Plain{u'\u0111', QLatin1StringView{"d"}},
    Plain{u'\u0127', QLatin1StringView{"h"}},  Plain{u'\u0131', QLatin1StringView{"i"}},
    Plain{u'\u0142', QLatin1StringView{"l"}},  Plain{u'\u00e6', QLatin1StringView{"ae"}},
    Plain{u'\u0153', QLatin1StringView{"oe"}}, Plain{u'\u00f0', QLatin1StringView{"d"}},
    Plain{u'\u00fe', QLatin1StringView{"th"}}, Plain{u'\u00df', QLatin1StringView{"ss"}},
};

/// The marks of other scripts make other letters: a Japanese name with and without them is not the same.
bool isAccent(QChar c, QChar base) {
    if (c < u'\u0300' || c > u'\u036f')
        return false;
    // A short i is a letter of its own.
    return !(c == u'\u0306' && base == u'\u0438');
}

void append(QString& text, QChar c) {
    const auto* const plain = std::find_if(PlainLetters.begin(), PlainLetters.end(),
                                           [c](const Plain& candidate) { return candidate.letter == c; });
    if (plain != PlainLetters.end())
        text += plain->plain;
    else
        text += c;
}

/// Without the blanks around components and without trailing delimiters.
std::string withoutPadding(std::string_view group) {
    std::string result;
    while (true) {
        const std::size_t length = std::min(group.find('^'), group.size());
        std::string_view component = group.substr(0, length);
        result += base::trimmed(component);
        if (length == group.size())
            break;
        result += '^';
        group.remove_prefix(length + 1);
    }
    result.resize(result.find_last_not_of('^') + 1);
    return result;
}

/// The columns that hold the groups have no more characters, and folding makes two of some.
constexpr std::size_t LongestGroup = 324;

void cut(std::string& group) {
    std::size_t characters = 0;
    for (std::size_t at = 0; at < group.size(); ++at) {
        const bool begins = (static_cast<unsigned char>(group[at]) & 0xC0U) != 0x80U;
        if (begins && ++characters > LongestGroup)
            return group.resize(at);
    }
}

}  // namespace

std::string folded(std::string_view text) {
    if (isAscii(text)) {
        std::string lower{text};
        std::transform(lower.begin(), lower.end(), lower.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
        return lower;
    }
    const QString decomposed = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()))
                                   .normalized(QString::NormalizationForm_D)
                                   .toCaseFolded()
                                   .normalized(QString::NormalizationForm_D);
    QString result;
    QChar base;
    for (const QChar c : decomposed) {
        if (!isAccent(c, base))
            append(result, c);
        if (!c.isMark())
            base = c;
    }
    return result.normalized(QString::NormalizationForm_C).toStdString();
}

std::array<std::string, 3> foldedGroups(std::string_view name) {
    std::array<std::string, 3> groups;
    for (std::string& group : groups) {
        const bool last = &group == &groups.back();
        const std::size_t length = last ? name.size() : std::min(name.find('='), name.size());
        std::string_view part = name.substr(0, length);
        part = part.substr(0, part.find_last_not_of('=') + 1);
        group = withoutPadding(folded(part));
        if (group.size() > LongestGroup)
            cut(group);
        name.remove_prefix(std::min(length + 1, name.size()));
    }
    return groups;
}

}  // namespace tessaly::dicom
