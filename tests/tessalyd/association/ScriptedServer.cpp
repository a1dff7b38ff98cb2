#include "tests/tessalyd/association/ScriptedServer.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/ofstd/ofstd.h>

#include <QTest>
#include <array>
#include <cstring>

#include "tessalyd/association/AssociationHandler.h"
#include "tests/tessalyd/Daemon.h"

namespace tessaly::test {

using namespace tessalyd;

namespace {

template <auto& Class>
bool is(const char* sopClass) {
    return std::strcmp(sopClass, Class) == 0;
}

int anyLittleEndian(dicom::TransferSyntax syntax) {
    return syntax == EXS_LittleEndianImplicit || syntax == EXS_LittleEndianExplicit ? 1 : 0;
}
int ratherExplicit(dicom::TransferSyntax syntax) {
    return syntax == EXS_LittleEndianExplicit ? 2 : anyLittleEndian(syntax);
}

constexpr std::array EchoContexts{SupportedContext{&is<EchoClass>, Role::Scu, &anyLittleEndian}};
constexpr std::array FindContexts{SupportedContext{&is<FindClass>, Role::Scu, &anyLittleEndian}};
constexpr std::array MoveContexts{SupportedContext{&is<MoveClass>, Role::Scu, &anyLittleEndian}};
constexpr std::array GetContexts{SupportedContext{&is<GetClass>, Role::Scu, &anyLittleEndian},
                                 SupportedContext{&is<CtClass>, Role::Scp, &ratherExplicit}};
/// Films are taken as they are.
int anySyntax(dicom::TransferSyntax syntax) {
    return dicom::isArchived(syntax) ? 1 : 0;
}
constexpr std::array StoreContexts{SupportedContext{&is<CtClass>, Role::Scu, &anyLittleEndian},
                                   SupportedContext{&is<FilmClass>, Role::Scu, &anySyntax}};

class ScriptedService : public Service {
  public:
    ScriptedService(CommandField command, std::span<const SupportedContext> contexts,
                    ScriptedServer::Script script, Right right)
        : commands_{command}, contexts_(contexts.begin(), contexts.end()), script_(std::move(script)) {
        for (SupportedContext& context : contexts_)
            context.right = right;
    }

    [[nodiscard]] std::span<const SupportedContext> contexts() const noexcept override { return contexts_; }
    [[nodiscard]] std::span<const CommandField> commands() const noexcept override { return commands_; }
    [[nodiscard]] std::vector<std::uint8_t> negotiateExtended(
        const std::string& sopClass, std::span<const std::uint8_t> proposed) override {
        if (sopClass != FindClass)
            return {};
        std::vector<std::uint8_t> holds(proposed.begin(), proposed.end());
        holds.back() = 0;
        return holds;
    }
    void answer(const Request& request, Association& association) override { script_(request, association); }

  private:
    std::array<CommandField, 1> commands_;
    std::vector<SupportedContext> contexts_;
    ScriptedServer::Script script_;
};

void answerEcho(const Request& request, Association& association) {
    association.respond(request, STATUS_Success);
}

}  // namespace

ScriptedServer::ScriptedServer(const AssociationLimits& limits)
    : limits_(limits),
      configuration_(std::make_shared<PortConfiguration>()),
      services_([this](const PortConfiguration&, const AssociationNames&) {
          PeerServices made;
          made.nodes = std::make_shared<const RemoteNodes>(
              std::vector<NodeConfiguration>{{.name = "asker", .aeTitle = "ASKER", .query = true}});
          const auto add = [&made](CommandField command, auto& contexts, const Script& script,
                                   Right right = Right::None) {
              made.services.push_back(std::make_unique<ScriptedService>(command, contexts, script, right));
          };
          add(CommandField::CEcho, EchoContexts, &answerEcho);
          add(CommandField::CFind, FindContexts, scriptFor(CommandField::CFind), right_);
          add(CommandField::CMove, MoveContexts, scriptFor(CommandField::CMove));
          add(CommandField::CGet, GetContexts, scriptFor(CommandField::CGet));
          add(CommandField::CStore, StoreContexts, scriptFor(CommandField::CStore));
          return made;
      }),
      transport_(limits_),
      open_([](const AssociationNames&, int) {}, [this](const AssociationNames&, int) { ++ended; }) {
    constexpr int Many = 50;  // those too that are just ending
    configuration_->port = unusedPort().toStdString();
    configuration_->maxConnections = Many;
    threads_.setLimit(Many);
    listener_ = std::make_unique<Listener>(
        *configuration_, [this](base::FileDescriptor socket, const std::stop_token& listening) {
            serve(std::move(socket), listening);
        });
}

ScriptedServer::~ScriptedServer() {
    listener_.reset();
}

void ScriptedServer::on(CommandField command, const Script& script) {
    const std::lock_guard lock{mutex_};
    scripts_[command] = script;
}

ScriptedServer::Script ScriptedServer::scriptFor(CommandField command) const {
    const std::lock_guard lock{mutex_};
    const auto found = scripts_.find(command);
    return found == scripts_.end() ? Script{} : found->second;
}

void ScriptedServer::serve(base::FileDescriptor socket, const std::stop_token& listening) {
    auto held = std::make_shared<base::FileDescriptor>(std::move(socket));
    const auto started = threads_.start(
        peerAddress(*held), [this, held, listening](AssociationThreads::Connection& connection) {
            AssociationHandler{
                {transport_, open_, services_, log_, limits_}, configuration_, connection, listening}
                .run(std::move(*held));
        });
    if (started != AssociationThreads::Started::Yes)
        QTest::qFail("too many associations", __FILE__, __LINE__);
}

std::vector<RequestorAssociation::Context> ScriptedServer::contexts() {
    return {{EchoClass, {Implicit}},
            {FindClass, {Implicit}},
            {MoveClass, {Implicit}},
            {GetClass, {Implicit}},
            {CtClass, {Explicit}, ASC_SC_ROLE_SCUSCP}};
}

void answerFind(const Request& request, Association& association, DIC_US status) {
    DcmDataset identifier;
    identifier.putAndInsertString(DCM_PatientID, "P1");
    const bool pending = status == STATUS_FIND_Pending_MatchesAreContinuing;
    association.respond(request, status, pending ? &identifier : nullptr);
}

DIC_US ask(RequestorAssociation& peer, ScriptedServer::ContextId context, T_DIMSE_Command command) {
    T_DIMSE_Message message{};
    message.CommandField = command;
    const DIC_US id = peer.raw()->nextMsgID++;
    const auto fill = [id](auto& request, const char* sopClass) {
        request.MessageID = id;
        std::strncpy(request.AffectedSOPClassUID, sopClass, sizeof request.AffectedSOPClassUID - 1);
        request.Priority = DIMSE_PRIORITY_MEDIUM;
        request.DataSetType = DIMSE_DATASET_PRESENT;
    };
    if (command == DIMSE_C_FIND_RQ)
        fill(message.msg.CFindRQ, FindClass);
    else if (command == DIMSE_C_MOVE_RQ)
        fill(message.msg.CMoveRQ, MoveClass);
    else if (command == DIMSE_C_GET_RQ)
        fill(message.msg.CGetRQ, GetClass);
    else
        fill(message.msg.CStoreRQ, CtClass);
    if (command == DIMSE_C_STORE_RQ)
        OFStandard::strlcpy(message.msg.CStoreRQ.AffectedSOPInstanceUID, "1.2.3", sizeof(DIC_UI));
    DcmDataset identifier;
    identifier.putAndInsertString(DCM_QueryRetrieveLevel, "STUDY");
    DIMSE_sendMessageUsingMemoryData(peer.raw(), context, &message, nullptr, &identifier, nullptr, nullptr);
    return id;
}

void cancel(RequestorAssociation& peer, ScriptedServer::ContextId context, DIC_US messageId) {
    DIMSE_sendCancelRequest(peer.raw(), context, messageId);
}

Heard hear(RequestorAssociation& peer) {
    Heard heard;
    T_ASC_PresentationContextID context = 0;
    DcmDataset* detail = nullptr;
    heard.arrived = DIMSE_receiveCommand(peer.raw(), DIMSE_NONBLOCKING, PatienceSeconds, &context,
                                         &heard.message, &detail)
                        .good();
    heard.detail.reset(detail);
    const auto& message = heard.message;
    const bool more = (message.CommandField == DIMSE_C_FIND_RSP &&
                       message.msg.CFindRSP.DataSetType != DIMSE_DATASET_NULL) ||
                      message.CommandField == DIMSE_C_STORE_RQ;
    DIC_UL bytes = 0;
    DIC_UL parts = 0;
    if (heard.arrived && more)
        DIMSE_ignoreDataSet(peer.raw(), DIMSE_NONBLOCKING, PatienceSeconds, &bytes, &parts);
    return heard;
}

}  // namespace tessaly::test
