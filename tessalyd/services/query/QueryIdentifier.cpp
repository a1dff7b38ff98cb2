#include "tessalyd/services/query/QueryIdentifier.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/dcmnet/dimse.h>

#include <algorithm>
#include <array>
#include <string>

#include "dicom/data/DataSetText.h"

namespace tessaly::tessalyd {

namespace {

using dicom::DataSetText;

constexpr std::array<std::string_view, 4> LevelNames{"PATIENT", "STUDY", "SERIES", "IMAGE"};

/// In place of a byte that cannot be read: stands for nothing that is stored, and is no wildcard.
constexpr std::string_view Unreadable = "\xef\xbf\xbd";

RequestFailure refused(const char* comment, const DcmTagKey& offending) {
    return {STATUS_FIND_Failed_IdentifierDoesNotMatchSOPClass, comment, {.offendingElement = offending}};
}

/// Compared with each row, longer lists would cost the others their time.
void requireShortList(const std::string& value, const DcmTagKey& tag) {
    if (std::count(value.begin(), value.end(), '\\') >= static_cast<std::ptrdiff_t>(MostListValues))
        throw refused("A key has too many values", tag);
}

Level readLevel(const DataSetText& text, InformationModel model) {
    const std::string name = text.value(DCM_QueryRetrieveLevel);
    if (name.empty())
        throw refused("The query/retrieve level is missing", DCM_QueryRetrieveLevel);
    const auto* const found = std::find(LevelNames.begin(), LevelNames.end(), name);
    if (found == LevelNames.end())
        throw refused("The query/retrieve level is unknown", DCM_QueryRetrieveLevel);
    const auto level = static_cast<Level>(found - LevelNames.begin());
    if (level == Level::Patient && model == InformationModel::StudyRoot)
        throw refused("The information model has no such level", DCM_QueryRetrieveLevel);
    return level;
}

std::vector<const QueryKey*> uniqueKeysAbove(Level level, InformationModel model) {
    std::vector<const QueryKey*> keys;
    for (const Level above : {Level::Patient, Level::Study, Level::Series}) {
        if (above < level && !(above == Level::Patient && model == InformationModel::StudyRoot))
            keys.push_back(&uniqueKey(above));
    }
    return keys;
}

/// The value of a unique key that has to be a single one.
std::string singleValue(const DataSetText& text, const QueryKey& key) {
    std::string value = text.value(key.tag);
    if (value.empty())
        throw refused("A unique key above the level is missing", key.tag);
    if (value.find('\\') != std::string::npos)
        throw refused("A unique key above the level is a list", key.tag);
    if (value.find_first_of("*?") != std::string::npos)
        throw refused("A unique key above the level has a wildcard", key.tag);
    return value;
}

/// A counter needs the rows of its own entity, and modalities all series of it.
bool isSupported(const QueryKey& key, Level level) {
    return key.level <= level && (key.matching != Matching::Modalities || key.level == level);
}

bool isPrivateCreator(const DcmTagKey& tag) {
    return (tag.getGroup() & 1U) != 0 && tag.getElement() >= 0x10 && tag.getElement() <= 0xff;
}

/// What an identifier has besides its keys, and answers have by themselves or not at all.
bool isNoKey(const DcmTagKey& tag) {
    return tag == DCM_SpecificCharacterSet || tag == DCM_QueryRetrieveLevel || tag == DCM_RetrieveAETitle ||
           tag.getElement() == 0 || tag.getGroup() < 0x0008;
}

void combine(ArchiveQuery& query, const DataSetText& text) {
    const std::array Pairs{std::pair{DCM_StudyDate, DCM_StudyTime}, std::pair{DCM_SeriesDate, DCM_SeriesTime},
                           std::pair{DCM_ContentDate, DCM_ContentTime}};
    const auto find = [&query](const DcmTagKey& tag) {
        return static_cast<std::size_t>(
            std::find_if(query.keys.begin(), query.keys.end(),
                         [&tag](const ArchiveQuery::Key& key) { return key.key->tag == tag; }) -
            query.keys.begin());
    };
    for (const auto& [date, time] : Pairs) {
        const std::size_t dateKey = find(date);
        const std::size_t timeKey = find(time);
        if (dateKey == query.keys.size() || timeKey == query.keys.size())
            continue;
        if (auto matches = combinedMatch(text.value(date), text.value(time)))
            query.combined.push_back({dateKey, timeKey, std::move(matches)});
    }
}

void addAttribute(QueryIdentifier& result, const DcmElement& element, const DataSetText& text) {
    const DcmTagKey& tag = element.getTag();
    const QueryKey* const key = findQueryKey(tag);
    if (key == nullptr || !isSupported(*key, result.query.level)) {
        const bool creator = isPrivateCreator(tag);
        result.attributes.push_back({.tag = tag,
                                     .vr = key != nullptr ? key->vr : element.getTag().getVR().getValidEVR(),
                                     .creator = creator ? text.value(tag) : std::string{}});
        result.hasUnsupported = result.hasUnsupported || !creator;
        return;
    }
    const std::string asked = text.value(tag);
    requireShortList(asked, tag);
    const bool ignored = key->matching == Matching::Counter && !asked.empty();
    result.hasUnsupported = result.hasUnsupported || ignored;
    result.attributes.push_back({.tag = tag, .vr = key->vr, .key = result.query.keys.size()});
    result.query.keys.push_back({.key = key, .match = KeyMatch{*key, asked}});
}

}  // namespace

QueryIdentifier readQuery(DcmDataset& identifier, InformationModel model, const QueryOptions& options) {
    const DataSetText text{identifier, Unreadable};
    QueryIdentifier result;
    result.query.level = readLevel(text, model);
    if (!options.relational) {
        for (const QueryKey* key : uniqueKeysAbove(result.query.level, model))
            (void)singleValue(text, *key);
    }
    for (DcmObject* object = identifier.nextInContainer(nullptr); object != nullptr;
         object = identifier.nextInContainer(object)) {
        if (!isNoKey(object->getTag()))
            addAttribute(result, static_cast<const DcmElement&>(*object), text);
    }
    if (options.combinedDateTime)
        combine(result.query, text);
    return result;
}

ArchiveQuery readRetrieval(DcmDataset& identifier, InformationModel model) {
    const DataSetText text{identifier, Unreadable};
    ArchiveQuery query{.level = readLevel(text, model), .keys = {}};
    for (const QueryKey* key : uniqueKeysAbove(query.level, model))
        query.keys.push_back({.key = key, .match = KeyMatch{*key, singleValue(text, *key)}});
    const QueryKey& own = uniqueKey(query.level);
    const std::string value = text.value(own.tag);
    requireShortList(value, own.tag);
    // Nothing here may come to mean everything, and a list of empty values is as empty as no value.
    if (value.find_first_not_of(" \\") == std::string::npos)
        throw refused("The unique key of the level is missing", own.tag);
    if (value.find_first_of("*?") != std::string::npos)
        throw refused("The unique key of the level has a wildcard", own.tag);
    KeyMatch match{own, value};
    query.keys.push_back({.key = &own, .match = std::move(match)});
    return query;
}

std::string_view levelName(Level level) {
    return LevelNames.at(static_cast<std::size_t>(level));
}

}  // namespace tessaly::tessalyd
