#include <QTest>

#include "tessalyd/search/QuerySessions.h"
#include "tessalyd/store/ArchiveIndex.h"
#include "tessalyd/store/StoreFailure.h"
#include "tests/support/ScratchCluster.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
using namespace tessaly::tessalyd;

/// What becomes of a store when the engine ends its connection, at whatever moment.
class LostEngineTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void cleanup();
    void connectionsThatWereEndedWhileIdleCostNoObject();
    void aConnectionThatEndsInTheCommitCostsNoObject();
    void aFileThatIsNotItsOwnAnyMoreGetsNoRow();
    void whatNobodyCanSayIsSaid();
    void anEngineThatIsDownRefusesUntilItIsBack();
    void oneQueryMeetsWhatHasBecomeOfAllSessions();

  private:
    static ObjectHeader object(const std::string& instance);
    void place(const ObjectHeader& header) { placement_ = index_->place(header, "/r"); }
    void endSessions() const {
        database_->run(
            u"SELECT pg_terminate_backend(pid, 10000) FROM pg_stat_activity "
            "WHERE datname = current_database() AND pid <> pg_backend_pid()"_s);
    }
    [[nodiscard]] QString images() const { return database_->value(u"SELECT COUNT(*) FROM Image"_s); }

    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<ArchiveIndex> index_;
    std::unique_ptr<ArchiveIndex::Placement> placement_;
};

void LostEngineTest::init() {
    database_ = std::make_unique<ScratchDatabase>();
    index_ = std::make_unique<ArchiveIndex>();
    index_->configure(std::chrono::seconds{0}, 4);
    place(object("1.1"));
    index_->record(object("1.1"), placement_->location());
}

void LostEngineTest::cleanup() {
    placement_.reset();
    index_.reset();
    database_.reset();
}

ObjectHeader LostEngineTest::object(const std::string& instance) {
    ObjectHeader header;
    header.patientId = "P1";
    header.studyInstanceUid = "1.2";
    header.seriesInstanceUid = "1.2.3";
    header.sopInstanceUid = instance;
    return header;
}

void LostEngineTest::connectionsThatWereEndedWhileIdleCostNoObject() {
    endSessions();
    place(object("1.2"));
    endSessions();
    index_->record(object("1.2"), placement_->location());
    QCOMPARE(images(), u"2"_s);
}

void LostEngineTest::aConnectionThatEndsInTheCommitCostsNoObject() {
    place(object("1.2"));
    int published = 0;
    index_->record(object("1.2"), placement_->location(), {.publish = [&] {
                       if (++published == 1)
                           endSessions();
                   }});
    QCOMPARE(published, 2);
    QCOMPARE(images(), u"2"_s);
}

/// In between, another server may have stored the instance: its file is not to get this object's row.
void LostEngineTest::aFileThatIsNotItsOwnAnyMoreGetsNoRow() {
    place(object("1.2"));
    int published = 0;
    const auto record = [&] {
        index_->record(object("1.2"), placement_->location(), {.publish = [&] {
                           if (++published > 1)
                               throw StoreFailure{STATUS_STORE_Refused_OutOfResources, "another's"};
                           endSessions();
                       }});
    };
    QVERIFY_EXCEPTION_THROWN(record(), StoreUndecided);  // what became of the first commit, nobody can say
    QCOMPARE(published, 2);
    QCOMPARE(images(), u"1"_s);
}

void LostEngineTest::whatNobodyCanSayIsSaid() {
    place(object("1.2"));
    const auto record = [this] {
        index_->record(object("1.2"), placement_->location(), {.publish = [this] {
                           endSessions();
                           database_->setDataSource(database_->dataSource({u"Servername=/nowhere"_s}));
                       }});
    };
    QVERIFY_EXCEPTION_THROWN(record(), StoreUndecided);
    database_->setDataSource(database_->dataSource({}));
    index_->record(object("1.2"), placement_->location());
    QCOMPARE(images(), u"2"_s);
}

void LostEngineTest::anEngineThatIsDownRefusesUntilItIsBack() {
    database_->release();
    ScratchCluster::instance().stop();
    for (int i = 0; i < 3; ++i) {
        try {
            place(object("1.2"));  // where the series' folder is known from before, the engine is not asked
            index_->record(object("1.2"), placement_->location());
            QFAIL("the engine is down");
        } catch (const StoreFailure& failure) {
            QCOMPARE(failure.status(), STATUS_STORE_Refused_OutOfResources);
        }
    }
    ScratchCluster::instance().start();
    place(object("1.2"));
    index_->record(object("1.2"), placement_->location());
    QCOMPARE(images(), u"2"_s);
}

void LostEngineTest::oneQueryMeetsWhatHasBecomeOfAllSessions() {
    QuerySessions sessions;
    const auto take = [&sessions] { return sessions.take([] { return false; }); };
    const auto ask = [](const QuerySessions::Lease& lease) {
        tessaly::db::Query query = lease.statements().take("SELECT COUNT(*) AS Num FROM Image");
        tessaly::db::ResultSet row = query.open();
        return row.next() ? row.integer("Num") : -1;
    };
    {
        std::vector<QuerySessions::Lease> all;
        for (int i = 0; i < 3; ++i) {
            all.push_back(std::move(*take()));
            QCOMPARE(ask(all.back()), 1);
        }
    }
    endSessions();
    QVERIFY_EXCEPTION_THROWN((void)ask(*take()), tessaly::db::Error);
    QCOMPARE(ask(*take()), 1);
    QCOMPARE(ask(*take()), 1);
}

QTEST_GUILESS_MAIN(LostEngineTest)
#include "tst_lostengine.moc"
