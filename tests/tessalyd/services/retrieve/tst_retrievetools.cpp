#include <QRegularExpression>
#include <QSet>
#include <latch>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/services/retrieve/MoveTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// Other products that fetch and that have objects moved, and change their minds.
class RetrieveToolsTest : public MoveTest {
    Q_OBJECT

  private Q_SLOTS:
    void movescuCancels();
    void gdcmscuHasAStudyMoved();
    void anotherArchiveHasAStudyMovedToItself();
    void theManualsCommandsWork();
};

void RetrieveToolsTest::movescuCancels() {
    ScriptedServer server;
    std::latch cancelled{1};
    std::atomic<int> taken = 0;
    server.on(CommandField::CStore, [&](const Request& request, Association& association) {
        ++taken;
        if (taken > 1)
            cancelled.wait();
        take(request, association);
    });
    launchWith({destination(server.port())});
    storeStudy(6);
    // The tool cancels when it has had that many answers: pending ones come while the second object waits.
    QProcess tool;
    tool.setProcessChannelMode(QProcess::MergedChannels);
    tool.start(u"movescu"_s,
               {u"-v"_s, u"-aet"_s, u"VIEWER"_s, u"-aec"_s, u"TESSALY"_s, u"-aem"_s, u"DEST"_s, u"-S"_s,
                u"--cancel"_s, u"1"_s, u"-k"_s, u"QueryRetrieveLevel=STUDY"_s, u"-k"_s,
                u"StudyInstanceUID=%1"_s.arg(QLatin1StringView{Study}), u"localhost"_s, daemon_->port()});
    QVERIFY(tool.waitForFinished(PatienceMs));
    cancelled.count_down();
    const QString said = QString::fromUtf8(tool.readAll());
    QVERIFY2(said.contains(u"Final Move Response (Cancel"_s), qPrintable(said));
    QCOMPARE(taken.load(), 2);
    EVENTUALLY(daemon_->log().contains(u"C-MOVE: 6 objects found, 1 sent, 0 failed"_s));
    QVERIFY2(!daemon_->log().contains(u"aborted"_s), qPrintable(daemon_->log()));
}

void RetrieveToolsTest::gdcmscuHasAStudyMoved() {
    // It names itself as the destination, and aborts whatever it is sent: the node of its title is another's.
    const Receiver receiver;
    launchWith({{.aeTitle = u"GDCM"_s, .port = receiver.port, .query = true}});
    storeStudy(5);
    QProcess tool;
    tool.setProcessChannelMode(QProcess::MergedChannels);
    tool.start(u"gdcmscu"_s,
               {u"--move"_s, u"--study"_s, u"--studyroot"_s, u"--call"_s, u"TESSALY"_s, u"--aetitle"_s,
                u"GDCM"_s, u"--port-scp"_s, unusedPort(), u"--output"_s, scratch({}), u"--key"_s,
                u"0020,000d=%1"_s.arg(QLatin1StringView{Study}), u"localhost"_s, daemon_->port()});
    EVENTUALLY_COMPARE(QDir{receiver.folder.path()}.entryList(QDir::Files).size(), 5);
    tool.kill();  // it waits for objects of its own
    QVERIFY(tool.waitForFinished(PatienceMs));
    EVENTUALLY(daemon_->log().contains(u"C-MOVE: 5 objects found, 5 sent, 0 failed"_s));
    QCOMPARE(dataSetsIn(receiver.folder.path()), storedDataSets());
}

void RetrieveToolsTest::anotherArchiveHasAStudyMovedToItself() {
    const QString port = unusedPort();
    launchWith({{.aeTitle = u"ORTHANC"_s, .port = port, .query = true}});
    storeStudy(5);
    const OtherArchive archive{scratch(u"orthanc"_s), u"ORTHANC"_s, daemon_->port(), port};
    const QByteArray query =
        archive.ask(u"modalities/tessaly/query"_s, R"({"Level": "Study", "Query": {"PatientID": "P1"}})");
    const QString id = QString::fromLatin1(query.split('"').value(3));
    QVERIFY2(!id.isEmpty(), query);
    QVERIFY(!archive.ask(u"queries/%1/retrieve"_s.arg(id), "ORTHANC").isEmpty());
    QCOMPARE(dataSetsOf(archive, scratch(u"got"_s)), storedDataSets());
    EVENTUALLY(daemon_->log().contains(u"C-MOVE: 5 objects found, 5 sent, 0 failed"_s));
}

/// Stored, found and fetched back in both ways by what the manual has, word for word but for the ports and
/// the study.
void RetrieveToolsTest::theManualsCommandsWork() {
    QFile manual{QStringLiteral(MANUAL)};
    QVERIFY(manual.open(QIODevice::ReadOnly));
    const QRegularExpression block{u"\n\n(    storescu .*?)\n\n"_s,
                                   QRegularExpression::DotMatchesEverythingOption};
    QString commands = block.match(QString::fromUtf8(manual.readAll())).captured(1);
    const QString viewersPort = unusedPort();
    launchWith({}, 0, {.aeTitle = u"VIEWER"_s, .port = viewersPort, .query = true, .host = u"localhost"_s});
    commands.replace(u" 11112"_s, u' ' + daemon_->port());
    commands.replace(u" 11113"_s, u' ' + viewersPort);
    commands.replace(u"=1.2.3 "_s, u'=' + QLatin1StringView{Study} + u' ');

    (void)writeObject({.study = Study, .instance = "1.2.5.1"}, scratch(u"image.dcm"_s));
    const Outcome outcome = run(u"sh"_s, {u"-ec"_s, u"cd \"$1\"\n"_s + commands, u"sh"_s, scratch({})});
    QVERIFY2(outcome.exitCode == 0, qPrintable(commands + outcome.output));
    QVERIFY2(outcome.output.contains(QLatin1StringView{Study}), qPrintable(outcome.output));
    QCOMPARE(storedDataSets().size(), 1);
    QCOMPARE(dataSetsIn(scratch(u"fetched"_s)), storedDataSets());
    QCOMPARE(dataSetsIn(scratch(u"moved"_s)), storedDataSets());
}

QTEST_GUILESS_MAIN(RetrieveToolsTest)
#include "tst_retrievetools.moc"
