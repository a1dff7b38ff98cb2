#include <dcmtk/dcmdata/dcdeftag.h>

#include <QTest>
#include <chrono>
#include <thread>
#include <utility>

#include "tessalyd/search/InstanceList.h"
#include "tests/tessalyd/StockedArchive.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// What a retrieval comes to.
class InstanceListTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase();
    void everyLevelIsListed_data();
    void everyLevelIsListed();
    void anInstanceHasAllThatSendingNeeds();
    void manyInstancesComeBackAsTheyAre();
    void aListThatIsMadeHoldsNothingOfTheTables();
    void theTimeoutIsToldAsOneHoweverLongAskingTook();

  private:
    [[nodiscard]] InstanceList list(const char* level, const std::vector<AskedKey>& keys) {
        DcmDataset question = identifier(level, keys);
        return InstanceList{archive_->statements, readRetrieval(question, InformationModel::PatientRoot)};
    }
    [[nodiscard]] static QStringList instances(InstanceList list) {
        QStringList found;
        while (const auto instance = list.next())
            found += QString::fromStdString(instance->sopInstanceUid);
        return found;
    }

    std::unique_ptr<StockedArchive> archive_;
};

void InstanceListTest::initTestCase() {
    archive_ = std::make_unique<StockedArchive>();
    const auto store = [this](const char* patient, const char* study, const char* series, int number,
                              const char* syntax) {
        archive_->store({.patientId = patient,
                         .studyInstanceUid = study,
                         .seriesInstanceUid = series,
                         .sopInstanceUid = std::string{series} + '.' + std::to_string(20 - number),
                         .sopClassUid = "1.2.840.10008.5.1.4.1.1.2",
                         .instanceNumber = std::to_string(number),
                         .numberInSeries = number,
                         .transferSyntaxUid = syntax});
    };
    store("P1", "1.1", "1.1.1", 10, "1.2.840.10008.1.2.1");
    store("P1", "1.1", "1.1.1", 9, "1.2.840.10008.1.2.1");
    store("P1", "1.1", "1.1.2", 1, "1.2.840.10008.1.2.4.70");
    store("P1", "1.2", "1.2.1", 1, "1.2.840.10008.1.2.1");
    store("P2", "2.1", "2.1.1", 1, "1.2.840.10008.1.2.1");
    store("P\\2", "3.1", "3.1.1", 1, "1.2.840.10008.1.2.1");
}

void InstanceListTest::everyLevelIsListed_data() {
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<QList<QByteArray>>("uids");
    QTest::addColumn<QString>("found");
    const auto row = [](const char* level, const QList<QByteArray>& uids, const char* found) {
        QTest::addRow("%s %s", level, uids.join(' ').constData())
            << QByteArray{level} << uids << QString::fromLatin1(found);
    };
    row("PATIENT", {"P1"}, "1.1.1.11 1.1.1.10 1.1.2.19 1.2.1.19");
    row("PATIENT", {"P2"}, "2.1.1.19");
    row("PATIENT", {"P3"}, "");
    row("PATIENT", {"P\\2"}, "3.1.1.19");
    row("STUDY", {"P1", "1.1"}, "1.1.1.11 1.1.1.10 1.1.2.19");
    row("STUDY", {"P1", "1.2\\1.1"}, "1.1.1.11 1.1.1.10 1.1.2.19 1.2.1.19");
    row("STUDY", {"P2", "1.1"}, "");  // another's
    row("STUDY", {"P1", "1.1\\2.1"}, "1.1.1.11 1.1.1.10 1.1.2.19");
    row("SERIES", {"P1", "1.1", "1.1.2"}, "1.1.2.19");
    row("SERIES", {"P1", "1.1", "1.1.2\\1.1.1\\9.9"}, "1.1.1.11 1.1.1.10 1.1.2.19");
    row("SERIES", {"P1", "1.2", "1.1.2"}, "");
    row("IMAGE", {"P1", "1.1", "1.1.1", "1.1.1.10"}, "1.1.1.10");
    row("IMAGE", {"P1", "1.1", "1.1.1", "1.1.1.10\\1.1.1.11\\1.1.2.19"}, "1.1.1.11 1.1.1.10");
    row("IMAGE", {"P1", "1.1", "1.1.2", "1.1.1.10"}, "");
}

void InstanceListTest::everyLevelIsListed() {
    QFETCH(const QByteArray, level);
    QFETCH(const QList<QByteArray>, uids);
    QFETCH(const QString, found);
    const std::array Tags{DCM_PatientID, DCM_StudyInstanceUID, DCM_SeriesInstanceUID, DCM_SOPInstanceUID};
    std::vector<AskedKey> keys;
    for (qsizetype i = 0; i < uids.size(); ++i)
        keys.emplace_back(Tags.at(static_cast<std::size_t>(i)), uids.at(i).toStdString());
    // Keys that are no unique keys choose nothing here.
    keys.emplace_back(DCM_PatientName, "nobody");
    InstanceList instances = list(level, keys);
    QCOMPARE(instances.size(), static_cast<std::size_t>(found.split(u' ', Qt::SkipEmptyParts).size()));
    QCOMPARE(this->instances(std::move(instances)), found.split(u' ', Qt::SkipEmptyParts));
}

void InstanceListTest::anInstanceHasAllThatSendingNeeds() {
    InstanceList instances = list("PATIENT", {{DCM_PatientID, "P1"}});
    const InstanceList::Kinds kinds{{"1.2.840.10008.5.1.4.1.1.2", "1.2.840.10008.1.2.1"},
                                    {"1.2.840.10008.5.1.4.1.1.2", "1.2.840.10008.1.2.4.70"}};
    QVERIFY(instances.kinds() == kinds);
    QVERIFY(!instances.wasStopped());
    const auto first = instances.next();
    QVERIFY(first.has_value());
    QCOMPARE(first->sopClassUid, std::string{"1.2.840.10008.5.1.4.1.1.2"});
    QCOMPARE(first->transferSyntaxUid, std::string{"1.2.840.10008.1.2.1"});
    QCOMPARE(first->file, std::string{"/archive/1.1/1.1.1/1.1.1.11.dcm"});
}

void InstanceListTest::manyInstancesComeBackAsTheyAre() {
    constexpr int Many = 60000;  // more than is kept in memory
    archive_->database.run(
        u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<%1) INSERT INTO Image "
        "(SOPInstanceUID, SeriesInstanceUID, ImageFile, SOPClassUID, TransferSyntaxUID, NumberInSeries) "
        "SELECT '9.'||i, '2.1.1', i||'.dcm', '1.2', '1.3', i FROM n"_s.arg(Many));
    InstanceList instances = list("PATIENT", {{DCM_PatientID, "P2"}});
    QCOMPARE(instances.size(), std::size_t{Many + 1});
    int expected = 1;
    int wrong = 0;
    while (const auto instance = instances.next()) {
        if (instance->sopClassUid != "1.2")
            continue;  // the one that was there before
        const std::string number = std::to_string(expected++);
        wrong += instance->sopInstanceUid == "9." + number && instance->transferSyntaxUid == "1.3" &&
                         instance->file == "/archive/2.1/2.1.1/" + number + ".dcm"
                     ? 0
                     : 1;
    }
    QCOMPARE(wrong, 0);
    QCOMPARE(expected, Many + 1);
    // Once more for each further association of a move, from wherever it stands.
    for (const int taken : {Many + 1, 1, Many / 2}) {
        instances.restart();
        const auto first = instances.next();
        QVERIFY(first.has_value());
        instances.restart();
        int again = 0;
        for (; again < taken; ++again) {
            const auto instance = instances.next();
            QVERIFY2(instance && (again > 0 || instance->sopInstanceUid == first->sopInstanceUid),
                     qPrintable(QString::number(again)));
        }
    }
    archive_->database.run(u"DELETE FROM Image WHERE SOPClassUID='1.2'"_s);
}

void InstanceListTest::aListThatIsMadeHoldsNothingOfTheTables() {
    InstanceList instances = list("PATIENT", {{DCM_PatientID, "P1"}});
    archive_->database.run(u"DELETE FROM Image WHERE SOPInstanceUID='1.1.1.10'"_s);
    // Nothing of the log, which one engine alone has, is needed any more by a reader.
    if (!ScratchDatabase::isPostgresql())
        QCOMPARE(archive_->database.rows(u"PRAGMA wal_checkpoint(TRUNCATE)"_s).first().first(), u"0"_s);
    QCOMPARE(this->instances(std::move(instances)).size(), 4);
}

void InstanceListTest::theTimeoutIsToldAsOneHoweverLongAskingTook() {
    makeStudiesEndless(archive_->database);
    DcmDataset question = identifier("PATIENT", {{DCM_PatientID, "P1"}});
    bool isFirst = true;
    const SearchLimits limits{.timeout = std::chrono::seconds{1}, .stop = [&isFirst] {
                                  if (std::exchange(isFirst, false))
                                      std::this_thread::sleep_for(std::chrono::milliseconds{400});
                                  return false;
                              }};
    QVERIFY_THROWS_EXCEPTION(
        SearchTimeout,
        (InstanceList{archive_->statements, readRetrieval(question, InformationModel::PatientRoot), limits}));
    QVERIFY(!isFirst);
    makeStudiesFast(archive_->database);
    QCOMPARE(list("PATIENT", {{DCM_PatientID, "P1"}}).size(), std::size_t{3});
}

QTEST_APPLESS_MAIN(InstanceListTest)
#include "tst_instancelist.moc"
