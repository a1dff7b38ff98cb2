#include "tessalyd/search/EntityParts.h"

namespace tessaly::tessalyd {

namespace {

std::string joined(const std::set<std::string>& values) {
    std::string text;
    for (const std::string& value : values)
        (text += text.empty() ? "" : "\\") += value;
    return text;
}

}  // namespace

void EntityParts::clear() noexcept {
    studies_.clear();
    modalities_.clear();
    series_ = 0;
    images_ = 0;
}

void EntityParts::add(db::ResultSet& row, const SearchPlan& plan) {
    if (plan.partStudies && !row.isNull(PartStudyColumn))
        studies_.insert(row.text(PartStudyColumn));
    if (plan.partSeries && !row.isNull(PartSeriesColumn)) {
        ++series_;
        if (const std::string& modality = row.text(PartModalityColumn); !modality.empty())
            modalities_.insert(modality);
        if (plan.partImages)
            images_ += row.integer(PartImagesColumn);
    }
}

std::string EntityParts::value(const QueryKey& key) const {
    if (key.matching == Matching::Modalities)
        return joined(modalities_);
    if (key.counted == Level::Study)
        return std::to_string(studies_.size());
    return std::to_string(key.counted == Level::Series ? series_ : images_);
}

}  // namespace tessaly::tessalyd
