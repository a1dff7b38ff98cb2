#include "tessalyd/association/Negotiation.h"

#include <dcmtk/dcmnet/extneg.h>

#include <algorithm>

namespace tessaly::tessalyd {

namespace {

constexpr unsigned bit(Role role) {
    return static_cast<unsigned>(role);
}

unsigned proposedRoles(const T_ASC_PresentationContext& context) {
    switch (context.proposedRole) {
        case ASC_SC_ROLE_SCP:
            return bit(Role::Scp);
        case ASC_SC_ROLE_SCUSCP:
            return bit(Role::Scu) | bit(Role::Scp);
        default:
            return bit(Role::Scu);
    }
}

T_ASC_SC_ROLE answerTo(unsigned roles) {
    if ((roles & bit(Role::Scp)) == 0)
        return ASC_SC_ROLE_DEFAULT;
    return (roles & bit(Role::Scu)) == 0 ? ASC_SC_ROLE_SCP : ASC_SC_ROLE_SCUSCP;
}

std::vector<SupportedContext> supportedFor(const Services& services, const char* sopClass) {
    std::vector<SupportedContext> found;
    for (const auto& service : services) {
        const auto supported = service->supportedContexts();
        std::copy_if(supported.begin(), supported.end(), std::back_inserter(found),
                     [&](const SupportedContext& one) { return one.covers(sopClass); });
    }
    return found;
}

/// 0 when one of them does not take it.
int preference(const std::vector<SupportedContext>& supported, dicom::TransferSyntax syntax) {
    int sum = 0;
    for (const SupportedContext& context : supported) {
        const int one = context.preference(syntax);
        if (one == 0)
            return 0;
        sum += one;
    }
    return sum;
}

const char* chooseSyntax(const T_ASC_PresentationContext& context,
                         const std::vector<SupportedContext>& supported) {
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

std::optional<AcceptedContext> answer(T_ASC_Parameters* parameters, const T_ASC_PresentationContext& context,
                                      const Services& services) {
    const T_ASC_PresentationContextID id = context.presentationContextID;
    std::vector<SupportedContext> supported = supportedFor(services, context.abstractSyntax);
    if (supported.empty()) {
        ASC_refusePresentationContext(parameters, id, ASC_P_ABSTRACTSYNTAXNOTSUPPORTED);
        return std::nullopt;
    }
    unsigned roles = proposedRoles(context);
    std::erase_if(supported,
                  [roles](const SupportedContext& one) { return (roles & bit(one.requester)) == 0; });
    if (supported.empty()) {  // it wants to receive, for example, where nothing is sent
        ASC_refusePresentationContext(parameters, id, ASC_P_USERREJECTION);
        return std::nullopt;
    }
    const char* syntax = chooseSyntax(context, supported);
    if (syntax == nullptr) {
        ASC_refusePresentationContext(parameters, id, ASC_P_TRANSFERSYNTAXESNOTSUPPORTED);
        return std::nullopt;
    }
    roles = 0;
    for (const SupportedContext& one : supported)
        roles |= bit(one.requester);
    ASC_acceptPresentationContext(parameters, id, syntax, answerTo(roles), OFTrue);
    return AcceptedContext{.id = id,
                           .sopClass = context.abstractSyntax,
                           .syntax = dicom::TransferSyntax{std::string_view{syntax}},
                           .roles = roles};
}

using ExtendedItem = SOPClassExtendedNegotiationSubItem;
using ExtendedItems = SOPClassExtendedNegotiationSubItemList;

std::vector<std::uint8_t> extendedAnswer(const ExtendedItem& item, const Services& services) {
    const std::string& sopClass = item.sopClassUID;
    for (const auto& service : services) {
        const auto supported = service->supportedContexts();
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

void answerExtended(T_ASC_Parameters* parameters, const Services& services) {
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

std::vector<AcceptedContext> negotiate(T_ASC_Parameters* parameters, const Services& services) {
    std::vector<AcceptedContext> accepted;
    const int count = ASC_countPresentationContexts(parameters);
    for (int i = 0; i < count; ++i) {
        T_ASC_PresentationContext context;
        if (ASC_getPresentationContext(parameters, i, &context).bad())
            continue;
        if (auto one = answer(parameters, context, services))
            accepted.push_back(std::move(*one));
    }
    answerExtended(parameters, services);
    return accepted;
}

}  // namespace tessaly::tessalyd
