#include <QTest>
#include <map>
#include <mutex>
#include <vector>

#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/RequestorAssociation.h"
#include "tests/tessalyd/SharedArchive.h"
#include "tests/tessalyd/forwarding/ftp/ScriptedFtp.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// Servers that share a database, and its deliveries.
class FtpServersTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void threeServersDeliverEachFileOnce();
};

void FtpServersTest::threeServersDeliverEachFileOnce() {
    constexpr int Servers = 3;
    constexpr int Series = 8;
    constexpr int Objects = 96;
    ScriptedFtp ftp;
    std::mutex mutex;
    std::map<std::string, int> stored;
    ftp.setScript([&](const std::string& verb, const std::string& argument) -> std::optional<std::string> {
        const std::lock_guard lock{mutex};
        if (verb == "STOR")
            ++stored[argument];
        return std::nullopt;
    });
    SharedArchive archive{Servers};
    archive.database.run(
        u"INSERT INTO FtpNodes (Name, Host, UserName, UserPwd, Destination, NodeType) "
        "VALUES ('Backup', ?, ?, ?, 'in', 'Quib')"_s,
        {ftp.host(), QString::fromStdString(ScriptedFtp::User),
         QString::fromStdString(ScriptedFtp::Password)});
    for (int server = 0; server < Servers; ++server)
        archive.launch(server, {u"--first-retry"_s, u"1"_s});
    {
        std::vector<std::unique_ptr<RequestorAssociation>> senders;
        senders.reserve(Servers);
        for (int server = 0; server < Servers; ++server)
            senders.push_back(
                std::make_unique<RequestorAssociation>(archive.target(server, 0), "TESTER", "BACKUP"));
        for (int i = 0; i < Objects; ++i) {  // each series comes by every server
            const std::string series = "1.2.7.1." + std::to_string(i % Series);
            const ObjectSpec object{
                .study = "1.2.7", .series = series, .instance = series + '.' + std::to_string(i), .seed = i};
            QCOMPARE(senders.at(static_cast<std::size_t>(i % Servers))->store(*makeObject(object)).status, 0);
        }
    }
    EVENTUALLY_COMPARE(archive.database.value(u"SELECT COUNT(*) FROM JobItem"_s), u"0"_s);
    EVENTUALLY_COMPARE(archive.database.value(u"SELECT COUNT(*) FROM Job WHERE State<>2"_s), u"0"_s);
    int files = 0;
    for (const auto& [path, content] : ftp.files())
        files += path.ends_with(".dcm") ? 1 : 0;
    QCOMPARE(files, Objects);
    QCOMPARE(ftp.files().size(), std::size_t{Objects + Series});
    const std::lock_guard lock{mutex};
    for (const auto& [path, times] : stored)
        QVERIFY2(times == 1 || path.find("complete") != std::string::npos, path.c_str());
}

QTEST_GUILESS_MAIN(FtpServersTest)
#include "tst_ftpservers.moc"
