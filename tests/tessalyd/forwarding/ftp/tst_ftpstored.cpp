#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTime>
#include <atomic>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/Processes.h"
#include "tests/tessalyd/forwarding/ftp/DeliveryTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// What is stored over an association whose called AE title is an FTP node's name is delivered there, too.
class FtpStoredTest : public DeliveryTest {
    Q_OBJECT

  private:
    using Reply = std::optional<std::string>;

    [[nodiscard]] bool allAreDone() const {
        const QStringList states = jobStates();
        return !states.isEmpty() && states.count(Done) == states.size();
    }

  private Q_SLOTS:
    void isDeliveredWhenItsSeriesIsQuiet();
    void isDeliveredOnce();
    void isNotDeliveredBeforeItsSeriesIsQuiet();
    void theEndOfASecondIsNoQuietSecond();
    void onlyUnderTheNodesName_data();
    void onlyUnderTheNodesName();
    void isStoredWhoeverIsThere();
    void isRetriedWithWhatCameMeanwhile();
    void whatWasGivenUpBeginsAnew();
    void whatCannotBeAVolumeIsGivenUp();
    void aStoreThatFailsLeavesNoJob();
    void killsLoseNothing();
    void manyFilesCostNoMemory();
};

void FtpStoredTest::isDeliveredWhenItsSeriesIsQuiet() {
    const FtpProduct server{FtpProduct::Kind::Vsftpd};
    launchFor(nodeOf(server));
    const QStringList uids = storeFor("backup", 7);
    QCOMPARE(daemon_->images().size(), 7);
    EVENTUALLY(allAreDone());
    QCOMPARE(jobStates().size(), 2);  // a job a series
    QVERIFY(server.files() == deliveryOf(uids));
    QCOMPARE(daemon_->database.value(u"SELECT COUNT(*) FROM JobItem"_s), u"0"_s);
}

void FtpStoredTest::isDeliveredOnce() {
    const ScriptedFtp server;
    launchFor(nodeOf(server));
    const QStringList first = storeFor("BACKUP", 2);
    EVENTUALLY(allAreDone());
    auto expected = deliveryOf(first);
    QVERIFY(filesOf(server) == expected);
    QCOMPARE(server.count(u"STOR"_s), 4);
    // The same series again: what came since, and what that was.
    const QStringList second = storeFor("BACKUP", 4, 3);
    EVENTUALLY_COMPARE(server.count(u"STOR"_s), 10);
    EVENTUALLY(allAreDone());
    expected.insert(deliveryOf(second));
    QVERIFY(filesOf(server) == expected);
    QCOMPARE(jobStates().size(), 2);
}

void FtpStoredTest::isNotDeliveredBeforeItsSeriesIsQuiet() {
    const ScriptedFtp server;
    launchFor(nodeOf(server), LateRetry);
    storeFor("BACKUP", 3);
    QCOMPARE(jobStates(), (QStringList{Waiting, Waiting}));
    // An hour is over for the job; but something has come just now.
    daemon_->database.run(u"UPDATE Job SET NextAttempt=NextAttempt-3601"_s);
    const auto arePutOff = [this] {
        return daemon_->database.value(
                   u"SELECT COUNT(*) FROM Job WHERE State=0 AND NextAttempt>Created+3000"_s) == u"2"_s;
    };
    EVENTUALLY(arePutOff());
    QCOMPARE(server.connections(), 0);
    daemon_->database.run(u"UPDATE JobItem SET Added=Added-3601"_s);
    daemon_->database.run(u"UPDATE Job SET NextAttempt=NextAttempt-3601"_s);
    EVENTUALLY(allAreDone());
    QCOMPARE(filesOf(server).size(), 5);
}

void FtpStoredTest::theEndOfASecondIsNoQuietSecond() {
    const ScriptedFtp server;
    launchFor(nodeOf(server));
    // Another series waits: the table is looked at each second then, and not each five.
    storeFor("BACKUP", 1);
    daemon_->database.run(u"UPDATE Job SET NextAttempt=NextAttempt+3600"_s);
    QTest::qSleep(5500);
    // By a clock of whole seconds, what comes now is a second old in a tenth of one.
    while (QTime::currentTime().msec() < 900)
        QTest::qSleep(10);
    QElapsedTimer time;
    time.start();
    storeFor("BACKUP", 1, 2);
    EVENTUALLY(server.connections() > 0);
    QVERIFY2(time.elapsed() >= 1000, qPrintable(QString::number(time.elapsed())));
}

void FtpStoredTest::onlyUnderTheNodesName_data() {
    QTest::addColumn<QString>("called");
    QTest::addColumn<QString>("aeTitle");
    QTest::addColumn<bool>("checkCalled");
    QTest::newRow("another title") << u"TESSALY"_s << u"TESSALY"_s << false;
    QTest::newRow("the port checks the title") << u"BACKUP"_s << u"BACKUP"_s << true;
}

void FtpStoredTest::onlyUnderTheNodesName() {
    QFETCH(const QString, called);
    QFETCH(const QString, aeTitle);
    QFETCH(const bool, checkCalled);
    const ScriptedFtp server;
    launchFor(nodeOf(server), QuickRetry, {{.aeTitle = aeTitle, .checkCalled = checkCalled}});
    storeFor(called.toStdString(), 2);
    QCOMPARE(daemon_->images().size(), 2);
    QCOMPARE(jobStates(), QStringList{});
    QCOMPARE(daemon_->database.value(u"SELECT COUNT(*) FROM JobItem"_s), u"0"_s);
}

void FtpStoredTest::isStoredWhoeverIsThere() {
    const ScriptedFtp server;
    launchFor({.host = u"127.0.0.1:"_s + unusedPort()});
    const QStringList uids = storeFor("BACKUP", 2);
    EVENTUALLY(lastError().startsWith(u"1 of 1 objects: no connection"_s));
    setNode(u"Host"_s, server.host());
    EVENTUALLY(allAreDone());
    QVERIFY(filesOf(server) == deliveryOf(uids));
}

void FtpStoredTest::isRetriedWithWhatCameMeanwhile() {
    ScriptedFtp server;
    std::atomic<bool> isFull = true;
    server.setScript([&](const std::string& verb, const std::string&) {
        return verb == "STOR" && isFull ? Reply{"452 full"} : Reply{};
    });
    launchFor(nodeOf(server));
    QStringList uids = storeFor("BACKUP", 3);
    const auto haveFailed = [this](int first, int second) {
        const QStringList log = daemon_->log().split(u'\n');
        const auto hasFailed = [&](int job, int objects) {
            return !log.filter(u"job %1 (FTP, backup): %2 of %2 objects: "_s.arg(job).arg(objects)).isEmpty();
        };
        return hasFailed(1, first) && hasFailed(2, second);
    };
    EVENTUALLY(haveFailed(2, 1));
    uids += storeFor("BACKUP", 3, 4);
    EVENTUALLY(haveFailed(3, 3));
    isFull = false;
    EVENTUALLY(allAreDone());
    EVENTUALLY(filesOf(server) == deliveryOf(uids));
}

void FtpStoredTest::whatWasGivenUpBeginsAnew() {
    const ScriptedFtp server;
    FtpNode node = nodeOf(server);
    node.password = u"wr0ng"_s;
    launchFor(node);
    QStringList uids = storeFor("BACKUP", 1);
    EVENTUALLY_COMPARE(jobStates(), QStringList{GivenUp});
    setNode(u"UserPwd"_s, QString::fromStdString(ScriptedFtp::Password));
    const ObjectSpec other{.study = Study,
                           .series = std::string{Study} + ".1",
                           .instance = std::string{Study} + ".1.3",
                           .seed = 3};
    RequestorAssociation sender{daemon_->port(), "TESTER", "BACKUP"};
    QCOMPARE(sender.store(*makeObject(other)).status, 0);
    uids << QString::fromStdString(other.instance);
    EVENTUALLY(allAreDone());
    QVERIFY(filesOf(server) == deliveryOf(uids));
}

void FtpStoredTest::whatCannotBeAVolumeIsGivenUp() {
    const ScriptedFtp server;
    FtpNode node = nodeOf(server);
    node.type = u"Lorvo"_s;
    launchFor(node);
    storeFor("BACKUP", 1);
    EVENTUALLY_COMPARE(jobStates(), QStringList{GivenUp});
    QCOMPARE(filesOf(server).size(), 0);
}

void FtpStoredTest::aStoreThatFailsLeavesNoJob() {
    const ScriptedFtp server;
    launchFor(nodeOf(server));
    daemon_->database.failOn(u"JobItem"_s, u"INSERT"_s);
    RequestorAssociation sender{daemon_->port(), "TESTER", "BACKUP"};
    QVERIFY(sender.store(*makeObject({})).status != 0);
    QCOMPARE(daemon_->images().size(), 0);  // nothing is stored of which nobody knows that it is due
    daemon_->database.allow(u"JobItem"_s, u"INSERT"_s);
    QCOMPARE(sender.store(*makeObject({})).status, 0);
    EVENTUALLY(allAreDone());
}

void FtpStoredTest::killsLoseNothing() {
    const FtpProduct server{FtpProduct::Kind::Vsftpd};
    launchFor(nodeOf(server));
    std::map<QString, QString> accepted;  // files of the delivery, and their series' folder
    const int kills = killsWanted(10);
    for (int round = 0; round < kills; ++round) {
        const QStringList uids = storeFor("BACKUP", 20, 1 + 20 * round);
        for (const QString& uid : uids) {
            const QString folder = u"in/%1/%2/"_s.arg(QString::fromLatin1(Study), uid.section(u'.', 0, -2));
            accepted[folder + uid + u".dcm"_s] = uid;
        }
        // From before the first attempt to behind it.
        QTest::qSleep(QRandomGenerator::global()->bounded(1500));
        daemon_->kill();
        endLeases();
        daemon_->launch(QuickRetry);
    }
    EVENTUALLY(allAreDone());
    const auto found = server.files();
    for (const auto& [name, uid] : accepted) {
        QFile file{fileOf(uid)};
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY2(found.value(name) == file.readAll(), qPrintable(name));
    }
    for (const QString& name : found.keys())
        QVERIFY2(accepted.contains(name) || name.endsWith(u"/complete"_s), qPrintable(name));
    QCOMPARE(daemon_->database.value(u"SELECT COUNT(*) FROM JobItem"_s), u"0"_s);
}

/// TESSALY_TEST_STUDY_OBJECTS says how many.
void FtpStoredTest::manyFilesCostNoMemory() {
    const int wanted = qEnvironmentVariableIntValue("TESSALY_TEST_STUDY_OBJECTS");
    const int count = wanted > 0 ? wanted : 500;
    constexpr long long Most = 40'000;  // kilobytes
    const FtpProduct server{FtpProduct::Kind::Vsftpd};
    launchFor(nodeOf(server));
    storeFor("BACKUP", 20);
    EVENTUALLY(allAreDone());
    const long long before = peakMemoryOf(daemon_->process.processId());
    storeFor("BACKUP", count, 21);
    QTRY_VERIFY_WITH_TIMEOUT(allAreDone(), PatienceMs * (1 + count / 500));
    const long long more = peakMemoryOf(daemon_->process.processId()) - before;
    QVERIFY2(more < Most, qPrintable(u"%1 KB"_s.arg(more)));
    qInfo() << count << "files," << more << "KB more";
    QCOMPARE(server.files().size(), 20 + count + 2);
}

QTEST_GUILESS_MAIN(FtpStoredTest)
#include "tst_ftpstored.moc"
