#include "tests/dicom/net/StorePeer.h"

#include <arpa/inet.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmnet/assoc.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "tests/support/Eventually.h"

namespace tessaly::test {

StorePeer::StorePeer(std::vector<std::string> syntaxes, std::function<int(int)> answer)
    : syntaxes_(std::move(syntaxes)),
      answer_(std::move(answer)),
      listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(listener_, 8) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error{"no port for a peer"};
    port_ = ntohs(address.sin_port);
    thread_ = std::jthread{[this] { serve(); }};
}

StorePeer::~StorePeer() {
    ending_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
}

QList<StorePeer::Received> StorePeer::received() const {
    const std::lock_guard lock{mutex_};
    return received_;
}

void StorePeer::serve() {
    while (!ending_) {
        const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0)
            return;
        meet(socket);
    }
}

void StorePeer::meet(int socket) {
    T_ASC_Network* network = nullptr;
    T_ASC_Association* association = nullptr;
    ASC_initializeNetwork(NET_ACCEPTOR, 0, PatienceSeconds, &network);
    dcmExternalSocketHandle.set(socket);
    if (ASC_receiveAssociation(network, &association, ASC_DEFAULTMAXPDU).good()) {
        ++associations_;
        std::vector<const char*> syntaxes;
        for (const std::string& syntax : syntaxes_)
            syntaxes.push_back(syntax.c_str());
        ASC_acceptContextsWithPreferredTransferSyntaxes(association->params, dcmAllStorageSOPClassUIDs,
                                                        numberOfDcmAllStorageSOPClassUIDs, syntaxes.data(),
                                                        static_cast<int>(syntaxes.size()));
        OFCondition condition = ASC_acknowledgeAssociation(association);
        while (condition.good())
            condition = take(*association);
        if (condition == DUL_PEERREQUESTEDRELEASE)
            ASC_acknowledgeRelease(association);
    }
    ASC_dropSCPAssociation(association, 0);
    ASC_destroyAssociation(&association);
    ASC_dropNetwork(&network);
}

OFCondition StorePeer::take(T_ASC_Association& association) {
    T_ASC_PresentationContextID id = 0;
    T_DIMSE_Message message{};
    OFCondition condition =
        DIMSE_receiveCommand(&association, DIMSE_NONBLOCKING, PatienceSeconds, &id, &message, nullptr);
    if (condition.bad())
        return condition;
    T_ASC_PresentationContext context;
    ASC_findAcceptedPresentationContext(association.params, id, &context);
    T_DIMSE_C_StoreRQ& request = message.msg.CStoreRQ;
    int number = 0;
    {
        const std::lock_guard lock{mutex_};
        number = static_cast<int>(received_.size());
        received_ << Received{associations_, context.acceptedTransferSyntax, request};
    }
    DIC_UL bytes = 0;
    DIC_UL parts = 0;
    condition = DIMSE_ignoreDataSet(&association, DIMSE_NONBLOCKING, PatienceSeconds, &bytes, &parts);
    if (condition.bad())
        return condition;
    const int answer = answer_(number);
    if (answer == Close)
        return DUL_NETWORKCLOSED;
    if (answer == Nothing)
        return EC_Normal;
    if (answer == AnotherMessage)
        ++request.MessageID;
    T_DIMSE_C_StoreRSP response{};
    response.DimseStatus = answer < 0 ? STATUS_Success : static_cast<DIC_US>(answer);
    return DIMSE_sendStoreResponse(&association, id, &request, &response, nullptr);
}

}  // namespace tessaly::test
