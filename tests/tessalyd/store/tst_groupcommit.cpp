#include <QDir>
#include <QTest>
#include <atomic>
#include <chrono>
#include <future>
#include <latch>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tessalyd/store/ArchiveIndex.h"
#include "tessalyd/store/GroupCommit.h"
#include "tessalyd/store/StoreFailure.h"
#include "tests/support/Eventually.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace tessaly;
using namespace tessaly::test;
using namespace tessaly::tessalyd;

/// Stores that wait at the same time are written in one transaction.
class GroupCommitTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void whoWaitsMeanwhileIsWrittenTogether();
    void aGroupHasALimit();
    void whoWaitsTooLongIsNotWritten();
    void aFaultIsThatOfItsObjectAlone();
    void whatTheEngineRefusesForOneKeepsNoneAway();
    void rememberedFoldersAreThoseOfTheTables();
    void aRememberedStudyWhoseRootIsGoneIsLookedUp();

  private:
    static constexpr auto Long = 60s;

    static ObjectHeader header(const std::string& series, const std::string& instance);
    /// Stores all at once, so that the last ones wait for the first, and returns their failures in order.
    static QStringList storeTogether(ArchiveIndex& index, const std::vector<ObjectHeader>& objects,
                                     const std::function<StoreSteps(std::size_t)>& steps);
};

ObjectHeader GroupCommitTest::header(const std::string& series, const std::string& instance) {
    ObjectHeader object;
    object.patientId = "P";
    object.studyInstanceUid = "1.2";
    object.seriesInstanceUid = series;
    object.sopInstanceUid = instance;
    return object;
}

void GroupCommitTest::whoWaitsMeanwhileIsWrittenTogether() {
    GroupCommit groups;
    const ObjectHeader object = header("1.2.1", "1");
    const archive::Location location;
    const StoreSteps steps;
    constexpr int Others = 7;
    std::atomic<int> waiting{0};
    std::mutex mutex;
    std::vector<std::size_t> sizes;
    std::promise<void> begun;
    std::promise<void> go;
    const GroupCommit::Write first = [&](std::span<ObjectRows* const> group) {
        sizes.push_back(group.size());
        begun.set_value();
        go.get_future().wait();
    };
    const GroupCommit::Write write = [&](std::span<ObjectRows* const> group) {
        const std::lock_guard lock{mutex};
        sizes.push_back(group.size());
        std::this_thread::sleep_for(20ms);  // in which the late ones come
    };
    {
        std::vector<std::jthread> threads;
        threads.emplace_back([&] {
            ObjectRows rows{.header = object, .location = location, .steps = steps};
            (void)groups.run(rows, Long, first);
        });
        begun.get_future().wait();
        std::atomic<int> done{0};
        for (int i = 0; i < Others; ++i) {
            threads.emplace_back([&] {
                ObjectRows rows{.header = object, .location = location, .steps = steps};
                ++waiting;
                if (groups.run(rows, Long, write))
                    ++done;
            });
        }
        EVENTUALLY_COMPARE(waiting.load(), Others);
        QCOMPARE(done.load(), 0);
        // They are on their way into the queue; whoever is late is in a later group.
        std::this_thread::sleep_for(50ms);
        go.set_value();
        threads.clear();
        QCOMPARE(done.load(), Others);
    }
    std::size_t all = 0;
    for (const std::size_t size : sizes)
        all += size;
    QCOMPARE(all, std::size_t{1 + Others});
    QCOMPARE(sizes.front(), std::size_t{1});
    QVERIFY2(sizes.size() < 1 + Others, "nobody was written together with another");
}

void GroupCommitTest::aGroupHasALimit() {
    GroupCommit groups;
    const ObjectHeader object = header("1.2.1", "1");
    const archive::Location location;
    const StoreSteps steps;
    constexpr std::size_t All = 3 * GroupCommit::MostAtOnce;
    std::mutex mutex;
    std::size_t written = 0;
    std::size_t largest = 0;
    bool isBeside = false;
    const GroupCommit::Write write = [&](std::span<ObjectRows* const> group) {
        if (!mutex.try_lock()) {
            isBeside = true;
            return;
        }
        std::this_thread::sleep_for(1ms);
        written += group.size();
        largest = std::max(largest, group.size());
        mutex.unlock();
    };
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < All; ++i) {
            threads.emplace_back([&] {
                ObjectRows rows{.header = object, .location = location, .steps = steps};
                (void)groups.run(rows, Long, write);
            });
        }
    }
    QCOMPARE(written, All);
    QVERIFY(largest <= GroupCommit::MostAtOnce);
    QVERIFY(!isBeside);
}

void GroupCommitTest::whoWaitsTooLongIsNotWritten() {
    GroupCommit groups;
    const ObjectHeader object = header("1.2.1", "1");
    const archive::Location location;
    const StoreSteps steps;
    std::promise<void> begun;
    std::promise<void> go;
    std::jthread other{[&] {
        ObjectRows rows{.header = object, .location = location, .steps = steps};
        (void)groups.run(rows, Long, [&](std::span<ObjectRows* const>) {
            begun.set_value();
            go.get_future().wait();
        });
    }};
    begun.get_future().wait();
    ObjectRows rows{.header = object, .location = location, .steps = steps};
    bool written = false;
    const GroupCommit::Write write = [&](std::span<ObjectRows* const>) { written = true; };
    QVERIFY(!groups.run(rows, 1ms, write));
    go.set_value();
    other.join();
    QVERIFY(!written);
    QVERIFY(groups.run(rows, Long, write));  // and nothing of the former attempt is left
    QVERIFY(written);
}

QStringList GroupCommitTest::storeTogether(ArchiveIndex& index, const std::vector<ObjectHeader>& objects,
                                           const std::function<StoreSteps(std::size_t)>& steps) {
    QStringList failures;
    failures.resize(static_cast<qsizetype>(objects.size()));
    std::latch all{static_cast<std::ptrdiff_t>(objects.size())};
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        threads.emplace_back([&, i] {
            const auto placement = index.place(objects[i], "/one");
            all.arrive_and_wait();
            try {
                index.record(objects[i], placement->location(), steps(i));
            } catch (const StoreFailure& failure) {
                failures[static_cast<qsizetype>(i)] = QString::fromStdString(failure.detail());
            } catch (const std::exception& error) {
                failures[static_cast<qsizetype>(i)] = QString::fromLatin1(error.what());
            }
        });
    }
    threads.clear();
    return failures;
}

void GroupCommitTest::aFaultIsThatOfItsObjectAlone() {
    const ScratchDatabase database;
    ArchiveIndex index;
    index.configure(60s, 8);
    constexpr std::size_t Objects = 24;
    std::vector<ObjectHeader> objects;
    for (std::size_t i = 0; i < Objects; ++i)
        objects.push_back(header("1.2.1", "1.2.1." + std::to_string(i)));
    std::array<std::atomic<int>, Objects> published{};
    const QStringList failures = storeTogether(index, objects, [&published](std::size_t i) {
        return StoreSteps{.publish = [&published, i] {
            ++published.at(i);
            if (i % 3 == 0)
                throw std::runtime_error{"the disk is full"};
        }};
    });
    for (std::size_t i = 0; i < Objects; ++i) {
        QCOMPARE(failures.at(static_cast<qsizetype>(i)), i % 3 == 0 ? u"the disk is full"_s : QString{});
        QVERIFY(published.at(i) > 0);
        if (i % 3 == 0)
            QCOMPARE(published.at(i).load(), 1);  // what has failed is not tried again
    }
    QCOMPARE(database.value(u"SELECT COUNT(*) FROM Image"_s), u"16"_s);
}

void GroupCommitTest::whatTheEngineRefusesForOneKeepsNoneAway() {
    ScratchDatabase database;
    ArchiveIndex index;
    index.configure(60s, 8);
    std::vector<ObjectHeader> objects;
    objects.reserve(16);
    for (int i = 0; i < 16; ++i)
        objects.push_back(header("1.2.1", "1.2.1." + std::to_string(i)));
    const QStringList failures = storeTogether(index, objects, [](std::size_t i) {
        return StoreSteps{.writeRows = [i](const db::Connection& connection) {
            if (i % 4 == 0)
                db::Query{connection, "INSERT INTO NoSuchTable VALUES (1)"}.execute();
        }};
    });
    for (qsizetype i = 0; i < failures.size(); ++i)
        QCOMPARE(!failures.at(i).isEmpty(), i % 4 == 0);
    QCOMPARE(database.value(u"SELECT COUNT(*) FROM Image"_s), u"12"_s);
}

void GroupCommitTest::rememberedFoldersAreThoseOfTheTables() {
    const ScratchDatabase database;
    ArchiveIndex index;
    const ObjectHeader first = header("1.2.1", "1.2.1.1");
    index.record(first, index.place(first, "/one")->location());
    // What others changed is found out when the rows are written, and then known.
    database.run(u"UPDATE Study SET StudyPath='/moved'"_s);
    const ObjectHeader next = header("1.2.1", "1.2.1.2");
    const auto placed = index.place(next, "/one");
    QCOMPARE(placed->location().studyPath, std::string{"/one\\1.2"});
    QVERIFY_EXCEPTION_THROWN(index.record(next, placed->location()), Displaced);
    QCOMPARE(index.place(next, "/one")->location().studyPath, std::string{"/moved"});
    // A remembered series belongs to its study: the same series of another study is still refused.
    index.record(next, index.place(next, "/one")->location());
    ObjectHeader other = next;
    other.studyInstanceUid = "1.3";
    QVERIFY_EXCEPTION_THROWN((void)index.place(other, "/one"), StoreFailure);
    // With the rows gone, the objects to come are written anew.
    for (const char* table : {"Image", "Series", "Study", "Patient"})
        database.run(u"DELETE FROM "_s + QLatin1String(table));
    index.record(next, index.place(next, "/one")->location());
    QCOMPARE(database.value(u"SELECT StudyPath FROM Study"_s), u"/moved"_s);
}

void GroupCommitTest::aRememberedStudyWhoseRootIsGoneIsLookedUp() {
    const ScratchDatabase database;
    const QString root = database.folder() + u"/root"_s;
    const QString moved = database.folder() + u"/moved"_s;
    QVERIFY(QDir{}.mkpath(root + u"/1.2"_s) && QDir{}.mkpath(moved + u"/1.2"_s));
    ArchiveIndex index;
    index.rememberRoots({root.toStdString()});
    const ObjectHeader first = header("1.2.1", "1.2.1.1");
    index.record(first, index.place(first, root.toStdString())->location());
    // All studies are relocated; the former root is left, and empty.
    database.run(u"UPDATE Study SET StudyPath=?"_s, {moved + u"\\1.2"_s});
    QVERIFY(QDir{root}.rmdir(u"1.2"_s));
    database.run(u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath) VALUES ('1.9', 1, ?)"_s,
                 {root + u"\\1.9"_s});
    const auto placed = index.place(header("1.2.1", "1.2.1.2"), root.toStdString());
    QCOMPARE(QString::fromStdString(placed->location().studyPath), moved + u"\\1.2"_s);
}

QTEST_GUILESS_MAIN(GroupCommitTest)
#include "tst_groupcommit.moc"
