#include <QTest>
#include <atomic>
#include <chrono>
#include <thread>

#include "maintenance/RepairChecks.h"
#include "tessalyd/store/ArchiveSession.h"
#include "tests/support/Eventually.h"
#include "tests/support/PassProgress.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace tessaly;
using namespace tessaly::test;
using maintenance::Check;

/// The console's repair while the server stores the first of what an empty row is to own.
class RepairBesideTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void cleanup() { database_.reset(); }
    void whatASenderIsFillingStays_data();
    void whatASenderIsFillingStays();
    void whatWasRemovedIsMadeAnew_data() { whatASenderIsFillingStays_data(); }
    void whatWasRemovedIsMadeAnew();

  private:
    static tessalyd::ObjectHeader object(const char* instance);
    /// Of the object's rows, those above `check` are there and own nothing.
    void makeEmpty(Check check) const;
    [[nodiscard]] QString wholeImages() const {
        return database_->value(
            u"SELECT COUNT(*) FROM Image, Series, Study, Patient "
            "WHERE Series.SeriesInstanceUID=Image.SeriesInstanceUID "
            "AND Study.StudyInstanceUID=Series.StudyInstanceUID "
            "AND Patient.ID=Study.IDPatient"_s);
    }

    std::unique_ptr<ScratchDatabase> database_;
    const archive::Location location_{"/r\\1.2", "1.2.3", "1.dcm"};
};

void RepairBesideTest::init() {
    database_ = std::make_unique<ScratchDatabase>();
}

tessalyd::ObjectHeader RepairBesideTest::object(const char* instance) {
    tessalyd::ObjectHeader header;
    header.patientId = "P1";
    header.studyInstanceUid = "1.2";
    header.seriesInstanceUid = "1.2.3";
    header.sopInstanceUid = instance;
    return header;
}

void RepairBesideTest::makeEmpty(Check check) const {
    tessalyd::ArchiveSession session{0s};
    session.record(object("1.2.3.1"), location_);
    database_->run(u"DELETE FROM Image"_s);
    if (check != Check::Series)
        database_->run(u"DELETE FROM Series"_s);
    if (check == Check::Patients)
        database_->run(u"DELETE FROM Study"_s);
}

void RepairBesideTest::whatASenderIsFillingStays_data() {
    QTest::addColumn<int>("check");
    QTest::newRow("an image into a series") << static_cast<int>(Check::Series);
    QTest::newRow("a series into a study") << static_cast<int>(Check::Studies);
    QTest::newRow("a study of a patient") << static_cast<int>(Check::Patients);
}

void RepairBesideTest::whatASenderIsFillingStays() {
    QFETCH(const int, check);
    makeEmpty(static_cast<Check>(check));
    std::atomic<bool> judging{false};
    std::atomic<bool> judged{false};
    std::thread repair;
    tessalyd::ArchiveSession session{0s};
    const auto judge = [&] {  // the rows are written, and not committed
        repair = std::thread{[&] {
            db::Connection connection;
            connection.setConnectString("DSN=DicomFDB");
            connection.establish();
            PassProgress progress;
            progress.done = [&](long long /*rows*/) { judged = true; };
            progress.stop = [&] {
                judging = true;
                return false;
            };
            maintenance::RepairCheck{static_cast<Check>(check)}.run(connection, progress);
        }};
        EVENTUALLY(judging.load());
        std::this_thread::sleep_for(300ms);  // and it waits
        QVERIFY(!judged);
    };
    session.record(object("1.2.3.2"), location_, {.publish = judge});
    repair.join();
    QVERIFY(judged);  // it is through
    QCOMPARE(wholeImages(), u"1"_s);
}

void RepairBesideTest::whatWasRemovedIsMadeAnew() {
    QFETCH(const int, check);
    makeEmpty(static_cast<Check>(check));
    const QString table = static_cast<Check>(check) == Check::Series    ? u"Series"_s
                          : static_cast<Check>(check) == Check::Studies ? u"Study"_s
                                                                        : u"Patient"_s;
    // A removal is under way when the object comes.
    database_->run(u"BEGIN"_s);
    database_->run(u"DELETE FROM "_s + table);
    std::thread commit{[this] {
        std::this_thread::sleep_for(300ms);
        database_->run(u"COMMIT"_s);
    }};
    tessalyd::ArchiveSession session{0s};
    const auto store = [&] { session.record(object("1.2.3.2"), location_); };
    try {
        store();
    } catch (const db::Conflict&) {
        store();
    }
    commit.join();
    QCOMPARE(wholeImages(), u"1"_s);
}

QTEST_GUILESS_MAIN(RepairBesideTest)
#include "tst_repairbeside.moc"
