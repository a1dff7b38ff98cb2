#pragma once

#include "tests/tessalyd/forwarding/ftp/FtpProduct.h"
#include "tests/tessalyd/forwarding/ftp/ScriptedFtp.h"
#include "tests/tessalyd/services/retrieve/MoveTest.h"

namespace tessaly::test {

/// What the tests of deliveries share: a server with the FTP node "Backup", whose first retry comes after a
/// second.
class DeliveryTest : public MoveTest {
    Q_OBJECT

  protected:
    static const inline QStringList QuickRetry{QStringLiteral("--first-retry"), QStringLiteral("1")};
    /// Later than any test: for one that looks at what the first attempt left.
    static const inline QStringList LateRetry{QStringLiteral("--first-retry"), QStringLiteral("3600")};

    struct FtpNode {
        QString host;
        QString user = QString::fromStdString(ScriptedFtp::User);
        QString password = QString::fromStdString(ScriptedFtp::Password);
        QString destination = QStringLiteral("in");
        QString type = QStringLiteral("Quib");
    };
    [[nodiscard]] static FtpNode nodeOf(const FtpProduct& server) {
        return {.host = server.host(), .user = server.user(), .password = FtpProduct::Password};
    }
    [[nodiscard]] static FtpNode nodeOf(const ScriptedFtp& server) { return {.host = server.host()}; }

    void launchFor(const FtpNode& node, const QStringList& arguments = QuickRetry,
                   const QList<PortRow>& ports = {PortRow{}});
    void setNode(const QString& column, const QString& value) const;
    /// Sends objects as storeStudy() does, over an association with this called title; those from `first` on.
    QStringList storeFor(const std::string& called, int count, int first = 1) const;
    /// Asks for the study to be moved there; returns the message ID.
    static DIC_US askForDelivery(Retriever& viewer, const std::string& to = "BACKUP") {
        return viewer.ask(Retriever::MoveStudyRoot, "STUDY", TheStudy, to);
    }

    /// What is to stand there when these are delivered: the files of the archive, and what is said of them.
    /// With a study of storeStudy().
    [[nodiscard]] QMap<QString, QByteArray> deliveryOf(const QStringList& uids) const;
    /// What stands there, without the slash in front.
    [[nodiscard]] static QMap<QString, QByteArray> filesOf(const ScriptedFtp& server);

    /// States of all jobs, as the table has them, in their order.
    [[nodiscard]] QStringList jobStates() const;
    [[nodiscard]] QString lastError() const;
    /// Files and folders in the spool.
    [[nodiscard]] QStringList spooled() const;
    /// As if a minute had gone by since the server was killed.
    void endLeases() const;
    /// As `tessaly-db jobs retry` does it.
    void retryAll() const;

    inline static const QString Waiting = QStringLiteral("0");
    inline static const QString Running = QStringLiteral("1");
    inline static const QString Done = QStringLiteral("2");
    inline static const QString GivenUp = QStringLiteral("3");
};

}  // namespace tessaly::test
