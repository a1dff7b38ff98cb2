#include "tessalyd/association/AssociationPolicy.h"

#include <dcmtk/dcmdata/dcuid.h>

#include <algorithm>
#include <string_view>

namespace tessaly::tessalyd {

std::optional<Rejection> checkProtocol(T_ASC_Parameters* parameters) {
    DIC_UI context{};
    if (ASC_getApplicationContextName(parameters, context, sizeof context).bad() ||
        std::string_view{context} != UID_StandardApplicationContext)
        return Rejection::ApplicationContext;
    return std::nullopt;
}

std::optional<Rejection> checkTitles(const PortConfiguration& port, const std::string& calling,
                                     const std::string& called) {
    if (port.checkCalledAE && called != port.aeTitle)
        return Rejection::CalledAETitle;
    if (port.checkCallingAE && !isNode(port, calling))
        return Rejection::CallingAETitle;
    return std::nullopt;
}

bool isNode(const PortConfiguration& port, const std::string& calling) {
    const auto& nodes = port.acceptedCallers;
    return std::find(nodes.begin(), nodes.end(), calling) != nodes.end();
}

Places placesOf(const PortConfiguration& port) {
    constexpr int Least = 4;
    constexpr int Share = 8;
    const int all = port.maxConnections;
    const bool reserves = all >= Least && !port.acceptedCallers.empty();
    return {.all = all, .reserved = reserves ? std::max(all / Share, 1) : 0};
}

T_ASC_RejectParameters parametersOf(Rejection rejection) {
    switch (rejection) {
        case Rejection::ApplicationContext:
            return {ASC_RESULT_REJECTEDPERMANENT, ASC_SOURCE_SERVICEUSER,
                    ASC_REASON_SU_APPCONTEXTNAMENOTSUPPORTED};
        case Rejection::CalledAETitle:
            return {ASC_RESULT_REJECTEDPERMANENT, ASC_SOURCE_SERVICEUSER,
                    ASC_REASON_SU_CALLEDAETITLENOTRECOGNIZED};
        case Rejection::CallingAETitle:
            return {ASC_RESULT_REJECTEDPERMANENT, ASC_SOURCE_SERVICEUSER,
                    ASC_REASON_SU_CALLINGAETITLENOTRECOGNIZED};
        case Rejection::LimitExceeded:
            return {ASC_RESULT_REJECTEDTRANSIENT, ASC_SOURCE_SERVICEPROVIDER_PRESENTATION_RELATED,
                    ASC_REASON_SP_PRES_LOCALLIMITEXCEEDED};
        case Rejection::NotListening:
            break;
    }
    return {ASC_RESULT_REJECTEDTRANSIENT, ASC_SOURCE_SERVICEPROVIDER_PRESENTATION_RELATED,
            ASC_REASON_SP_PRES_TEMPORARYCONGESTION};
}

const char* description(Rejection rejection) {
    switch (rejection) {
        case Rejection::ApplicationContext:
            return "application context not supported";
        case Rejection::CalledAETitle:
            return "called AE title not recognised";
        case Rejection::CallingAETitle:
            return "calling AE title not accepted on this port";
        case Rejection::LimitExceeded:
            return "as many associations as this port takes are open";
        case Rejection::NotListening:
            break;
    }
    return "the server is being stopped";
}

}  // namespace tessaly::tessalyd
