// The repair pass on a large archive, through its form and in plain C on SQLite that runs the same statements
// and the same look-ups of files: with nothing to remove, and with every tenth patient's files gone. Then how
// long the window goes without an answer, and how long Stop takes. The pass waits for nothing but the
// processor, so processor time is what is compared. Prints a table; judges nothing.
//
// bench_repair [IMAGES]

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QAbstractButton>
#include <QApplication>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QProgressBar>
#include <QTimer>
#include <array>
#include <functional>

#include "bench/Bench.h"
#include "bench/BigArchive.h"
#include "bench/Measure.h"
#include "console/maintenance/PassEvents.h"
#include "console/maintenance/frmRepairDB.h"
#include "console/session/Globals.h"
#include "tests/support/NoServer.h"

using namespace tessaly;
using namespace tessaly::bench;

namespace {

namespace fs = std::filesystem;

constexpr int Rounds = 3;

std::size_t rowsLeft(const std::string& database) {
    sqlite3* handle = openPlain(database);
    sqlite3_stmt* count = prepare(handle,
                                  "SELECT (SELECT count(*) FROM Image) + (SELECT count(*) FROM Series) + "
                                  "(SELECT count(*) FROM Study) + (SELECT count(*) FROM Patient)");
    requireOk(sqlite3_step(count), SQLITE_ROW, handle);
    const auto rows = static_cast<std::size_t>(sqlite3_column_int64(count, 0));
    sqlite3_finalize(count);
    sqlite3_close(handle);
    return rows;
}

// --- plain C ---------------------------------------------------------------------------------------------

bool isThere(sqlite3* handle, sqlite3_stmt* join, const char* series, const char* file) {
    sqlite3_bind_text(join, 1, series, -1, SQLITE_TRANSIENT);
    bool found = false;
    if (sqlite3_step(join) == SQLITE_ROW) {
        std::array<char, 4096> buffer;
        char* const path = buffer.data();
        std::snprintf(path, buffer.size(), "%s\\%s\\%s", textOf(join, 1), textOf(join, 0), file);
        for (char* c = path; *c != '\0'; ++c)
            *c = *c == '\\' ? '/' : *c;
        struct stat status {};
        const char* name = std::strrchr(path, '/') + 1;
        found = *name != '.' && stat(path, &status) == 0 && S_ISREG(status.st_mode);
    }
    requireOk(sqlite3_reset(join), SQLITE_OK, handle);
    return found;
}

double milliseconds(const QElapsedTimer& since) {
    return static_cast<double>(since.nsecsElapsed()) / 1e6;
}

/// The longest time, ms, that a single removal has taken in this process; it is the disk's.
double longestRemoval = 0;

void removeRow(sqlite3* handle, sqlite3_stmt* removal, const char* key) {
    QElapsedTimer since;
    since.start();
    sqlite3_bind_text(removal, 1, key, -1, SQLITE_TRANSIENT);
    requireOk(sqlite3_step(removal), SQLITE_DONE, handle);
    sqlite3_reset(removal);
    longestRemoval = std::max(longestRemoval, milliseconds(since));
}

void checkImagesPlain(sqlite3* handle) {
    sqlite3_stmt* walk = prepare(handle, "SELECT * FROM Image");
    sqlite3_stmt* join = prepare(handle,
                                 "SELECT Series.SeriesDir, Study.StudyPath from Study, Series "
                                 "WHERE Series.SeriesInstanceUID=? "
                                 "AND Study.StudyInstanceUID=Series.StudyInstanceUID");
    sqlite3_stmt* removal = prepare(handle, "DELETE FROM Image WHERE SOPInstanceUID=?");
    while (sqlite3_step(walk) == SQLITE_ROW) {
        if (!isThere(handle, join, textOf(walk, 1), textOf(walk, 2)))
            removeRow(handle, removal, textOf(walk, 0));
    }
    for (sqlite3_stmt* statement : {walk, join, removal})
        sqlite3_finalize(statement);
}

void checkOwnersPlain(sqlite3* handle, const char* walkText, const char* testText, const char* removalText) {
    sqlite3_stmt* walk = prepare(handle, walkText);
    sqlite3_stmt* test = prepare(handle, testText);
    sqlite3_stmt* removal = prepare(handle, removalText);
    while (sqlite3_step(walk) == SQLITE_ROW) {
        sqlite3_bind_text(test, 1, textOf(walk, 0), -1, SQLITE_TRANSIENT);
        requireOk(sqlite3_step(test), SQLITE_ROW, handle);
        const bool empty = sqlite3_column_int(test, 0) == 0;
        sqlite3_reset(test);
        if (empty)
            removeRow(handle, removal, textOf(walk, 0));
    }
    for (sqlite3_stmt* statement : {walk, test, removal})
        sqlite3_finalize(statement);
}

std::size_t repairPlain(const std::string& database) {
    sqlite3* handle = openPlain(database);
    runPlain(handle, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL");
    for (const char* table : {"Image", "Series", "Study", "Patient"})
        runPlain(handle, std::string{"SELECT Count(*) as Num FROM "} + table);
    checkImagesPlain(handle);
    checkOwnersPlain(handle, "SELECT SeriesInstanceUID FROM Series",
                     "SELECT COUNT(*) AS NumImg FROM Image Where SeriesInstanceUID=?",
                     "DELETE FROM Series WHERE SeriesInstanceUID=?");
    checkOwnersPlain(handle, "SELECT * FROM Study",
                     "SELECT COUNT(*) AS NumSeries FROM Series Where StudyInstanceUID=?",
                     "DELETE FROM Study WHERE StudyInstanceUID=?");
    checkOwnersPlain(handle, "SELECT * FROM Patient",
                     "SELECT COUNT(*) AS NumStudies FROM [Study] WHERE IDPatient=?",
                     "DELETE FROM Patient WHERE ID=?");
    sqlite3_close(handle);
    return 0;
}

// --- the console's own -----------------------------------------------------------------------------------

/// Answers every message box at once: OK, or No to the question that ends the pass.
class Answers : public QObject {
  public:
    Answers() { qApp->installEventFilter(this); }
    int boxes = 0;

    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Show) {
            if (auto* box = qobject_cast<QMessageBox*>(watched)) {
                ++boxes;
                QTimer::singleShot(0, box, [box] { box->buttons().last()->click(); });
            }
        }
        return QObject::eventFilter(watched, event);
    }
};

/// The form on a database, shown, in an application of its own. For use in a child process.
template <class Body>
auto withForm(const std::string& database, Body body) {
    int count = 1;
    std::string name = "bench_repair";
    std::array<char*, 2> arguments{name.data(), nullptr};
    QApplication application{count, arguments.data()};
    db::Connection& connection = Globals::DbConnection();
    connection.setConnectString(connectStringOf(database));
    connection.setCursorDriver(db::Connection::CursorDriver::DriverFirst);
    connection.establish();
    test::NoServer server;
    auto result = [&] {
        maintenance::frmRepairDB form{server, nullptr};
        form.show();
        QCoreApplication::processEvents();
        return body(form);
    }();
    connection.close();
    return result;
}

Result repairByForm(const std::string& database) {
    return withForm(database, [](maintenance::frmRepairDB& form) {
        Answers answers;
        return measure([&] {
            form.Repair();
            return std::size_t{0};
        });
    });
}

/// The checks with all that the form does for a row but the boxes, which wait for a user; `events` stands in
/// for the handling of events.
using Events = std::function<void(std::function<void()>)>;
void checkWithoutBoxes(maintenance::frmRepairDB& form, const Events& events) {
    using maintenance::Check;
    const db::Connection& connection = Globals::DbConnection();
    auto& bar = *form.findChild<QProgressBar*>(QStringLiteral("prgBar"));
    class FormProgress : public maintenance::Progress {
      public:
        FormProgress(QProgressBar& bar, double total, const Events& events)
            : bar_(bar), total_(total), events_(events) {}
        void setDone(long long /*done*/) override {
            bar_.setValue(static_cast<int>(++processed_ / total_ * bar_.maximum()));
        }
        using Progress::breathe;
        void breathe(const LetGo& letGo) override {
            events_([&] { pending_.handle(letGo); });
        }

      private:
        QProgressBar& bar_;
        double total_;
        int processed_ = 0;
        const Events& events_;
        maintenance::PassEvents pending_;
    };
    FormProgress progress{bar, static_cast<double>(maintenance::countArchiveRows(connection)), events};
    for (const Check check : {Check::Images, Check::Series, Check::Studies, Check::Patients})
        maintenance::RepairCheck{check}.run(connection, progress);
}

Result repairWithoutBoxes(const std::string& database) {
    return withForm(database, [](maintenance::frmRepairDB& form) {
        return measure([&] {
            checkWithoutBoxes(form, [](const auto& handle) { handle(); });
            return std::size_t{0};
        });
    });
}

/// The longest time, ms, in which the window's events were not handled.
double longestWait(const std::string& database) {
    return withForm(database, [](maintenance::frmRepairDB& form) {
        double longest = 0;
        QElapsedTimer since;
        since.start();
        checkWithoutBoxes(form, [&](const auto& handle) {
            longest = std::max(longest, milliseconds(since));
            handle();
            since.start();
        });
        return longest;
    });
}

enum class Moment { Reading, Visiting };

/// The time, ms, from a click on Stop in the middle of a check to its end.
double waitOfStop(const std::string& database, Moment moment) {
    return withForm(database, [moment](maintenance::frmRepairDB& form) {
        constexpr int SomeTurns = 5;
        auto& bar = *form.findChild<QProgressBar*>(QStringLiteral("prgBar"));
        QElapsedTimer since;
        int turns = 0;
        QTimer turn;  // due in every turn of the events
        QObject::connect(&turn, &QTimer::timeout, &form, [&] {
            if (since.isValid() ||
                (moment == Moment::Reading ? ++turns < SomeTurns : bar.value() < SomeTurns))
                return;
            since.start();
            form.findChild<QAbstractButton*>(QStringLiteral("cmdStop"))->click();
        });
        turn.start(0);
        form.CheckImages();
        return since.isValid() ? milliseconds(since) : throw std::runtime_error("the check was not stopped");
    });
}

// --- the table -------------------------------------------------------------------------------------------

/// What was just written is not the pass's to flush.
void flush(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool good = file >= 0 && ::fsync(file) == 0;
    ::close(file);
    if (!good)
        throw std::runtime_error("cannot flush " + path);
}

/// Runs one way on a fresh copy of the database, in a process of its own.
template <class Way>
auto onCopy(const std::string& database, Way way) {
    const std::string copy = database + ".copy.mdb";
    fs::copy_file(database, copy, fs::copy_options::overwrite_existing);
    flush(copy);
    auto result = inChild([&] { return way(copy); });
    if constexpr (std::is_same_v<decltype(result), Result>)
        result.proof = inChild([&] { return Result{.proof = rowsLeft(copy)}; }).proof;
    fs::remove(copy);
    return result;
}

template <class Way>
Result best(const std::string& database, Way way) {
    Result result = onCopy(database, way);
    for (int round = 1; round < Rounds; ++round)
        result = better(result, onCopy(database, way));
    return result;
}

void compare(const char* what, int rows, const std::string& database,
             const std::function<Result(const std::string&)>& own) {
    const Result c =
        best(database, [](const std::string& copy) { return measure([&] { return repairPlain(copy); }); });
    const Result console = best(database, own);
    if (c.proof != console.proof)
        throw std::runtime_error("the two ways left different rows");
    std::printf("%9d  %-20s  %7.3f s  %7.0f rows/s  %5.1f MB   %7.3f s  %7.0f rows/s  %5.1f MB   %5.2f\n",
                rows, what, c.processor, rows / c.processor, c.megabytes, console.processor,
                rows / console.processor, console.megabytes, console.processor / c.processor);
    std::fflush(stdout);
}

void run(int images) {
    const TemporaryFolder folder;
    const BigArchive archive{folder.path + "/archive.mdb", folder.path + "/files", images};
    (void)inChild([&] {
        archive.writeTables();
        archive.writeFiles();
        return Result{};
    });
    compare("nothing to remove", images, archive.database, repairByForm);
    const double wait = onCopy(archive.database, longestWait);
    const double reading =
        onCopy(archive.database, [](const auto& copy) { return waitOfStop(copy, Moment::Reading); });
    const double visiting =
        onCopy(archive.database, [](const auto& copy) { return waitOfStop(copy, Moment::Visiting); });
    (void)inChild([&] {
        archive.loseFiles();
        return Result{};
    });
    compare("one in ten to remove", images, archive.database, repairWithoutBoxes);
    const double removing = onCopy(archive.database, longestWait);
    const double plain = onCopy(archive.database, [](const auto& copy) {
        repairPlain(copy);
        return longestRemoval;
    });
    std::printf(
        "           longest wait of the window %.2f ms, with rows to remove %.2f ms (one removal in plain C: "
        "%.2f ms)\n",
        wait, removing, plain);
    std::printf("           longest wait of Stop %.2f ms\n", std::max(reading, visiting));
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    constexpr int Small = 10'000;
    constexpr int Large = 1'000'000;
    return tessaly::runBench([&] {
        std::printf(
            "   images  pass                  plain C, processor time          "
            "    console, processor time              ratio\n");
        run(Small);
        run(argc > 1 ? std::atoi(argv[1]) : Large);
    });
}
