#include "tests/tessalyd/RequestorAssociation.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmnet/assoc.h>
#include <dcmtk/dcmnet/dcmlayer.h>
#include <dcmtk/dcmnet/dcmtrans.h>
#include <dcmtk/dcmnet/dul.h>
#include <dcmtk/dcmnet/extneg.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/ToolkitNames.h"

namespace tessaly::test {

namespace {

/// Tells which socket a connection has.
class NotingLayer : public DcmTransportLayer {
  public:
    explicit NotingLayer(int& socket) : socket_(socket) {}

    DcmTransportConnection* createConnection(DcmNativeSocketType socket, OFBool secure) override {
        socket_ = socket;
        return DcmTransportLayer::createConnection(socket, secure);
    }

  private:
    int& socket_;
};

constexpr T_ASC_PresentationContextID Storage = 3;

void check(const OFCondition& condition) {
    if (condition.bad())
        throw std::runtime_error{condition.text()};
}

void writePdv(T_ASC_Association* association, T_ASC_PresentationContextID context, DUL_DATAPDV type,
              bool last, const char* data, std::size_t size) {
    DUL_PDV pdv{};
    pdv.fragmentLength = size;
    pdv.presentationContextID = context;
    pdv.pdvType = type;
    pdv.lastPDV = last ? OFTrue : OFFalse;
    pdv.data = const_cast<char*>(data);
    DUL_PDVLIST list{.count = 1, .scratch = nullptr, .scratchLength = 0, .abort = {}, .pdv = &pdv};
    check(DUL_WritePDVs(&association->DULassociation, &list));
}

std::vector<char> bytesOf(DcmDataset& set, E_TransferSyntax syntax) {
    std::vector<char> bytes(4U << 20U);
    DcmOutputBufferStream stream{bytes.data(), static_cast<offile_off_t>(bytes.size())};
    set.transferInit();
    check(set.write(stream, syntax, EET_ExplicitLength, nullptr));
    set.transferEnd();
    bytes.resize(static_cast<std::size_t>(stream.tell()));
    return bytes;
}

/// Owned by whom it is given to.
SOPClassExtendedNegotiationSubItemList* listOf(
    const std::vector<RequestorAssociation::Extension>& extensions) {
    auto list = std::make_unique<SOPClassExtendedNegotiationSubItemList>();
    for (const auto& [sopClass, information] : extensions) {
        auto* item = new SOPClassExtendedNegotiationSubItem;
        list->push_back(item);
        item->sopClassUID = sopClass;
        item->sopClassUIDLength = static_cast<unsigned short>(sopClass.size());
        item->serviceClassAppInfo = new unsigned char[information.size()];
        std::copy(information.begin(), information.end(), item->serviceClassAppInfo);
        item->serviceClassAppInfoLength = static_cast<unsigned short>(information.size());
    }
    return list.release();
}

RequestorAssociation::Answer answerOf(const OFCondition& answered, const T_DIMSE_C_StoreRSP& response,
                                      DcmDataset* detail) {
    const std::unique_ptr<DcmDataset> owned{detail};
    OFString comment;
    if (owned)
        owned->findAndGetOFString(DCM_ErrorComment, comment);
    return {.arrived = answered.good(), .status = response.DimseStatus, .comment = comment};
}

}  // namespace

QByteArray associationRequest(const QByteArray& applicationContext) {
    const auto number = [](qsizetype value, qsizetype bytes) {
        return QByteArray::fromHex(QByteArray::number(value, 16).rightJustified(2 * bytes, '0'));
    };
    const auto item = [&number](char type, const QByteArray& content) {
        return QByteArray{}.append(type).append('\0') + number(content.size(), 2) + content;
    };
    const QByteArray maximum = item(0x51, number(ASC_DEFAULTMAXPDU, 4));
    const QByteArray body =
        number(1, 2) + number(0, 2) + QByteArray{"TESSALY"}.leftJustified(16) +
        QByteArray{"TESTER"}.leftJustified(16) + QByteArray(32, '\0') + item(0x10, applicationContext) +
        item(0x20, QByteArray::fromHex("01000000") + item(0x30, UID_VerificationSOPClass) +
                       item(0x40, UID_LittleEndianImplicitTransferSyntax)) +
        item(0x50, maximum + item(0x52, "1.2.3"));
    return number(1, 1) + number(0, 1) + number(body.size(), 4) + body;
}

std::vector<char> nestedSequences(int count, E_TransferSyntax syntax) {
    // Referenced Image Sequence and an item in it, neither with a length.
    const QByteArray one = QByteArray::fromHex(DcmXfer{syntax}.isExplicitVR() ? "0800401153510000ffffffff"
                                                                              : "08004011ffffffff") +
                           QByteArray::fromHex("feff00e0ffffffff");
    const QByteArray all = one.repeated(count);
    return {all.begin(), all.end()};
}

std::vector<RequestorAssociation::Context> RequestorAssociation::usual() {
    return {{UID_VerificationSOPClass, {UID_LittleEndianImplicitTransferSyntax}},
            {UID_CTImageStorage, {UID_LittleEndianExplicitTransferSyntax}}};
}

RequestorAssociation::RequestorAssociation(const QString& port, const std::string& calling,
                                           const std::string& called, const std::vector<Context>& contexts,
                                           const std::vector<Extension>& extensions) {
    check(ASC_initializeNetwork(NET_REQUESTOR, 0, PatienceSeconds, &network_));
    check(ASC_setTransportLayer(network_, new NotingLayer{socket_}, OFTrue));
    check(ASC_createAssociationParameters(&parameters_, ASC_MAXIMUMPDUSIZE));
    ASC_setAPTitles(parameters_, calling.c_str(), called.c_str(), nullptr);
    const std::string address = port.toStdString();
    ASC_setPresentationAddresses(
        parameters_, "localhost",
        (address.find(':') == std::string::npos ? "127.0.0.1:" + address : address).c_str());
    int id = 1;
    for (const Context& context : contexts) {
        std::vector<const char*> syntaxes;
        for (const std::string& syntax : context.transferSyntaxes)
            syntaxes.push_back(syntax.c_str());
        check(ASC_addPresentationContext(parameters_, static_cast<T_ASC_PresentationContextID>(id),
                                         context.abstractSyntax.c_str(), syntaxes.data(),
                                         static_cast<int>(syntaxes.size()), context.role));
        id += 2;
    }
    if (!extensions.empty())
        ASC_setRequestedExtNegList(parameters_, listOf(extensions));
    opened_ = ASC_requestAssociation(network_, parameters_, &association_);
    if (opened_.bad())
        return;
    for (std::size_t i = 0; i < contexts.size(); ++i) {
        T_ASC_PresentationContext context;
        check(ASC_getPresentationContext(parameters_, static_cast<int>(i), &context));
        accepted_.emplace_back(context.resultReason == ASC_P_ACCEPTANCE ? context.acceptedTransferSyntax
                                                                        : "");
    }
    nameForToolkit(*parameters_);
}

RequestorAssociation::~RequestorAssociation() {
    if (association_ != nullptr)
        ASC_destroyAssociation(&association_);  // with its parameters
    else
        ASC_destroyAssociationParameters(&parameters_);
    ASC_dropNetwork(&network_);
}

T_ASC_RejectParameters RequestorAssociation::rejection() const {
    T_ASC_RejectParameters rejected{};
    ASC_getRejectParameters(parameters_, &rejected);
    return rejected;
}

T_ASC_SC_ROLE RequestorAssociation::acceptedRole(int index) const {
    T_ASC_PresentationContext context;
    check(ASC_getPresentationContext(parameters_, index, &context));
    return context.acceptedRole;
}

std::vector<RequestorAssociation::Extension> RequestorAssociation::acceptedExtensions() const {
    SOPClassExtendedNegotiationSubItemList* list = nullptr;
    ASC_getAcceptedExtNegList(parameters_, &list);
    std::vector<Extension> found;
    if (list == nullptr)
        return found;
    for (const SOPClassExtendedNegotiationSubItem* item : *list) {
        const std::span information{item->serviceClassAppInfo, item->serviceClassAppInfoLength};
        found.push_back({item->sopClassUID, {information.begin(), information.end()}});
    }
    return found;
}

bool RequestorAssociation::echo() {
    DIC_US status = 0xffff;
    DcmDataset* detail = nullptr;
    const OFCondition answered = DIMSE_echoUser(association_, association_->nextMsgID++, DIMSE_NONBLOCKING,
                                                PatienceSeconds, &status, &detail);
    delete detail;
    return answered.good() && status == STATUS_Success;
}

RequestorAssociation::Answer RequestorAssociation::store(DcmFileFormat& object,
                                                         const std::optional<std::string>& instance,
                                                         const std::optional<std::string>& sopClass) {
    DcmDataset& set = *object.getDataset();
    OFString ownInstance;
    OFString ownClass;
    set.findAndGetOFString(DCM_SOPInstanceUID, ownInstance);
    set.findAndGetOFString(DCM_SOPClassUID, ownClass);
    T_DIMSE_C_StoreRQ request{};
    request.MessageID = association_->nextMsgID++;
    std::strncpy(request.AffectedSOPClassUID, sopClass.value_or(ownClass.c_str()).c_str(), DIC_UI_LEN);
    std::strncpy(request.AffectedSOPInstanceUID, instance.value_or(ownInstance.c_str()).c_str(), DIC_UI_LEN);
    request.DataSetType = DIMSE_DATASET_PRESENT;
    request.Priority = DIMSE_PRIORITY_MEDIUM;
    T_DIMSE_C_StoreRSP response{};
    DcmDataset* detail = nullptr;
    const OFCondition answered =
        DIMSE_storeUser(association_, Storage, &request, nullptr, &set, nullptr, nullptr, DIMSE_NONBLOCKING,
                        PatienceSeconds, &response, &detail);
    return answerOf(answered, response, detail);
}

RequestorAssociation::Answer RequestorAssociation::storeBytes(const std::string& instance,
                                                              std::span<const char> data) {
    return storeBytes(Storage / 2, UID_CTImageStorage, instance, data);
}

RequestorAssociation::Answer RequestorAssociation::storeBytes(int index, const std::string& sopClass,
                                                              const std::string& instance,
                                                              std::span<const char> data) {
    const auto id = static_cast<T_ASC_PresentationContextID>(2 * index + 1);
    writeCommand(id, DIMSE_C_STORE_RQ, sopClass, instance);
    writeParts(id, false, data, true);
    T_DIMSE_Message answer{};
    T_ASC_PresentationContextID context = 0;
    DcmDataset* detail = nullptr;
    const OFCondition answered =
        DIMSE_receiveCommand(association_, DIMSE_NONBLOCKING, PatienceSeconds, &context, &answer, &detail);
    return answerOf(answered, answer.msg.CStoreRSP, detail);
}

void RequestorAssociation::sendCommand(std::span<const char> bytes) {
    writeParts(Storage, true, bytes, true);
}

void RequestorAssociation::beginStore(const ObjectSpec& spec, int bytes) {
    const auto data = bytesOf(*makeObject(spec)->getDataset(), EXS_LittleEndianExplicit);
    beginStoreBytes(spec.instance, std::span{data}.first(static_cast<std::size_t>(bytes)));
}

void RequestorAssociation::beginStoreBytes(const std::string& instance, std::span<const char> data) {
    writeStoreCommand(instance);
    continueStoreBytes(data);
}

void RequestorAssociation::continueStoreBytes(std::span<const char> data) {
    writeParts(Storage, false, data, false);
}

void RequestorAssociation::writeStoreCommand(const std::string& instance) {
    writeCommand(Storage, DIMSE_C_STORE_RQ, UID_CTImageStorage, instance);
}

DIC_US RequestorAssociation::sendFind(T_ASC_PresentationContextID context, const std::string& sopClass,
                                      std::span<const char> identifier) {
    const DIC_US id = writeCommand(context, DIMSE_C_FIND_RQ, sopClass, {}, !identifier.empty());
    writeParts(context, false, identifier, true);
    return id;
}

DIC_US RequestorAssociation::sendFindAndCancel(T_ASC_PresentationContextID context,
                                               const std::string& sopClass,
                                               std::span<const char> identifier) {
    const DIC_US id = writeCommand(context, DIMSE_C_FIND_RQ, sopClass);
    DcmDataset command;
    command.putAndInsertUint32(DCM_CommandGroupLength, 0);
    command.putAndInsertUint16(DCM_CommandField, DIMSE_C_CANCEL_RQ);
    command.putAndInsertUint16(DCM_MessageIDBeingRespondedTo, id);
    command.putAndInsertUint16(DCM_CommandDataSetType, DIMSE_DATASET_NULL);
    command.computeGroupLengthAndPadding(EGL_recalcGL, EPD_noChange, EXS_LittleEndianImplicit,
                                         EET_ExplicitLength);
    const auto cancel = bytesOf(command, EXS_LittleEndianImplicit);
    std::string parts;
    const auto number = [](std::size_t value) {
        std::string bytes;
        for (const unsigned shift : {24U, 16U, 8U, 0U})
            bytes += static_cast<char>(value >> shift & 0xffU);
        return bytes;
    };
    const auto add = [&](char header, std::span<const char> bytes) {
        parts += number(bytes.size() + 2);
        parts += static_cast<char>(context);
        parts += header;
        parts.append(bytes.begin(), bytes.end());
    };
    constexpr char Last = 2;
    constexpr char LastOfCommand = 3;
    add(Last, identifier);
    add(LastOfCommand, cancel);
    const std::string pdu = std::string{"\x04\x00", 2} + number(parts.size()) + parts;
    DcmTransportConnection* const connection = DUL_getTransportConnection(association_->DULassociation);
    if (connection->write(const_cast<char*>(pdu.data()), pdu.size()) != static_cast<ssize_t>(pdu.size()))
        throw std::runtime_error{"the PDU was not taken"};
    return id;
}

DIC_US RequestorAssociation::writeCommand(T_ASC_PresentationContextID context, T_DIMSE_Command field,
                                          const std::string& sopClass, const std::string& instance,
                                          bool dataSet, const std::string& destination) {
    const DIC_US id = association_->nextMsgID++;
    DcmDataset command;
    command.putAndInsertUint32(DCM_CommandGroupLength, 0);
    command.putAndInsertString(DCM_AffectedSOPClassUID, sopClass.c_str());
    command.putAndInsertUint16(DCM_CommandField, static_cast<Uint16>(field));
    command.putAndInsertUint16(DCM_MessageID, id);
    command.putAndInsertUint16(DCM_Priority, DIMSE_PRIORITY_MEDIUM);
    command.putAndInsertUint16(DCM_CommandDataSetType, dataSet ? DIMSE_DATASET_PRESENT : DIMSE_DATASET_NULL);
    if (!instance.empty())
        command.putAndInsertString(DCM_AffectedSOPInstanceUID, instance.c_str());
    if (!destination.empty())
        command.putAndInsertString(DCM_MoveDestination, destination.c_str());
    command.computeGroupLengthAndPadding(EGL_recalcGL, EPD_noChange, EXS_LittleEndianImplicit,
                                         EET_ExplicitLength);
    writeParts(context, true, bytesOf(command, EXS_LittleEndianImplicit), true);
    return id;
}

/// Not `whole`: the last part does not say that it is the last.
void RequestorAssociation::writeParts(T_ASC_PresentationContextID context, bool command,
                                      std::span<const char> bytes, bool whole) {
    constexpr std::size_t Part = 16000;
    while (!bytes.empty()) {
        const auto part = bytes.first(std::min(bytes.size(), Part));
        bytes = bytes.subspan(part.size());
        writePdv(association_, context, command ? DUL_COMMANDPDV : DUL_DATASETPDV, whole && bytes.empty(),
                 part.data(), part.size());
    }
}

void RequestorAssociation::release() {
    check(ASC_releaseAssociation(association_));
}

void RequestorAssociation::abort() {
    check(ASC_abortAssociation(association_));
}

bool RequestorAssociation::waitForEnd() {
    T_DIMSE_Message message{};
    T_ASC_PresentationContextID context = 0;
    const OFCondition end =
        DIMSE_receiveCommand(association_, DIMSE_NONBLOCKING, PatienceSeconds, &context, &message, nullptr);
    return end == DUL_PEERABORTEDASSOCIATION || end == DUL_NETWORKCLOSED;
}

}  // namespace tessaly::test
