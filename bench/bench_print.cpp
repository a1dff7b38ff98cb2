// How long a film takes from a station to a printer that answers at once, what a print command waits for,
// and what printing does to storing beside it; the server's peak of memory. Prints figures; judges nothing.

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QCoreApplication>
#include <QTest>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "bench/Bench.h"
#include "tests/support/ScratchBus.h"
#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/Processes.h"
#include "tests/tessalyd/services/print/PrintStation.h"
#include "tests/tessalyd/services/print/ScriptedPrinter.h"
#include "tests/tessalyd/services/retrieve/Retriever.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

constexpr int Rounds = 21;
constexpr int Stores = 500;

double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

void need(bool good, const char* what) {
    if (!good)
        throw std::runtime_error{what};
}

struct Printed {
    double whole = 0;    ///< from the association's request to the job's end
    double taken = 0;    ///< to the answer of the print command
    double command = 0;  ///< the print command alone
};

Printed printFilm(Daemon& daemon, ScriptedPrinter& printer, const PrintImage& image) {
    Printed times;
    const int before = printer.prints();
    times.whole = secondsOf([&] {
        PrintStation peer{daemon.port(), "STATION", "TESSALY", {PrintStation::everything().front()}};
        times.taken = secondsOf([&] {
            need(peer.createSession().status == 0, "no session");
            const auto film = peer.createFilm("STANDARD\\4,5");
            int position = 0;
            for (const std::string& box : film.references(DCM_ReferencedImageBoxSequence))
                need(peer.setImage(box, ++position, image).status == 0, "an image was not taken");
            times.command = secondsOf([&] { need(peer.printFilm().status == 0, "the film was not taken"); });
        });
        while (printer.prints() == before)
            std::this_thread::sleep_for(std::chrono::milliseconds{1});
        peer.release();
    });
    return times;
}

void measureFilms(Daemon& daemon, ScriptedPrinter& printer, const char* name, const PrintImage& image) {
    std::vector<double> whole;
    std::vector<double> taken;
    std::vector<double> command;
    for (int i = 0; i < Rounds; ++i) {
        const Printed one = printFilm(daemon, printer, image);
        whole.push_back(one.whole);
        taken.push_back(one.taken);
        command.push_back(one.command);
    }
    std::printf("%-34s %8.3f %8.3f %8.3f %8.3f\n", name, median(whole),
                *std::max_element(whole.begin(), whole.end()), median(taken), median(command));
}

/// 20 images that are found, composed and printed, in the same columns; `command` is not there.
void measureComposing(Daemon& daemon, ScriptedPrinter& printer) {
    const std::string study = "1.2.826.0.1.9";
    RequestorAssociation sender{daemon.port()};
    for (int i = 1; i <= 20; ++i)
        need(sender.store(*makeObject({.study = study,
                                       .series = study + ".1",
                                       .instance = study + ".1." + std::to_string(i),
                                       .side = 512,
                                       .seed = i}))
                     .status == 0,
             "an object was not stored");
    sender.release();
    std::vector<double> whole;
    std::vector<double> taken;
    for (int i = 0; i < Rounds; ++i) {
        const int before = printer.prints();
        whole.push_back(secondsOf([&] {
            Retriever viewer{daemon.port(), {Retriever::receiving("1.2.840.10008.1.2.1")}, "STATION"};
            taken.push_back(secondsOf([&] {
                viewer.ask(Retriever::MoveStudyRoot, "STUDY", {{DCM_StudyInstanceUID, study}}, "FILM");
                need(viewer.collect().status == 0, "the film was not composed");
            }));
            while (printer.prints() == before)
                std::this_thread::sleep_for(std::chrono::milliseconds{1});
            viewer.release();
        }));
    }
    std::printf("%-34s %8.3f %8.3f %8.3f\n", "512 x 512, composed", median(whole),
                *std::max_element(whole.begin(), whole.end()), median(taken));
}

double storeMany(Daemon& daemon, int series) {
    RequestorAssociation sender{daemon.port()};
    const double seconds = secondsOf([&] {
        for (int i = 0; i < Stores; ++i) {
            const std::string uid = "1.2.826.0.1.1." + std::to_string(series);
            need(sender.store(*makeObject({.study = "1.2.826.0.1.1",
                                           .series = uid,
                                           .instance = uid + '.' + std::to_string(i),
                                           .side = 128,
                                           .seed = i}))
                         .status == 0,
                 "an object was not stored");
        }
    });
    sender.release();
    return Stores / seconds;
}

void measure() {
    ScriptedPrinter printer{{}, ScriptedPrinter::grayscale()};
    printer.keepsPixels = false;
    Daemon daemon;
    daemon.database.run(
        u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port, Store, Query, Print) VALUES ('STATION', 'STATION', 'TESSALY', '127.0.0.1', '104', 0, -1, 1)"_s);
    daemon.database.run(
        u"INSERT INTO Printers (Name, AETitle, Host, Port, DefaultPrinter, Layout) VALUES ('Film', 'PRINTER', '127.0.0.1', ?, 1, 'STANDARD\\4,5')"_s,
        {printer.port()});
    daemon.launch();
    std::printf("%-34s %8s %8s %8s %8s\n", "20 images on a film, seconds", "printed", "slowest", "taken",
                "command");
    measureFilms(daemon, printer, "512 x 512, 12 bits", {.rows = 512, .columns = 512});
    measureFilms(daemon, printer, "512 x 512, 8 bits",
                 {.rows = 512, .columns = 512, .allocated = 8, .stored = 8});
    measureFilms(daemon, printer, "1024 x 1024, 12 bits", {.rows = 1024, .columns = 1024});
    measureComposing(daemon, printer);
    std::printf("peak memory %lld KB\n", peakMemoryOf(daemon.process.processId()));
    std::printf("\nobjects of 33 KB stored a second, %d a round\n", Stores);
    int series = 0;
    for (int round = 0; round < 3; ++round) {
        const double alone = storeMany(daemon, ++series);
        std::atomic<bool> isOver = false;
        std::jthread printing{[&] {
            while (!isOver) {  // a film a second, as a busy station has them
                (void)printFilm(daemon, printer, {.rows = 512, .columns = 512});
                std::this_thread::sleep_for(std::chrono::seconds{1});
            }
        }};
        const double beside = storeMany(daemon, ++series);
        isOver = true;
        printing.join();
        std::printf("alone %.0f, beside printing %.0f\n", alone, beside);
    }
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application{argc, argv};
    const ScratchBus bus;
    return runBench(measure);
}
