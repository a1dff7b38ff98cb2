#include "tests/tessalyd/forwarding/ftp/FtpProduct.h"

#include <grp.h>
#include <pwd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTcpSocket>
#include <QTest>
#include <csignal>
#include <stdexcept>

#include "tests/support/Eventually.h"
#include "tests/support/UnusedPort.h"
#include "tests/tessalyd/Daemon.h"

using namespace Qt::StringLiterals;

namespace tessaly::test {

namespace {

const QString Unpacked = QStringLiteral(TESSALY_UNPACKED);

QString accountName() {
    return QString::fromLocal8Bit(getpwuid(getuid())->pw_name);
}

/// The server greets whoever connects.
bool greets(const QString& port) {
    QTcpSocket probe;
    probe.connectToHost(u"127.0.0.1"_s, port.toUShort());
    return probe.waitForReadyRead(PatienceMs) && probe.readAll().startsWith("220");
}

}  // namespace

FtpProduct::FtpProduct(Kind kind, bool tls, qint64 mostBytes) : kind_(kind), tls_(tls), port_(unusedPort()) {
    if (!QDir{}.mkpath(folder()))
        throw std::runtime_error{"no folder for the FTP server"};
    if (tls)
        makeCertificate();
    const bool isVsftpd = kind == Kind::Vsftpd;
    write(u"configuration"_s, isVsftpd ? vsftpd() : proftpd());
    process_.setProcessChannelMode(QProcess::MergedChannels);
    process_.setChildProcessModifier([mostBytes] {
        if (mostBytes < 0)
            return;
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{static_cast<rlim_t>(mostBytes), static_cast<rlim_t>(mostBytes)};
        setrlimit(RLIMIT_FSIZE, &limit);
    });
    const QString configuration = folder_.filePath(u"configuration"_s);
    if (isVsftpd)
        process_.start(Unpacked + u"/usr/sbin/vsftpd"_s, {configuration});
    else
        process_.start(Unpacked + u"/usr/sbin/proftpd"_s, {u"-n"_s, u"-c"_s, configuration});
    if (!QTest::qWaitFor([this] { return process_.state() == QProcess::NotRunning || greets(port_); },
                         PatienceMs) ||
        process_.state() == QProcess::NotRunning)
        throw std::runtime_error{"the FTP server does not start: " + process_.readAll().toStdString()};
}

FtpProduct::~FtpProduct() {
    process_.terminate();  // with its children
    process_.waitForFinished();
}

QString FtpProduct::host() const {
    return (tls_ ? u"ftpes://localhost:"_s : u"127.0.0.1:"_s) + port_;
}

QString FtpProduct::user() const {
    return kind_ == Kind::Vsftpd ? u"anonymous"_s : u"scanner"_s;
}

QMap<QString, QByteArray> FtpProduct::files() const {
    QMap<QString, QByteArray> found;
    const QDir home{folder()};
    for (QDirIterator each{folder(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories};
         each.hasNext();) {
        QFile file{each.next()};
        if (!file.open(QIODevice::ReadOnly))
            throw std::runtime_error{"a delivered file cannot be read"};
        found.insert(home.relativeFilePath(file.fileName()), file.readAll());
    }
    return found;
}

void FtpProduct::makeCertificate() const {
    const Outcome made =
        run(u"openssl"_s, {u"req"_s, u"-x509"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s, u"-days"_s, u"2"_s,
                           u"-subj"_s, u"/CN=localhost"_s, u"-addext"_s, u"subjectAltName=DNS:localhost"_s,
                           u"-keyout"_s, folder_.filePath(u"key.pem"_s), u"-out"_s, certificate()});
    if (made.exitCode != 0)
        throw std::runtime_error{"no certificate: " + made.output.toStdString()};
}

/// Without rights of its own it lets in nobody but the anonymous user, who has a password here.
QString FtpProduct::vsftpd() const {
    write(u"passwords"_s, Password + u'\n');
    QString text =
        uR"(listen=YES
listen_ipv6=NO
listen_address=127.0.0.1
listen_port=%1
background=NO
run_as_launching_user=YES
ftp_username=%2
anonymous_enable=YES
local_enable=NO
write_enable=YES
anon_upload_enable=YES
anon_mkdir_write_enable=YES
anon_other_write_enable=YES
anon_world_readable_only=NO
anon_umask=022
anon_root=%3
secure_email_list_enable=YES
email_password_file=%4
seccomp_sandbox=NO
)"_s.arg(port_, accountName(), folder(), folder_.filePath(u"passwords"_s));
    if (tls_)
        text +=
            uR"(ssl_enable=YES
allow_anon_ssl=YES
force_anon_logins_ssl=YES
force_anon_data_ssl=YES
ssl_ciphers=HIGH
rsa_cert_file=%1
rsa_private_key_file=%2
)"_s.arg(certificate(), folder_.filePath(u"key.pem"_s));
    return text;
}

QString FtpProduct::proftpd() const {
    const Outcome hash = run(u"openssl"_s, {u"passwd"_s, u"-5"_s, Password});
    write(u"passwords"_s, u"scanner:%1:%2:%3::%4:/bin/false\n"_s.arg(hash.output.trimmed())
                              .arg(getuid())
                              .arg(getgid())
                              .arg(folder()));
    QString text =
        uR"(ModulePath %1/usr/lib/proftpd
LoadModule mod_tls.c
ServerType standalone
DefaultServer on
DefaultAddress 127.0.0.1
UseIPv6 off
Port %2
User %3
Group %4
RootLogin on
RequireValidShell off
AuthPAM off
AuthOrder mod_auth_file.c
AuthUserFile %5
PidFile %6/pid
ScoreboardFile %6/scoreboard
SystemLog %6/log
TransferLog none
WtmpLog off
DelayTable none
UseReverseDNS off
AllowOverwrite on
)"_s.arg(Unpacked, port_, accountName(), QString::fromLocal8Bit(getgrgid(getgid())->gr_name),
         folder_.filePath(u"passwords"_s), folder_.path());
    if (tls_)
        text +=
            uR"(TLSEngine on
TLSRequired on
TLSRSACertificateFile %1
TLSRSACertificateKeyFile %2
)"_s.arg(certificate(), folder_.filePath(u"key.pem"_s));
    return text;
}

void FtpProduct::write(const QString& name, const QString& text) const {
    QFile file{folder_.filePath(name)};
    if (!file.open(QIODevice::WriteOnly) || file.write(text.toUtf8()) < 0 ||
        !file.setPermissions(QFile::ReadOwner | QFile::WriteOwner))
        throw std::runtime_error{"the FTP server's files cannot be written"};
}

}  // namespace tessaly::test
