#include <QTest>
#include <set>

#include "tests/support/ScratchCluster.h"
#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/SharedArchive.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// Servers that share a database and its archive, and what becomes of acknowledged objects when one of them,
/// or the database server, ends in the midst of it. TESSALY_TEST_OBJECTS says how many objects each sender
/// has.
class SharedArchiveTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase();
    void threeServersOneOfThemKilled();
    void theDatabaseServerIsRestarted();

  private:
    static constexpr int Studies = 6;
    /// All senders mix the same studies, of three patients; every fourth object is two senders'.
    [[nodiscard]] std::vector<ObjectSpec> objectsOf(int sender) const;

    /// For all of them to be stored.
    [[nodiscard]] int patienceMs() const { return PatienceMs * (1 + each_ / 100); }

    int each_ = 12;
};

void SharedArchiveTest::initTestCase() {
    qputenv("TCP_NODELAY", "1");  // for the toolkit, which the senders are made with
    if (const int wanted = qEnvironmentVariableIntValue("TESSALY_TEST_OBJECTS"); wanted > 0)
        each_ = wanted;
}

std::vector<ObjectSpec> SharedArchiveTest::objectsOf(int sender) const {
    std::vector<ObjectSpec> objects;
    for (int i = 0; i < each_; ++i) {
        const int owner = i % 4 == 3 ? sender / 2 * 2 : sender;
        const int study = (owner + i) % Studies;
        const std::string uid = std::string{"1.2.7."} + std::to_string(study);
        objects.push_back({.patientId = std::string{'P'} + std::to_string(study / 2),
                           .study = uid,
                           .series = uid + '.' + std::to_string(i % 2),
                           .instance = uid + ".9." + std::to_string(owner) + '.' + std::to_string(i),
                           .seed = owner * each_ + i});
    }
    return objects;
}

void SharedArchiveTest::threeServersOneOfThemKilled() {
    constexpr int Servers = 3;
    constexpr int Count = 24;
    SharedArchive archive{Servers};
    for (int server = 0; server < Servers; ++server)
        archive.launch(server);
    {
        const Senders senders{archive, Count, [this](int sender) { return objectsOf(sender); }};
        QTRY_VERIFY_WITH_TIMEOUT(senders.acknowledged() > Count * each_ / 3, patienceMs());
        archive.kill(1);
        QVERIFY(!senders.areDone());
        QTRY_VERIFY_WITH_TIMEOUT(senders.areDone(), patienceMs());
        QCOMPARE(senders.acknowledged(), Count * each_);
        QCOMPARE(senders.refusals(), (std::map<int, int>{}));
        archive.launch(1);  // and clears away what it had not finished
        EVENTUALLY_COMPARE(archive.temporaryFiles(), QStringList{});
        compareWithArchive(senders.objects(), archive);
    }
    QCOMPARE(archive.database.rows(u"SELECT (SELECT COUNT(*) FROM Patient), (SELECT COUNT(*) FROM Study), "
                                   "(SELECT COUNT(*) FROM Series)"_s),
             (QList<QStringList>{{u"3"_s, u"6"_s, u"12"_s}}));
}

void SharedArchiveTest::theDatabaseServerIsRestarted() {
    constexpr int Servers = 2;
    constexpr int Count = 8;
    constexpr int OutOfResources = 0xa700;
    SharedArchive archive{Servers};
    for (int server = 0; server < Servers; ++server)
        archive.launch(server);
    {
        const Senders senders{archive, Count, [this](int sender) { return objectsOf(sender); }};
        for (int restart = 1; restart <= 2; ++restart) {
            QTRY_VERIFY_WITH_TIMEOUT(senders.acknowledged() > Count * each_ / 3 * restart, patienceMs());
            archive.database.release();
            ScratchCluster::instance().restart();
        }
        QTRY_VERIFY_WITH_TIMEOUT(senders.areDone(), patienceMs());
        QCOMPARE(senders.acknowledged(), Count * each_);
        for (const auto& [status, times] : senders.refusals())
            QCOMPARE(status, OutOfResources);
        compareWithArchive(senders.objects(), archive);
    }
}

QTEST_GUILESS_MAIN(SharedArchiveTest)
#include "tst_sharedarchive.moc"
