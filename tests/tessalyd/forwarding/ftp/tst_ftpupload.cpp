#include <QTemporaryDir>
#include <QTest>
#include <chrono>
#include <csignal>
#include <future>

#include "tests/dicom/net/Peers.h"
#include "tests/support/Eventually.h"
#include "tests/support/UnusedPort.h"
#include "tests/tessalyd/forwarding/ftp/UploaderTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd::ftp;
using namespace tessaly::test;

/// The uploading client beside a server that errs.
class FtpUploadTest : public UploaderTest {
    Q_OBJECT

  private Q_SLOTS:
    void putsFilesOverOneConnection();
    void replacesAFile();
    void anEmptyFileIsOne();
    void aRefusedRenameIsTriedWithoutTheOldFile();
    void aRefusedRenameFails();
    void withoutExtendedPassiveMode();
    void withoutSize();
    void anotherSizeFails();
    void aRefusedFileFailsAlone_data();
    void aRefusedFileFailsAlone();
    void aFullDiskFails();
    void anIdleConnectionMayBeClosed();
    void aConnectionThatBreaksFails();
    void aWrongPasswordIsPermanent();
    void tooManyOthersAreNot_data();
    void tooManyOthersAreNot();
    void noTlsIsAFault();
    void hostsThatAreNone_data();
    void hostsThatAreNone();
    void aFileThatShrinksFails();
    void theEnvironmentsProxyIsNotUsed();
};

void FtpUploadTest::putsFilesOverOneConnection() {
    ScriptedFtp server;
    const QByteArray large(3'000'000, 'x');
    {
        Uploader uploader{nodeOf(server), std::stop_token{}};
        put(uploader, "a.dcm", "A");
        put(uploader, "b.dcm", {large.data(), static_cast<std::size_t>(large.size())});
        TextSource source{"C"};
        uploader.put(source, "1.2/1.2.4", "c.dcm");
    }
    const std::map<std::string, QByteArray> expected{{"/in box/1.2/1.2.3/a.dcm", "A"},
                                                     {"/in box/1.2/1.2.3/b.dcm", large},
                                                     {"/in box/1.2/1.2.4/c.dcm", "C"}};
    QCOMPARE(server.files(), expected);
    QCOMPARE(server.connections(), 1);
    QCOMPARE(server.count(u"SIZE"_s), 3);
    QCOMPARE(server.count(u"DELE"_s), 0);
    EVENTUALLY_COMPARE(server.count(u"QUIT"_s), 1);
}

void FtpUploadTest::replacesAFile() {
    ScriptedFtp server;
    server.putFile(Uploaded, "before");
    server.putFile(std::string{Uploaded}.append(".part"), "of an attempt that was killed");
    Uploader uploader{nodeOf(server), std::stop_token{}};
    put(uploader, "a.dcm");
    QCOMPARE(server.files(), (std::map<std::string, QByteArray>{{Uploaded, "content"}}));
}

void FtpUploadTest::anEmptyFileIsOne() {
    ScriptedFtp server;
    Uploader uploader{nodeOf(server), std::stop_token{}};
    put(uploader, "a.dcm", {});
    QCOMPARE(server.files(), (std::map<std::string, QByteArray>{{Uploaded, {}}}));
}

void FtpUploadTest::aRefusedRenameIsTriedWithoutTheOldFile() {
    ScriptedFtp server;
    server.putFile(Uploaded, "before");
    std::atomic<int> renames = 0;
    server.setScript([&](const std::string& verb, const std::string&) {
        return verb == "RNTO" && renames++ == 0 ? Reply{"553 exists"} : std::nullopt;
    });
    Uploader uploader{nodeOf(server), std::stop_token{}};
    put(uploader, "a.dcm");
    QCOMPARE(server.files(), (std::map<std::string, QByteArray>{{Uploaded, "content"}}));
    QCOMPARE(server.count(u"DELE"_s), 1);
    QCOMPARE(server.connections(), 1);
    put(uploader, "b.dcm");
    QCOMPARE(server.files().size(), std::size_t{2});
    QCOMPARE(server.count(u"DELE"_s), 1);
}

void FtpUploadTest::aRefusedRenameFails() {
    ScriptedFtp server;
    server.setScript([&](const std::string& verb, const std::string&) {
        return verb == "RNTO" ? Reply{"553 never"} : std::nullopt;
    });
    Uploader uploader{nodeOf(server), std::stop_token{}};
    const Fault fault = failing(uploader);
    QCOMPARE(fault.kind(), Fault::Kind::Transient);
    QCOMPARE(fault.scope(), Fault::Scope::File);
    QCOMPARE(fault.what(), "the server does not rename the file (553: the name is not allowed)");
    QCOMPARE(server.names(), QStringList{});  // the part is gone
}

void FtpUploadTest::withoutExtendedPassiveMode() {
    ScriptedFtp server;
    server.setScript([](const std::string& verb, const std::string&) {
        return verb == "EPSV" ? Reply{"522 not this"} : std::nullopt;
    });
    Uploader uploader{nodeOf(server), std::stop_token{}};
    put(uploader, "a.dcm");
    put(uploader, "b.dcm");
    QCOMPARE(server.files().size(), std::size_t{2});
    QCOMPARE(server.count(u"PASV"_s), 2);
    QCOMPARE(server.count(u"EPSV"_s), 1);  // not asked for again
}

void FtpUploadTest::withoutSize() {
    ScriptedFtp server;
    server.setScript([](const std::string& verb, const std::string&) {
        return verb == "SIZE" ? Reply{"502 not here"} : std::nullopt;
    });
    Uploader uploader{nodeOf(server), std::stop_token{}};
    put(uploader, "a.dcm");
    put(uploader, "b.dcm");
    QCOMPARE(server.files().size(), std::size_t{2});
    QCOMPARE(server.count(u"SIZE"_s), 1);  // not asked for again
}

void FtpUploadTest::anotherSizeFails() {
    ScriptedFtp server;
    server.setScript([](const std::string& verb, const std::string&) {
        return verb == "SIZE" ? Reply{"213 6"} : std::nullopt;
    });
    Uploader uploader{nodeOf(server), std::stop_token{}};
    const Fault fault = failing(uploader);
    QCOMPARE(fault.scope(), Fault::Scope::File);
    QCOMPARE(fault.what(), "what has come to the server has another size");
    QCOMPARE(server.count(u"RNFR"_s), 0);
    QCOMPARE(server.names(), QStringList{});
    server.setScript({});
    put(uploader, "a.dcm");
    QCOMPARE(server.files(), (std::map<std::string, QByteArray>{{Uploaded, "content"}}));
}

void FtpUploadTest::aRefusedFileFailsAlone_data() {
    QTest::addColumn<QString>("verb");
    QTest::addColumn<QString>("reply");
    QTest::addColumn<QString>("reason");
    QTest::newRow("full") << u"STOR"_s << u"452 none left"_s
                          << u"the server does not take the file (452: no room)"_s;
    QTest::newRow("forbidden") << u"STOR"_s << u"553 no"_s
                               << u"the server does not take the file (553: the name is not allowed)"_s;
    QTest::newRow("folder")
        << u"MKD"_s << u"550 no"_s
        << u"the server neither has the folder nor makes it (550: not found, or not allowed)"_s;
}

void FtpUploadTest::aRefusedFileFailsAlone() {
    QFETCH(const QString, verb);
    QFETCH(const QString, reply);
    QFETCH(const QString, reason);
    ScriptedFtp server;
    server.setScript([&](const std::string& command, const std::string&) {
        return command == verb.toStdString() ? Reply{reply.toStdString()} : std::nullopt;
    });
    Uploader uploader{nodeOf(server), std::stop_token{}};
    const Fault fault = failing(uploader);
    QCOMPARE(fault.kind(), Fault::Kind::Transient);
    QCOMPARE(fault.scope(), Fault::Scope::File);
    QCOMPARE(QString::fromUtf8(fault.what()), reason);
    server.setScript({});
    put(uploader, "b.dcm");
    QCOMPARE(server.names(), QStringList{u"/in box/1.2/1.2.3/b.dcm"_s});
}

void FtpUploadTest::aFullDiskFails() {
    ScriptedFtp server;
    server.setFull(4, "452 no space left on device");
    Uploader uploader{nodeOf(server), std::stop_token{}};
    const Fault fault = failing(uploader);  // so little that the server has it before it looks
    QCOMPARE(fault.kind(), Fault::Kind::Transient);
    QCOMPARE(fault.what(), "the server does not take the file (452: no room)");
    QCOMPARE(server.names(), QStringList{});
    const std::string large = QByteArray(20'000'000, 'x').toStdString();
    const Fault broken = failing(uploader, large);
    QCOMPARE(broken.kind(), Fault::Kind::Transient);
    for (const QString& name : server.names())
        QVERIFY2(name.endsWith(u".part"_s), qPrintable(name));
}

void FtpUploadTest::anIdleConnectionMayBeClosed() {
    ScriptedFtp server;
    server.setClosesWhenIdle(true);
    Uploader uploader{nodeOf(server), std::stop_token{}};
    for (const char* name : {"a.dcm", "b.dcm", "c.dcm"})
        put(uploader, name);
    QCOMPARE(server.files().size(), std::size_t{3});
    QCOMPARE(server.connections(), 3);
}

void FtpUploadTest::aConnectionThatBreaksFails() {
    ScriptedFtp server;
    server.setAfterStore([](const std::string&, const std::string&) { return Reply{ScriptedFtp::Close}; });
    const Fault fault = failing(server);
    QCOMPARE(fault.kind(), Fault::Kind::Transient);
    QCOMPARE(fault.scope(), Fault::Scope::Connection);
    QCOMPARE(fault.what(), "the connection broke");
    QCOMPARE(server.connections(), 1);
}

void FtpUploadTest::aWrongPasswordIsPermanent() {
    ScriptedFtp server;
    Node node = nodeOf(server);
    node.password = "wr0ng";
    Uploader uploader{node, std::stop_token{}};
    const Fault fault = failing(uploader);
    QCOMPARE(fault.kind(), Fault::Kind::Permanent);
    QCOMPARE(fault.scope(), Fault::Scope::Connection);
    QCOMPARE(fault.what(), "the server refuses user and password (530)");  // it had repeated the password
}

void FtpUploadTest::tooManyOthersAreNot_data() {
    QTest::addColumn<QString>("verb");
    QTest::addColumn<QString>("reply");
    QTest::newRow("of this user")
        << u"PASS"_s
        << u"530 Sorry, the maximum number of clients (1) for this user are already "
           "connected."_s;
    QTest::newRow("of all") << u"PASS"_s << u"530 Too Many connections"_s;
    QTest::newRow("told on two lines") << u"PASS"_s << u"530-There are too many users\r\n530 try later"_s;
    QTest::newRow("before the password") << u"USER"_s << u"530 no"_s;
    QTest::newRow("at once") << u"CONNECT"_s << u"421 There are too many connected users"_s;
    QTest::newRow("another code") << u"PASS"_s << u"421 closing"_s;
}

void FtpUploadTest::tooManyOthersAreNot() {
    QFETCH(const QString, verb);
    QFETCH(const QString, reply);
    ScriptedFtp server;
    server.setScript([&](const std::string& command, const std::string&) {
        return command == verb.toStdString() ? Reply{reply.toStdString()} : std::nullopt;
    });
    const Fault fault = failing(server);
    QCOMPARE(fault.kind(), Fault::Kind::Transient);
    QCOMPARE(fault.scope(), Fault::Scope::Connection);
    QVERIFY2(QByteArray{fault.what()}.contains(reply.left(3).toUtf8()), fault.what());
}

void FtpUploadTest::noTlsIsAFault() {
    ScriptedFtp server;
    Node node = nodeOf(server);
    node.host.insert(0, "ftpes://");
    Uploader uploader{node, std::stop_token{}};
    const Fault fault = failing(uploader);
    QCOMPARE(fault.kind(), Fault::Kind::Transient);
    QVERIFY2(QByteArray{fault.what()}.startsWith("no secure connection"), fault.what());
    QCOMPARE(server.count(u"USER"_s), 0);  // nothing is told to whom we cannot be sure of
}

void FtpUploadTest::hostsThatAreNone_data() {
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no host") << u"pacs/in"_s << u"the node's host is none"_s;
    QTest::newRow("unknown") << u"nowhere.invalid"_s << u"the host's address is not known"_s;
    QTest::newRow("nobody there") << u"127.0.0.1:"_s + unusedPort() << u"no connection"_s;
}

void FtpUploadTest::hostsThatAreNone() {
    QFETCH(const QString, host);
    QFETCH(const QString, reason);
    try {
        Uploader uploader{{.host = host.toStdString(), .destination = "."}, std::stop_token{}};
        put(uploader, "a.dcm");
        QFAIL("the file was put");
    } catch (const Fault& fault) {
        QCOMPARE(fault.kind(), Fault::Kind::Transient);
        QCOMPARE(fault.scope(), Fault::Scope::Connection);
        QVERIFY2(QString::fromUtf8(fault.what()).startsWith(reason), fault.what());
    }
}

void FtpUploadTest::aFileThatShrinksFails() {
    class Shrinking final : public Source {
      public:
        [[nodiscard]] std::uint64_t size() const noexcept override { return 100; }
        void rewind() noexcept override { given_ = false; }
        [[nodiscard]] std::size_t read(std::span<char> target) override {
            target.front() = 'x';
            return std::exchange(given_, true) ? 0 : 1;
        }

      private:
        bool given_ = false;
    };
    ScriptedFtp server;
    Uploader uploader{nodeOf(server), std::stop_token{}};
    Shrinking source;
    QVERIFY_THROWS_EXCEPTION(Fault, uploader.put(source, "1.2", "a.dcm"));
    put(uploader, "b.dcm");
    for (const QString& name : server.names())
        QVERIFY2(name.endsWith(u"/b.dcm"_s) || name.endsWith(u".part"_s), qPrintable(name));
}

void FtpUploadTest::theEnvironmentsProxyIsNotUsed() {
    ScriptedFtp server;
    qputenv("ftp_proxy", "http://127.0.0.1:1");
    qputenv("ALL_PROXY", "http://127.0.0.1:1");
    Uploader uploader{nodeOf(server), std::stop_token{}};
    put(uploader, "a.dcm");
    qunsetenv("ftp_proxy");
    qunsetenv("ALL_PROXY");
    QCOMPARE(server.files().size(), std::size_t{1});
}

QTEST_GUILESS_MAIN(FtpUploadTest)
#include "tst_ftpupload.moc"
