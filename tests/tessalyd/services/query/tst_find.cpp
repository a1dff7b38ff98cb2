#include <dcmtk/dcmdata/dcdeftag.h>

#include <QRegularExpression>
#include <QTest>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/Finding.h"
#include "tests/tessalyd/Objects.h"
#include "tests/tessalyd/OtherArchive.h"
#include "tests/tessalyd/StockedArchive.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

namespace {

/// The values that a tool of another product prints of an attribute, in brackets, in their order.
QStringList printed(const Outcome& outcome, const QString& tag) {
    QStringList values;
    const QRegularExpression line{u"\\(%1\\) \\w\\w \\[([^\\]]*)\\]"_s.arg(tag)};
    for (auto match = line.globalMatch(outcome.output); match.hasNext();)
        values << match.next().captured(1).remove(QChar{u'\0'}).trimmed();  // padding
    return sorted(values);
}

}  // namespace

/// C-FIND as a workstation sees it: what it finds, with which tool, and what it is told when it asks wrongly.
class FindTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void init();

    void whatWasStoredIsFound_data();
    void whatWasStoredIsFound();
    void anotherProductFinds();
    void anotherArchiveFinds();
    void answersSayWhereToFetchFrom();
    void answersComeInTheSyntaxThatWasAccepted_data();
    void answersComeInTheSyntaxThatWasAccepted();
    void unsupportedKeysAreTold();
    void whoMayNotQueryIsToldSo();
    void aRestartGivesTheRight();
    void aWrongQueryIsRefused_data();
    void aWrongQueryIsRefused();
    void bytesThatAreNoIdentifierAreRefused_data();
    void bytesThatAreNoIdentifierAreRefused();
    void aRequestWithoutAnIdentifierEndsTheAssociation();
    void relationalQueriesAreNegotiated();
    void datesAndTimesTogetherAreNegotiated();
    void theLogCountsWhatWasFound();

  private:
    [[nodiscard]] std::unique_ptr<RequestorAssociation> workstation(
        const std::vector<RequestorAssociation::Extension>& extensions = {}) const {
        return std::make_unique<RequestorAssociation>(daemon_->port(), "WS1", "TESSALY", Finding::contexts(),
                                                      extensions);
    }
};

void FindTest::init() {
    daemon_ = std::make_unique<Daemon>();
    daemon_->database.run(u"INSERT INTO DicomNodes (Name, AETitle, Query) VALUES ('work', 'WS1', 1)"_s);
    daemon_->database.run(u"UPDATE DicomServer SET LogLevel=2"_s);  // with warnings
    daemon_->launch();
    for (const char* patient : {"1", "2"}) {
        const std::string study = std::string{"1.2.826.0.1."} + patient;
        for (const char* series : {".1", ".2"}) {
            const auto stored = store({.patientId = std::string{"P"} + patient,
                                       .patientName = patient[0] == '1' ? "Doe^Jane" : "Miller^Ann",
                                       .study = study,
                                       .series = study + series,
                                       .instance = study + series + ".1"});
            QCOMPARE(stored.status, 0);
        }
    }
}

void FindTest::whatWasStoredIsFound_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("tag");
    QTest::addColumn<QStringList>("found");
    const auto row = [](const char* name, const char* arguments, const char* tag, const QStringList& found) {
        QTest::newRow(name) << QString::fromLatin1(arguments).split(u' ') << QString::fromLatin1(tag)
                            << found;
    };
    row("patients", "-P -k 0008,0052=PATIENT -k 0010,0020=", "0010,0020", {u"P1"_s, u"P2"_s});
    row("studies of a patient", "-P -k 0008,0052=STUDY -k 0010,0020=P2 -k 0020,000D=", "0020,000d",
        {u"1.2.826.0.1.2"_s});
    row("series below a patient",
        "-P -k 0008,0052=SERIES -k 0010,0020=P2 -k 0020,000D=1.2.826.0.1.2 -k 0020,000E=", "0020,000e",
        {u"1.2.826.0.1.2.1"_s, u"1.2.826.0.1.2.2"_s});
    row("studies by a name", "-S -k 0008,0052=STUDY -k 0010,0010=mil* -k 0020,000D=", "0020,000d",
        {u"1.2.826.0.1.2"_s});
    row("all studies", "-S -k 0008,0052=STUDY -k 0020,000D=", "0020,000d",
        {u"1.2.826.0.1.1"_s, u"1.2.826.0.1.2"_s});
    row("a list of studies", "-S -k 0008,0052=STUDY -k 0020,000D=1.2.826.0.1.2\\1.2.826.0.1.1\\9.9",
        "0020,000d", {u"1.2.826.0.1.1"_s, u"1.2.826.0.1.2"_s});
    row("series of a study", "-S -k 0008,0052=SERIES -k 0020,000D=1.2.826.0.1.1 -k 0020,000E=", "0020,000e",
        {u"1.2.826.0.1.1.1"_s, u"1.2.826.0.1.1.2"_s});
    row("images of a series",
        "-S -k 0008,0052=IMAGE -k 0020,000D=1.2.826.0.1.1 -k 0020,000E=1.2.826.0.1.1.2 -k 0008,0018=",
        "0008,0018", {u"1.2.826.0.1.1.2.1"_s});
    row("what is counted", "-S -k 0008,0052=STUDY -k 0020,000D=1.2.826.0.1.1 -k 0020,1206=", "0020,1206",
        {u"2"_s});
    row("nothing", "-S -k 0008,0052=STUDY -k 0020,000D= -k 0010,0020=P3", "0020,000d", {});
}

/// With findscu.
void FindTest::whatWasStoredIsFound() {
    QFETCH(QStringList, arguments);
    QFETCH(QString, tag);
    QFETCH(QStringList, found);
    const Outcome outcome = run(u"findscu"_s, QStringList{u"-v"_s, u"-aet"_s, u"WS1"_s, u"-aec"_s,
                                                          u"TESSALY"_s, daemon_->address(), daemon_->port()} +
                                                  arguments);
    QCOMPARE(outcome.exitCode, 0);
    QVERIFY2(outcome.output.contains(u"Received Final Find Response (Success)"_s),
             qPrintable(outcome.output));
    QStringList values = printed(outcome, tag);
    // The tool prints its request as well.
    const QString asked = arguments.filter(u"%1="_s.arg(tag.toUpper())).value(0).section(u'=', 1);
    if (!asked.isEmpty())
        QVERIFY2(values.removeOne(asked), qPrintable(outcome.output));
    QCOMPARE(values, found);
}

void FindTest::anotherProductFinds() {
    // Its exit code tells nothing: it crashes when it is through, whoever its peer is.
    const Outcome outcome =
        run(u"gdcmscu"_s, {u"-D"_s, u"--find"_s, u"--study"_s, u"--patientroot"_s, u"--call"_s, u"TESSALY"_s,
                           u"--aetitle"_s, u"WS1"_s, u"--key"_s, u"0010,0020=P1"_s, u"--key"_s,
                           u"0020,000d="_s, daemon_->address(), daemon_->port()});
    QVERIFY2(outcome.output.contains(u"C-Find was successful."_s), qPrintable(outcome.output));
    EVENTUALLY(daemon_->log().contains(u"1 queries, 1 found"_s));
}

void FindTest::anotherArchiveFinds() {
    const OtherArchive archive{scratch(u"orthanc"_s), u"WS1"_s, daemon_->port()};
    const QByteArray query = archive.ask(u"modalities/tessaly/query"_s,
                                         R"({"Level": "Study", "Query": {"PatientName": "*iller*",
                                             "StudyInstanceUID": "", "ModalitiesInStudy": ""}})");
    const QString id = QString::fromLatin1(query.split('"').value(3));
    QVERIFY2(!id.isEmpty(), query);
    QCOMPARE(archive.ask(u"queries/%1/answers"_s.arg(id)).count('0'), 1);
    const QByteArray answer = archive.ask(u"queries/%1/answers/0/content?simplify"_s.arg(id));
    QVERIFY2(answer.contains("1.2.826.0.1.2\""), answer);
    QVERIFY2(answer.contains("Miller^Ann"), answer);
}

void FindTest::answersSayWhereToFetchFrom() {
    const auto peer = workstation();
    Finding finding{*peer, identifier("STUDY", {{DCM_StudyInstanceUID, "1.2.826.0.1.1"}})};
    const Finding::Answer answer = finding.next();
    QCOMPARE(answer.status, 0xff00);
    QCOMPARE(answer.value(DCM_RetrieveAETitle), "TESSALY");
    QCOMPARE(answer.value(DCM_QueryRetrieveLevel), "STUDY");
    QCOMPARE(answer.found->card(), 3UL);  // nothing that was not asked for
    QCOMPARE(finding.next().status, 0);
}

void FindTest::answersComeInTheSyntaxThatWasAccepted_data() {
    QTest::addColumn<QByteArray>("syntax");
    QTest::newRow("implicit") << QByteArray{UID_LittleEndianImplicitTransferSyntax};
    QTest::newRow("explicit") << QByteArray{UID_LittleEndianExplicitTransferSyntax};
    QTest::newRow("big endian") << QByteArray{UID_BigEndianExplicitTransferSyntax};
}

void FindTest::answersComeInTheSyntaxThatWasAccepted() {
    QFETCH(QByteArray, syntax);
    auto contexts = Finding::contexts();
    contexts.at(1).transferSyntaxes = {UID_JPEGProcess1TransferSyntax};
    contexts.at(2).transferSyntaxes = {syntax.toStdString()};
    RequestorAssociation peer{daemon_->port(), "WS1", "TESSALY", contexts};
    QVERIFY(peer.accepted(1).empty());
    QCOMPARE(peer.accepted(2), syntax.toStdString());
    Finding finding{peer, identifier("STUDY", {{DCM_StudyInstanceUID, ""}, {DCM_PatientID, "P2"}})};
    QCOMPARE(finding.rest(DCM_StudyInstanceUID), (QStringList{u"1.2.826.0.1.2"_s, u"0000"_s}));
}

void FindTest::unsupportedKeysAreTold() {
    const auto peer = workstation();
    Finding finding{*peer,
                    identifier("STUDY", {{DCM_StudyInstanceUID, ""}, {DCM_InstitutionName, "Elsewhere"}})};
    const Finding::Answer answer = finding.next();
    QCOMPARE(answer.status, 0xff01);
    QVERIFY(answer.found->tagExists(DCM_InstitutionName));
    QCOMPARE(answer.value(DCM_InstitutionName), "");
    QCOMPARE(finding.rest().pending, 1);
}

void FindTest::whoMayNotQueryIsToldSo() {
    RequestorAssociation peer{daemon_->port(), "STRANGER", "TESSALY", Finding::contexts()};
    for (int i = 0; i < 2; ++i) {
        const Finding::Rest answers = findAll(peer, identifier("STUDY", {{DCM_StudyInstanceUID, ""}}));
        QCOMPARE(answers.pending, 0);
        QCOMPARE(answers.last.status, 0x0124);
        QVERIFY(!answers.last.comment.empty());
    }
    QVERIFY(peer.echo());
    QVERIFY2(daemon_->log().contains(u"STRANGER > TESSALY on port %1: refused"_s.arg(daemon_->port())),
             qPrintable(daemon_->log()));
}

void FindTest::aRestartGivesTheRight() {
    daemon_->database.run(u"INSERT INTO DicomNodes (Name, AETitle, Query) VALUES ('new', 'NEW', -1)"_s);
    const auto status = [this] {
        RequestorAssociation peer{daemon_->port(), "NEW", "TESSALY", Finding::contexts()};
        return peer.isOpen() ? findAll(peer, identifier("STUDY", {{DCM_StudyInstanceUID, ""}})).last.status
                             : -1;
    };
    QCOMPARE(status(), 0x0124);
    QVERIFY(daemon_->succeeds(&OrgTessalyServer1Interface::Restart));
    EVENTUALLY_COMPARE(status(), 0);
}

void FindTest::aWrongQueryIsRefused_data() {
    QTest::addColumn<QByteArray>("sopClass");
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<QByteArray>("study");
    QTest::addColumn<uint>("offending");
    const auto row = [](const char* name, const char* sopClass, const char* level, const char* study,
                        const DcmTagKey& offending) {
        QTest::newRow(name) << QByteArray{sopClass} << QByteArray{level} << QByteArray{study}
                            << uint{offending.hash()};
    };
    row("no level", StudyRootFind, "", "1.2", DCM_QueryRetrieveLevel);
    row("an unknown level", StudyRootFind, "FRAME", "1.2", DCM_QueryRetrieveLevel);
    row("a level that the model has not", StudyRootFind, "PATIENT", "1.2", DCM_QueryRetrieveLevel);
    row("no study above a series", StudyRootFind, "SERIES", "", DCM_StudyInstanceUID);
    row("a wildcard above a series", StudyRootFind, "SERIES", "1.2*", DCM_StudyInstanceUID);
    row("a list above a series", StudyRootFind, "SERIES", "1.2\\1.3", DCM_StudyInstanceUID);
    row("no patient above a study", PatientRootFind, "STUDY", "1.2", DCM_PatientID);
}

void FindTest::aWrongQueryIsRefused() {
    QFETCH(QByteArray, sopClass);
    QFETCH(QByteArray, level);
    QFETCH(QByteArray, study);
    QFETCH(uint, offending);
    const auto peer = workstation();
    const Finding::Rest answers =
        findAll(*peer, identifier(level, {{DCM_StudyInstanceUID, study.toStdString()}}), sopClass);
    QCOMPARE(answers.pending, 0);
    QCOMPARE(answers.last.status, 0xa900);
    QCOMPARE(uint{answers.last.offending.hash()}, offending);
    QVERIFY(!answers.last.comment.empty());
    QVERIFY(peer->echo());
}

void FindTest::bytesThatAreNoIdentifierAreRefused_data() {
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("sopClass");
    QTest::addColumn<int>("status");
    const QByteArray sound = QByteArray::fromHex("0800520043530600") + "STUDY ";
    QTest::newRow("sound, for comparison") << sound << QByteArray{StudyRootFind} << 0;
    QTest::newRow("nonsense") << QByteArray{"GET / HTTP/1.0\r\n\r\n"} << QByteArray{StudyRootFind} << 0xc000;
    QTest::newRow("a value that is cut off") << sound.chopped(2) << QByteArray{StudyRootFind} << 0xc000;
    const auto nested = nestedSequences(5000);
    QTest::newRow("too deep") << QByteArray{nested.data(), static_cast<qsizetype>(nested.size())}
                              << QByteArray{StudyRootFind} << 0xc000;
    QTest::newRow("too long") << sound + QByteArray::fromHex("100020404f420000") +
                                     QByteArray::fromHex("00005000") + QByteArray(0x500000, 'x')
                              << QByteArray{StudyRootFind} << 0xc000;
    QTest::newRow("another class than the context's") << sound << QByteArray{PatientRootFind} << 0x0122;
}

void FindTest::bytesThatAreNoIdentifierAreRefused() {
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, sopClass);
    QFETCH(int, status);
    const auto peer = workstation();
    Finding finding{*peer, std::span{bytes.data(), static_cast<std::size_t>(bytes.size())}, sopClass};
    QCOMPARE(finding.rest().last.status, status);
    QVERIFY(peer->echo());
}

void FindTest::aRequestWithoutAnIdentifierEndsTheAssociation() {
    const auto peer = workstation();
    const Finding finding{*peer, std::span<const char>{}};
    QVERIFY(peer->waitForEnd());  // the toolkit takes such a message for a broken one
}

void FindTest::relationalQueriesAreNegotiated() {
    const std::vector<RequestorAssociation::Extension> proposed{{StudyRootFind, {1, 0, 1, 1, 1}}};
    const auto relational = workstation(proposed);
    QCOMPARE(relational->acceptedExtensions(),
             (std::vector<RequestorAssociation::Extension>{{StudyRootFind, {1, 0, 0, 0, 0}}}));
    const auto ask = [] {
        return identifier("SERIES", {{DCM_SeriesInstanceUID, ""}, {DCM_PatientID, "P2"}});
    };
    QCOMPARE(findAll(*relational, ask()).pending, 2);
    // What holds for one model does not hold for the other, and not for another association.
    QCOMPARE(findAll(*relational, ask(), PatientRootFind).last.status, 0xa900);
    QCOMPARE(findAll(*workstation(), ask()).last.status, 0xa900);
}

void FindTest::datesAndTimesTogetherAreNegotiated() {
    daemon_->database.run(
        u"UPDATE Study SET StudyDate='20200101', StudyTime='100000' "
        "WHERE StudyInstanceUID='1.2.826.0.1.1'"_s);
    daemon_->database.run(
        u"UPDATE Study SET StudyDate='20200102', StudyTime='080000' "
        "WHERE StudyInstanceUID='1.2.826.0.1.2'"_s);
    const auto ask = [] {
        return identifier("STUDY", {{DCM_StudyDate, "20200101-20200102"}, {DCM_StudyTime, "090000-200000"}});
    };
    const auto together = workstation({{StudyRootFind, {0, 1}}});
    QCOMPARE(together->acceptedExtensions(),
             (std::vector<RequestorAssociation::Extension>{{StudyRootFind, {0, 1}}}));
    QCOMPARE(findAll(*together, ask()).pending, 2);
    QCOMPARE(findAll(*workstation(), ask()).pending, 1);
}

void FindTest::theLogCountsWhatWasFound() {
    const auto peer = workstation();
    (void)findAll(*peer, identifier("STUDY", {{DCM_StudyInstanceUID, ""}}));
    (void)findAll(*peer, identifier("STUDY", {{DCM_StudyInstanceUID, "1.2.826.0.1.1"}}));
    peer->release();
    EVENTUALLY(daemon_->log().contains(u"2 queries, 3 found"_s));
}

QTEST_GUILESS_MAIN(FindTest)
#include "tst_find.moc"
