#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <thread>
#include <vector>

#include "tessalyd/Log.h"
#include "tessalyd/association/PeerLog.h"
#include "tests/tessalyd/Daemon.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;
using Event = PeerLog::Event;

/// The lines that peers cause, however many events there are.
class PeerLogTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void cleanup() { file_.reset(); }

    void theFirstLineIsWrittenAtOnce();
    void theLastCountIsWrittenWithoutAnotherEvent();
    void aFloodIsALineASecond();
    void someLinesMayComeTogether();
    void kindsAreCountedApart();
    void theEndWritesWhatIsLeft();
    void manyThreadsMayAdd();

  private:
    [[nodiscard]] QStringList lines() const;
    /// How many events all lines stand for.
    [[nodiscard]] int events() const;

    std::unique_ptr<QTemporaryDir> folder_;
    std::unique_ptr<LogFile> file_;
};

void PeerLogTest::init() {
    folder_ = std::make_unique<QTemporaryDir>();
    constexpr long Size = 10L << 20U;
    file_ = std::make_unique<LogFile>(folder_->filePath(u"log"_s).toStdString(), Size);
}

QStringList PeerLogTest::lines() const {
    QFile file{folder_->filePath(u"log"_s)};
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
}

int PeerLogTest::events() const {
    static const QRegularExpression counted{u"the last of (\\d+) such events"_s};
    int sum = 0;
    for (const QString& line : lines()) {
        const auto match = counted.match(line);
        sum += match.hasMatch() ? match.captured(1).toInt() : 1;
    }
    return sum;
}

void PeerLogTest::theFirstLineIsWrittenAtOnce() {
    PeerLog log{1h};
    log.add(Event::Rejection, "one");
    QCOMPARE(lines().size(), 1);
    QVERIFY(lines().first().contains(u"INFO"_s) && lines().first().endsWith(u": one"_s));
    log.add(Event::Rejection, "two");
    QCOMPARE(lines().size(), 1);
}

void PeerLogTest::theLastCountIsWrittenWithoutAnotherEvent() {
    PeerLog log{100ms};
    for (const char* line : {"one", "two", "three"})
        log.add(Event::Rejection, line);
    EVENTUALLY_COMPARE(lines().size(), 2);
    QVERIFY2(lines().last().endsWith(u": three (the last of 2 such events)"_s), qPrintable(lines().last()));
}

void PeerLogTest::aFloodIsALineASecond() {
    constexpr int Many = 20'000;
    const auto start = std::chrono::steady_clock::now();
    {
        PeerLog log{100ms};
        for (int i = 0; i < Many; ++i) {
            log.add(Event::Rejection, "again");
            if (i % 40 == 0)
                std::this_thread::sleep_for(1ms);
        }
    }
    const auto intervals = (std::chrono::steady_clock::now() - start) / 100ms;
    QVERIFY2(lines().size() > 3 && lines().size() <= intervals + 2, qPrintable(lines().join(u'\n')));
    QCOMPARE(events(), Many);
}

void PeerLogTest::someLinesMayComeTogether() {
    constexpr int AtOnce = 100;
    {
        PeerLog log{1h};
        for (int i = 0; i < 2 * AtOnce; ++i)
            log.add(Event::Failure, "one");
        QCOMPARE(lines().size(), AtOnce);
        QVERIFY(lines().first().contains(u"ERROR"_s));
    }
    QCOMPARE(lines().size(), AtOnce + 1);
    QCOMPARE(events(), 2 * AtOnce);
}

void PeerLogTest::kindsAreCountedApart() {
    PeerLog log{1h};
    log.add(Event::Rejection, "rejected");
    log.add(Event::Rejection, "rejected");
    log.add(Event::Connection, "no room");
    log.add(Event::Refusal, "refused");
    QCOMPARE(lines().size(), 3);
}

void PeerLogTest::theEndWritesWhatIsLeft() {
    {
        PeerLog log{1h};
        log.add(Event::Rejection, "one");
        log.add(Event::Rejection, "two");
    }
    QCOMPARE(lines().size(), 2);
    QVERIFY(lines().last().endsWith(u": two"_s));
}

void PeerLogTest::manyThreadsMayAdd() {
    constexpr int Threads = 4;
    constexpr int Each = 1000;
    {
        PeerLog log{1ms};
        std::vector<std::jthread> threads;
        threads.reserve(Threads);
        for (int i = 0; i < Threads; ++i) {
            threads.emplace_back([&log] {
                for (int n = 0; n < Each; ++n)
                    log.add(n % 2 == 0 ? Event::Rejection : Event::Association, "one");
            });
        }
    }
    QCOMPARE(events(), Threads * Each);
}

QTEST_GUILESS_MAIN(PeerLogTest)
#include "tst_peerlog.moc"
