#include <QTest>
#include <chrono>
#include <future>

#include "tests/dicom/net/Peers.h"
#include "tests/support/Eventually.h"
#include "tests/support/UnusedPort.h"
#include "tests/tessalyd/forwarding/ftp/UploaderTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd::ftp;
using namespace tessaly::test;

/// The uploading client beside a server that says nothing, or talks without an end; and its own stop.
class FtpSilenceTest : public UploaderTest {
    Q_OBJECT

  private Q_SLOTS:
    void silenceEnds_data();
    void silenceEnds();
    void endlessTalkEnds();
    void aStopEndsSilence_data();
    void aStopEndsSilence();
    void aStopEndsAConnectionThatIsNotMade();
    void aSilentFarewellIsNotWaitedFor();
};

void FtpSilenceTest::silenceEnds_data() {
    QTest::addColumn<QString>("verb");
    for (const char* verb : {"CONNECT", "PASS", "CWD", "EPSV", "STOR", "226", "SIZE", "RNTO"})
        QTest::newRow(verb) << QString::fromLatin1(verb);
}

void FtpSilenceTest::silenceEnds() {
    QFETCH(const QString, verb);
    ScriptedFtp server;
    const auto silent = [&](const std::string& command, const std::string&) {
        return command == verb.toStdString() ? Reply{ScriptedFtp::Silence} : std::nullopt;
    };
    if (verb == u"226"_s)
        server.setAfterStore(
            [](const std::string&, const std::string&) { return Reply{ScriptedFtp::Silence}; });
    else
        server.setScript(silent);
    const Fault fault = failing(server);
    QCOMPARE(fault.kind(), Fault::Kind::Transient);
    QCOMPARE(fault.scope(), Fault::Scope::Connection);
}

void FtpSilenceTest::endlessTalkEnds() {
    ScriptedFtp server;
    std::string talk;
    for (int line = 0; line < 100'000; ++line)
        talk += "220-and so on\r\n";
    server.setScript([&](const std::string& command, const std::string&) {
        return command == "CONNECT" ? Reply{talk + "220 at last"} : std::nullopt;
    });
    QCOMPARE(failing(server).scope(), Fault::Scope::Connection);
    QCOMPARE(server.count(u"USER"_s), 0);
}

void FtpSilenceTest::aStopEndsSilence_data() {
    silenceEnds_data();
}

void FtpSilenceTest::aStopEndsSilence() {
    QFETCH(const QString, verb);
    ScriptedFtp server;
    std::atomic<bool> isSilent = false;
    const auto silent = [&](const std::string& command, const std::string&) {
        if (command != verb.toStdString() && verb != u"226"_s)
            return Reply{};
        isSilent = true;
        return Reply{ScriptedFtp::Silence};
    };
    if (verb == u"226"_s)
        server.setAfterStore(silent);
    else
        server.setScript(silent);
    std::stop_source stop;
    auto upload = std::async(std::launch::async, [&] {
        Uploader uploader{nodeOf(server), stop.get_token()};
        put(uploader, "a.dcm");
    });
    EVENTUALLY(isSilent.load());
    stop.request_stop();
    // The limits are those of the product: whatever waits for them waits ten seconds at least.
    QCOMPARE(upload.wait_for(std::chrono::seconds{5}), std::future_status::ready);
    QVERIFY_THROWS_EXCEPTION(Stopped, upload.get());
}

void FtpSilenceTest::aStopEndsAConnectionThatIsNotMade() {
    const FullPort full;
    std::stop_source stop;
    auto upload = std::async(std::launch::async, [&] {
        Uploader uploader{{.host = "127.0.0.1:" + full.port().toStdString(), .destination = "."},
                          stop.get_token()};
        put(uploader, "a.dcm");
    });
    QCOMPARE(upload.wait_for(std::chrono::milliseconds{300}), std::future_status::timeout);
    stop.request_stop();
    QCOMPARE(upload.wait_for(std::chrono::seconds{5}), std::future_status::ready);
    QVERIFY_THROWS_EXCEPTION(Stopped, upload.get());
}

void FtpSilenceTest::aSilentFarewellIsNotWaitedFor() {
    ScriptedFtp server;
    server.setScript([](const std::string& command, const std::string&) {
        return command == "QUIT" ? Reply{ScriptedFtp::Silence} : std::nullopt;
    });
    const auto upload = std::async(std::launch::async, [&] {
        Uploader uploader{nodeOf(server), std::stop_token{}};
        put(uploader, "a.dcm");
    });
    QCOMPARE(upload.wait_for(std::chrono::seconds{30}), std::future_status::ready);
    EVENTUALLY_COMPARE(server.count(u"QUIT"_s), 1);
}

QTEST_GUILESS_MAIN(FtpSilenceTest)
#include "tst_ftpsilence.moc"
