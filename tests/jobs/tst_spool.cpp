#include <sys/stat.h>

#include <QTemporaryDir>
#include <QTest>
#include <fstream>
#include <stop_token>
#include <thread>

#include "jobs/Spool.h"

using namespace tessaly;
namespace fs = std::filesystem;

class SpoolTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void nobodyElseReadsIt();
    void whatSomebodyMakesStays();
    void whatIsMadeWhileAServerStartsStays();
    void whatAJobHasStays();
    void whatAKilledServerLeftGoes();
    void aRootWithoutOneIsClean();

  private:
    [[nodiscard]] fs::path root() const { return folder_.path().toStdString(); }
    QTemporaryDir folder_;
};

void SpoolTest::nobodyElseReadsIt() {
    const jobs::Spool spool{root()};
    const std::string content = "1.2.3\n";
    const auto entry = spool.write("COMMIT", content);
    const auto folder = spool.makeFolder("PRINT");
    struct stat found {};
    QCOMPARE(::stat(entry.path.c_str(), &found), 0);
    QCOMPARE(found.st_mode & 07777U, 0600U);
    QCOMPARE(::stat(spool.folder().c_str(), &found), 0);
    QCOMPARE(found.st_mode & 07777U, 0700U);
    QCOMPARE(::stat(folder.path.c_str(), &found), 0);
    QCOMPARE(found.st_mode & 07777U, 0700U);
    std::ifstream stream{entry.path};
    QCOMPARE(std::string(std::istreambuf_iterator<char>{stream}, {}), content);
    QCOMPARE(entry.path.parent_path(), root() / ".spool");
}

void SpoolTest::whatSomebodyMakesStays() {
    const jobs::Spool spool{root()};
    const auto file = spool.makeFile("A");
    const auto folder = spool.makeFolder("B");
    (void)spool.clean([](const fs::path&) { return false; });
    QVERIFY(fs::exists(file.path));
    QVERIFY(fs::exists(folder.path));
}

/// Between its making and its locking an entry looks like one that a killed server has left.
void SpoolTest::whatIsMadeWhileAServerStartsStays() {
    constexpr int Entries = 5000;
    const jobs::Spool spool{root()};
    const std::jthread starting{[&spool](const std::stop_token& stop) {
        while (!stop.stop_requested())
            (void)spool.clean([](const fs::path&) { return false; });
    }};
    for (int i = 0; i < Entries; ++i) {
        const auto entry = i % 2 == 0 ? spool.makeFile("A") : spool.makeFolder("B");
        std::this_thread::yield();
        QVERIFY2(fs::exists(entry.path), qPrintable(QString::number(i)));
        jobs::Spool::remove(entry.path);
    }
}

void SpoolTest::whatAJobHasStays() {
    const jobs::Spool spool{root()};
    const fs::path kept = spool.makeFile("A").path;
    (void)spool.clean([&](const fs::path& path) { return path == kept; });
    QVERIFY(fs::exists(kept));
}

void SpoolTest::whatAKilledServerLeftGoes() {
    const jobs::Spool spool{root()};
    (void)spool.clean([](const fs::path&) { return false; });
    const fs::path file = spool.makeFile("A").path;
    const fs::path folder = spool.makeFolder("B").path;
    std::ofstream{folder / "image"} << "pixels";
    QCOMPARE(spool.clean([](const fs::path&) { return false; }), std::size_t{2});
    QVERIFY(!fs::exists(file));
    QVERIFY(!fs::exists(folder));
}

void SpoolTest::aRootWithoutOneIsClean() {
    const jobs::Spool spool{root() / "nowhere"};
    QCOMPARE(spool.clean([](const fs::path&) { return false; }), std::size_t{0});
    QVERIFY_EXCEPTION_THROWN((void)spool.makeFile("A"), std::system_error);
}

QTEST_GUILESS_MAIN(SpoolTest)
#include "tst_spool.moc"
