#include "tessalyd/association/Negotiation.h"

#include <dcmtk/dcmnet/extneg.h>

#include <algorithm>
#include <optional>

namespace tessaly::tessalyd {

namespace {

using dicom::bit;
using Services = std::span<const std::unique_ptr<Service>>;

/// What a service supports, and that service.
struct Supported {
    SupportedContext context;
    Service* service;
};

std::vector<Supported> supportedFor(Services services, const char* sopClass) {
    std::vector<Supported> found;
    for (const auto& service : services) {
        for (const SupportedContext& context : service->contexts()) {
            if (context.covers(sopClass))
                found.push_back({.context = context, .service = service.get()});
        }
    }
    return found;
}

/// 0 when one of them does not take it.
int preference(const std::vector<Supported>& supported, dicom::TransferSyntax syntax) {
    int sum = 0;
    for (const Supported& each : supported) {
        const int one = each.context.preference(syntax);
        if (one == 0)
            return 0;
        sum += one;
    }
    return sum;
}

const char* chooseSyntax(const T_ASC_PresentationContext& context, const std::vector<Supported>& supported) {
    const char* chosen = nullptr;
    int best = 0;
    for (const char* uid : std::span{context.proposedTransferSyntaxes, context.transferSyntaxCount}) {
        const int one = preference(supported, dicom::TransferSyntax{std::string_view{uid}});
        if (one > best) {
            best = one;
            chosen = uid;
        }
    }
    return chosen;
}

/// Where the requestor's own requests go: the first service that supports it as SCU.
std::optional<Negotiated::Target> targetOf(const std::vector<Supported>& supported) {
    const auto found = std::find_if(supported.begin(), supported.end(),
                                    [](const Supported& one) { return one.context.requestor == Role::Scu; });
    if (found == supported.end())
        return std::nullopt;
    return Negotiated::Target{.service = found->service, .right = found->context.right};
}

void answer(T_ASC_Parameters* parameters, const T_ASC_PresentationContext& context, Services services,
            Negotiated& negotiated) {
    const T_ASC_PresentationContextID id = context.presentationContextID;
    std::vector<Supported> supported = supportedFor(services, context.abstractSyntax);
    if (supported.empty()) {
        ASC_refusePresentationContext(parameters, id, ASC_P_ABSTRACTSYNTAXNOTSUPPORTED);
        return;
    }
    const unsigned proposed = dicom::rolesOf(context.proposedRole);
    std::erase_if(supported,
                  [proposed](const Supported& one) { return (proposed & bit(one.context.requestor)) == 0; });
    if (supported.empty()) {  // it wants to receive, for example, where nothing is sent
        ASC_refusePresentationContext(parameters, id, ASC_P_USERREJECTION);
        return;
    }
    const char* syntax = chooseSyntax(context, supported);
    if (syntax == nullptr) {
        ASC_refusePresentationContext(parameters, id, ASC_P_TRANSFERSYNTAXESNOTSUPPORTED);
        return;
    }
    unsigned roles = 0;
    for (const Supported& one : supported)
        roles |= bit(one.context.requestor);
    ASC_acceptPresentationContext(parameters, id, syntax, dicom::roleSelection(roles), OFTrue);
    negotiated.contexts.push_back(
        {.id = id, .sopClass = context.abstractSyntax, .transferSyntax = syntax, .roles = roles});
    if (const auto target = targetOf(supported))
        negotiated.targets.emplace(id, *target);
}

using ExtendedItem = SOPClassExtendedNegotiationSubItem;
using ExtendedItems = SOPClassExtendedNegotiationSubItemList;

std::vector<std::uint8_t> extendedAnswer(const ExtendedItem& item, Services services) {
    const std::string& sopClass = item.sopClassUID;
    for (const auto& service : services) {
        const auto supported = service->contexts();
        if (std::any_of(supported.begin(), supported.end(),
                        [&](const SupportedContext& one) { return one.covers(sopClass.c_str()); })) {
            auto holds = service->negotiateExtended(
                sopClass, {item.serviceClassAppInfo, item.serviceClassAppInfoLength});
            if (!holds.empty())
                return holds;
        }
    }
    return {};
}

void answerExtended(T_ASC_Parameters* parameters, Services services) {
    ExtendedItems* proposed = nullptr;
    ASC_getRequestedExtNegList(parameters, &proposed);
    if (proposed == nullptr)
        return;
    auto answers = std::make_unique<ExtendedItems>();
    for (const ExtendedItem* item : *proposed) {
        const auto holds = extendedAnswer(*item, services);
        if (holds.empty())
            continue;
        auto one = std::make_unique<ExtendedItem>();
        one->sopClassUID = item->sopClassUID;
        one->sopClassUIDLength = static_cast<unsigned short>(item->sopClassUID.size());
        one->serviceClassAppInfo =
            new unsigned char[holds.size()];  // freed by the toolkit, as all of this is
        std::copy(holds.begin(), holds.end(), one->serviceClassAppInfo);
        one->serviceClassAppInfoLength = static_cast<unsigned short>(holds.size());
        answers->push_back(one.release());
    }
    if (!answers->empty())
        ASC_setAcceptedExtNegList(parameters, answers.release());
}

}  // namespace

Negotiated negotiate(T_ASC_Parameters* parameters, Services services) {
    Negotiated negotiated;
    const int count = ASC_countPresentationContexts(parameters);
    for (int i = 0; i < count; ++i) {
        T_ASC_PresentationContext context;
        if (ASC_getPresentationContext(parameters, i, &context).good())
            answer(parameters, context, services, negotiated);
    }
    answerExtended(parameters, services);
    return negotiated;
}

}  // namespace tessaly::tessalyd
