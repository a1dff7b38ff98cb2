#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/OtherArchive.h"
#include "tests/tessalyd/services/commitment/Committer.h"
#include "tests/tessalyd/services/commitment/ReportReceiver.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// Another product on the other side.
class CommitmentPeersTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void orthancAsksForCommitment_data();
    void orthancAsksForCommitment();
    void orthancAnswersTheModalityOfTheTests();
};

void CommitmentPeersTest::orthancAsksForCommitment_data() {
    QTest::addColumn<QString>("instance");
    QTest::addColumn<QString>("status");
    QTest::newRow("stored") << u"1.2.826.0.1.1.1.1"_s << u"Success"_s;
    QTest::newRow("not stored") << u"1.2.826.0.1.1.1.2"_s << u"Failure"_s;
}

/// It proposes no role, and releases the association when the request is answered.
void CommitmentPeersTest::orthancAsksForCommitment() {
    QFETCH(QString, instance);
    QFETCH(QString, status);
    const QString port = unusedPort();
    daemon_ = std::make_unique<Daemon>();
    daemon_->database.run(
        u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port) VALUES ('peer', 'PEER', "
        u"'TESSALY', "
        "'127.0.0.1', '%1')"_s.arg(port));
    daemon_->launch({u"--first-retry"_s, u"1"_s});
    const OtherArchive peer{scratch(u"peer"_s), u"PEER"_s, daemon_->port(), port};
    QCOMPARE(store({}).status, 0);
    const QByteArray asked =
        peer.ask(u"modalities/tessaly/storage-commitment"_s,
                 uR"({"DicomInstances": [["1.2.840.10008.5.1.4.1.1.2", "%1"]]})"_s.arg(instance).toUtf8());
    const QString path = QJsonDocument::fromJson(asked).object()[u"Path"_s].toString();
    QVERIFY2(!path.isEmpty(), asked.constData());
    const auto answer = [&] {
        return QJsonDocument::fromJson(peer.ask(path.mid(1))).object()[u"Status"_s].toString();
    };
    EVENTUALLY(answer() != u"Pending"_s);
    QCOMPARE(answer(), status);
}

/// What the tests of this folder ask with, and take reports with, is understood elsewhere as well.
void CommitmentPeersTest::orthancAnswersTheModalityOfTheTests() {
    const ReportReceiver receiver;
    daemon_ = std::make_unique<Daemon>();  // for the folder of the test alone
    const QString port = unusedPort();
    const OtherArchive peer{scratch(u"peer"_s), u"PEER"_s, receiver.port(), port};
    Committer modality{port, "TESSALY", "1.2.840.10008.1.2.1", "PEER"};
    CommitmentAsk wanted;
    wanted.references = {{"1.2.840.10008.5.1.4.1.1.2", "1.2.826.0.1.1.1.1"}};
    QCOMPARE(modality.ask(wanted), 0);
    EVENTUALLY(receiver.reports().size() == 1);
    QCOMPARE(receiver.reports().front().eventType, 2);
    QCOMPARE(receiver.reports().front().failed.at("1.2.826.0.1.1.1.1"), 0x0112);
}

QTEST_GUILESS_MAIN(CommitmentPeersTest)
#include "tst_commitmentpeers.moc"
