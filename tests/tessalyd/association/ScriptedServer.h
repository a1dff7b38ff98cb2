#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmnet/dimse.h>

#include <QString>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "tessalyd/association/Association.h"
#include "tessalyd/association/AssociationThreads.h"
#include "tessalyd/association/Listener.h"
#include "tessalyd/association/OpenAssociations.h"
#include "tessalyd/association/Service.h"
#include "tessalyd/association/Transport.h"
#include "tests/tessalyd/RequestorAssociation.h"

namespace tessaly::test {

constexpr const char* EchoClass = UID_VerificationSOPClass;
constexpr const char* FindClass = UID_FINDStudyRootQueryRetrieveInformationModel;
constexpr const char* MoveClass = UID_MOVEStudyRootQueryRetrieveInformationModel;
constexpr const char* GetClass = UID_GETStudyRootQueryRetrieveInformationModel;
constexpr const char* CtClass = UID_CTImageStorage;
constexpr const char* FilmClass = UID_MultiframeGrayscaleWordSecondaryCaptureImageStorage;
constexpr const char* Implicit = UID_LittleEndianImplicitTransferSyntax;
constexpr const char* Explicit = UID_LittleEndianExplicitTransferSyntax;

/// The server's associations in this process, with services that do what a test says. A C-ECHO is answered.
/// They take little endian, implicit and explicit; CT images are taken (C-STORE) and sent (C-GET), these
/// rather in explicit; films are taken in any syntax. Extended negotiation is for C-FIND: all holds but the last byte.
class ScriptedServer {
  public:
    using Script = std::function<void(const tessalyd::Request&, tessalyd::Association&)>;

    explicit ScriptedServer(const tessalyd::AssociationLimits& limits = {});
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    /// What the service of a command does, in associations that are opened from now on.
    void on(tessalyd::CommandField command, const Script& script);

    /// What C-FIND needs, which the node ASKER alone has; in associations that are opened from now on.
    void setRight(tessalyd::Right right) { right_ = right; }

    [[nodiscard]] QString port() const { return QString::fromStdString(configuration_->port); }
    /// As if the server were ended.
    void stop() { threads_.stopThrough(threads_.latest()); }
    /// Associations that are over.
    std::atomic<int> ended = 0;

    /// A context for each of the classes above, in their order.
    [[nodiscard]] static std::vector<RequestorAssociation::Context> contexts();
    enum ContextId : T_ASC_PresentationContextID { Find = 3, Move = 5, Get = 7, Ct = 9 };

  private:
    [[nodiscard]] Script scriptFor(tessalyd::CommandField command) const;
    void serve(base::FileDescriptor socket, const std::stop_token& listening);

    std::atomic<tessalyd::Right> right_ = tessalyd::Right::None;
    mutable std::mutex mutex_;
    std::map<tessalyd::CommandField, Script> scripts_;
    tessalyd::AssociationLimits limits_;
    tessalyd::PeerLog log_;
    std::shared_ptr<tessalyd::PortConfiguration> configuration_;
    tessalyd::ServiceFactory services_;
    tessalyd::Transport transport_;
    tessalyd::OpenAssociations open_;
    tessalyd::AssociationThreads threads_;
    std::unique_ptr<tessalyd::Listener> listener_;
};

/// Answers a C-FIND, with an identifier where it is pending.
void answerFind(const tessalyd::Request& request, tessalyd::Association& association, DIC_US status);

/// Sends a request with an identifier. Returns its message ID.
DIC_US ask(RequestorAssociation& peer, ScriptedServer::ContextId context, T_DIMSE_Command command);
void cancel(RequestorAssociation& peer, ScriptedServer::ContextId context, DIC_US messageId);

/// What comes next from the server; its identifier is passed over.
struct Heard {
    T_DIMSE_Message message{};
    std::unique_ptr<DcmDataset> detail;
    bool arrived = false;
};
[[nodiscard]] Heard hear(RequestorAssociation& peer);

}  // namespace tessaly::test
