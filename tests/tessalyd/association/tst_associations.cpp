#include <dcmtk/dcmdata/dcuid.h>

#include <QTcpSocket>
#include <QTest>
#include <csignal>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/DaemonTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// Who is let in, how many, and what is said of them on the bus.
class AssociationsTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void anEchoIsAnswered();
    void aWrongCalledTitleIsRejected();
    void anUnknownCallerIsRejected();
    void theLimitHoldsPerPort();
    void onlyWhatAServiceOffersIsAccepted();
    void theFirstSyntaxThatIsTakenWins();
    void fiftyAssociationsAreOpenAtOnce();
    void anAbortInTheMiddleOfAStoreLeavesNothing();
    void aKilledClientIsNoticed();
    void silentConnectionsHoldNobodyUp();
    void aConnectionThatClosesIsNoAssociation();
    void anotherProtocolIsRejected();
    void whatIsNoDicomIsDropped();

  private:
    Outcome echo(const QStringList& options = {}) {
        return run(u"echoscu"_s,
                   QStringList{u"-v"_s} + options + QStringList{u"localhost"_s, daemon_->port()});
    }
};

void AssociationsTest::anEchoIsAnswered() {
    launch();
    const Outcome peer = echo({u"-aet"_s, u"MODALITY"_s, u"-aec"_s, u"ANYTHING"_s});
    QCOMPARE(peer.exitCode, 0);
    QVERIFY(peer.output.contains(u"Received Echo Response (Success)"_s));
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
    QCOMPARE(daemon_->connections,
             (QList<Daemon::Event>{{daemon_->port(), u"MODALITY"_s, u"ANYTHING"_s, 1}}));
    QCOMPARE(daemon_->ends, (QList<Daemon::Event>{{daemon_->port(), u"MODALITY"_s, u"ANYTHING"_s, 0}}));
}

void AssociationsTest::aWrongCalledTitleIsRejected() {
    launch({PortRow{.checkCalled = true}});
    const Outcome wrong = echo({u"-aec"_s, u"tessaly"_s});
    QVERIFY(wrong.exitCode != 0);
    QVERIFY2(wrong.output.contains(u"Result: Rejected Permanent, Source: Service User"_s),
             qPrintable(wrong.output));
    QVERIFY2(wrong.output.contains(u"Reason: Called AE Title Not Recognized"_s), qPrintable(wrong.output));
    QCOMPARE(echo({u"-aec"_s, u"TESSALY"_s}).exitCode, 0);
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
    QCOMPARE(daemon_->connections.size(), 1);
}

void AssociationsTest::anUnknownCallerIsRejected() {
    const PortRow port{.checkCalling = true};
    daemon_ = std::make_unique<Daemon>(QList<PortRow>{port});
    const ScratchDatabase& database = daemon_->database;
    database.run(
        u"INSERT INTO DicomNodes (Name, AETitle) VALUES ('ct', 'CT1'), ('mr', 'MR1'), ('none', NULL)"_s);
    database.run(u"INSERT INTO PortRemoteNodes VALUES (?, 'CT'), (?, 'none'), ('1', 'mr')"_s,
                 {port.port, port.port});
    daemon_->launch();
    for (const QString& stranger : {u"MR1"_s, u"ct1"_s}) {
        const Outcome wrong = echo({u"-aet"_s, stranger});
        QVERIFY(wrong.exitCode != 0);
        QVERIFY2(wrong.output.contains(u"Result: Rejected Permanent, Source: Service User"_s),
                 qPrintable(wrong.output));
        QVERIFY2(wrong.output.contains(u"Reason: Calling AE Title Not Recognized"_s),
                 qPrintable(wrong.output));
    }
    QCOMPARE(echo({u"-aet"_s, u"CT1"_s}).exitCode, 0);
}

void AssociationsTest::theLimitHoldsPerPort() {
    const QList<PortRow> ports{{.maxConnections = 2}, {.maxConnections = 1}};
    launch(ports);
    RequestorAssociation first{daemon_->port()};
    RequestorAssociation second{daemon_->port()};
    QVERIFY(first.isOpen() && second.isOpen());
    const Outcome third = echo();
    QVERIFY2(third.output.contains(
                 u"Result: Rejected Transient, Source: Service Provider (Presentation Related)"_s),
             qPrintable(third.output));
    QVERIFY2(third.output.contains(u"Reason: Local Limit Exceeded"_s), qPrintable(third.output));
    RequestorAssociation elsewhere{daemon_->port(1)};
    QVERIFY(elsewhere.isOpen());
    QCOMPARE(daemon_->status(), (Daemon::Status{0, 3, 2}));
    first.release();
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
    QCOMPARE(echo().exitCode, 0);
}

void AssociationsTest::onlyWhatAServiceOffersIsAccepted() {
    launch();
    const std::vector<std::string> plain{UID_LittleEndianImplicitTransferSyntax};
    RequestorAssociation peer{daemon_->port(),
                     "TESTER",
                     "TESSALY",
                     {{UID_VerificationSOPClass, plain},
                      {UID_FINDModalityWorklistInformationModel, plain},
                      {UID_CTImageStorage, {UID_JPIPReferencedTransferSyntax}},
                      {UID_VerificationSOPClass, {UID_RLELosslessTransferSyntax}}}};
    QVERIFY(peer.isOpen());
    QCOMPARE(peer.accepted(0), std::string{UID_LittleEndianImplicitTransferSyntax});
    QCOMPARE(peer.accepted(1), std::string{});
    QCOMPARE(peer.accepted(2), std::string{});
    QCOMPARE(peer.accepted(3), std::string{});
    QVERIFY(peer.echo());
}

void AssociationsTest::theFirstSyntaxThatIsTakenWins() {
    launch();
    RequestorAssociation peer{daemon_->port(),
                     "TESTER",
                     "TESSALY",
                     {{UID_CTImageStorage,
                       {UID_JPIPReferencedTransferSyntax, UID_JPEGProcess14SV1TransferSyntax,
                        UID_LittleEndianImplicitTransferSyntax}}}};
    QCOMPARE(peer.accepted(0), std::string{UID_JPEGProcess14SV1TransferSyntax});
}

void AssociationsTest::fiftyAssociationsAreOpenAtOnce() {
    constexpr int Many = 50;
    launch({PortRow{.maxConnections = Many}});
    std::vector<std::unique_ptr<RequestorAssociation>> peers;
    peers.reserve(Many);
    for (int i = 0; i < Many; ++i)
        peers.push_back(std::make_unique<RequestorAssociation>(daemon_->port(), i % 2 == 0 ? "EVEN" : "ODD"));
    for (const auto& peer : peers)
        QVERIFY(peer->isOpen() && peer->echo());
    QCOMPARE(daemon_->status(), (Daemon::Status{0, Many, 1}));
    QVERIFY(!RequestorAssociation{daemon_->port()}.isOpen());
    for (const auto& peer : peers)
        peer->release();
    EVENTUALLY_COMPARE(daemon_->ends.size(), Many);
    QCOMPARE(daemon_->connections.size(), Many);
    QCOMPARE(daemon_->connections.last().total, Many);
    QCOMPARE(daemon_->ends.last().total, 0);
    QCOMPARE(daemon_->connections.count(Daemon::Event{daemon_->port(), u"ODD"_s, u"TESSALY"_s, Many}), 1);
}

void AssociationsTest::anAbortInTheMiddleOfAStoreLeavesNothing() {
    launch();
    const ObjectSpec large{.side = 1200};  // 2.8 MB
    RequestorAssociation peer{daemon_->port()};
    peer.beginStore(large, 2'000'000);  // enough for the file to be begun
    EVENTUALLY(!daemon_->entries().isEmpty());
    QCOMPARE(daemon_->files(), QStringList{});  // it has no name
    peer.abort();
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
    EVENTUALLY_COMPARE(daemon_->entries(), QStringList{});
    QCOMPARE(daemon_->archiveRows(), 0);
    QCOMPARE(echo().exitCode, 0);
}

void AssociationsTest::aKilledClientIsNoticed() {
    launch();
    const QString object = writeObject({.side = 512}, daemon_->database.folder() + u"/one.dcm"_s);
    QProcess sender;
    sender.start(u"storescu"_s, {u"--repeat"_s, u"100000"_s, u"localhost"_s, daemon_->port(), object});
    EVENTUALLY_COMPARE(daemon_->archiveRows(), 4);
    sender.kill();
    sender.waitForFinished();
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
    QCOMPARE(daemon_->connections.size(), 1);
    EVENTUALLY_COMPARE(daemon_->files().size(), 1);  // no part of the object that was under way
    QCOMPARE(daemon_->status(), (Daemon::Status{0, 0, 1}));
    QCOMPARE(dataSetOf(daemon_->files().first()), dataSetOf(object));
}

void AssociationsTest::silentConnectionsHoldNobodyUp() {
    launch();
    QTcpSocket silent;
    QTcpSocket halfway;
    for (QTcpSocket* socket : {&silent, &halfway}) {
        socket->connectToHost(u"127.0.0.1"_s, daemon_->port().toUShort());
        QVERIFY(socket->waitForConnected());
    }
    halfway.write(QByteArray::fromHex("0100000000ff0001"));  // the beginning of a request
    QVERIFY(halfway.waitForBytesWritten());
    QCOMPARE(echo().exitCode, 0);
    EVENTUALLY_COMPARE(daemon_->status(), (Daemon::Status{0, 0, 1}));
    QVERIFY(daemon_->terminate());  // does not wait for them either
}

void AssociationsTest::aConnectionThatClosesIsNoAssociation() {
    launch();
    for (const QByteArray& said :
         {QByteArray{}, associationRequest().first(3), associationRequest().first(40)}) {
        QTcpSocket probe;
        probe.connectToHost(u"127.0.0.1"_s, daemon_->port().toUShort());
        QVERIFY(probe.waitForConnected());
        probe.write(said);
        probe.disconnectFromHost();
        EVENTUALLY_COMPARE(probe.state(), QAbstractSocket::UnconnectedState);
    }
    QCOMPARE(echo().exitCode, 0);
    QVERIFY(daemon_->terminate());  // all that there was to say of the others has been said
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
    QCOMPARE(daemon_->connections, (QList<Daemon::Event>{{daemon_->port(), u"ECHOSCU"_s, u"ANY-SCP"_s, 1}}));
}

void AssociationsTest::anotherProtocolIsRejected() {
    launch();
    QTcpSocket peer;
    peer.connectToHost(u"127.0.0.1"_s, daemon_->port().toUShort());
    QVERIFY(peer.waitForConnected());
    peer.write(associationRequest("1.2.840.10008.3.1.1.2"));
    // Permanent, by the service user: application context name not supported.
    const QByteArray rejected = QByteArray::fromHex("03000000000400010102");
    EVENTUALLY_COMPARE(peer.bytesAvailable(), rejected.size());
    QCOMPARE(peer.readAll(), rejected);
    QCOMPARE(echo().exitCode, 0);
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
    QCOMPARE(daemon_->connections.size(), 1);
}

void AssociationsTest::whatIsNoDicomIsDropped() {
    launch();
    QTcpSocket browser;
    browser.connectToHost(u"127.0.0.1"_s, daemon_->port().toUShort());
    QVERIFY(browser.waitForConnected());
    browser.write("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EVENTUALLY_COMPARE(browser.state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(echo().exitCode, 0);
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
    QCOMPARE(daemon_->connections.size(), 1);
}

QTEST_GUILESS_MAIN(AssociationsTest)
#include "tst_associations.moc"
