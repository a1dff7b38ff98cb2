#include "tests/dicom/net/Peers.h"

#include <arpa/inet.h>
#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmnet/assoc.h>
#include <dcmtk/dcmnet/dimse.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QFile>
#include <QTcpSocket>
#include <QTest>
#include <array>
#include <stdexcept>

#include "tests/support/Eventually.h"
#include "tests/support/UnusedPort.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

namespace {

sockaddr_in loopback(int port) {
    return {.sin_family = AF_INET,
            .sin_port = htons(static_cast<std::uint16_t>(port)),
            .sin_addr = {.s_addr = htonl(INADDR_LOOPBACK)},
            .sin_zero = {}};
}

/// A socket that listens on a free port of the loopback, which it tells.
int listenAnywhere(int backlog, int& port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(listener, backlog) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("no port for a peer");
    port = ntohs(address.sin_port);
    return listener;
}

void say(int socket, std::string_view bytes) {
    (void)send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

/// Reads whatever comes until the other side closes.
void hearOut(int socket) {
    std::array<char, 4096> buffer{};
    while (recv(socket, buffer.data(), buffer.size(), 0) > 0) {
    }
}

}  // namespace

Peer::Peer(Manner manner) : manner_(manner), listener_(listenAnywhere(8, port_)) {
    thread_ = std::jthread{[this] { serve(); }};
}

Peer::~Peer() {
    ending_ = true;
    shutdown(listener_, SHUT_RDWR);  // wakes the thread that waits for a connection
    thread_.join();
    close(listener_);
}

void Peer::serve() {
    while (!ending_) {
        const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0)
            return;
        ++connections_;
        meet(socket);
    }
}

void Peer::meet(int socket) {
    using namespace std::string_view_literals;
    switch (manner_) {
        case Manner::NeverSpeaks:
            hearOut(socket);
            break;
        case Manner::StopsHalfWay:
            say(socket, "\x02\0\0\0\0\xb8\0\1"sv);  // announces an A-ASSOCIATE-AC that never comes
            hearOut(socket);
            break;
        case Manner::Drips: {
            say(socket, "\x02\0\0\0\0\xb8"sv);
            pollfd closed{.fd = socket, .events = POLLRDHUP};
            do
                say(socket, "\0"sv);
            while (poll(&closed, 1, 20) == 0);
            break;
        }
        case Manner::Closes:
            break;
        case Manner::SpeaksNonsense:
            say(socket, "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n"sv);
            hearOut(socket);
            break;
        default:
            meetDicom(socket);  // closes it itself
            return;
    }
    close(socket);
}

void Peer::meetDicom(int socket) {
    T_ASC_Network* network = nullptr;
    T_ASC_Association* association = nullptr;
    ASC_initializeNetwork(NET_ACCEPTOR, 0, 10, &network);
    dcmExternalSocketHandle.set(socket);
    OFCondition condition = ASC_receiveAssociation(network, &association, ASC_DEFAULTMAXPDU);
    if (condition.good()) {
        std::array<char, 17> calling{};
        std::array<char, 17> called{};
        ASC_getAPTitles(association->params, calling.data(), calling.size(), called.data(), called.size(),
                        nullptr, 0);
        calling_ = calling.data();
        called_ = called.data();
        if (manner_ == Manner::Rejects) {
            const T_ASC_RejectParameters why{ASC_RESULT_REJECTEDPERMANENT, ASC_SOURCE_SERVICEUSER,
                                             ASC_REASON_SU_CALLEDAETITLENOTRECOGNIZED};
            ASC_rejectAssociation(association, &why);
        } else if (manner_ == Manner::Aborts) {
            ASC_abortAssociation(association);
        } else {
            std::array<const char*, 1> classes{UID_VerificationSOPClass};
            std::array<const char*, 1> syntaxes{UID_LittleEndianImplicitTransferSyntax};
            if (manner_ == Manner::OffersNothing)
                ASC_refusePresentationContext(association->params, 1, ASC_P_ABSTRACTSYNTAXNOTSUPPORTED);
            else
                ASC_acceptContextsWithPreferredTransferSyntaxes(association->params, classes.data(), 1,
                                                                syntaxes.data(), 1);
            condition = ASC_acknowledgeAssociation(association);
            while (condition.good()) {
                T_ASC_PresentationContextID context = 0;
                T_DIMSE_Message message{};
                condition = DIMSE_receiveCommand(association, DIMSE_BLOCKING, 0, &context, &message, nullptr);
                if (condition.bad() || manner_ == Manner::IgnoresTheEcho)
                    continue;
                if (manner_ == Manner::AbortsTheEcho) {
                    ASC_abortAssociation(association);
                    break;
                }
                condition = DIMSE_sendEchoResponse(association, context, &message.msg.CEchoRQ,
                                                   manner_ == Manner::FailsTheEcho ? 0x0122 : STATUS_Success,
                                                   nullptr);
            }
            if (condition == DUL_PEERREQUESTEDRELEASE && manner_ != Manner::IgnoresTheRelease)
                ASC_acknowledgeRelease(association);
            else if (condition == DUL_PEERREQUESTEDRELEASE)
                hearOut(socket);
        }
    }
    ASC_dropSCPAssociation(association, 0);
    ASC_destroyAssociation(&association);
    ASC_dropNetwork(&network);
}

FullPort::FullPort() : listener_(listenAnywhere(0, port_)) {
    // A backlog of nothing still takes one; the next ones wait in vain.
    for (int i = 0; i < 4; ++i) {
        const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        const sockaddr_in address = loopback(port_);
        (void)connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        waiting_.push_back(connection);
    }
}

FullPort::~FullPort() {
    for (const int connection : waiting_)
        close(connection);
    close(listener_);
}

Product::Product(const QString& program, const QStringList& arguments, const QString& configuration)
    : port_(unusedPort()) {
    const auto fill = [this](QString text) {
        return text.replace(u"%PORT%"_s, port()).replace(u"%FOLDER%"_s, folder_.path());
    };
    QFile file{folder_.filePath(u"configuration"_s)};
    if (!file.open(QIODevice::WriteOnly))
        throw std::runtime_error("no configuration for a product");
    file.write(fill(configuration).toUtf8());
    file.close();
    process_.setWorkingDirectory(folder_.path());
    process_.setProcessChannelMode(QProcess::MergedChannels);
    QStringList filled;
    for (const QString& argument : arguments)
        filled << fill(argument);
    process_.start(program, filled);
    // Before the probe: the product may listen sooner than its start is noticed here.
    if (!process_.waitForStarted())
        throw std::runtime_error(program.toStdString() + ": " + process_.errorString().toStdString());
    const bool ready = QTest::qWaitFor(
        [this] {
            QTcpSocket probe;
            probe.connectToHost(QHostAddress::LocalHost, port_.toUShort());
            return probe.waitForConnected(1000) || process_.state() == QProcess::NotRunning;
        },
        PatienceMs);
    if (!ready || process_.state() != QProcess::Running)
        throw std::runtime_error(program.toStdString() + ": " + process_.readAll().toStdString());
}

Product::~Product() {
    process_.terminate();
    if (!process_.waitForFinished(10'000))
        process_.kill();
    process_.waitForFinished();
}

std::unique_ptr<Product> Product::storescp(const QStringList& options) {
    return std::make_unique<Product>(u"storescp"_s, options + QStringList{u"%PORT%"_s});
}

std::unique_ptr<Product> Product::dcmqrscp() {
    return std::make_unique<Product>(u"dcmqrscp"_s, QStringList{u"-c"_s, u"%FOLDER%/configuration"_s},
                                     uR"(
NetworkTCPPort  = %PORT%
MaxPDUSize      = 16384
MaxAssociations = 16
HostTable BEGIN
HostTable END
VendorTable BEGIN
VendorTable END
AETable BEGIN
DCMQRSCP %FOLDER% RW (2000, 1024mb) ANY
AETable END
)"_s);
}

std::unique_ptr<Product> Product::orthanc() {
    return std::make_unique<Product>(u"/usr/sbin/Orthanc"_s, QStringList{u"%FOLDER%/configuration"_s},
                                     uR"({
  "DicomPort": %PORT%, "DicomAet": "ORTHANC", "DicomCheckCalledAet": true,
  "DicomModalities": { "console": { "AET": "TESSALY", "Host": "127.0.0.1", "Port": 104 } },
  "DicomAlwaysAllowEcho": false,
  "HttpServerEnabled": false, "Plugins": [], "StorageDirectory": "%FOLDER%", "IndexDirectory": "%FOLDER%"
})"_s);
}

}  // namespace tessaly::test
