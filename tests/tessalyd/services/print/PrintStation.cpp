#include "tests/tessalyd/services/print/PrintStation.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <stdexcept>

#include "dicom/net/AssociationEnded.h"
#include "tests/support/Eventually.h"

namespace tessaly::test {

namespace {

using dicom::Command;
using tessalyd::films::AttributeSet;

constexpr std::chrono::seconds Patience{PatienceSeconds};
constexpr int Color = 1;  // of the contexts, by their numbers

void refer(DcmItem& target, const DcmTagKey& sequence, const char* sopClass, const std::string& instance) {
    DcmItem* item = nullptr;
    target.findOrCreateSequenceItem(sequence, item);
    item->putAndInsertString(DCM_ReferencedSOPClassUID, sopClass);
    item->putAndInsertString(DCM_ReferencedSOPInstanceUID, instance.c_str());
}

}  // namespace

QByteArray PrintImage::content() const {
    if (!pixels.isEmpty())
        return pixels;
    QByteArray made;
    made.reserve(bytes());
    const unsigned mask = (1U << static_cast<unsigned>(stored)) - 1;
    for (qsizetype i = 0; i < bytes() / (allocated / 8); ++i) {
        const unsigned value = static_cast<unsigned>(i * 37) & mask;
        made.append(static_cast<char>(value & 0xffU));
        if (allocated > 8)
            made.append(static_cast<char>(value >> 8U));
    }
    return made;
}

std::vector<RequestorAssociation::Context> PrintStation::everything(const char* syntax) {
    const std::vector<std::string> syntaxes =
        syntax != nullptr ? std::vector<std::string>{syntax}
                          : std::vector<std::string>{UID_LittleEndianExplicitTransferSyntax,
                                                     UID_LittleEndianImplicitTransferSyntax};
    std::vector<RequestorAssociation::Context> contexts;
    for (const char* sopClass : {UID_BasicGrayscalePrintManagementMetaSOPClass,
                                 UID_BasicColorPrintManagementMetaSOPClass, UID_PresentationLUTSOPClass,
                                 UID_BasicAnnotationBoxSOPClass, UID_PrintJobSOPClass, UID_PrinterSOPClass})
        contexts.push_back({sopClass, syntaxes});
    return contexts;
}

PrintStation::PrintStation(const QString& port, const std::string& calling, const std::string& called,
                           const std::vector<RequestorAssociation::Context>& contexts)
    : association_(port, calling, called, contexts), messages_(*association_.raw()) {
    if (!association_.isOpen())
        throw std::runtime_error{"no association with the server"};
}

QString PrintStation::Reply::text(const DcmTagKey& tag) const {
    const auto value = attributes.text(tag);
    return value ? QString::fromStdString(*value) : QString{};
}

std::vector<std::string> PrintStation::Reply::references(const DcmTagKey& sequence) const {
    std::vector<std::string> found;
    if (const auto* const items = attributes.items(sequence))
        for (const AttributeSet& item : *items)
            found.push_back(item.text(DCM_ReferencedSOPInstanceUID).value_or(""));
    return found;
}

dicom::AcceptedContext PrintStation::contextFor(const std::string& sopClass) const {
    T_ASC_PresentationContext context;
    int chosen = context_.value_or(isColour_ ? Color : 0);
    const int count = ASC_countPresentationContexts(association_.raw()->params);
    for (int i = 0; i < count && !context_; ++i) {
        ASC_getPresentationContext(association_.raw()->params, i, &context);
        if (sopClass == context.abstractSyntax && sopClass != UID_PrinterSOPClass)
            chosen = i;
    }
    ASC_getPresentationContext(association_.raw()->params, chosen, &context);
    return {.id = context.presentationContextID,
            .sopClass = context.abstractSyntax,
            .transferSyntax = context.acceptedTransferSyntax,
            .roles = dicom::bit(dicom::Role::Scu)};
}

Command PrintStation::commandOf(CommandField field, const std::string& sopClass, const std::string& instance,
                                std::optional<int> action) {
    Command command = Command::request(field, messages_.nextMessageId());
    const bool isAffected = field == CommandField::NCreate;
    command.set(isAffected ? DCM_AffectedSOPClassUID : DCM_RequestedSOPClassUID, sopClass);
    if (!instance.empty())
        command.set(isAffected ? DCM_AffectedSOPInstanceUID : DCM_RequestedSOPInstanceUID, instance);
    if (action)
        command.set(DCM_ActionTypeID, static_cast<std::uint16_t>(*action));
    return command;
}

PrintStation::Reply PrintStation::request(CommandField field, const std::string& sopClass,
                                          const std::string& instance, DcmDataset* dataSet,
                                          std::optional<int> action) {
    const Command command = commandOf(field, sopClass, instance, action);
    messages_.send(contextFor(sopClass), command, dataSet);
    return receiveReply(command.messageId());
}

PrintStation::Reply PrintStation::requestBytes(CommandField field, const std::string& sopClass,
                                               const std::string& instance, const QByteArray& dataSet) {
    Command command = commandOf(field, sopClass, instance, {});
    const auto context = contextFor(sopClass);
    messages_.sendCommand(context.id, command.setHasDataSet(true));
    messages_.sendDataSet(context.id, {dataSet.data(), static_cast<std::size_t>(dataSet.size())}, true);
    return receiveReply(command.messageId());
}

AttributeSet PrintStation::attributesOf(const dicom::MessageStream::Received& received) {
    if (!received.command.hasDataSet())
        return {};
    T_ASC_PresentationContext context;
    ASC_findAcceptedPresentationContext(association_.raw()->params, received.context, &context);
    tessalyd::films::AttributeCollector collector{
        dicom::TransferSyntax{std::string_view{context.acceptedTransferSyntax}}};
    (void)messages_.receiveDataSet(Patience, [&](std::span<const char> part) { collector.take(part); });
    return std::move(collector.attributes());
}

PrintStation::Event PrintStation::eventOf(const dicom::MessageStream::Received& received,
                                          std::optional<std::uint16_t> answer) {
    const AttributeSet attributes = attributesOf(received);
    if (answer) {
        const auto context = contextFor(received.command.sopClassUid());
        messages_.send(context, Command::responseTo(received.command, *answer));
    }
    return {.type = received.command.number(DCM_EventTypeID).value_or(0),
            .instance = received.command.sopInstanceUid(),
            .info = attributes.text(DCM_ExecutionStatusInfo).value_or("")};
}

PrintStation::Reply PrintStation::receiveReply(std::uint16_t messageId) {
    try {
        for (;;) {
            const auto received = messages_.receive(Patience);
            if (!received.command.isResponse()) {
                events_.push_back(eventOf(received, 0));
                continue;
            }
            if (received.command.messageId() != messageId)
                return {};
            return {.status = received.command.status(),
                    .instance = received.command.sopInstanceUid(),
                    .comment = received.command.value(DCM_ErrorComment),
                    .attributes = attributesOf(received)};
        }
    } catch (const dicom::AssociationEnded&) {
        return {};
    }
}

std::optional<PrintStation::Event> PrintStation::nextEvent(std::optional<std::uint16_t> answer) {
    try {
        const auto received = messages_.receive(Patience);
        if (received.command.isResponse())
            return std::nullopt;
        return eventOf(received, answer);
    } catch (const dicom::AssociationEnded&) {
        return std::nullopt;
    }
}

void PrintStation::release() {
    try {
        association_.release();
    } catch (const std::runtime_error&) {
        association_.abort();
    }
}

void PrintStation::put(DcmItem& target, const Attributes& attributes) {
    for (const auto& [tag, value] : attributes) {
        if (DcmTag{tag}.getEVR() == EVR_US)
            target.putAndInsertUint16(tag, static_cast<Uint16>(std::stoul(value)));
        else
            target.putAndInsertString(tag, value.c_str());
    }
}

PrintStation::Reply PrintStation::createSession(const Attributes& attributes, const std::string& uid) {
    DcmDataset dataSet;
    put(dataSet, attributes);
    return request(CommandField::NCreate, UID_BasicFilmSessionSOPClass, uid,
                   attributes.empty() ? nullptr : &dataSet);
}

PrintStation::Reply PrintStation::createFilm(const std::string& format, const Attributes& attributes,
                                             const std::string& uid, const std::string& session,
                                             const std::string& lut) {
    DcmDataset dataSet;
    put(dataSet, attributes);
    if (!format.empty())
        dataSet.putAndInsertString(DCM_ImageDisplayFormat, format.c_str());
    if (!session.empty())
        refer(dataSet, DCM_ReferencedFilmSessionSequence, UID_BasicFilmSessionSOPClass, session);
    if (!lut.empty())
        refer(dataSet, DCM_ReferencedPresentationLUTSequence, UID_PresentationLUTSOPClass, lut);
    return request(CommandField::NCreate, UID_BasicFilmBoxSOPClass, uid, &dataSet);
}

DcmDataset PrintStation::imageDataSet(int position, const PrintImage& image, const Attributes& attributes,
                                      const std::string& lut) const {
    DcmDataset dataSet;
    put(dataSet, attributes);
    dataSet.putAndInsertUint16(DCM_ImageBoxPosition, static_cast<Uint16>(position));
    DcmItem* item = nullptr;
    dataSet.findOrCreateSequenceItem(
        image.samples == 3 ? DCM_BasicColorImageSequence : DCM_BasicGrayscaleImageSequence, item);
    item->putAndInsertUint16(DCM_SamplesPerPixel, static_cast<Uint16>(image.samples));
    item->putAndInsertString(DCM_PhotometricInterpretation, image.interpretation);
    if (image.samples == 3)
        item->putAndInsertUint16(DCM_PlanarConfiguration, static_cast<Uint16>(image.planar));
    item->putAndInsertUint16(DCM_Rows, static_cast<Uint16>(image.rows));
    item->putAndInsertUint16(DCM_Columns, static_cast<Uint16>(image.columns));
    item->putAndInsertUint16(DCM_BitsAllocated, static_cast<Uint16>(image.allocated));
    item->putAndInsertUint16(DCM_BitsStored, static_cast<Uint16>(image.stored));
    item->putAndInsertUint16(DCM_HighBit, static_cast<Uint16>(image.stored - 1));
    item->putAndInsertUint16(DCM_PixelRepresentation, 0);
    const QByteArray content = image.content();
    if (image.allocated == 8)
        item->putAndInsertUint8Array(DCM_PixelData, reinterpret_cast<const Uint8*>(content.data()),
                                     static_cast<unsigned long>(content.size()));
    else
        item->putAndInsertUint16Array(DcmTag{DCM_PixelData, EVR_OW},
                                      reinterpret_cast<const Uint16*>(content.data()),
                                      static_cast<unsigned long>(content.size() / 2));
    if (!lut.empty())
        refer(dataSet, DCM_ReferencedPresentationLUTSequence, UID_PresentationLUTSOPClass, lut);
    return dataSet;
}

PrintStation::Reply PrintStation::setImage(const std::string& box, int position, const PrintImage& image,
                                           const Attributes& attributes, const std::string& lut) {
    DcmDataset dataSet = imageDataSet(position, image, attributes, lut);
    return request(CommandField::NSet,
                   image.samples == 3 ? UID_BasicColorImageBoxSOPClass : UID_BasicGrayscaleImageBoxSOPClass,
                   box, &dataSet);
}

PrintStation::Reply PrintStation::eraseImage(const std::string& box, int position) {
    DcmDataset dataSet;
    dataSet.putAndInsertUint16(DCM_ImageBoxPosition, static_cast<Uint16>(position));
    dataSet.insertEmptyElement(isColour_ ? DCM_BasicColorImageSequence : DCM_BasicGrayscaleImageSequence);
    return request(CommandField::NSet,
                   isColour_ ? UID_BasicColorImageBoxSOPClass : UID_BasicGrayscaleImageBoxSOPClass, box,
                   &dataSet);
}

PrintStation::Reply PrintStation::printFilm(const std::string& uid) {
    return request(CommandField::NAction, UID_BasicFilmBoxSOPClass, uid, nullptr, 1);
}

PrintStation::Reply PrintStation::printSession(const std::string& uid) {
    return request(CommandField::NAction, UID_BasicFilmSessionSOPClass, uid, nullptr, 1);
}

PrintStation::Reply PrintStation::printAll(const std::string& format, const PrintImage& image,
                                           const Attributes& session, const Attributes& film) {
    if (Reply made = createSession(session); made.status != 0)
        return made;
    Reply made = createFilm(format, film);
    if (made.status != 0)
        return made;
    int position = 0;
    for (const std::string& box : made.references(DCM_ReferencedImageBoxSequence))
        if (Reply set = setImage(box, ++position, image); set.status != 0)
            return set;
    return printFilm();
}

}  // namespace tessaly::test
