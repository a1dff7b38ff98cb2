#include "tessalyd/services/query/QueryAnswers.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/dcmnet/dimse.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace tessaly::tessalyd {

namespace {

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<signed char>(c) >= 0; });
}

}  // namespace

QueryAnswers::QueryAnswers(QueryIdentifier identifier, const std::string& retrieveAeTitle,
                           SearchLimits limits)
    : search_(std::move(identifier.query), std::move(limits)),
      pendingStatus_(identifier.hasUnsupported ? STATUS_FIND_Pending_WarningUnsupportedOptionalKeys
                                               : STATUS_FIND_Pending_MatchesAreContinuing) {
    add(DCM_QueryRetrieveLevel, EVR_CS, std::string{levelName(search_.query().level)});
    add(DCM_RetrieveAETitle, EVR_AE, retrieveAeTitle);
    for (const QueryIdentifier::Attribute& attribute : identifier.attributes) {
        DcmElement* const element = add(attribute.tag, attribute.vr, attribute.creator);
        if (attribute.key != QueryIdentifier::Attribute::None)
            slots_.push_back({element, attribute.key});
    }
}

/// The tag carries its representation, so that no dictionary is searched.
DcmElement* QueryAnswers::add(const DcmTagKey& tag, DcmEVR vr, const std::string& value) {
    DcmElement* made = nullptr;
    if (DcmItem::newDicomElement(made, DcmTag{tag, DcmVR{vr}}).bad() || made == nullptr)
        throw std::runtime_error("An attribute of the answers cannot be made");
    std::unique_ptr<DcmElement> element{made};
    if (!value.empty())
        element->putOFStringArray(value);
    answer_.insert(element.get(), OFTrue);
    return element.release();
}

void QueryAnswers::read(db::StatementCache& statements) {
    try {
        search_.read(statements);
    } catch (const SearchTimeout& timeout) {
        throw RequestFailure{STATUS_FIND_Refused_OutOfResources, timeout.what()};
    }
}

bool QueryAnswers::next() {
    if (!search_.next())
        return false;
    bool ascii = true;
    for (const Slot& slot : slots_) {
        const std::string_view value = search_.value(slot.key);
        ascii = ascii && isAscii(value);
        slot.element->putString(value.data(), static_cast<Uint32>(value.size()));
    }
    if (ascii == namesCharacterSet_) {
        namesCharacterSet_ = !ascii;
        if (ascii)
            answer_.findAndDeleteElement(DCM_SpecificCharacterSet);
        else
            add(DCM_SpecificCharacterSet, EVR_CS, "ISO_IR 192");
    }
    return true;
}

}  // namespace tessaly::tessalyd
