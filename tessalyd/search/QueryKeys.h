#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>
#include <dcmtk/dcmdata/dcvr.h>

#include <array>
#include <span>
#include <string_view>

namespace tessaly::tessalyd {

/// The levels of the hierarchy, from the top.
enum class Level { Patient, Study, Series, Image };

/// How a key's value is compared with what is stored.
enum class Matching {
    Uid,         ///< one or a list, as they are
    Text,        ///< with regard to case, without padding; wildcards
    Code,        ///< as Text, or a list of such
    Name,        ///< a person's: without regard to case and accents, by component groups; wildcards
    Date,        ///< one or a range
    Time,        ///< one, with the precision given, or a range
    Number,      ///< by value
    Modalities,  ///< as Code, against the modalities of all series of the study
    Counter,     ///< returned alone, never compared
};

/// One attribute that can be asked for.
struct QueryKey {
    DcmTagKey tag;
    DcmEVR vr;
    Level level;
    Matching matching;
    std::string_view name;    ///< that of its column in a statement's rows
    std::string_view column;  ///< where it is stored, or a counting expression; empty for modalities
    /// The columns that a statement can narrow its rows by, with the help of an index; empty: none. A name
    /// has one for each component group, folded as foldedGroups() does.
    std::array<std::string_view, 3> indexed = {};
    /// How few rows one value leaves, for choosing among several keys: the lowest is tried first.
    int selectivity = 0;
    Level counted = Level::Image;  ///< of a Counter

    /// True when an answer of the level gathers the key from the rows of its parts: each of them is looked at
    /// once then, for all such keys together.
    [[nodiscard]] bool isGathered(Level answers) const noexcept {
        return matching == Matching::Modalities ||
               (matching == Matching::Counter && level == answers && answers < Level::Series);
    }
};

/// All of them, in the order of their tags.
[[nodiscard]] std::span<const QueryKey> queryKeys();

/// Nothing for an attribute that is not among them.
[[nodiscard]] const QueryKey* findQueryKey(const DcmTagKey& tag);

/// The attribute that tells a level's entities apart.
[[nodiscard]] const QueryKey& uniqueKey(Level level);

}  // namespace tessaly::tessalyd
