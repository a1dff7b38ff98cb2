#include <QRandomGenerator>
#include <QTest>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/Processes.h"
#include "tests/tessalyd/SharedArchive.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// A server that is killed again and again while eight senders share its transactions. TESSALY_TEST_KILLS
/// says how often.
class StoreKillsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void nothingThatWasAcknowledgedIsLost();
};

void StoreKillsTest::nothingThatWasAcknowledgedIsLost() {
    constexpr int Count = 8;
    constexpr int BetweenKills = 80;  // objects at most
    qputenv("TCP_NODELAY", "1");      // for the toolkit, which the senders are made with
    const int kills = killsWanted(6);
    const int each = (kills + 1) * BetweenKills / Count;
    SharedArchive archive{1};
    archive.launch(0);
    {
        // Two senders of one port have each study: what was named before a kill has a row later. Every third
        // object replaces one that the sender has sent before.
        const auto objectsOf = [each](int sender) {
            std::vector<ObjectSpec> objects;
            for (int i = 0; i < each; ++i) {
                const int instance = i % 3 == 2 ? i - 2 : i;
                const std::string study =
                    "1.2.7." + std::to_string(sender % 4) + '.' + std::to_string(i / 20);
                objects.push_back(
                    {.patientId = 'P' + std::to_string(sender % 4),
                     .study = study,
                     .series = study + ".1",
                     .instance = study + ".9." + std::to_string(sender) + '.' + std::to_string(instance),
                     .seed = sender * each + instance});
            }
            return objects;
        };
        const Senders senders{archive, Count, objectsOf};
        int next = 0;
        for (int kill = 0; kill < kills; ++kill) {
            next += 1 + QRandomGenerator::global()->bounded(BetweenKills);
            EVENTUALLY(senders.acknowledged() >= next || senders.areDone());
            QVERIFY(!senders.areDone());
            archive.kill(0);
            archive.launch(0);
        }
        EVENTUALLY(senders.areDone());
        QCOMPARE(senders.acknowledged(), Count * each);
        QCOMPARE(senders.refusals(), (std::map<int, int>{}));
        EVENTUALLY_COMPARE(archive.temporaryFiles(), QStringList{});
        compareWithArchive(senders.objects(), archive);
    }
}

QTEST_GUILESS_MAIN(StoreKillsTest)
#include "tst_storekills.moc"
