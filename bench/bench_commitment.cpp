// How long a modality waits for the report on 1,000 instances, and what requests for commitment cost those
// who store beside them. The bound: plain C that looks the same rows up and reads the beginnings of the same
// files. Prints a table; judges nothing.

#include <fcntl.h>
#include <unistd.h>

#include <QCoreApplication>
#include <atomic>
#include <cstdio>
#include <thread>

#include "bench/Bench.h"
#include "bench/Measure.h"
#include "bench/StoreLoad.h"
#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/services/commitment/Committer.h"
#include "tests/tessalyd/services/commitment/ReportReceiver.h"

namespace {

using namespace tessaly;
using namespace tessaly::bench;
using namespace tessaly::test;
using namespace Qt::StringLiterals;

constexpr int Rounds = 7;
constexpr int Pairs = 4;  // of storing with and without requests beside it
constexpr const char* CtClass = "1.2.840.10008.5.1.4.1.1.2";

/// 1,000 of those of the first batch.
CommitmentAsk request(int number) {
    CommitmentAsk ask{.transactionUid = "1.2.826.0.1." + std::to_string(number)};
    for (int sender = 0; sender < 4; ++sender)
        for (int i = 0; i < Part; ++i)
            ask.references.emplace_back(CtClass,
                                        "1.2.3.0." + std::to_string(sender) + ".1." + std::to_string(i));
    return ask;
}

/// From the request to the whole report.
double reportSeconds(const Daemon& daemon, const ReportReceiver& receiver, int number) {
    Committer modality{daemon.port()};
    const CommitmentAsk ask = request(number);
    const std::size_t before = receiver.reports().size();
    return secondsOf([&] {
        if (modality.ask(ask) != 0)
            throw std::runtime_error("the request was refused");
        while (receiver.reports().size() == before)
            std::this_thread::sleep_for(std::chrono::milliseconds{1});
        if (receiver.reports().back().eventType != 1)
            throw std::runtime_error("not all were committed");
    });
}

double plainSeconds(const Daemon& daemon) {
    sqlite3* handle = openPlain(daemon.database.path().toStdString());
    sqlite3_stmt* statement =
        prepare(handle,
                "SELECT Study.StudyPath, Series.SeriesDir, Image.ImageFile FROM Image, Series, Study "
                "WHERE Image.SOPInstanceUID=? AND Series.SeriesInstanceUID=Image.SeriesInstanceUID "
                "AND Study.StudyInstanceUID=Series.StudyInstanceUID");
    std::array<char, 8192> buffer{};
    const double seconds = secondsOf([&] {
        for (const auto& reference : request(0).references) {
            sqlite3_bind_text(statement, 1, reference.second.c_str(), -1, SQLITE_STATIC);
            requireOk(sqlite3_step(statement), SQLITE_ROW, handle);
            std::string path =
                std::string{textOf(statement, 0)} + '/' + textOf(statement, 1) + '/' + textOf(statement, 2);
            std::replace(path.begin(), path.end(), '\\', '/');
            const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
            if (file < 0 || read(file, buffer.data(), buffer.size()) <= 0)
                throw std::runtime_error("no such file: " + path);
            close(file);
            sqlite3_reset(statement);
        }
    });
    sqlite3_finalize(statement);
    sqlite3_close(handle);
    return seconds;
}

void measureAll() {
    const Objects objects{2 * Pairs + 1};
    const ReportReceiver receiver;
    Daemon daemon{{PortRow{.aeTitle = u"TESSALY"_s}}};
    daemon.database.run(
        u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port) VALUES ('ct', 'CT', 'TESSALY', "
        "'127.0.0.1', '%1')"_s.arg(receiver.port()));
    daemon.launch();
    set(Tcp::NoDelay);
    const auto store = [&](int batch) {
        QStringList folders;
        for (int sender = 0; sender < Senders; ++sender)
            folders.append(objects.folder(batch, sender));
        return Senders * Part / send(daemon.port(), folders);
    };
    (void)store(0);

    int number = 0;
    std::vector<double> reports;
    std::vector<double> plain;
    for (int round = 0; round < Rounds; ++round) {
        reports.push_back(reportSeconds(daemon, receiver, ++number));
        plain.push_back(plainSeconds(daemon));
    }
    std::sort(reports.begin(), reports.end());
    std::sort(plain.begin(), plain.end());
    std::printf("report on 1,000 instances: %.3f s at the median, %.3f s at most; plain C %.3f s\n",
                reports[Rounds / 2], reports.back(), plain[Rounds / 2]);

    for (int pair = 0; pair < Pairs; ++pair) {
        const double alone = store(2 * pair + 1);
        std::atomic<bool> isOver = false;
        std::atomic<int> asked = 0;
        std::thread modality{[&] {
            while (!isOver) {
                (void)reportSeconds(daemon, receiver, ++number);
                ++asked;
                std::this_thread::sleep_for(std::chrono::seconds{1});
            }
        }};
        const double beside = store(2 * pair + 2);
        isOver = true;
        modality.join();
        std::printf("eight senders: %.0f objects/s alone, %.0f beside %d requests of 1,000: %.2f\n", alone,
                    beside, asked.load(), beside / alone);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const QCoreApplication application{argc, argv};
    return runBench(&measureAll);
}
