#include "dicom/net/OutboundAssociation.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <stdexcept>

namespace tessaly::dicom {

namespace {

constexpr std::chrono::seconds ReleaseLimit{1};

void require(const OFCondition& condition) {
    if (condition.bad())
        throw std::runtime_error(condition.text());
}

}  // namespace

OutboundAssociation::OutboundAssociation(BoundedTransport& transport, std::chrono::milliseconds limit)
    : transport_(transport),
      limit_(static_cast<int>(std::chrono::ceil<std::chrono::seconds>(limit).count())) {
    require(ASC_initializeNetwork(NET_REQUESTOR, 0, limit_, &network_));
    require(ASC_setTransportLayer(network_, &transport_, 0));
}

OutboundAssociation::~OutboundAssociation() {
    if (association_ != nullptr) {
        ASC_dropAssociation(association_);
        ASC_destroyAssociation(&association_);
    }
    ASC_dropNetwork(&network_);
}

OFCondition OutboundAssociation::request(const std::string& peer, const std::string& callingAeTitle,
                                         const std::string& calledAeTitle,
                                         const std::vector<ProposedContext>& contexts) {
    T_ASC_Parameters* parameters = nullptr;  // the association takes it over
    require(ASC_createAssociationParameters(&parameters, ASC_DEFAULTMAXPDU));
    std::array<char, HOST_NAME_MAX + 1> self{};
    (void)gethostname(self.data(), self.size() - 1);
    ASC_setAPTitles(parameters, callingAeTitle.c_str(), calledAeTitle.c_str(), nullptr);
    ASC_setPresentationAddresses(parameters, self.data(), peer.c_str());
    int id = 1;
    for (const ProposedContext& context : contexts) {
        std::vector<const char*> syntaxes;
        for (const std::string& syntax : context.transferSyntaxes)
            syntaxes.push_back(syntax.c_str());
        ASC_addPresentationContext(parameters, static_cast<T_ASC_PresentationContextID>(id),
                                   context.sopClass.c_str(), syntaxes.data(),
                                   static_cast<int>(syntaxes.size()));
        id += 2;
    }
    return ASC_requestAssociation(network_, parameters, &association_, nullptr, nullptr, DUL_NOBLOCK, limit_);
}

T_ASC_RejectParameters OutboundAssociation::rejection() const {
    T_ASC_RejectParameters rejected{};
    ASC_getRejectParameters(association_->params, &rejected);
    return rejected;
}

void OutboundAssociation::release() {
    IoLimits& ioLimits = transport_.ioLimits();
    ioLimits.setDeadline(std::min(ioLimits.deadline(), IoLimits::Clock::now() + ReleaseLimit));
    ASC_releaseAssociation(association_);
}

void OutboundAssociation::abort() {
    ASC_abortAssociation(association_);
}

}  // namespace tessaly::dicom
