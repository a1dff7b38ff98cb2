#include <QTest>
#include <set>
#include <string>
#include <thread>

#include "db/Query.h"
#include "db/Transaction.h"
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
    const auto outcomeOf = [&](const db::Connection& by, const char* key) -> std::string {
        try {
            change(by, key);
            return "done";
        } catch (const db::Conflict&) {
            return "given up";
        } catch (const db::Error& fault) {
            return fault.what();
        }
    };
    std::set<std::string> outcomes;
    std::string met;
    std::jthread waiting{[&] {  // for what is here, and is given up or not when this one waits too
        met = outcomeOf(other, "a");
    }};
    outcomes.insert(outcomeOf(one, "b"));
    here.rollBack();
    waiting.join();
    outcomes.insert(met);
    QVERIFY((outcomes == std::set<std::string>{"done", "given up"}));
}

QTEST_GUILESS_MAIN(ConflictsTest)
#include "tst_conflicts.moc"
