#include <QTest>
#include <atomic>
#include <thread>
#include <vector>

#include "tessalyd/association/OutboundSlots.h"
#include "tests/tessalyd/Daemon.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// Whose objects go out next, without a network.
class OutboundSlotsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void thereAreNoMoreThanAllowed();
    void whoHasFewestIsNext_data();
    void whoHasFewestIsNext();
    void whoIsStoppedWaitsNoLonger();

  private:
    static std::jthread waiter(OutboundSlots& turns, const std::string& requestor,
                               std::function<void()> got) {
        const std::size_t before = turns.waiting();
        std::jthread thread{[&turns, requestor, got = std::move(got)](const std::stop_token& stop) {
            if (const auto turn = turns.take(requestor, stop))
                got();
        }};
        if (!QTest::qWaitFor([&] { return turns.waiting() > before; }, PatienceMs))
            throw std::runtime_error{"it does not wait"};
        return thread;
    }
};

void OutboundSlotsTest::thereAreNoMoreThanAllowed() {
    OutboundSlots turns{2};
    const std::stop_source never;
    std::optional first{turns.take("A", never.get_token())};
    std::optional second{turns.take("B", never.get_token())};
    std::atomic<bool> got = false;
    const auto third = waiter(turns, "C", [&got] { got = true; });
    QVERIFY(!got);
    second.reset();
    EVENTUALLY(got);
    QCOMPARE(turns.waiting(), std::size_t{0});
}

void OutboundSlotsTest::whoHasFewestIsNext_data() {
    QTest::addColumn<QStringList>("held");
    QTest::addColumn<QStringList>("waiting");  // in the order of their coming
    QTest::addColumn<QStringList>("order");    // when one after the other comes free, held by nobody of these
    QTest::newRow("as they came") << QStringList{} << QStringList{u"A"_s, u"B"_s, u"C"_s}
                                  << QStringList{u"A"_s, u"B"_s, u"C"_s};
    QTest::newRow("who has none goes before who has some")
        << QStringList{u"A"_s} << QStringList{u"A"_s, u"A"_s, u"B"_s} << QStringList{u"B"_s, u"A"_s, u"A"_s};
    QTest::newRow("who has one goes before who has two")
        << QStringList{u"A"_s, u"A"_s, u"B"_s} << QStringList{u"A"_s, u"B"_s} << QStringList{u"B"_s, u"A"_s};
}

void OutboundSlotsTest::whoHasFewestIsNext() {
    QFETCH(const QStringList, held);
    QFETCH(const QStringList, waiting);
    QFETCH(const QStringList, order);
    OutboundSlots turns{static_cast<std::size_t>(held.size()) + 1};
    const std::stop_source never;
    std::vector<std::optional<OutboundSlots::Slot>> kept;
    for (const QString& one : held)
        kept.push_back(turns.take(one.toStdString(), never.get_token()));
    // The last free turn goes from one to the next.
    std::optional last{turns.take("somebody", never.get_token())};
    std::mutex mutex;
    QStringList got;
    std::vector<std::jthread> threads;
    for (const QString& one : waiting)
        threads.push_back(waiter(turns, one.toStdString(), [&, one] {
            const std::lock_guard lock{mutex};
            got << one;
        }));
    last.reset();
    for (std::jthread& thread : threads)
        thread.join();
    QCOMPARE(got, order);
}

void OutboundSlotsTest::whoIsStoppedWaitsNoLonger() {
    OutboundSlots turns{1};
    const std::stop_source never;
    std::optional first{turns.take("A", never.get_token())};
    std::atomic<int> got = 0;
    auto second = waiter(turns, "B", [&got] { ++got; });
    auto third = waiter(turns, "C", [&got] { ++got; });
    second.request_stop();
    second.join();
    QCOMPARE(got, 0);
    first.reset();
    third.join();
    QCOMPARE(got, 1);
}

QTEST_GUILESS_MAIN(OutboundSlotsTest)
#include "tst_outboundslots.moc"
