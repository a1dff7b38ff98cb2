#include "dicom/net/ContextPlan.h"

#include <dcmtk/dcmdata/dcuid.h>

#include <algorithm>
#include <map>
#include <set>

namespace tessaly::dicom {

namespace {

constexpr std::size_t MostContexts = 128;

std::vector<ProposedContext> contextsOf(const std::string& sopClass, const std::set<std::string>& stored) {
    std::vector<ProposedContext> contexts;
    // More than an association takes at all would be nonsense in the tables: the rest is decoded.
    for (const std::string& syntax : stored) {
        if (contexts.size() < MostContexts - 1)
            contexts.push_back({sopClass, {syntax}});
    }
    ProposedContext beside{sopClass, {}};
    for (const char* syntax :
         {UID_LittleEndianExplicitTransferSyntax, UID_LittleEndianImplicitTransferSyntax}) {
        if (!stored.contains(syntax))
            beside.transferSyntaxes.emplace_back(syntax);
    }
    if (!beside.transferSyntaxes.empty())
        contexts.push_back(std::move(beside));
    return contexts;
}

}  // namespace

ContextPlan::ContextPlan(const std::vector<ObjectKind>& kinds) {
    std::map<std::string, std::set<std::string>> stored;
    for (const ObjectKind& kind : kinds) {
        if (kind.sopClass.empty())
            continue;
        auto& syntaxes = stored[kind.sopClass];
        if (!kind.transferSyntax.empty())
            syntaxes.insert(kind.transferSyntax);
    }
    for (const auto& [sopClass, syntaxes] : stored) {
        auto contexts = contextsOf(sopClass, syntaxes);
        if (associations_.empty() || associations_.back().size() + contexts.size() > MostContexts)
            associations_.emplace_back();
        std::move(contexts.begin(), contexts.end(), std::back_inserter(associations_.back()));
    }
}

std::optional<std::size_t> ContextPlan::associationOf(const std::string& sopClass) const {
    for (std::size_t i = 0; i < associations_.size(); ++i) {
        if (std::any_of(associations_[i].begin(), associations_[i].end(),
                        [&](const ProposedContext& context) { return context.sopClass == sopClass; }))
            return i;
    }
    return std::nullopt;
}

}  // namespace tessaly::dicom
