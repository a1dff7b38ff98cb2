#include <dcmtk/dcmdata/dcdeftag.h>

#include <QRegularExpression>
#include <QTest>

#include "db/dialects/Dialect.h"
#include "tessalyd/configuration/Configuration.h"
#include "tessalyd/search/SearchStatement.h"
#include "tests/tessalyd/StockedArchive.h"
#include "tests/tessalyd/TagNumber.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

namespace {

/// What an engine's plan says, in words of no engine.
struct Plan {
    QStringList searches;  ///< "index (column= column< ...)", in lower case, for each index that is searched
    QStringList faults;    ///< the steps that look at more than they need to
};

/// A table's own key has a name of each engine's making.
QString indexName(QString name) {
    static const QRegularExpression ofKey{u"^(?:sqlite_autoindex_(\\w+)_1|(\\w+)_pkey)$"_s};
    name = name.toLower();
    const auto match = ofKey.match(name);
    return match.hasMatch() ? u"key of "_s + match.captured(1) + match.captured(2) : name;
}

/// Each condition once: a bound that is part of the search and one that is not are the same to an engine.
QString search(const QString& index, QStringList conditions) {
    conditions.removeDuplicates();
    conditions.sort();
    return u"%1 (%2)"_s.arg(indexName(index), conditions.join(u' ')).toLower();
}

Plan readSqlitePlan(db::ResultSet& rows) {
    static const QRegularExpression step{u"^SEARCH \\w+ USING (?:COVERING )?INDEX (\\w+) \\((.*)\\)"_s};
    static const QRegularExpression condition{u"(\\w+)([=<>])\\?"_s};
    Plan plan;
    long long page = 0;  // the step that the page's own steps lie below: 0 where the page is all
    while (rows.next()) {
        const QString text = QString::fromStdString(rows.text("detail"));
        if (text == "CO-ROUTINE Page"_L1) {
            page = rows.integer("id");
            continue;
        }
        // What is joined to a page is as much as the page is.
        if (page != 0 && rows.integer("parent") != page &&
            (text == "SCAN Page"_L1 || text == "USE TEMP B-TREE FOR ORDER BY"_L1))
            continue;
        if (const auto match = step.match(text); match.hasMatch()) {
            QStringList conditions;
            for (auto it = condition.globalMatch(match.captured(2)); it.hasNext();) {
                const auto one = it.next();
                conditions += one.captured(1) + one.captured(2);
            }
            plan.searches += search(match.captured(1), conditions);
            continue;
        }
        const bool sorted = text.startsWith("USE TEMP B-TREE FOR "_L1);
        const bool good = sorted ? !text.endsWith("FOR ORDER BY"_L1)
                                 : text.startsWith("SEARCH"_L1) || text.startsWith("CORRELATED"_L1);
        if (!good)
            plan.faults += text;
    }
    return plan;
}

Plan readPostgresqlPlan(db::ResultSet& rows) {
    static const QRegularExpression scan{u"Index(?: Only)? Scan (?:using (\\w+) on|on (\\w+)  \\()"_s};
    // Not those between rows, which say where a page begins.
    static const QRegularExpression condition{u"\\((\\w+)\\)?(?:::text\\)?)? ([<>]?=?) (?!ROW)"_s};
    // What is found by a value may be sorted; of a range only so much is to be read as a page takes.
    static const QRegularExpression sort{u"(?<!Incremental )Sort  \\(.* rows=(\\d+) "_s};
    constexpr int MostSorted = 1000;
    Plan plan;
    QString index;
    while (rows.next()) {
        const QString text = QString::fromStdString(rows.text("QUERY PLAN"));
        if (const auto match = scan.match(text); match.hasMatch())
            index = match.captured(1) + match.captured(2);
        if (text.contains("Seq Scan"_L1))
            plan.faults += text;
        if (const auto match = sort.match(text); match.hasMatch() && match.captured(1).toInt() > MostSorted)
            plan.faults += text;
        if (!index.isEmpty() && text.contains("Index Cond:"_L1)) {
            QStringList conditions;
            for (auto it = condition.globalMatch(text); it.hasNext();) {
                const auto one = it.next();
                conditions +=
                    one.captured(1) + (one.captured(2) == "="_L1 ? u"="_s : one.captured(2).left(1));
            }
            plan.searches += search(index, conditions);
            index.clear();
        }
    }
    return plan;
}

struct Explanation {
    const char* engine;
    const char* prefix;
    const char* byItself;  ///< what the engine does some time after many rows have come
    Plan (*read)(db::ResultSet& rows);
};
constexpr std::array Explanations{Explanation{"SQLite", "EXPLAIN QUERY PLAN ", "", readSqlitePlan},
                                  Explanation{"PostgreSQL", "EXPLAIN ", "ANALYZE", readPostgresqlPlan}};

}  // namespace

/// The engine's own plan of every statement that a query comes to.
class SearchPlanTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase();
    void statementsUseIndexes_data();
    void statementsUseIndexes();
    void theKeyThatLeavesLeastIsSearchedBy_data();
    void theKeyThatLeavesLeastIsSearchedBy();
    void queriesOfOneKindShareTheirStatements();

  private:
    [[nodiscard]] const Explanation& explanation() const;
    [[nodiscard]] Plan plan(const SearchPass& pass, bool firstPage);
    [[nodiscard]] static ArchiveQuery query(const char* level, const std::vector<AskedKey>& keys);

    std::unique_ptr<StockedArchive> archive_;
};

void SearchPlanTest::initTestCase() {
    archive_ = std::make_unique<StockedArchive>();
    // With fewer rows an engine is right to look at all of them.
    archive_->storeMany(50'000);
    if (const QString known = QString::fromLatin1(explanation().byItself); !known.isEmpty())
        archive_->database.run(known);
    // A session explains by what it knows of the tables, which is from before they were filled.
    archive_->connection.close();
    openDatabase(archive_->connection);
}

const Explanation& SearchPlanTest::explanation() const {
    const auto* const found = std::find_if(
        Explanations.begin(), Explanations.end(),
        [this](const Explanation& e) { return e.engine == archive_->connection.dialect().engineName(); });
    if (found == Explanations.end())
        throw std::runtime_error("an engine whose plans nobody can read");
    return *found;
}

Plan SearchPlanTest::plan(const SearchPass& pass, bool firstPage) {
    const SearchPass::Statement& page = firstPage ? pass.firstPage : pass.otherPages;
    db::Query query{archive_->connection, explanation().prefix + page.text};
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
    db::ResultSet rows = query.bindAll(values).open();
    return explanation().read(rows);
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
    QTest::addColumn<QString>("search");
    const auto row = [](const char* level, const DcmTagKey& tag, const char* asked, const char* searched) {
        QTest::addRow("%s %s '%.20s'", level, findQueryKey(tag)->name.data(), asked)
            << QByteArray{level} << tagNumber(tag) << QByteArray{asked} << QString::fromLatin1(searched);
    };
    row("PATIENT", DCM_PatientName, "", "patientbyname (namealphabetic>)");
    for (const char* level : {"PATIENT", "STUDY", "SERIES", "IMAGE"}) {
        row(level, DCM_PatientID, "1", "patientbypatientid (patientid=)");
        row(level, DCM_PatientID, "1*", "patientbypatientid (patientid< patientid>)");
        row(level, DCM_PatientName, "Name1", "patientbyname (namealphabetic=)");
        row(level, DCM_PatientName, "Name*", "patientbyname (namealphabetic< namealphabetic>)");
        row(level, DCM_PatientBirthDate, "19700101-19701231", "patientbybirthdate (birthdate< birthdate>)");
        if (*level == 'P')
            continue;
        row(level, DCM_StudyInstanceUID, "1.2.1", "key of study (studyinstanceuid=)");
        row(level, DCM_StudyInstanceUID, "1.2.1\\1.2.2", "key of study (studyinstanceuid=)");
        row(level, DCM_StudyDate, "20240101", "studybydate (studydate=)");
        row(level, DCM_StudyDate, "20240101-20240201", "studybydate (studydate< studydate>)");
        row(level, DCM_StudyDate, "-20240201", "studybydate (studydate<)");
        row(level, DCM_StudyDate, "20240201-", "studybydate (studydate>)");
        row(level, DCM_AccessionNumber, "1", "studybyaccessionnumber (accessionnumber=)");
        row(level, DCM_AccessionNumber, "1*", "studybyaccessionnumber (accessionnumber< accessionnumber>)");
        row(level, DCM_StudyID, "1", "studybystudyid (studyid=)");
        row(level, DCM_StudyDescription, "CT*", "studybydescription (description< description>)");
    }
    row("STUDY", DCM_StudyInstanceUID, "", "studybydate (studydate>)");
    row("STUDY", DCM_PatientName, "*x", "studybydate (studydate>)");
    row("STUDY", DCM_ModalitiesInStudy, "CT", "studybydate (studydate>)");
    for (const char* level : {"SERIES", "IMAGE"})
        row(level, DCM_SeriesInstanceUID, "1.2.1.1\\1.2.2.1", "key of series (seriesinstanceuid=)");
    row("IMAGE", DCM_SOPInstanceUID, "1.2.1.1.1", "key of image (sopinstanceuid=)");
}

void SearchPlanTest::statementsUseIndexes() {
    QFETCH(const QByteArray, level);
    QFETCH(const quint32, tag);
    QFETCH(const QByteArray, asked);
    QFETCH(const QString, search);
    std::vector<AskedKey> keys{{tagOf(tag), asked.toStdString()}};
    // Alone, and with all that answers can have.
    for (const bool full : {false, true}) {
        if (full) {
            for (const QueryKey& key : queryKeys()) {
                if (key.tag != keys.front().first)
                    keys.emplace_back(key.tag, "");
            }
        }
        bool seen = false;
        QStringList searches;
        ArchiveQuery question = query(level, keys);
        question.hasOlderRows = true;  // names that are not folded yet are searched for, too
        for (const SearchPass& pass : planSearch(question).passes) {
            for (const bool firstPage : {true, false}) {
                Plan found = plan(pass, firstPage);
                if (keys.front().first == DCM_SOPInstanceUID)  // a hundred at most are sorted by number
                    found.faults.removeAll(u"USE TEMP B-TREE FOR ORDER BY"_s);
                const std::string& text = firstPage ? pass.firstPage.text : pass.otherPages.text;
                const QByteArray all = (QString::fromStdString(text) + u'\n' + found.searches.join(u'\n') +
                                        u'\n' + found.faults.join(u'\n'))
                                           .toUtf8();
                QVERIFY2(!found.searches.isEmpty() && found.faults.isEmpty(), all);
                seen = seen || (firstPage && found.searches.contains(search));
                searches += found.searches;
            }
        }
        QVERIFY2(seen, qPrintable(search + u", not among\n"_s + searches.join(u'\n')));
    }
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
