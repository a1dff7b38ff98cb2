#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/dimse.h>

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tests/tessalyd/Objects.h"

namespace tessaly::test {

/// A well-formed association request as it goes over the wire, with another application context if one is
/// given.
[[nodiscard]] QByteArray associationRequest(const QByteArray& applicationContext = "1.2.840.10008.3.1.1.1");

/// The beginning of a data set or command: so many empty sequences, each in the one before, none of them
/// ended.
[[nodiscard]] std::vector<char> nestedSequences(int count,
                                                E_TransferSyntax syntax = EXS_LittleEndianExplicit);

/// An association asked for from the test itself, over the toolkit's bare calls: what the tools of a package
/// do not do, this does. Not released when it is destroyed: the connection just closes.
class RequestorAssociation {
  public:
    struct Context {
        std::string abstractSyntax;
        std::vector<std::string> transferSyntaxes;
        T_ASC_SC_ROLE role = ASC_SC_ROLE_DEFAULT;
    };
    /// Service class application information for a SOP class.
    struct Extension {
        std::string sopClass;
        std::vector<unsigned char> information;
        bool operator==(const Extension&) const = default;
    };
    /// What is proposed unless a test says otherwise: verification and CT images.
    [[nodiscard]] static std::vector<Context> usual();

    /// `port` of this machine, or of an address: "127.0.0.2:104".
    explicit RequestorAssociation(const QString& port, const std::string& calling = "TESTER",
                                  const std::string& called = "TESSALY",
                                  const std::vector<Context>& contexts = usual(),
                                  const std::vector<Extension>& extensions = {});
    ~RequestorAssociation();
    RequestorAssociation(const RequestorAssociation&) = delete;
    RequestorAssociation& operator=(const RequestorAssociation&) = delete;

    [[nodiscard]] bool isOpen() const { return opened_.good(); }
    /// Meaningful when the peer rejected it.
    [[nodiscard]] T_ASC_RejectParameters rejection() const;
    /// The transfer syntax accepted for the n-th proposed context; empty when it was refused.
    [[nodiscard]] const std::string& accepted(int index) const {
        return accepted_.at(static_cast<std::size_t>(index));
    }

    /// The role accepted for it.
    [[nodiscard]] T_ASC_SC_ROLE acceptedRole(int index) const;
    [[nodiscard]] std::vector<Extension> acceptedExtensions() const;

    /// For calls of the toolkit that this class has not.
    [[nodiscard]] T_ASC_Association* raw() const { return association_; }
    /// For calls of the system.
    [[nodiscard]] int socket() const { return socket_; }

    [[nodiscard]] bool echo();

    struct Answer {
        bool arrived = false;
        int status = -1;
        std::string comment;
    };
    /// Sends the object. The class and instance of the command are the object's own unless given.
    [[nodiscard]] Answer store(DcmFileFormat& object, const std::optional<std::string>& instance = {},
                               const std::optional<std::string>& sopClass = {});
    /// Sends a C-STORE request with a data set that is whatever the bytes are.
    [[nodiscard]] Answer storeBytes(const std::string& instance, std::span<const char> data);
    /// The same in the n-th context that was proposed.
    [[nodiscard]] Answer storeBytes(int index, const std::string& sopClass, const std::string& instance,
                                    std::span<const char> data);
    /// Sends a C-FIND request with an identifier that is whatever the bytes are, or none; its SOP class is
    /// that of the command. Returns the message ID.
    DIC_US sendFind(T_ASC_PresentationContextID context, const std::string& sopClass,
                    std::span<const char> identifier);
    /// The same with a C-CANCEL of the request behind the identifier, both in one PDU.
    DIC_US sendFindAndCancel(T_ASC_PresentationContextID context, const std::string& sopClass,
                             std::span<const char> identifier);
    /// Sends a command that is whatever the bytes are.
    void sendCommand(std::span<const char> bytes);
    /// Sends a C-STORE request and only the beginning of its data set.
    void beginStore(const ObjectSpec& spec, int bytes);
    /// The same with a data set that is whatever the bytes are, and more of it.
    void beginStoreBytes(const std::string& instance, std::span<const char> data);
    void continueStoreBytes(std::span<const char> data);

    void release();
    void abort();
    /// True when the peer's abort, or its closing of the connection, comes within some seconds.
    [[nodiscard]] bool waitForEnd();

  protected:
    DIC_US writeCommand(T_ASC_PresentationContextID context, T_DIMSE_Command field,
                        const std::string& sopClass, const std::string& instance = {}, bool dataSet = true,
                        const std::string& destination = {});
    void writeParts(T_ASC_PresentationContextID context, bool command, std::span<const char> bytes,
                    bool whole);

  private:
    void writeStoreCommand(const std::string& instance);

    int socket_ = -1;
    T_ASC_Network* network_ = nullptr;
    T_ASC_Parameters* parameters_ = nullptr;
    T_ASC_Association* association_ = nullptr;
    OFCondition opened_;
    std::vector<std::string> accepted_;
};

}  // namespace tessaly::test
