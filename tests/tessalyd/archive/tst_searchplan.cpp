#include <dcmtk/dcmdata/dcdeftag.h>

#include <QTest>

#include "tessalyd/archive/SearchStatement.h"
#include "tests/tessalyd/StockedArchive.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

namespace {

/// The steps by which a page of entities is found, each marked that looks at more than it needs to.
using PlanReader = QStringList (*)(db::ResultSet& rows);

QStringList readSqlitePlan(db::ResultSet& rows) {
    QStringList steps;
    long long page = 0;  // the step that the page's own steps lie below: 0 where the page is all
    while (rows.next()) {
        const QString step = QString::fromStdString(rows.text("detail"));
        if (step == "CO-ROUTINE Page"_L1) {
            page = rows.integer("id");
            continue;
        }
        // What is joined to a page is as much as the page is.
        if (page != 0 && rows.integer("parent") != page &&
            (step == "SCAN Page"_L1 || step == "USE TEMP B-TREE FOR ORDER BY"_L1))
            continue;
        const bool sorted = step.startsWith("USE TEMP B-TREE FOR "_L1);
        const bool good = sorted ? !step.endsWith("FOR ORDER BY"_L1)
                                 : step.startsWith("SEARCH"_L1) || step.startsWith("CORRELATED"_L1);
        steps += (good ? u""_s : u"BAD: "_s) + step;
    }
    return steps;
}

struct Explanation {
    const char* engine;
    const char* prefix;
    PlanReader read;
};
constexpr std::array Explanations{Explanation{"SQLite", "EXPLAIN QUERY PLAN ", readSqlitePlan}};

}  // namespace

/// The engine's own plan of every statement that a query comes to.
class SearchPlanTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase();
    void statementsUseIndexes_data();
    void statementsUseIndexes();
    void statementsUseIndexesOnceTheEngineKnowsTheData_data() { statementsUseIndexes_data(); }
    void statementsUseIndexesOnceTheEngineKnowsTheData();
    void theKeyThatLeavesLeastIsSearchedBy_data();
    void theKeyThatLeavesLeastIsSearchedBy();
    void queriesOfOneKindShareTheirStatements();

  private:
    [[nodiscard]] QStringList plan(const SearchPass& pass, bool firstPage);
    void check();
    [[nodiscard]] static ArchiveQuery query(const char* level, const std::vector<AskedKey>& keys);

    std::unique_ptr<StockedArchive> archive_;
};

void SearchPlanTest::initTestCase() {
    archive_ = std::make_unique<StockedArchive>();
    for (int i = 0; i < 300; ++i) {
        const std::string number = std::to_string(i);
        archive_->store({.patientId = number,
                         .patientName = "Name" + number,
                         .birthDate = "19700101",
                         .studyId = number,
                         .studyDate = "20240101",
                         .accessionNumber = number,
                         .studyDescription = "CT",
                         .modality = "CT"});
    }
}

QStringList SearchPlanTest::plan(const SearchPass& pass, bool firstPage) {
    const SearchPass::Statement& page = firstPage ? pass.firstPage : pass.otherPages;
    const auto* const explanation =
        std::find_if(Explanations.begin(), Explanations.end(),
                     [this](const Explanation& e) { return e.engine == archive_->connection.engineName(); });
    if (explanation == Explanations.end())
        return {u"an engine whose plans nobody can read"_s};
    db::Query query{archive_->connection, explanation->prefix + page.text};
    std::vector<db::Param> values;
    for (const std::string& value : page.values)
        values.push_back(db::varchar(value));
    const auto addKeys = [&](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            values.push_back(pass.keyIsNumber[i] ? db::integer(1) : db::varchar("1"));
    };
    if (!firstPage) {
        addKeys(pass.startKeys < pass.keyIsNumber.size() ? pass.startKeys : 0);
        addKeys(pass.keyIsNumber.size());
    }
    values.push_back(db::integer(100));
    query.bindAll(std::move(values));
    db::ResultSet rows = query.open();
    return explanation->read(rows);
}

ArchiveQuery SearchPlanTest::query(const char* level, const std::vector<AskedKey>& keys) {
    DcmDataset question = identifier(level, keys);
    const auto model =
        std::string_view{level} == "PATIENT" ? InformationModel::PatientRoot : InformationModel::StudyRoot;
    return readQuery(question, model, {.relational = true}).query;
}

void SearchPlanTest::statementsUseIndexes_data() {
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<quint32>("tag");
    QTest::addColumn<QByteArray>("asked");
    QTest::addColumn<QString>("first");
    const auto row = [](const char* level, const DcmTagKey& tag, const char* asked, const char* first) {
        QTest::addRow("%s %s '%.20s'", level, findQueryKey(tag)->name.data(), asked)
            << QByteArray{level} << (static_cast<quint32>(tag.getGroup()) << 16U | tag.getElement())
            << QByteArray{asked} << QString::fromLatin1(first);
    };
    row("PATIENT", DCM_PatientName, "", "SEARCH Patient USING INDEX PatientByName (NameAlphabetic>?");
    for (const char* level : {"PATIENT", "STUDY", "SERIES", "IMAGE"}) {
        row(level, DCM_PatientID, "1", "SEARCH Patient USING INDEX PatientByPatientID (PatientID=?");
        row(level, DCM_PatientID, "1*",
            "SEARCH Patient USING INDEX PatientByPatientID (PatientID>? AND PatientID<?");
        row(level, DCM_PatientName, "Name1", "SEARCH Patient USING INDEX PatientByName (NameAlphabetic=?");
        row(level, DCM_PatientName, "Name*",
            "SEARCH Patient USING INDEX PatientByName (NameAlphabetic>? AND NameAlphabetic<?");
        row(level, DCM_PatientBirthDate, "19700101-19701231",
            "SEARCH Patient USING INDEX PatientByBirthDate (BirthDate>?");
        if (*level == 'P')
            continue;
        row(level, DCM_StudyInstanceUID, "1.2.1",
            "SEARCH Study USING INDEX sqlite_autoindex_Study_1 (StudyInstanceUID=?");
        row(level, DCM_StudyInstanceUID, "1.2.1\\1.2.2",
            "SEARCH Study USING INDEX sqlite_autoindex_Study_1 (StudyInstanceUID=?");
        row(level, DCM_StudyDate, "20240101", "SEARCH Study USING INDEX StudyByDate (StudyDate=?");
        row(level, DCM_StudyDate, "20240101-20240201",
            "SEARCH Study USING INDEX StudyByDate (StudyDate>? AND StudyDate<?");
        row(level, DCM_StudyDate, "-20240201", "SEARCH Study USING INDEX StudyByDate (StudyDate<?");
        row(level, DCM_StudyDate, "20240201-", "SEARCH Study USING INDEX StudyByDate (StudyDate>?");
        row(level, DCM_AccessionNumber, "1",
            "SEARCH Study USING INDEX StudyByAccessionNumber (AccessionNumber=?");
        row(level, DCM_AccessionNumber, "1*",
            "SEARCH Study USING INDEX StudyByAccessionNumber (AccessionNumber>?");
        row(level, DCM_StudyID, "1", "SEARCH Study USING INDEX StudyByStudyID (StudyID=?");
        row(level, DCM_StudyDescription, "CT*", "SEARCH Study USING INDEX StudyByDescription (Description>?");
    }
    row("STUDY", DCM_StudyInstanceUID, "", "SEARCH Study USING INDEX StudyByDate (StudyDate>?");
    row("STUDY", DCM_PatientName, "*x", "SEARCH Study USING INDEX StudyByDate (StudyDate>?");
    row("STUDY", DCM_ModalitiesInStudy, "CT", "SEARCH Study USING INDEX StudyByDate (StudyDate>?");
    for (const char* level : {"SERIES", "IMAGE"})
        row(level, DCM_SeriesInstanceUID, "1.2.1.1\\1.2.2.1",
            "SEARCH Series USING INDEX sqlite_autoindex_Series_1 (SeriesInstanceUID=?");
    row("IMAGE", DCM_SOPInstanceUID, "1.2.1.1.1",
        "SEARCH Image USING INDEX sqlite_autoindex_Image_1 (SOPInstanceUID=?");
}

void SearchPlanTest::check() {
    QFETCH(const QByteArray, level);
    QFETCH(const quint32, tag);
    QFETCH(const QByteArray, asked);
    QFETCH(const QString, first);
    std::vector<AskedKey> keys{
        {{static_cast<Uint16>(tag >> 16U), static_cast<Uint16>(tag & 0xffffU)}, asked.toStdString()}};
    // Alone, and with all that answers can have.
    for (const bool full : {false, true}) {
        if (full) {
            for (const QueryKey& key : queryKeys()) {
                if (key.tag != keys.front().first)
                    keys.emplace_back(key.tag, "");
            }
        }
        bool seen = false;
        for (const SearchPass& pass : planSearch(query(level, keys)).passes) {
            for (const bool firstPage : {true, false}) {
                QStringList steps = plan(pass, firstPage);
                if (keys.front().first == DCM_SOPInstanceUID)  // a hundred at most are sorted by number
                    steps.removeAll(u"BAD: USE TEMP B-TREE FOR ORDER BY"_s);
                const std::string& text = firstPage ? pass.firstPage.text : pass.otherPages.text;
                const QByteArray all = (QString::fromStdString(text) + u'\n' + steps.join(u'\n')).toUtf8();
                QVERIFY2(!steps.isEmpty() && steps.filter(u"BAD"_s).isEmpty(), all);
                const QString began = QString{steps.first()}.replace("COVERING INDEX"_L1, "INDEX"_L1);
                seen = seen || began.startsWith(first);
            }
        }
        QVERIFY2(seen, qPrintable(first));
    }
}

void SearchPlanTest::statementsUseIndexes() {
    archive_->database.run(u"DROP TABLE IF EXISTS sqlite_stat1"_s);
    check();
}

void SearchPlanTest::statementsUseIndexesOnceTheEngineKnowsTheData() {
    archive_->database.run(u"ANALYZE"_s);
    check();
}

void SearchPlanTest::theKeyThatLeavesLeastIsSearchedBy_data() {
    QTest::addColumn<QByteArray>("one");
    QTest::addColumn<QByteArray>("other");
    QTest::addColumn<QString>("condition");
    const auto row = [](const char* name, const char* date, const char* condition) {
        QTest::addRow("%s %s", name, date)
            << QByteArray{name} << QByteArray{date} << QString::fromLatin1(condition);
    };
    row("Doe^John", "20240101", "Patient.NameAlphabetic=?");
    row("Doe*", "20240101", "Study.StudyDate=?");
    row("Doe*", "20240101-20240102", "Patient.NameAlphabetic>=?");
    row("D*", "20240101-20240102", "Study.StudyDate>=?");
    row("D*", "20240101-", "Patient.NameAlphabetic>=?");
    row("*e", "20240101-", "Study.StudyDate>=?");
}

void SearchPlanTest::theKeyThatLeavesLeastIsSearchedBy() {
    QFETCH(const QByteArray, one);
    QFETCH(const QByteArray, other);
    QFETCH(const QString, condition);
    const SearchPlan plan = planSearch(
        query("STUDY", {{DCM_PatientName, one.toStdString()}, {DCM_StudyDate, other.toStdString()}}));
    QVERIFY2(plan.passes.front().firstPage.text.find(condition.toStdString()) != std::string::npos,
             plan.passes.front().firstPage.text.c_str());
}

void SearchPlanTest::queriesOfOneKindShareTheirStatements() {
    const auto text = [](const std::vector<AskedKey>& keys) {
        return planSearch(query("STUDY", keys)).passes.front().firstPage.text;
    };
    QCOMPARE(text({{DCM_PatientName, "A*"}}), text({{DCM_PatientName, "Bcdefg*"}}));
    QCOMPARE(text({{DCM_StudyInstanceUID, "1.2\\1.3"}}),
             text({{DCM_StudyInstanceUID, "1.2\\1.3\\1.4\\1.5"}}));
    const std::string text1 = text({{DCM_StudyDescription, "%' OR 1=1 --*"}});
    QVERIFY(text1.find("OR") == text1.find("ORDER"));
}

QTEST_APPLESS_MAIN(SearchPlanTest)
#include "tst_searchplan.moc"
