#include "tests/tessalyd/services/print/ScriptedPrinter.h"

#include <arpa/inet.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QString>
#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>

#include "dicom/net/AssociationEnded.h"
#include "tessalyd/forwarding/films/DisplayFormat.h"
#include "tessalyd/forwarding/films/PrintClasses.h"
#include "tests/support/Eventually.h"

namespace tessaly::test {

namespace {

using dicom::Command;
using dicom::CommandField;

dicom::AcceptedContext contextOf(const T_ASC_Association& association, T_ASC_PresentationContextID id) {
    T_ASC_PresentationContext context;
    ASC_findAcceptedPresentationContext(association.params, id, &context);
    return {.id = id,
            .sopClass = context.abstractSyntax,
            .transferSyntax = context.acceptedTransferSyntax,
            .roles = dicom::rolesOf(context.acceptedRole)};
}

void refer(DcmItem& target, const DcmTagKey& sequence, const char* sopClass, const std::string& base,
           int count) {
    for (int i = 0; i < count; ++i) {
        DcmItem* item = nullptr;
        target.findOrCreateSequenceItem(sequence, item, i);
        item->putAndInsertString(DCM_ReferencedSOPClassUID, sopClass);
        item->putAndInsertString(DCM_ReferencedSOPInstanceUID, (base + '.' + std::to_string(i + 1)).c_str());
    }
}

}  // namespace

std::vector<std::string> ScriptedPrinter::everything() {
    return {UID_BasicGrayscalePrintManagementMetaSOPClass, UID_BasicColorPrintManagementMetaSOPClass,
            UID_PresentationLUTSOPClass, UID_BasicAnnotationBoxSOPClass, UID_PrintJobSOPClass};
}

std::vector<std::string> ScriptedPrinter::grayscale() {
    return {UID_BasicGrayscalePrintManagementMetaSOPClass};
}

ScriptedPrinter::ScriptedPrinter(Script script, std::vector<std::string> classes,
                                 std::vector<std::string> syntaxes)
    : script_(std::move(script)),
      classes_(std::move(classes)),
      syntaxes_(std::move(syntaxes)),
      listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(listener_, 64) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error{"no port for a printer"};
    port_ = ntohs(address.sin_port);
    thread_ = std::jthread{[this] { serve(); }};
}

ScriptedPrinter::~ScriptedPrinter() {
    ending_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    if (const int current = current_; current >= 0)
        ::shutdown(current, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
}

std::vector<ScriptedPrinter::Request> ScriptedPrinter::requests() const {
    const std::lock_guard lock{mutex_};
    return requests_;
}

std::vector<ScriptedPrinter::Request> ScriptedPrinter::requests(CommandField field,
                                                                const char* sopClass) const {
    auto all = requests();
    std::erase_if(all, [&](const Request& request) { return !request.is(field, sopClass); });
    return all;
}

int ScriptedPrinter::prints() const {
    return static_cast<int>(requests(CommandField::NAction, UID_BasicFilmBoxSOPClass).size());
}

std::vector<std::uint16_t> ScriptedPrinter::eventAnswers() const {
    const std::lock_guard lock{mutex_};
    return eventAnswers_;
}

void ScriptedPrinter::serve() {
    while (!ending_) {
        const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0)
            return;
        current_ = socket;
        meet(socket);
        current_ = -1;
    }
}

void ScriptedPrinter::accept(T_ASC_Parameters* parameters) const {
    for (int i = 0; i < ASC_countPresentationContexts(parameters); ++i) {
        T_ASC_PresentationContext context;
        ASC_getPresentationContext(parameters, i, &context);
        const char* syntax = syntaxes_.empty() ? context.proposedTransferSyntaxes[0] : nullptr;
        for (int j = 0; syntax == nullptr && j < context.transferSyntaxCount; ++j)
            if (std::find(syntaxes_.begin(), syntaxes_.end(), context.proposedTransferSyntaxes[j]) !=
                syntaxes_.end())
                syntax = context.proposedTransferSyntaxes[j];
        const bool isTaken =
            std::find(classes_.begin(), classes_.end(), context.abstractSyntax) != classes_.end();
        if (isTaken && syntax != nullptr)
            ASC_acceptPresentationContext(parameters, context.presentationContextID, syntax);
        else
            ASC_refusePresentationContext(parameters, context.presentationContextID,
                                          ASC_P_ABSTRACTSYNTAXNOTSUPPORTED);
    }
}

void ScriptedPrinter::meet(int socket) {
    T_ASC_Network* network = nullptr;
    T_ASC_Association* association = nullptr;
    ASC_initializeNetwork(NET_ACCEPTOR, 0, PatienceSeconds, &network);
    dcmExternalSocketHandle.set(socket);
    const OFCondition received = ASC_receiveAssociation(network, &association, ASC_DEFAULTMAXPDU);
    if (received.good() && ASC_countPresentationContexts(association->params) > 0) {
        ++associations_;
        accept(association->params);
        if (ASC_acknowledgeAssociation(association).good()) {
            dicom::MessageStream messages{*association};
            try {
                while (takeOne(*association, messages)) {
                }
            } catch (const dicom::AssociationEnded& ended) {
                if (ended.reason() == DUL_PEERREQUESTEDRELEASE)
                    ASC_acknowledgeRelease(association);
            }
        }
    }
    ASC_dropSCPAssociation(association, 0);
    ASC_destroyAssociation(&association);
    ASC_dropNetwork(&network);
}

/// False: the connection is to be closed.
bool ScriptedPrinter::takeOne(T_ASC_Association& association, dicom::MessageStream& messages) {
    const auto received = messages.receive(std::chrono::seconds{PatienceSeconds});
    const dicom::AcceptedContext context = contextOf(association, received.context);
    if (received.command.isResponse()) {
        messages.passOverDataSet(std::chrono::seconds{PatienceSeconds});
        const std::lock_guard lock{mutex_};
        eventAnswers_.push_back(received.command.status());
        return true;
    }
    DIC_AE calling{};
    DIC_AE called{};
    ASC_getAPTitles(association.params, calling, sizeof calling, called, sizeof called, nullptr, 0);
    Request request{.association = associations_,
                    .calling = calling,
                    .called = called,
                    .context = context.sopClass,
                    .command = received.command};
    if (received.command.hasDataSet()) {
        tessalyd::films::AttributeCollector collector{
            context.syntax(), [&request](std::span<const char> piece) {
                request.pixels.append(piece.data(), static_cast<qsizetype>(piece.size()));
            }};
        (void)messages.receiveDataSet(std::chrono::seconds{PatienceSeconds},
                                      [&](std::span<const char> part) { collector.take(part); });
        request.attributes = std::move(collector.attributes());
    }
    {
        const std::lock_guard lock{mutex_};
        requests_.push_back(request);
        if (!keepsPixels)
            requests_.back().pixels = {};
    }
    const Answer answer = script_ ? script_(request) : Answer{};
    for (const Event& event : answer.before)
        report(messages, association, event);
    if (answer.end == Answer::End::InPlaceOfAnswer)
        return false;
    if (answer.end == Answer::End::Silence) {
        while (!ending_)  // until the other side goes
            (void)messages.receive(std::chrono::seconds{PatienceSeconds});
        return false;
    }
    messages.send(context, Command::responseTo(request.command, answer.status),
                  dataSetFor(request, answer).get());
    for (const Event& event : answer.after)
        report(messages, association, event);
    return answer.end == Answer::End::None;
}

void ScriptedPrinter::report(dicom::MessageStream& messages, const T_ASC_Association& association,
                             const Event& event) const {
    const bool isOfJob = event.sopClass == std::string_view{UID_PrintJobSOPClass};
    for (T_ASC_PresentationContextID id = 1; id < 20; id = static_cast<T_ASC_PresentationContextID>(id + 2)) {
        T_ASC_PresentationContext accepted;
        if (ASC_findAcceptedPresentationContext(association.params, id, &accepted).bad() ||
            (isOfJob && accepted.abstractSyntax != std::string_view{UID_PrintJobSOPClass}))
            continue;
        Command command = Command::request(CommandField::NEventReport, messages.nextMessageId());
        command.set(DCM_AffectedSOPClassUID, event.sopClass);
        command.set(DCM_AffectedSOPInstanceUID,
                    isOfJob ? "1.2.3.7." + std::to_string(jobs_) : std::string{UID_PrinterSOPInstance});
        command.set(DCM_EventTypeID, event.type);
        DcmDataset dataSet;
        dataSet.putAndInsertString(isOfJob ? DCM_ExecutionStatusInfo : DCM_PrinterStatusInfo, event.info);
        messages.send(contextOf(association, id), command, &dataSet);
        return;
    }
}

std::unique_ptr<DcmDataset> ScriptedPrinter::dataSetFor(const Request& request, const Answer& answer) {
    auto dataSet = std::make_unique<DcmDataset>();
    if (request.is(CommandField::NGet, UID_PrinterSOPClass)) {
        dataSet->putAndInsertString(DCM_PrinterStatus, answer.printerStatus.c_str());
        dataSet->putAndInsertString(DCM_PrinterStatusInfo, "SUPPLY LOW");
    } else if (request.is(CommandField::NGet, UID_PrintJobSOPClass)) {
        dataSet->putAndInsertString(DCM_ExecutionStatus, answer.jobStatus.c_str());
        dataSet->putAndInsertString(DCM_ExecutionStatusInfo, "FILM JAM");
    } else if (request.is(CommandField::NCreate, UID_BasicFilmBoxSOPClass)) {
        const auto format = tessalyd::films::DisplayFormat::parse(
            request.attributes.text(DCM_ImageDisplayFormat).value_or(""));
        const int boxes = answer.boxes >= 0 ? answer.boxes : format ? static_cast<int>(format->boxes()) : 0;
        const bool isColour = request.context == UID_BasicColorPrintManagementMetaSOPClass;
        refer(*dataSet, DCM_ReferencedImageBoxSequence,
              isColour ? UID_BasicColorImageBoxSOPClass : UID_BasicGrayscaleImageBoxSOPClass, "1.2.3.4",
              boxes);
        if (request.attributes.has(DCM_AnnotationDisplayFormatID))
            refer(*dataSet, DCM_ReferencedBasicAnnotationBoxSequence, UID_BasicAnnotationBoxSOPClass,
                  "1.2.3.5", 2);
    } else if (request.is(CommandField::NAction, UID_BasicFilmBoxSOPClass)) {
        DcmItem* item = nullptr;
        dataSet->findOrCreateSequenceItem(tessalyd::films::ReferencedPrintJobSequence, item);
        item->putAndInsertString(DCM_ReferencedSOPClassUID, UID_PrintJobSOPClass);
        item->putAndInsertString(DCM_ReferencedSOPInstanceUID,
                                 ("1.2.3.7." + std::to_string(++jobs_)).c_str());
    } else {
        return nullptr;
    }
    return dataSet;
}

}  // namespace tessaly::test
