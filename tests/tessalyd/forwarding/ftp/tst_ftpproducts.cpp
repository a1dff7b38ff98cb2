#include <QTest>
#include <csignal>

#include "tessalyd/forwarding/ftp/Uploader.h"
#include "tests/tessalyd/forwarding/ftp/FtpProduct.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd::ftp;
using namespace tessaly::test;

/// The uploading client beside servers of other products, with and without TLS.
class FtpProductsTest : public QObject {
    Q_OBJECT

  private:
    static Node nodeOf(const FtpProduct& server) {
        return {.name = "BACKUP",
                .host = server.host().toStdString(),
                .user = server.user().toStdString(),
                .password = FtpProduct::Password.toStdString(),
                .destination = "in box",
                .type = "Quib"};
    }
    static void put(Uploader& uploader, const std::string& folder, const std::string& name,
                    const QByteArray& content) {
        TextSource source{{content.data(), static_cast<std::size_t>(content.size())}};
        uploader.put(source, folder, name);
    }
    static Fault failing(const Node& node) {
        Uploader uploader{node, std::stop_token{}};
        try {
            put(uploader, "1.2", "a.dcm", "content");
        } catch (const Fault& fault) {
            return fault;
        }
        throw std::logic_error{"the file was put"};
    }
    static void addServers() {
        QTest::addColumn<FtpProduct::Kind>("kind");
        QTest::addColumn<bool>("tls");
        QTest::newRow("vsftpd") << FtpProduct::Kind::Vsftpd << false;
        QTest::newRow("vsftpd with TLS") << FtpProduct::Kind::Vsftpd << true;
        QTest::newRow("proftpd") << FtpProduct::Kind::Proftpd << false;
        QTest::newRow("proftpd with TLS") << FtpProduct::Kind::Proftpd << true;
    }
    /// The server that the row of data names.
    static std::unique_ptr<FtpProduct> theServer() {
        QFETCH(const FtpProduct::Kind, kind);
        QFETCH(const bool, tls);
        auto server = std::make_unique<FtpProduct>(kind, tls);
        if (tls)
            qputenv("SSL_CERT_FILE", server->certificate().toUtf8());
        return server;
    }

  private Q_SLOTS:
    static void initTestCase() { std::signal(SIGPIPE, SIG_IGN); }
    static void cleanup() { qunsetenv("SSL_CERT_FILE"); }
    void putsFiles_data() { addServers(); }
    void putsFiles();
    void aWrongPasswordIsPermanent_data() { addServers(); }
    void aWrongPasswordIsPermanent();
    void tlsThatIsWantedIsAFault_data() { addServers(); }
    void tlsThatIsWantedIsAFault();
    void noOtherCertificateIsTrusted_data() { addServers(); }
    void noOtherCertificateIsTrusted();
    void noOtherNameIsTrusted_data() { addServers(); }
    void noOtherNameIsTrusted();
    void aFullDiskIsAFault_data() { addServers(); }
    void aFullDiskIsAFault();
};

void FtpProductsTest::putsFiles() {
    const auto server = theServer();
    QMap<QString, QByteArray> expected;
    {
        Uploader uploader{nodeOf(*server), std::stop_token{}};
        for (int round = 0; round < 2; ++round) {  // the second replaces
            for (int number = 0; number < 60; ++number) {
                const QByteArray folder = "1.2.3/1.2.3." + QByteArray::number(number / 20);
                const QByteArray name = QByteArray::number(number) + ".dcm";
                const QByteArray content(number == 30 ? 5'000'000 : number * 1000,
                                         static_cast<char>('a' + round));
                put(uploader, folder.toStdString(), name.toStdString(), content);
                expected.insert(u"in box/"_s + QString::fromLatin1(folder + '/' + name), content);
            }
        }
    }
    const auto found = server->files();
    QCOMPARE(found.keys(), expected.keys());
    QVERIFY(found == expected);
    Node node = nodeOf(*server);
    node.destination = server->folder().toStdString() + "/elsewhere";  // from the root
    Uploader uploader{node, std::stop_token{}};
    put(uploader, "1.2", "a.dcm", "content");
    QCOMPARE(server->files().value(u"elsewhere/1.2/a.dcm"_s), QByteArray{"content"});
}

void FtpProductsTest::aWrongPasswordIsPermanent() {
    const auto server = theServer();
    Node node = nodeOf(*server);
    node.password = "wr0ng";
    const Fault fault = failing(node);
    QCOMPARE(fault.kind(), Fault::Kind::Permanent);
    QCOMPARE(fault.what(), "the server refuses user and password (530)");
    QVERIFY(server->files().isEmpty());
}

void FtpProductsTest::tlsThatIsWantedIsAFault() {
    const auto server = theServer();
    QFETCH(const bool, tls);
    Node node = nodeOf(*server);
    node.host = (tls ? "localhost:" : "ftpes://localhost:") + server->port().toStdString();
    const Fault fault = failing(node);
    QCOMPARE(fault.kind(), Fault::Kind::Transient);
    QCOMPARE(fault.scope(), Fault::Scope::Connection);
    QVERIFY(server->files().isEmpty());
}

void FtpProductsTest::noOtherCertificateIsTrusted() {
    const auto server = theServer();
    QFETCH(const bool, tls);
    qunsetenv("SSL_CERT_FILE");  // the system's authorities do not know it
    if (!tls)
        return;
    const Fault fault = failing(nodeOf(*server));
    QCOMPARE(fault.kind(), Fault::Kind::Transient);
    QVERIFY2(QByteArray{fault.what()}.contains("certificate"), fault.what());
    QVERIFY(server->files().isEmpty());
}

void FtpProductsTest::noOtherNameIsTrusted() {
    const auto server = theServer();
    QFETCH(const bool, tls);
    if (!tls)
        return;
    Node node = nodeOf(*server);
    node.host = "ftpes://127.0.0.1:" + server->port().toStdString();
    const Fault fault = failing(node);
    QCOMPARE(fault.kind(), Fault::Kind::Transient);
    QVERIFY2(QByteArray{fault.what()}.contains("certificate"), fault.what());
    QVERIFY(server->files().isEmpty());
}

void FtpProductsTest::aFullDiskIsAFault() {
    QFETCH(const FtpProduct::Kind, kind);
    QFETCH(const bool, tls);
    const FtpProduct server{kind, tls, 1'000'000};
    if (tls)
        qputenv("SSL_CERT_FILE", server.certificate().toUtf8());
    Uploader uploader{nodeOf(server), std::stop_token{}};
    const QByteArray large(3'000'000, 'x');
    try {
        put(uploader, "1.2", "large.dcm", large);
        QFAIL("the file was put");
    } catch (const Fault& fault) {
        QCOMPARE(fault.kind(), Fault::Kind::Transient);
    }
    put(uploader, "1.2", "small.dcm", "content");
    auto files = server.files();
    QCOMPARE(files.value(u"in box/1.2/small.dcm"_s), QByteArray{"content"});
    QVERIFY(!files.contains(u"in box/1.2/large.dcm"_s));
}

QTEST_GUILESS_MAIN(FtpProductsTest)
#include "tst_ftpproducts.moc"
