#include <QFile>
#include <QTest>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/DaemonTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// What the server writes into its log.
class LogTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void theLevelsDecideWhatIsLogged_data();
    void theLevelsDecideWhatIsLogged();
    void dumpsAreLoggedWhenAskedFor_data();
    void dumpsAreLoggedWhenAskedFor();
    void theLogIsRotated();

  private:
};

void LogTest::theLevelsDecideWhatIsLogged_data() {
    QTest::addColumn<int>("level");
    QTest::addColumn<bool>("messages");
    QTest::addColumn<bool>("warnings");
    QTest::addColumn<bool>("details");
    QTest::newRow("Errors") << 0 << false << false << false;
    QTest::newRow("Normal") << 1 << true << false << false;
    QTest::newRow("Warnings") << 2 << true << true << false;
    QTest::newRow("Debug") << 3 << true << true << true;
}

void LogTest::theLevelsDecideWhatIsLogged() {
    QFETCH(const int, level);
    QFETCH(const bool, messages);
    QFETCH(const bool, warnings);
    QFETCH(const bool, details);
    daemon_ = std::make_unique<Daemon>(QList<PortRow>{{.saveCompressed = false}, {.port = u"none"_s}});
    daemon_->database.run(u"UPDATE DicomServer SET LogLevel=?"_s, {level});
    daemon_->launch();
    {
        RequestorAssociation peer{daemon_->port()};
        QCOMPARE(peer.store(*makeObject({})).status, 0);
        QVERIFY(peer.store(*makeObject({}), "1.2").status != 0);
        constexpr std::string_view NoCommand{"neither a tag nor a length is in this text"};
        peer.sendCommand(NoCommand);  // breaks the association, which is worth a warning
        QVERIFY(peer.waitForEnd());
    }
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
    const QString& log = daemon_->log();
    QVERIFY(log.contains(u" ERROR "_s));
    QCOMPARE(log.contains(u"  INFO "_s), messages);
    EVENTUALLY_COMPARE(daemon_->log().contains(u"  WARN "_s), warnings);
    QCOMPARE(log.contains(u" DEBUG "_s), details);
    if (level < 3)
        QVERIFY(!log.contains(u"Doe"_s) && !log.contains(u"P1"_s));
}

void LogTest::dumpsAreLoggedWhenAskedFor_data() {
    QTest::addColumn<int>("bits");
    QTest::addColumn<QStringList>("expected");
    const QStringList all{u"dump.socket: "_s, u"dcmtk.dcmnet: "_s, u"dump.vr: "_s, u"dump.association: "_s};
    QTest::newRow("none") << 0 << QStringList{};
    QTest::newRow("socket") << 1 << QStringList{all[0]};
    QTest::newRow("DUL") << 2 << QStringList{all[1]};
    QTest::newRow("VR") << 4 << QStringList{all[2]};
    QTest::newRow("association") << 16 << QStringList{all[3]};
    QTest::newRow("all") << 23 << all;
}

void LogTest::dumpsAreLoggedWhenAskedFor() {
    QFETCH(const int, bits);
    QFETCH(const QStringList, expected);
    daemon_ = std::make_unique<Daemon>();
    daemon_->database.run(u"UPDATE DicomServer SET DumpLevel=?"_s, {bits});
    daemon_->launch();
    {
        RequestorAssociation peer{daemon_->port()};
        QCOMPARE(peer.store(*makeObject({})).status, 0);
        peer.release();
    }
    QVERIFY(daemon_->terminate());
    QStringList found;
    for (const char* name : {"dump.socket: ", "dcmtk.dcmnet: ", "dump.vr: ", "dump.association: "}) {
        if (daemon_->log().contains(QString::fromLatin1(name)))
            found << QString::fromLatin1(name);
    }
    QCOMPARE(found, expected);
    if ((bits & 4) != 0)
        QVERIFY(daemon_->log().contains(u"(0010,0010) PN [Doe^Jane]"_s));
    if ((bits & 16) != 0)
        QVERIFY(daemon_->log().contains(u"Calling Application Name:    TESTER"_s));
}

void LogTest::theLogIsRotated() {
    daemon_ = std::make_unique<Daemon>();
    daemon_->database.run(u"UPDATE DicomServer SET DumpLevel=23"_s);
    constexpr qint64 Least = 200 << 10;
    daemon_->launch({u"--log-size"_s, QString::number(Least)});
    RequestorAssociation peer{daemon_->port()};
    for (int i = 1; i <= 1000 && !QFile::exists(daemon_->logFile() + u".2"_s); ++i)
        QCOMPARE(peer.store(*makeObject({.instance = "1.2." + std::to_string(i), .side = 128})).status, 0);
    QVERIFY(QFile::exists(daemon_->logFile() + u".1"_s));
    QVERIFY(QFileInfo{daemon_->logFile()}.size() < 2 * Least);
    const auto others = QFileDevice::ReadOther | QFileDevice::WriteOther;
    QVERIFY(!(QFile::permissions(daemon_->logFile()) & others));
}

QTEST_GUILESS_MAIN(LogTest)
#include "tst_log.moc"
