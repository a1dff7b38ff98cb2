#include <dcmtk/dcmdata/dctk.h>

#include <QElapsedTimer>
#include <QFile>
#include <QScopeGuard>
#include <QTest>
#include <thread>

#include "db/Transaction.h"
#include "tessalyd/configuration/Configuration.h"
#include "tessalyd/services/query/QueryAnswers.h"
#include "tests/support/Eventually.h"
#include "tests/tessalyd/StockedArchive.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// The answers to a C-FIND as they are sent.
class QueryAnswersTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase();
    void anAnswerHasWhatWasAskedFor();
    void numbersComeInTheirRepresentation();
    void whatIsNoKeyDoesNoHarm();
    void statusTellsOfKeysThatAreNotSupported();
    void queriesAreInTheirCharacterSet_data();
    void queriesAreInTheirCharacterSet();
    void aByteThatIsNotInItsCharacterSetIsNoWildcard();
    void aByteThatIsNotInItsCharacterSetLeavesOtherKeysAlone();
    void onlyAnswersBeyondAsciiNameTheirCharacterSet();
    void manyAnswersTakeNoMemory();
    void storesGoOnMeanwhile();
    void aSearchIsStopped();
    void aSearchEndsAtItsTimeout();
    void whatItsUserTakesIsNotTheSearchsTime();
    void aTableThatSomebodyHasLockedEndsAQueryAtItsTimeout();
    void aSearchIsStoppedWhileItsStatementWaits();
    void theTablesAreFreeBetweenAnswers();
    void aStatementThatFailedIsNotUsedAgain();

  private:
    [[nodiscard]] QueryAnswers ask(DcmDataset question, SearchLimits limits = {}) {
        return QueryAnswers{readQuery(question, InformationModel::StudyRoot, {}), "TESSALY",
                            std::move(limits)};
    }
    static QString text(DcmDataset& dataset, const DcmTagKey& tag) {
        OFString value;
        dataset.findAndGetOFStringArray(tag, value);
        return QString::fromUtf8(value.c_str());
    }
    static QStringList tags(DcmDataset& dataset) {
        QStringList found;
        for (DcmObject* element = dataset.nextInContainer(nullptr); element != nullptr;
             element = dataset.nextInContainer(element))
            found += QString::fromLatin1(element->getTag().toString().c_str());
        return found;
    }
    static double residentMegabytes() {
        QFile status{u"/proc/self/status"_s};
        if (!status.open(QIODevice::ReadOnly))
            return 0;
        for (const QByteArray& line : status.readAll().split('\n')) {
            if (line.startsWith("VmRSS:"))
                return line.mid(6).trimmed().split(' ').first().toDouble() / 1024;
        }
        return 0;
    }

    std::unique_ptr<StockedArchive> archive_;
};

namespace {
constexpr int Many = 100000;

// What so many answers may take at most; they have some 30 MB.
#ifdef __SANITIZE_THREAD__
constexpr double Slack = 40;  // MB; the thread sanitizer keeps several bytes for each one that was touched
#else
constexpr double Slack = 8;  // MB
#endif
}  // namespace

void QueryAnswersTest::initTestCase() {
    archive_ = std::make_unique<StockedArchive>();
    archive_->store({.patientId = "P1",
                     .patientName = "Doe^Jane",
                     .studyDate = "20240131",
                     .modality = "CT",
                     .instanceNumber = "1",
                     .pixelRows = 512,
                     .pixelColumns = 256,
                     .numberOfFrames = 3});
    archive_->store({.patientId = "P2", .patientName = "Müller^Jürgen", .studyDate = "20240201"});
    archive_->store({.patientId = "P3", .patientName = "Иванов^Пётр"});
    archive_->store({.patientId = "P4", .patientName = "Yamada^Tarou=山田^太郎=やまだ^たろう"});
    archive_->store({.patientId = "P5", .patientName = "Hong^Gildong=洪^吉洞=홍^길동"});
    archive_->store({.patientId = "P6", .patientName = "ΔΗΜΟΣ^Α"});
}

void QueryAnswersTest::anAnswerHasWhatWasAskedFor() {
    QueryAnswers answers = ask(identifier(
        "STUDY",
        {{DCM_PatientName, "DOE*"}, {DCM_PatientID, ""}, {DCM_ModalitiesInStudy, ""}, {DCM_StudyTime, ""}}));
    QVERIFY(readNext(answers, archive_->statements));
    DcmDataset& answer = answers.answer();
    QCOMPARE(tags(answer), QStringList({u"(0008,0030)"_s, u"(0008,0052)"_s, u"(0008,0054)"_s,
                                        u"(0008,0061)"_s, u"(0010,0010)"_s, u"(0010,0020)"_s}));
    QCOMPARE(text(answer, DCM_QueryRetrieveLevel), u"STUDY"_s);
    QCOMPARE(text(answer, DCM_RetrieveAETitle), u"TESSALY"_s);
    QCOMPARE(text(answer, DCM_PatientName), u"Doe^Jane"_s);
    QCOMPARE(text(answer, DCM_PatientID), u"P1"_s);
    QCOMPARE(text(answer, DCM_ModalitiesInStudy), u"CT"_s);
    QCOMPARE(text(answer, DCM_StudyTime), u""_s);
    QVERIFY(!readNext(answers, archive_->statements));
    QVERIFY(!readNext(answers, archive_->statements));
    QVERIFY(!answers.wasStopped());
}

void QueryAnswersTest::numbersComeInTheirRepresentation() {
    QueryAnswers answers = ask(identifier("IMAGE", {{DCM_StudyInstanceUID, "1.2.1"},
                                                    {DCM_SeriesInstanceUID, "1.2.1.1"},
                                                    {DCM_NumberOfFrames, ""},
                                                    {DCM_InstanceNumber, "01"},
                                                    {DCM_Columns, ""},
                                                    {DCM_Rows, "512"}}));
    QVERIFY(readNext(answers, archive_->statements));
    Uint16 rows = 0;
    QVERIFY(answers.answer().findAndGetUint16(DCM_Rows, rows).good());
    QCOMPARE(rows, Uint16{512});
    QCOMPARE(text(answers.answer(), DCM_Columns), u"256"_s);
    QCOMPARE(text(answers.answer(), DCM_NumberOfFrames), u"3"_s);
}

void QueryAnswersTest::whatIsNoKeyDoesNoHarm() {
    DcmDataset question = identifier("STUDY", {{DCM_PatientID, "P1"}, {DCM_InstitutionName, "nowhere"}});
    question.putAndInsertString(DcmTag{0x0011, 0x0010, EVR_LO}, "SOMEBODY");
    question.putAndInsertString(DcmTag{0x0011, 0x1001, EVR_LO}, "else");
    question.putAndInsertUint32(DcmTag{0x0010, 0x0000, EVR_UL}, 12);
    DcmItem* item = nullptr;
    QVERIFY(question.findOrCreateSequenceItem(DCM_RequestAttributesSequence, item).good());
    item->putAndInsertString(DCM_PatientName, "nobody");
    QueryAnswers answers = ask(question);
    QVERIFY(readNext(answers, archive_->statements));
    DcmDataset& answer = answers.answer();
    QCOMPARE(text(answer, DCM_PatientID), u"P1"_s);
    QCOMPARE(text(answer, DCM_InstitutionName), u""_s);
    QCOMPARE(text(answer, DcmTagKey{0x0011, 0x0010}), u"SOMEBODY"_s);
    QCOMPARE(text(answer, DcmTagKey{0x0011, 0x1001}), u""_s);
    QVERIFY(!answer.tagExists(DcmTagKey{0x0010, 0x0000}));
    DcmSequenceOfItems* sequence = nullptr;
    QVERIFY(answer.findAndGetSequence(DCM_RequestAttributesSequence, sequence).good());
    QCOMPARE(sequence->card(), 0UL);
    QVERIFY(!readNext(answers, archive_->statements));
}

void QueryAnswersTest::statusTellsOfKeysThatAreNotSupported() {
    QCOMPARE(ask(identifier("STUDY", {{DCM_PatientID, ""}})).pendingStatus(), Uint16{0xff00});
    QCOMPARE(ask(identifier("STUDY", {{DCM_PatientID, ""}, {DCM_InstitutionName, ""}})).pendingStatus(),
             Uint16{0xff01});
}

void QueryAnswersTest::queriesAreInTheirCharacterSet_data() {
    QTest::addColumn<QByteArray>("set");
    QTest::addColumn<QByteArray>("asked");
    QTest::addColumn<QString>("patient");
    const auto row = [](const char* set, const char* asked, const char* patient) {
        QTest::addRow("%s %s", set, patient)
            << QByteArray{set} << QByteArray{asked} << QString::fromLatin1(patient);
    };
    row("", "Muller*", "P2");
    row("ISO_IR 100", "M\xfcLLER^J\xdcrgen", "P2");
    row("ISO_IR 100", "m\xdc*", "P2");
    row("ISO 2022 IR 100", "m\xdc*", "P2");
    row("ISO_IR 192", "M\xc3\xbcller*", "P2");
    row("ISO_IR 144", "\xb8\xd2\xd0\xdd\xde\xd2*", "P3");
    row("ISO_IR 144", "\xb8\xb2\xb0\xbd\xbe\xb2^\xbf\xd5\xe2\xe0", "P3");
    row("ISO_IR 126", "\xc4\xc7*", "P6");
    row("\\ISO 2022 IR 87", "=\x1b$B;3ED\x1b(B^\x1b$BB@O:\x1b(B", "P4");
    row("\\ISO 2022 IR 87", "\x1b$B;3ED\x1b(B*", "P4");
    row("\\ISO 2022 IR 87",
        "Yamada^Tarou=\x1b$B;3ED\x1b(B^\x1b$BB@O:\x1b(B=\x1b$B$d$^$@\x1b(B^\x1b$B$?$m$&\x1b(B", "P4");
    row("\\ISO 2022 IR 149", "=\x1b$)C\xfb\xf3^\x1b$)C\xd1\xce\xd4\xd7", "P5");
    row("\\ISO 2022 IR 149", "*=*=\x1b$)C\xc8\xab*", "P5");
    row("GB18030", "\xc9\xbd\xcc\xef*", "P4");
}

void QueryAnswersTest::queriesAreInTheirCharacterSet() {
    QFETCH(const QByteArray, set);
    QFETCH(const QByteArray, asked);
    QFETCH(const QString, patient);
    std::vector<AskedKey> keys{{DCM_PatientID, ""}, {DCM_PatientName, asked.toStdString()}};
    if (!set.isEmpty())
        keys.emplace_back(DCM_SpecificCharacterSet, set.toStdString());
    QueryAnswers answers = ask(identifier("STUDY", keys));
    QVERIFY(readNext(answers, archive_->statements));
    QCOMPARE(text(answers.answer(), DCM_PatientID), patient);
    QCOMPARE(text(answers.answer(), DCM_PatientName),
             archive_->database.value(u"SELECT Name FROM Patient WHERE PatientID=?"_s, {patient}));
    QCOMPARE(text(answers.answer(), DCM_SpecificCharacterSet), u"ISO_IR 192"_s);
    QVERIFY(!readNext(answers, archive_->statements));
}

void QueryAnswersTest::aByteThatIsNotInItsCharacterSetIsNoWildcard() {
    for (const char* set : {"", "ISO_IR 999", "ISO_IR 192"}) {
        QueryAnswers answers = ask(identifier("STUDY", {{DCM_SpecificCharacterSet, set},
                                                        {DCM_PatientName,
                                                         "D\xfc"
                                                         "e^Jane"}}));
        QVERIFY2(!readNext(answers, archive_->statements), set);
    }
}

void QueryAnswersTest::aByteThatIsNotInItsCharacterSetLeavesOtherKeysAlone() {
    QueryAnswers answers = ask(identifier("STUDY", {{DCM_SpecificCharacterSet, "ISO_IR 192"},
                                                    {DCM_PatientID, ""},
                                                    {DCM_PatientName, "M\xc3\xbcller*"},
                                                    {DCM_InstitutionName, "Sch\xe4"}}));
    QVERIFY(readNext(answers, archive_->statements));
    QCOMPARE(text(answers.answer(), DCM_PatientID), u"P2"_s);
    QVERIFY(!readNext(answers, archive_->statements));
}

void QueryAnswersTest::onlyAnswersBeyondAsciiNameTheirCharacterSet() {
    QueryAnswers answers = ask(identifier("STUDY", {{DCM_SpecificCharacterSet, "ISO_IR 100"},
                                                    {DCM_StudyInstanceUID, "1.2.1\\1.2.2\\1.2.3"},
                                                    {DCM_PatientName, ""}}));
    QStringList sets;
    while (readNext(answers, archive_->statements))
        sets += text(answers.answer(), DCM_SpecificCharacterSet);
    QCOMPARE(sets, QStringList({u""_s, u"ISO_IR 192"_s, u"ISO_IR 192"_s}));
    QueryAnswers again = ask(identifier("STUDY", {{DCM_PatientID, "P1"}, {DCM_PatientName, ""}}));
    QVERIFY(readNext(again, archive_->statements));
    QVERIFY(!again.answer().tagExists(DCM_SpecificCharacterSet));
}

void QueryAnswersTest::manyAnswersTakeNoMemory() {
    archive_->storeMany(Many);
    for (const char* name : {"", "MANY*", "*Nr*"}) {
        QueryAnswers answers = ask(identifier("STUDY", {{DCM_PatientName, name},
                                                        {DCM_PatientID, "M*"},
                                                        {DCM_StudyInstanceUID, ""},
                                                        {DCM_StudyDescription, ""},
                                                        {DCM_ModalitiesInStudy, "CT"},
                                                        {DCM_NumberOfStudyRelatedInstances, ""}}));
        const double before = residentMegabytes();
        double most = before;
        int count = 0;
        for (; readNext(answers, archive_->statements); ++count) {
            if (count % 10000 == 0)
                most = std::max(most, residentMegabytes());
        }
        QCOMPARE(count, Many);
        QVERIFY2(most - before < Slack, qPrintable(u"%1 MB more"_s.arg(most - before)));
    }
}

void QueryAnswersTest::storesGoOnMeanwhile() {
    QueryAnswers answers = ask(identifier("STUDY", {{DCM_PatientID, "P?"}}));
    QVERIFY(readNext(answers, archive_->statements));
    archive_->store({.patientId = "P9", .patientName = "Late"});
    int count = 1;
    while (readNext(answers, archive_->statements))
        ++count;
    QCOMPARE(count, 6);
    QVERIFY(readNext(ask(identifier("STUDY", {{DCM_PatientID, "P9"}})), archive_->statements));
}

void QueryAnswersTest::aSearchIsStopped() {
    int asked = 0;
    QueryAnswers answers = ask(identifier("STUDY", {{DCM_PatientName, "*nobody*"}}), {.stop = [&asked] {
                                   ++asked;
                                   return true;
                               }});
    QVERIFY(!readNext(answers, archive_->statements));
    QVERIFY(answers.wasStopped());
    QCOMPARE(asked, 1);
    QVERIFY(!readNext(answers, archive_->statements));
    QCOMPARE(asked, 1);
}

void QueryAnswersTest::aSearchEndsAtItsTimeout() {
    using namespace std::chrono_literals;
    makeStudiesSlow(archive_->database);
    const auto undo = qScopeGuard([this] { makeStudiesFast(archive_->database); });
    QueryAnswers answers = ask(
        identifier("STUDY", {{DCM_PatientID, "M*"}, {DCM_StudyDescription, "*nothing"}}), {.timeout = 1s});
    try {
        (void)readNext(answers, archive_->statements);
        QFAIL("no time-out");
    } catch (const RequestFailure& failure) {
        QCOMPARE(failure.status(), Uint16{0xa700});
        QVERIFY(*failure.what() != '\0');
    }
}

void QueryAnswersTest::whatItsUserTakesIsNotTheSearchsTime() {
    using namespace std::chrono_literals;
    {
        // A statement that takes a while, so that its user is asked meanwhile.
        makeStudiesSlow(archive_->database);
        const auto undo = qScopeGuard([this] { makeStudiesFast(archive_->database); });
        const auto search = [this](const SearchLimits& limits) {
            return ask(identifier("STUDY", {{DCM_PatientID, "M1001*"}, {DCM_StudyDescription, "*nothing"}}),
                       limits);
        };
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!readNext(search({}), archive_->statements));
        // Ten times what it needs on this machine at this load, in whole seconds.
        const std::chrono::seconds timeout{3 + clock.elapsed() / 100};
        bool delayed = false;
        QueryAnswers answers = search({.timeout = timeout, .stop = [&delayed, timeout] {
                                           if (!std::exchange(delayed, true))
                                               std::this_thread::sleep_for(timeout + 1s);
                                           return false;
                                       }});
        QVERIFY(!readNext(answers, archive_->statements));
        QVERIFY(delayed);
        QVERIFY(!answers.wasStopped());
    }
    QueryAnswers slow = ask(identifier("STUDY", {{DCM_PatientID, "P?"}}), {.timeout = 5s});
    QVERIFY(readNext(slow, archive_->statements));
    std::this_thread::sleep_for(5100ms);
    int count = 1;
    while (readNext(slow, archive_->statements))
        ++count;
    QCOMPARE(count, 7);
}

void QueryAnswersTest::aTableThatSomebodyHasLockedEndsAQueryAtItsTimeout() {
    using namespace std::chrono_literals;
    tessaly::db::Connection other;
    openDatabase(other);
    tessaly::db::Transaction transaction{other};
    // Readers of a write-ahead log do not wait for writers.
    const bool blocks = ScratchDatabase::isPostgresql();
    tessaly::db::execute(
        other, blocks ? "LOCK TABLE Study IN ACCESS EXCLUSIVE MODE" : "UPDATE Study SET StudyTime=StudyTime");
    QueryAnswers answers = ask(identifier("STUDY", {{DCM_PatientID, "P1"}}),
                               {.timeout = blocks ? 1s : std::chrono::seconds{PatienceSeconds}});
    try {
        QVERIFY(readNext(answers, archive_->statements));
        QVERIFY(!blocks);
    } catch (const RequestFailure& failure) {
        QVERIFY(blocks);
        QCOMPARE(failure.status(), Uint16{0xa700});
    }
}

void QueryAnswersTest::aSearchIsStoppedWhileItsStatementWaits() {
    tessaly::db::Connection other;
    openDatabase(other);
    std::optional<tessaly::db::Transaction> transaction{std::in_place, other};
    const bool blocks = ScratchDatabase::isPostgresql();
    tessaly::db::execute(
        other, blocks ? "LOCK TABLE Study IN ACCESS EXCLUSIVE MODE" : "UPDATE Study SET StudyTime=StudyTime");
    // A search that does not wait may still be asked about, on a machine that is busy with something else.
    QueryAnswers answers =
        ask(identifier("STUDY", {{DCM_PatientID, "P1"}}), {.stop = [blocks] { return blocks; }});
    QCOMPARE(readNext(answers, archive_->statements), !blocks);
    QCOMPARE(answers.wasStopped(), blocks);
    transaction.reset();
    QueryAnswers again = ask(identifier("STUDY", {{DCM_PatientID, "P1"}}));
    QVERIFY(readNext(again, archive_->statements));
}

void QueryAnswersTest::theTablesAreFreeBetweenAnswers() {
    QueryAnswers answers = ask(identifier("STUDY", {{DCM_PatientName, ""}}));
    QVERIFY(readNext(answers, archive_->statements));
    archive_->store({.patientId = "P8", .patientName = "Another"});
    // No reader needs anything of the log, which one engine alone has.
    if (!ScratchDatabase::isPostgresql())
        QCOMPARE(archive_->database.rows(u"PRAGMA wal_checkpoint(TRUNCATE)"_s).first().first(), u"0"_s);
    QVERIFY(readNext(answers, archive_->statements));
}

void QueryAnswersTest::aStatementThatFailedIsNotUsedAgain() {
    DcmDataset question = identifier("STUDY", {{DCM_PatientID, "P1"}, {DCM_StudyTime, ""}});
    QVERIFY(readNext(ask(question), archive_->statements));
    archive_->database.run(u"ALTER TABLE Study RENAME COLUMN StudyTime TO Other"_s);
    QVERIFY_EXCEPTION_THROWN((void)readNext(ask(question), archive_->statements), tessaly::db::Error);
    archive_->database.run(u"ALTER TABLE Study RENAME COLUMN Other TO StudyTime"_s);
    QVERIFY(readNext(ask(question), archive_->statements));
}

QTEST_APPLESS_MAIN(QueryAnswersTest)
#include "tst_queryanswers.moc"
