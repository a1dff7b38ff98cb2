#include <QSet>
#include <atomic>
#include <latch>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/forwarding/ftp/DeliveryTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// C-MOVE to an FTP node: what is answered, and what becomes of it.
class FtpMoveTest : public DeliveryTest {
    Q_OBJECT

  private:
    using Reply = std::optional<std::string>;

  private Q_SLOTS:
    void deliversAll_data();
    void deliversAll();
    void anotherProductMovesThere();
    void aDicomNodeComesFirst();
    void anUnknownDestinationIsRefused();
    void tellsHowFarItIs();
    void aWrongPasswordIsGivenUp();
    void whatFailsIsNamedAndRetried();
    void nobodyThereIsRetriedElsewhere();
    void theConnectionThatBreaksFailsWhatIsLeft();
    void aServerThatTakesNothingIsLeftAlone();
    void whatIsMissingOrDamagedFails();
    void aTypeThatIsNotKnownIsGivenUp_data();
    void aTypeThatIsNotKnownIsGivenUp();
    void aNodeThatIsDeletedIsGivenUp();
    void saysNothingOfPatientsOrPasswords();
};

void FtpMoveTest::deliversAll_data() {
    QTest::addColumn<FtpProduct::Kind>("kind");
    QTest::addColumn<bool>("tls");
    QTest::newRow("vsftpd") << FtpProduct::Kind::Vsftpd << false;
    QTest::newRow("proftpd with TLS") << FtpProduct::Kind::Proftpd << true;
}

void FtpMoveTest::deliversAll() {
    QFETCH(const FtpProduct::Kind, kind);
    QFETCH(const bool, tls);
    const FtpProduct server{kind, tls};
    if (tls)
        qputenv("SSL_CERT_FILE", server.certificate().toUtf8());
    launchFor(nodeOf(server));
    qunsetenv("SSL_CERT_FILE");
    const QStringList uids = storeStudy(5);
    Retriever viewer{daemon_->port()};
    for (const char* name : {"BACKUP", "backup"}) {  // the second replaces what the first has delivered
        askForDelivery(viewer, name);
        const Retrieved moved = viewer.collect();
        QCOMPARE(moved.status, 0);
        QCOMPARE(moved.counters, (Progress{-1, 5, 0, 0}));
        QVERIFY(server.files() == deliveryOf(uids));
    }
    QCOMPARE(jobStates(), (QStringList{Done, Done}));
    EVENTUALLY_COMPARE(spooled(), QStringList{});
    viewer.release();
    EVENTUALLY(daemon_->log().contains(u"C-MOVE: 10 objects found, 10 sent, 0 failed"_s));
}

/// With the command of the manual.
void FtpMoveTest::anotherProductMovesThere() {
    const FtpProduct server{FtpProduct::Kind::Proftpd};
    launchFor(nodeOf(server));
    const QStringList uids = storeStudy(3);
    const tessaly::test::Outcome moved = run(
        u"movescu"_s, {u"-aet"_s, u"VIEWER"_s, u"-aec"_s, u"TESSALY"_s, u"-aem"_s, u"BACKUP"_s, u"-S"_s,
                       u"-k"_s, u"QueryRetrieveLevel=STUDY"_s, u"-k"_s,
                       u"StudyInstanceUID="_s + QString::fromLatin1(Study), u"localhost"_s, daemon_->port()});
    QVERIFY2(moved.exitCode == 0, qPrintable(moved.output));
    QVERIFY(server.files() == deliveryOf(uids));
}

void FtpMoveTest::aDicomNodeComesFirst() {
    const ScriptedFtp server;
    const Receiver receiver;
    launchFor(nodeOf(server));
    daemon_->database.run(
        u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port, Store, Query) "
        "VALUES ('PACS', 'BACKUP', 'TESSALY', '127.0.0.1', ?, -1, 0)"_s,
        {receiver.port});
    QVERIFY(daemon_->succeeds(&OrgTessalyServer1Interface::Restart));
    storeStudy(2);
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    QCOMPARE(viewer.collect().status, 0);
    QCOMPARE(server.connections(), 0);
    QCOMPARE(dataSetsIn(receiver.folder.path()), storedDataSets());
    askForDelivery(viewer, "Backup");  // which is no AE title of a node
    QCOMPARE(viewer.collect().status, 0);
    QCOMPARE(server.connections(), 1);
}

void FtpMoveTest::anUnknownDestinationIsRefused() {
    const ScriptedFtp server;
    launchFor(nodeOf(server));
    storeStudy(1);
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer, "NOBODY");
    QCOMPARE(viewer.collect().status, 0xa801);
    QCOMPARE(jobStates(), QStringList{});
}

void FtpMoveTest::tellsHowFarItIs() {
    ScriptedFtp server;
    server.setAfterStore([](const std::string&, const std::string&) {
        std::this_thread::sleep_for(std::chrono::milliseconds{700});
        return Reply{};
    });
    launchFor(nodeOf(server));
    storeStudy(4);
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0);
    QVERIFY(moved.pending.size() >= 2);
    for (const Progress& one : moved.pending)
        QCOMPARE(one.remaining + one.completed + one.failed + one.warned, 4);
    QVERIFY(moved.pending.last().completed > 0);
}

void FtpMoveTest::aWrongPasswordIsGivenUp() {
    const FtpProduct server{FtpProduct::Kind::Vsftpd};
    FtpNode node = nodeOf(server);
    node.password = u"wr0ng"_s;
    launchFor(node);
    const QStringList uids = storeStudy(3);
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xa702);
    QCOMPARE(moved.failed, uids);
    QCOMPARE(moved.counters, (Progress{-1, 0, 3, 0}));
    QCOMPARE(moved.comment, "3 of 3 objects: the server refuses user and password (530)");
    QCOMPARE(jobStates(), QStringList{GivenUp});
    QVERIFY(daemon_->log().contains(u"given up: 3 of 3 objects: the server refuses user and password"_s));
    QVERIFY(server.files().isEmpty());
    // The row is read when an attempt starts.
    setNode(u"UserPwd"_s, FtpProduct::Password);
    retryAll();
    EVENTUALLY_COMPARE(jobStates(), QStringList{Done});
    QVERIFY(server.files() == deliveryOf(uids));
}

void FtpMoveTest::whatFailsIsNamedAndRetried() {
    ScriptedFtp server;
    std::atomic<int> stores = 0;
    server.setScript([&](const std::string& verb, const std::string&) {
        return verb == "STOR" && ++stores == 2 ? Reply{"452 full"} : std::nullopt;
    });
    launchFor(nodeOf(server));
    const QStringList uids = storeStudy(4);
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xb000);
    QCOMPARE(moved.counters, (Progress{-1, 3, 1, 0}));
    QCOMPARE(moved.failed.size(), 1);
    QVERIFY(uids.contains(moved.failed.first()));
    QCOMPARE(moved.comment, "Not all is delivered; it will be retried");
    EVENTUALLY_COMPARE(jobStates(), QStringList{Done});
    QVERIFY(filesOf(server) == deliveryOf(uids));
    EVENTUALLY_COMPARE(spooled(), QStringList{});
}

void FtpMoveTest::nobodyThereIsRetriedElsewhere() {
    const ScriptedFtp server;
    launchFor({.host = u"127.0.0.1:"_s + unusedPort()}, LateRetry);
    const QStringList uids = storeStudy(3);
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xa702);
    QCOMPARE(moved.failed, uids);
    QCOMPARE(moved.comment, "Not all is delivered; it will be retried");
    QCOMPARE(jobStates(), QStringList{Waiting});
    setNode(u"Host"_s, server.host());
    retryAll();
    EVENTUALLY_COMPARE(jobStates(), QStringList{Done});
    QVERIFY(filesOf(server) == deliveryOf(uids));
}

void FtpMoveTest::theConnectionThatBreaksFailsWhatIsLeft() {
    ScriptedFtp server;
    std::atomic<int> stores = 0;
    std::atomic<bool> isBroken = true;
    server.setAfterStore([&](const std::string&, const std::string&) {
        return isBroken && ++stores > 2 ? Reply{ScriptedFtp::Close} : std::nullopt;
    });
    launchFor(nodeOf(server), LateRetry);
    const QStringList uids = storeStudy(10);
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xb000);
    QCOMPARE(moved.counters, (Progress{-1, 2, 8, 0}));
    QCOMPARE(stores.load(), 4);  // the third was tried over a new connection, too
    isBroken = false;
    retryAll();
    EVENTUALLY_COMPARE(jobStates(), QStringList{Done});
    QVERIFY(filesOf(server) == deliveryOf(uids));
}

void FtpMoveTest::aServerThatTakesNothingIsLeftAlone() {
    ScriptedFtp server;
    server.setScript([&](const std::string& verb, const std::string&) {
        return verb == "STOR" ? Reply{"553 no"} : std::nullopt;
    });
    launchFor(nodeOf(server), LateRetry);
    const QStringList uids = storeStudy(15);
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xa702);
    QCOMPARE(moved.failed, uids);
    QCOMPARE(server.count(u"STOR"_s), 10);
    QCOMPARE(lastError(),
             u"15 of 15 objects: the server does not take the file (553: the name is not allowed)"_s);
}

void FtpMoveTest::whatIsMissingOrDamagedFails() {
    const ScriptedFtp server;
    launchFor(nodeOf(server), LateRetry);
    const QStringList uids = storeStudy(6);
    QVERIFY(QFile::remove(fileOf(uids[0])));
    QFile shortened{fileOf(uids[1])};
    QVERIFY(shortened.resize(shortened.size() - 1000));
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xb000);
    QCOMPARE(moved.failed, uids.first(2));
    // A series that lacks something is not complete.
    auto expected = deliveryOf(uids.last(4));
    for (const QString& uid : uids.first(2))
        expected.remove(u"in/%1/%2/complete"_s.arg(QString::fromLatin1(Study), uid.section(u'.', 0, -2)));
    QCOMPARE(filesOf(server).keys(), expected.keys());
    QVERIFY(lastError().startsWith(u"2 of 6 objects: an object "_s));
}

void FtpMoveTest::aTypeThatIsNotKnownIsGivenUp_data() {
    QTest::addColumn<QString>("type");
    QTest::newRow("another") << u"Other"_s;
    QTest::newRow("none") << QString{};
}

void FtpMoveTest::aTypeThatIsNotKnownIsGivenUp() {
    QFETCH(const QString, type);
    const ScriptedFtp server;
    FtpNode node = nodeOf(server);
    node.type = type;
    launchFor(node);
    const QStringList uids = storeStudy(2);
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0xa702);
    QCOMPARE(moved.failed, uids);
    QCOMPARE(moved.comment, "the node's type is not known");
    QCOMPARE(jobStates(), QStringList{GivenUp});
    QCOMPARE(server.connections(), 0);
}

void FtpMoveTest::aNodeThatIsDeletedIsGivenUp() {
    launchFor({.host = u"127.0.0.1:"_s + unusedPort()});
    storeStudy(1);
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    QCOMPARE(viewer.collect().status, 0xa702);
    daemon_->database.run(u"DELETE FROM FtpNodes"_s);
    EVENTUALLY_COMPARE(jobStates(), QStringList{GivenUp});
    QCOMPARE(lastError(), u"there is no FTP node of this name"_s);
}

void FtpMoveTest::saysNothingOfPatientsOrPasswords() {
    ScriptedFtp server;
    std::atomic<int> stores = 0;
    server.setScript([&](const std::string& verb, const std::string& argument) {
        return verb == "STOR" && ++stores == 1 ? Reply{"553 not " + argument + " of " + ScriptedFtp::Password}
                                               : std::nullopt;
    });
    launchFor(nodeOf(server));
    // What others see at its usual level.
    const QString words = QString::fromStdString(ScriptedFtp::Password);
    storeStudy(2);
    Retriever viewer{daemon_->port()};
    askForDelivery(viewer);
    QCOMPARE(viewer.collect().status, 0xb000);
    EVENTUALLY_COMPARE(jobStates(), QStringList{Done});
    const QString log = daemon_->log();
    QVERIFY(log.contains(u"(FTP, backup): "_s));
    QVERIFY(!log.contains(words));
    QVERIFY(!log.contains(QString::fromLatin1(Study) + u".1"_s));
    QVERIFY(!log.contains(u"Doe"_s));
    const auto rows = daemon_->database.rows(u"SELECT * FROM Job"_s);
    for (const QString& value : rows.first()) {
        QVERIFY(!value.contains(words));
        QVERIFY(!value.contains(QString::fromLatin1(Study)));
    }
}

QTEST_GUILESS_MAIN(FtpMoveTest)
#include "tst_ftpmove.moc"
