#include <QTest>
#include <thread>

#include "db/Query.h"
#include "db/Transaction.h"
#include "tests/db/Fault.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

/// Sessions that stand in each other's way, where an engine lets several write.
class ConflictsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() { scratch_ = std::make_unique<ScratchDatabase>(ScratchDatabase::Content::Empty); }
    void cleanup() { scratch_.reset(); }
    void aLimitOfTheProgramsComesBeforeTheDataSources();
    void aDeadlockIsAConflict();

  private:
    std::unique_ptr<ScratchDatabase> scratch_;
};

void ConflictsTest::aLimitOfTheProgramsComesBeforeTheDataSources() {
    scratch_->setDataSource(scratch_->dataSource({u"ConnSettings=SET lock_timeout TO 50000"_s}));
    db::Connection patient;
    patient.setConnectString("DSN=DicomFDB");
    patient.setLockWait(std::chrono::milliseconds{40});
    patient.establish();
    db::Query limit{patient, "SHOW lock_timeout"};
    db::ResultSet row = limit.open();
    QVERIFY(row.next());
    QCOMPARE(row.text("lock_timeout"), "40ms");
}

void ConflictsTest::aDeadlockIsAConflict() {
    scratch_->run(u"CREATE TABLE T (K VARCHAR(8) PRIMARY KEY, N INTEGER)"_s);
    scratch_->run(u"INSERT INTO T (K, N) VALUES ('a', 0), ('b', 0)"_s);
    db::Connection one;
    db::Connection other;
    for (db::Connection* connection : {&one, &other}) {
        connection->setConnectString("DSN=DicomFDB");
        connection->establish();
    }
    db::Transaction here{one};
    db::Transaction there{other};
    const auto change = [](const db::Connection& by, const char* key) {
        execute(by, "UPDATE T SET N=N+1 WHERE K=?", {db::varchar(key)});
    };
    change(one, "a");
    change(other, "b");
    db::Error met{"none"};
    std::jthread waiting{[&] {  // for what is here, and is given up or not when this one waits too
        try {
            change(other, "a");
        } catch (const db::Error& fault) {
            met = fault;
        }
    }};
    const db::Error own = faultOf([&] { change(one, "b"); });
    here.rollBack();
    waiting.join();
    QVERIFY(own.isConflict() != met.isConflict());
    QVERIFY(!own.isLostSession() && !met.isLostSession());
}

QTEST_GUILESS_MAIN(ConflictsTest)
#include "tst_conflicts.moc"
