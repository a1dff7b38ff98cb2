#pragma once

#include <QMap>
#include <QStringList>
#include <functional>

#include "tests/tessalyd/RequestorAssociation.h"
#include "tests/tessalyd/StockedArchive.h"

namespace tessaly::test {

/// How far a retrieval is, as an answer says.
struct Progress {
    int remaining = -1;  ///< -1: not said
    int completed = -1;
    int failed = -1;
    int warned = -1;
    bool operator==(const Progress&) const = default;
};

/// One message of the server's within a retrieval.
struct RetrievalMessage {
    T_DIMSE_Message message{};
    T_ASC_PresentationContextID context = 0;
    std::unique_ptr<DcmDataset> detail;
    bool arrived = false;
    QByteArray dataSet;  ///< of a C-STORE, byte for byte

    [[nodiscard]] bool isStore() const { return arrived && message.CommandField == DIMSE_C_STORE_RQ; }
    [[nodiscard]] bool isPending() const;
    [[nodiscard]] Progress progress() const;
};

/// How a retrieval ended, and all that came until then.
struct Retrieved {
    int status = -1;
    Progress counters;
    QStringList failed;  ///< the list that goes with the final answer
    std::string comment;
    DcmTagKey offending;
    QList<Progress> pending;
    QMap<QString, QByteArray> objects;  ///< of a C-GET: the data sets, by SOP instance UID
    QMap<QString, int> contexts;        ///< those that they came over
};

/// A requestor of C-GET and C-MOVE whose messages the test sends one by one.
class Retriever : public RequestorAssociation {
  public:
    enum ContextId : T_ASC_PresentationContextID {
        GetStudyRoot = 3,
        GetPatientRoot = 5,
        MoveStudyRoot = 7,
        MovePatientRoot = 9,
        FirstToReceive = 11
    };
    /// Contexts in which CT images come in the syntax.
    [[nodiscard]] static Context receiving(const std::string& syntax, T_ASC_SC_ROLE role = ASC_SC_ROLE_SCP);
    /// Contexts in which it receives are proposed behind the fixed ones.
    explicit Retriever(const QString& port,
                       const std::vector<Context>& toReceive = {receiving("1.2.840.10008.1.2.1")},
                       const std::string& calling = "VIEWER");

    /// Sends the request; returns its message ID. A destination makes it a C-MOVE's.
    DIC_US ask(ContextId context, const char* level, const std::vector<AskedKey>& keys,
               const std::string& destination = {});
    /// The same with an identifier that is whatever the bytes are, or none.
    DIC_US askWithBytes(ContextId context, std::span<const char> identifier,
                        const std::string& destination = {});
    void cancel(ContextId context, DIC_US messageId);

    [[nodiscard]] RetrievalMessage hear();
    /// The same, past the responses that tell how far it is.
    [[nodiscard]] RetrievalMessage hearStore();
    /// Answers a C-STORE.
    void answerStore(const RetrievalMessage& store, DIC_US status = STATUS_Success);

    /// Hears to the end; answers C-STOREs as `status` says.
    using Status = std::function<DIC_US(const std::string& sopInstanceUid)>;
    [[nodiscard]] Retrieved collect(const Status& status = {});
};

}  // namespace tessaly::test
