#include <QTest>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tessalyd/association/AssociationPolicy.h"
#include "tessalyd/association/AssociationThreads.h"
#include "tessalyd/association/OpenAssociations.h"
#include "tests/tessalyd/Daemon.h"

using namespace std::chrono_literals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

namespace {

constexpr std::uint64_t Here = 1;
constexpr std::uint64_t There = 2;

using Entries = std::vector<OpenAssociations::Entry>;

/// A connection that says nothing until it is stopped.
void staySilent(AssociationThreads::Connection& connection) {
    const auto token = connection.stop.get_token();
    while (!token.stop_requested())
        std::this_thread::sleep_for(1ms);
}

}  // namespace

/// Who has a place when there are not enough for all.
class PlacesTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        const auto nothing = [](const AssociationNames&, int) {};
        associations_ = std::make_unique<OpenAssociations>(nothing, nothing);
    }

    void anEighthIsForNodes_data();
    void anEighthIsForNodes();
    void aStrangerTakesNoReservedPlace();
    void oneAddressMayHaveAllPlacesWhileNobodyElseWantsOne();
    void anotherAddressGetsThePlaceThatWasIdleForLongest();
    void whatIsUnderWayIsNotEnded();
    void halfOfThePlacesIsNoReasonToEndOne();
    void aStrangerDoesNotTakeANodesPlace();
    void noAddressTakesMoreThanHalfAfterSomebodyKnocked();
    void aKnockIsForgotten();
    void aSilentConnectionMakesRoom();
    void aConnectionThatEndsMakesRoom();
    void anOpenOneDoesNotMakeRoom();

  private:
    /// Adds an entry if there is a place.
    bool open(Entries& entries, std::uint64_t address, const Places& places, bool isNode = false,
              std::stop_source stop = {}) {
        auto entry =
            associations_->open({.port = "104", .callingAeTitle = "A", .calledAeTitle = "B"},
                                {.address = address, .isNode = isNode, .stop = std::move(stop)}, places);
        if (entry)
            entries.push_back(std::move(*entry));
        return entry.has_value();
    }

    std::unique_ptr<OpenAssociations> associations_;
};

void PlacesTest::anEighthIsForNodes_data() {
    QTest::addColumn<int>("limit");
    QTest::addColumn<bool>("hasNodes");
    QTest::addColumn<int>("reserved");
    QTest::newRow("none") << 0 << true << 0;
    QTest::newRow("three") << 3 << true << 0;
    QTest::newRow("four") << 4 << true << 1;
    QTest::newRow("fifteen") << 15 << true << 1;
    QTest::newRow("sixty") << 60 << true << 7;
    QTest::newRow("sixty, no nodes") << 60 << false << 0;
}

void PlacesTest::anEighthIsForNodes() {
    QFETCH(const int, limit);
    QFETCH(const bool, hasNodes);
    QFETCH(const int, reserved);
    PortConfiguration port;
    port.maxConnections = limit;
    if (hasNodes)
        port.acceptedCallers = {"CT1"};
    QCOMPARE(placesOf(port).all, limit);
    QCOMPARE(placesOf(port).reserved, reserved);
    QCOMPARE(isNode(port, "CT1"), hasNodes);
    QVERIFY(!isNode(port, "ct1"));
}

void PlacesTest::aStrangerTakesNoReservedPlace() {
    constexpr Places Some{.all = 16, .reserved = 2};
    Entries strangers;
    while (strangers.size() < 14)
        QVERIFY(open(strangers, Here, Some));
    QVERIFY(!open(strangers, Here, Some));
    Entries nodes;
    QVERIFY(open(nodes, Here, Some, true));
    QVERIFY(open(nodes, Here, Some, true));
    QVERIFY(!open(nodes, Here, Some, true));
    strangers.pop_back();
    QVERIFY(open(nodes, Here, Some, true));  // nodes have the other places too
    nodes.pop_back();
    QVERIFY(open(strangers, Here, Some));
}

void PlacesTest::oneAddressMayHaveAllPlacesWhileNobodyElseWantsOne() {
    constexpr Places Some{.all = 6};
    Entries entries;
    while (entries.size() < 6)
        QVERIFY(open(entries, Here, Some));
    QVERIFY(!open(entries, Here, Some));
    entries.pop_back();
    QVERIFY(open(entries, Here, Some));
}

void PlacesTest::anotherAddressGetsThePlaceThatWasIdleForLongest() {
    constexpr Places Some{.all = 4};
    std::vector<std::stop_source> stops(4);
    Entries entries;
    for (const auto& stop : stops)
        QVERIFY(open(entries, Here, Some, false, stop));
    for (const std::size_t i : {2U, 0U, 3U, 1U}) {
        entries.at(i).setIdle();
        std::this_thread::sleep_for(1ms);
    }
    QVERIFY(open(entries, There, Some));
    QVERIFY(stops.at(2).stop_requested());
    QVERIFY(entries.at(2).isDisplaced());
    QVERIFY(open(entries, There, Some));
    QVERIFY(stops.at(0).stop_requested());
    QVERIFY(!stops.at(1).stop_requested() && !stops.at(3).stop_requested());
    QCOMPARE(associations_->total(), 6);  // until those two have come to their end
    QVERIFY(!open(entries, There, Some));
}

void PlacesTest::whatIsUnderWayIsNotEnded() {
    constexpr Places Some{.all = 4};
    std::stop_source stop;
    Entries entries;
    while (entries.size() < 4)
        QVERIFY(open(entries, Here, Some, false, stop));
    QVERIFY(!open(entries, There, Some));
    entries.front().setIdle();
    entries.front().setBusy();
    QVERIFY(!open(entries, There, Some));
    QVERIFY(!stop.stop_requested());
    entries.front().setIdle();
    QVERIFY(open(entries, There, Some));
    QVERIFY(stop.stop_requested());
}

void PlacesTest::halfOfThePlacesIsNoReasonToEndOne() {
    constexpr Places Some{.all = 4};
    constexpr std::uint64_t Elsewhere = 3;
    Entries entries;
    for (const std::uint64_t address : {Here, Here, There, There})
        QVERIFY(open(entries, address, Some));
    for (auto& entry : entries)
        entry.setIdle();
    QVERIFY(!open(entries, Elsewhere, Some));
    Entries only;
    OpenAssociations one{[](const AssociationNames&, int) {}, [](const AssociationNames&, int) {}};
    auto single = one.open({}, {.address = Here, .stop = std::stop_source{}}, {.all = 1});
    QVERIFY(single.has_value());
    single->setIdle();
    QVERIFY(!one.open({}, {.address = There}, {.all = 1}));
}

void PlacesTest::aStrangerDoesNotTakeANodesPlace() {
    constexpr Places Some{.all = 4, .reserved = 1};
    Entries entries;
    while (entries.size() < 4)
        QVERIFY(open(entries, Here, Some, true));
    for (auto& entry : entries)
        entry.setIdle();
    QVERIFY(!open(entries, There, Some));
    QVERIFY(open(entries, There, Some, true));
}

void PlacesTest::noAddressTakesMoreThanHalfAfterSomebodyKnocked() {
    constexpr Places Some{.all = 4};
    Entries entries;
    while (entries.size() < 4)
        QVERIFY(open(entries, Here, Some));
    QVERIFY(!open(entries, There, Some));  // all are busy
    entries.pop_back();
    QVERIFY(!open(entries, Here, Some));  // the place is kept for the other
    QVERIFY(open(entries, There, Some));
}

void PlacesTest::aKnockIsForgotten() {
    constexpr Places Some{.all = 4};
    const auto nothing = [](const AssociationNames&, int) {};
    OpenAssociations forgetful{nothing, nothing, 100ms};
    const auto add = [&](Entries& added, std::uint64_t address) {
        auto entry = forgetful.open({}, {.address = address}, Some);
        if (entry)
            added.push_back(std::move(*entry));
        return entry.has_value();
    };
    Entries entries;
    while (entries.size() < 4)
        QVERIFY(add(entries, Here));
    QVERIFY(!add(entries, There));
    entries.pop_back();
    EVENTUALLY(entries.size() == 4 || add(entries, Here));
}

void PlacesTest::aSilentConnectionMakesRoom() {
    std::vector<std::stop_token> tokens(4);
    std::atomic<int> begun = 0;
    AssociationThreads threads;
    threads.setLimit(3);
    const auto start = [&](std::uint64_t address, std::size_t number) {
        const auto started = threads.start(address, [&, number](AssociationThreads::Connection& connection) {
            tokens.at(number) = connection.stop.get_token();
            ++begun;
            staySilent(connection);
        });
        return started;
    };
    using Started = AssociationThreads::Started;
    QCOMPARE(start(There, 0), Started::Yes);
    QCOMPARE(start(Here, 1), Started::Yes);
    QCOMPARE(start(Here, 2), Started::Yes);
    EVENTUALLY_COMPARE(int{begun}, 3);
    QCOMPARE(start(There, 3), Started::InPlaceOfAnother);
    QVERIFY(!tokens.at(0).stop_requested());  // it is older, but alone
    QVERIFY(tokens.at(1).stop_requested());
    QVERIFY(!tokens.at(2).stop_requested());
}

void PlacesTest::aConnectionThatEndsMakesRoom() {
    std::atomic<bool> ends = false;
    AssociationThreads threads;
    threads.setLimit(1);
    using Started = AssociationThreads::Started;
    QCOMPARE(threads.start(Here,
                           [&ends](AssociationThreads::Connection& connection) {
                               connection.stage = AssociationThreads::Stage::Ending;
                               ends = true;
                               staySilent(connection);
                           }),
             Started::Yes);
    EVENTUALLY(ends);
    QCOMPARE(threads.start(There, [](AssociationThreads::Connection&) {}), Started::InPlaceOfAnother);
}

void PlacesTest::anOpenOneDoesNotMakeRoom() {
    std::atomic<bool> isOpen = false;
    AssociationThreads threads;
    threads.setLimit(1);
    using Started = AssociationThreads::Started;
    QCOMPARE(threads.start(Here,
                           [&isOpen](AssociationThreads::Connection& connection) {
                               connection.stage = AssociationThreads::Stage::Open;
                               isOpen = true;
                               staySilent(connection);
                           }),
             Started::Yes);
    EVENTUALLY(isOpen);
    QCOMPARE(threads.start(There, [](AssociationThreads::Connection&) {}), Started::No);
}

QTEST_GUILESS_MAIN(PlacesTest)
#include "tst_places.moc"
