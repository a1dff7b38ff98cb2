#include "tessalyd/association/AssociationPolicy.h"

#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <algorithm>
#include <span>
#include <string_view>

namespace tessaly::tessalyd {

namespace {

bool isUncompressed(E_TransferSyntax syntax) {
    return syntax == EXS_LittleEndianImplicit || syntax == EXS_LittleEndianExplicit ||
           syntax == EXS_BigEndianExplicit;
}

bool isTaken(E_TransferSyntax syntax) {
    const bool jpeg = syntax >= EXS_JPEGProcess1 && syntax <= EXS_JPEGProcess14SV1;
    const bool jpegLs = syntax == EXS_JPEGLSLossless || syntax == EXS_JPEGLSLossy;
    return isUncompressed(syntax) || jpeg || jpegLs || syntax == EXS_RLELossless;
}

const char* chooseSyntax(const T_ASC_PresentationContext& context, bool verification) {
    const std::span proposed{context.proposedTransferSyntaxes, context.transferSyntaxCount};
    const auto* chosen =
        std::find_if(proposed.data(), proposed.data() + proposed.size(), [&](const char* uid) {
            const E_TransferSyntax syntax = DcmXfer{uid}.getXfer();
            return verification ? isUncompressed(syntax) : isTaken(syntax);
        });
    return chosen == proposed.data() + proposed.size() ? nullptr : *chosen;
}

void answer(T_ASC_Parameters* parameters, const T_ASC_PresentationContext& context) {
    const T_ASC_PresentationContextID id = context.presentationContextID;
    const bool verification = std::string_view{context.abstractSyntax} == UID_VerificationSOPClass;
    if (!verification && !dcmIsaStorageSOPClassUID(context.abstractSyntax)) {
        ASC_refusePresentationContext(parameters, id, ASC_P_ABSTRACTSYNTAXNOTSUPPORTED);
    } else if (context.proposedRole == ASC_SC_ROLE_SCP) {  // it wants to receive, and nothing is sent here
        ASC_refusePresentationContext(parameters, id, ASC_P_USERREJECTION);
    } else if (const char* syntax = chooseSyntax(context, verification); syntax != nullptr) {
        ASC_acceptPresentationContext(parameters, id, syntax, ASC_SC_ROLE_DEFAULT, OFTrue);
    } else {
        ASC_refusePresentationContext(parameters, id, ASC_P_TRANSFERSYNTAXESNOTSUPPORTED);
    }
}

}  // namespace

std::optional<Refusal> checkProtocol(T_ASC_Parameters* parameters) {
    DIC_UI context{};
    if (ASC_getApplicationContextName(parameters, context, sizeof context).bad() ||
        std::string_view{context} != UID_StandardApplicationContext)
        return Refusal::ApplicationContext;
    return std::nullopt;
}

std::optional<Refusal> checkTitles(const PortConfiguration& port, const std::string& calling,
                                   const std::string& called) {
    if (port.checkCalledAE && called != port.aeTitle)
        return Refusal::CalledAETitle;
    const auto& accepted = port.acceptedCallers;
    if (port.checkCallingAE && std::find(accepted.begin(), accepted.end(), calling) == accepted.end())
        return Refusal::CallingAETitle;
    return std::nullopt;
}

T_ASC_RejectParameters rejection(Refusal refusal) {
    switch (refusal) {
        case Refusal::ApplicationContext:
            return {ASC_RESULT_REJECTEDPERMANENT, ASC_SOURCE_SERVICEUSER,
                    ASC_REASON_SU_APPCONTEXTNAMENOTSUPPORTED};
        case Refusal::CalledAETitle:
            return {ASC_RESULT_REJECTEDPERMANENT, ASC_SOURCE_SERVICEUSER,
                    ASC_REASON_SU_CALLEDAETITLENOTRECOGNIZED};
        case Refusal::CallingAETitle:
            return {ASC_RESULT_REJECTEDPERMANENT, ASC_SOURCE_SERVICEUSER,
                    ASC_REASON_SU_CALLINGAETITLENOTRECOGNIZED};
        case Refusal::LimitExceeded:
            return {ASC_RESULT_REJECTEDTRANSIENT, ASC_SOURCE_SERVICEPROVIDER_PRESENTATION_RELATED,
                    ASC_REASON_SP_PRES_LOCALLIMITEXCEEDED};
        case Refusal::NotListening:
            break;
    }
    return {ASC_RESULT_REJECTEDTRANSIENT, ASC_SOURCE_SERVICEPROVIDER_PRESENTATION_RELATED,
            ASC_REASON_SP_PRES_TEMPORARYCONGESTION};
}

const char* description(Refusal refusal) {
    switch (refusal) {
        case Refusal::ApplicationContext:
            return "application context not supported";
        case Refusal::CalledAETitle:
            return "called AE title not recognised";
        case Refusal::CallingAETitle:
            return "calling AE title not accepted on this port";
        case Refusal::LimitExceeded:
            return "as many associations as this port takes are open";
        case Refusal::NotListening:
            break;
    }
    return "the server is being stopped";
}

void negotiate(T_ASC_Parameters* parameters) {
    const int count = ASC_countPresentationContexts(parameters);
    for (int i = 0; i < count; ++i) {
        T_ASC_PresentationContext context;
        if (ASC_getPresentationContext(parameters, i, &context).good())
            answer(parameters, context);
    }
}

}  // namespace tessaly::tessalyd
