#pragma once

#include <QMap>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace tessaly::test {

/// An FTP server of another product, as a process of the test's own on the loopback, with one user; ready
/// when the constructor returns.
class FtpProduct {
  public:
    enum class Kind { Vsftpd, Proftpd };
    /// With TLS, nobody gets in without. `mostBytes`: no file of its grows longer; -1: any may.
    explicit FtpProduct(Kind kind, bool tls = false, qint64 mostBytes = -1);
    ~FtpProduct();
    FtpProduct(const FtpProduct&) = delete;
    FtpProduct& operator=(const FtpProduct&) = delete;

    /// As FtpNodes.Host has it.
    [[nodiscard]] QString host() const;
    [[nodiscard]] QString port() const { return port_; }
    [[nodiscard]] QString user() const;
    static inline const QString Password = QStringLiteral("s3cret-w0rd");

    /// The folder of the login.
    [[nodiscard]] QString folder() const { return folder_.filePath(QStringLiteral("home")); }
    /// Of the authority that vouches for "localhost"; a file for SSL_CERT_FILE.
    [[nodiscard]] QString certificate() const { return folder_.filePath(QStringLiteral("certificate.pem")); }
    /// What lies in it and below, by the path from there.
    [[nodiscard]] QMap<QString, QByteArray> files() const;

  private:
    void makeCertificate() const;
    [[nodiscard]] QString vsftpd() const;
    [[nodiscard]] QString proftpd() const;
    void write(const QString& name, const QString& text) const;

    Kind kind_;
    bool tls_;
    QString port_;
    QTemporaryDir folder_;
    QProcess process_;
};

}  // namespace tessaly::test
