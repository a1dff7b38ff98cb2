#include <QDir>
#include <QFile>
#include <QTest>

#include "db/Query.h"
#include "maintenance/Backfill.h"
#include "maintenance/Relocation.h"
#include "maintenance/RepairChecks.h"
#include "schema/BackfillMark.h"
#include "tests/support/PassProgress.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;
using maintenance::Backfill;
using maintenance::Check;
using maintenance::RepairCheck;

/// The one contract that all passes have with whoever runs them.
class PassesTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void cleanup();
    void aRepairAnnouncesAndCounts();
    void aRowStaysWhereNobodyKnows();
    void aStoppedPassChangesNothing();
    void theBackfillCountsAndNotes();
    void aStoppedBackfillLeavesItsMark();
    void aRelocationBreathesAndStops();

  private:
    static constexpr int Images = 3;  // the first has a file

    [[nodiscard]] QString count(const QString& table) const {
        return database_->value(u"SELECT COUNT(*) FROM "_s + table);
    }

    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<db::Connection> connection_;
};

void PassesTest::init() {
    database_ = std::make_unique<ScratchDatabase>();
    const QString study = database_->imageRoot() + u"/1.2"_s;
    QVERIFY(QDir{}.mkpath(study + u"/1.2.3"_s));
    QFile file{study + u"/1.2.3/0.dcm"_s};
    QVERIFY(file.open(QIODevice::WriteOnly));  // and it is no object
    database_->run(u"INSERT INTO Patient (ID, PatientID, Name) VALUES (1, 'P', 'Doe^A')"_s);
    database_->run(
        u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath) VALUES ('1.2', 1, '%1')"_s.arg(
            QString{study}.replace(u'/', u'\\')));
    database_->run(
        u"INSERT INTO Series (SeriesInstanceUID, StudyInstanceUID, SeriesDir) VALUES ('1.2.3', '1.2', "
        "'1.2.3')"_s);
    for (int i = 0; i < Images; ++i)
        database_->run(
            u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile) VALUES ('1.2.3.%1', '1.2.3', '%1.dcm')"_s
                .arg(i));
    connection_ = std::make_unique<db::Connection>();
    connection_->setConnectString("DSN=DicomFDB");
    connection_->establish();
}

void PassesTest::cleanup() {
    connection_.reset();
    database_.reset();
}

void PassesTest::aRepairAnnouncesAndCounts() {
    PassProgress progress;
    int breaths = 0;
    progress.breathing = [&] { ++breaths; };
    RepairCheck{Check::Images}.run(*connection_, progress);
    QCOMPARE(progress.announced, std::vector<std::string>(Images - 1, "Non existing file"));
    QCOMPARE(progress.lastDone, Images);
    QVERIFY(breaths >= Images);
    QCOMPARE(count(u"Image"_s), u"1"_s);
}

void PassesTest::aRowStaysWhereNobodyKnows() {
    PassProgress progress;
    progress.knows = [] { return false; };
    RepairCheck{Check::Images}.run(*connection_, progress);
    QCOMPARE(progress.announced.size(), static_cast<std::size_t>(Images - 1));
    QCOMPARE(progress.lastDone, Images);
    QCOMPARE(count(u"Image"_s), QString::number(Images));
}

void PassesTest::aStoppedPassChangesNothing() {
    PassProgress progress;
    progress.stop = [] { return true; };
    for (const Check check : {Check::Images, Check::Series, Check::Studies, Check::Patients})
        RepairCheck{check}.run(*connection_, progress);
    QCOMPARE(progress.lastDone, 0);
    QVERIFY(progress.announced.empty());
    QCOMPARE(count(u"Image"_s), QString::number(Images));
}

void PassesTest::theBackfillCountsAndNotes() {
    schema::setFilledTo(*connection_, "");
    PassProgress progress;
    Backfill backfill;
    backfill.run(*connection_, progress);
    QCOMPARE(progress.total, Images);
    QCOMPARE(progress.lastDone, Images);
    QCOMPARE(progress.notes.size(), static_cast<std::size_t>(Images));
    QCOMPARE(backfill.result().patients, 1);
    QCOMPARE(backfill.result().unreadable, Images);
    QVERIFY(!backfill.result().isStopped);
    QVERIFY(!backfill.result().seesArchive());
    QCOMPARE(schema::filledTo(*connection_), std::string{});  // so that the next run looks again
    QCOMPARE(database_->value(u"SELECT NameAlphabetic FROM Patient"_s), u"doe^a"_s);
}

void PassesTest::aStoppedBackfillLeavesItsMark() {
    schema::setFilledTo(*connection_, "");
    PassProgress progress;
    progress.stop = [] { return true; };
    Backfill backfill;
    backfill.run(*connection_, progress);
    QVERIFY(backfill.result().isStopped);
    QCOMPARE(progress.total, Images);
    QVERIFY(progress.notes.empty());
    QCOMPARE(schema::filledTo(*connection_), std::string{});
    schema::setFilledTo(*connection_, std::nullopt);
    backfill.run(*connection_, progress);  // nothing is left to be done, and nobody is asked
    QVERIFY(!backfill.result().isStopped);
}

void PassesTest::aRelocationBreathesAndStops() {
    constexpr int Many = 450;
    for (int i = 0; i < Many; ++i)
        database_->run(
            u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath) VALUES ('9.%1', 1, '/old\\%1')"_s
                .arg(i));
    const auto relocated = [this] {
        return database_->value(u"SELECT COUNT(*) FROM Study WHERE StudyPath LIKE '/new%'"_s).toInt();
    };
    PassProgress progress;
    int breaths = 0;
    progress.breathing = [&] { ++breaths; };
    progress.stop = [&] { return breaths == 6; };  // in the midst of the rewriting
    maintenance::Relocation{u"/old"_s, u"/new"_s}.run(*connection_, progress);
    QCOMPARE(breaths, 6);
    QCOMPARE(progress.lastDone, 600);
    QCOMPARE(relocated(), 100);
    maintenance::NoProgress none;
    maintenance::Relocation{u"/old"_s, u"/new"_s}.run(*connection_, none);
    QCOMPARE(relocated(), Many);
}

QTEST_GUILESS_MAIN(PassesTest)
#include "tst_passes.moc"
