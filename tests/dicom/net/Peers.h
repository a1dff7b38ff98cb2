#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace tessaly::test {

/// A peer of our own on a port of the loopback, good or bad, for one connection after another.
class Peer {
  public:
    enum class Manner {
        Accepts,           ///< as it should be
        NeverSpeaks,       ///< takes the connection, then nothing
        StopsHalfWay,      ///< half an answer, then nothing
        Drips,             ///< an answer of which a byte comes now and then
        Closes,            ///< takes the connection and closes it
        SpeaksNonsense,    ///< answers what is no DICOM
        Rejects,           ///< A-ASSOCIATE-RJ: called AE title not recognized
        Aborts,            ///< A-ABORT instead of an answer to the association
        OffersNothing,     ///< an association without a presentation context
        AbortsTheEcho,     ///< A-ABORT instead of the answer to the C-ECHO
        IgnoresTheEcho,    ///< no answer to the C-ECHO
        FailsTheEcho,      ///< C-ECHO response with status 0x0122
        IgnoresTheRelease  ///< a good answer, but nothing to the release
    };
    explicit Peer(Manner manner);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    [[nodiscard]] QString port() const { return QString::number(port_); }
    [[nodiscard]] int connections() const { return connections_; }
    /// The titles of the last association asked for; valid once its verification has come back.
    [[nodiscard]] std::string callingAeTitle() const { return calling_; }
    [[nodiscard]] std::string calledAeTitle() const { return called_; }

  private:
    void serve();
    void meet(int socket);
    void meetDicom(int socket);

    Manner manner_;
    int port_ = 0;
    int listener_;
    std::atomic<int> connections_ = 0;
    std::atomic<bool> ending_ = false;
    std::string calling_;
    std::string called_;
    std::jthread thread_;
};

/// A port that takes no further connection and refuses none: whoever connects waits.
class FullPort {
  public:
    FullPort();
    ~FullPort();
    FullPort(const FullPort&) = delete;
    FullPort& operator=(const FullPort&) = delete;
    [[nodiscard]] QString port() const { return QString::number(port_); }

  private:
    int port_ = 0;
    int listener_;
    std::vector<int> waiting_;
};

/// A DICOM product as a process of its own; ready when the constructor returns.
class Product {
  public:
    /// In all texts %PORT% and %FOLDER% stand for its own; the configuration is the folder's file
    /// "configuration".
    Product(const QString& program, const QStringList& arguments, const QString& configuration = {});
    ~Product();
    Product(const Product&) = delete;
    Product& operator=(const Product&) = delete;

    /// Orthanc, which checks the called title (ORTHANC) and answers only to callers it knows (TESSALY).
    [[nodiscard]] static std::unique_ptr<Product> orthanc();
    /// What it takes it writes into its folder.
    [[nodiscard]] static std::unique_ptr<Product> storescp() { return storescp({}); }
    [[nodiscard]] static std::unique_ptr<Product> storescp(const QStringList& options);
    /// An archive that keeps its index in a plain file; it is called DCMQRSCP, and keeps no more than some
    /// hundred studies for its queries.
    [[nodiscard]] static std::unique_ptr<Product> dcmqrscp();

    [[nodiscard]] const QString& port() const { return port_; }
    [[nodiscard]] QString folder() const { return folder_.path(); }

  private:
    QString port_;
    QTemporaryDir folder_;
    QProcess process_;
};

}  // namespace tessaly::test
