#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/Bench.h"
#include "bench/Measure.h"
#include "decoder/Pool.h"
#include "tests/tessalyd/Objects.h"

// Decoding in a process of its own beside decoding in this one: the same objects, from files into files, in
// turns.

namespace {

using namespace tessaly;
using Clock = std::chrono::steady_clock;

constexpr int Side = 512;
constexpr int TinySide = 8;   // nearly nothing to decode: what is left is what a process costs
constexpr int Objects = 400;  // of each measurement
constexpr int Rounds = 5;

void require(bool good, const char* what) {
    if (!good)
        throw std::runtime_error(what);
}

class Folder {
  public:
    explicit Folder(int side) {
        test::writeObject({.side = side}, QString::fromStdString(source()), EXS_JPEGProcess14SV1);
        DcmMetaInfo meta;
        Uint32 length = 0;
        require(meta.loadFile(source().c_str()).good() &&
                    meta.findAndGetUint32(DCM_FileMetaInformationGroupLength, length).good(),
                "no object");
        constexpr std::size_t PreambleAndGroupLength = 128 + 4 + 12;
        dataSetAt_ = PreambleAndGroupLength + length;
    }
    [[nodiscard]] std::string source() const { return folder_.path + "/source"; }
    [[nodiscard]] std::string target(int number) const { return folder_.path + "/" + std::to_string(number); }
    [[nodiscard]] std::size_t dataSetAt() const noexcept { return dataSetAt_; }

  private:
    bench::TemporaryFolder folder_;
    std::size_t dataSetAt_ = 0;
};

void decodeHere(const Folder& folder, int number) {
    DcmFileFormat object;
    require(object.loadFile(folder.source().c_str()).good() &&
                object.getDataset()->chooseRepresentation(EXS_LittleEndianExplicit, nullptr).good(),
            "not decoded");
    object.getDataset()->removeAllButCurrentRepresentations();
    require(
        object.saveFile(folder.target(number).c_str(), EXS_LittleEndianExplicit, EET_ExplicitLength).good(),
        "not written");
}

using File = std::unique_ptr<std::FILE, decltype([](std::FILE* file) { std::fclose(file); })>;

void decodeThere(const Folder& folder, decoder::Pool& pool, int number) {
    const File source{std::fopen(folder.source().c_str(), "r")};
    const File target{std::fopen(folder.target(number).c_str(), "w+")};
    require(source && target, "no files");
    const auto size = std::filesystem::file_size(folder.source()) - folder.dataSetAt();
    const auto result =
        pool.convert({.file = ::fileno(source.get()),
                      .dataSetAt = folder.dataSetAt(),
                      .size = size,
                      .syntax = EXS_JPEGProcess14SV1},
                     {.file = ::fileno(target.get()), .syntax = EXS_LittleEndianExplicit}, {.stop = {}});
    require(result.outcome == decoder::Outcome::Converted, result.reason.c_str());
}

template <class Decode>
double secondsOf(int atOnce, const Decode& decode) {
    const auto begin = Clock::now();
    std::vector<std::jthread> threads;
    threads.reserve(static_cast<std::size_t>(atOnce));
    for (int i = 0; i < atOnce; ++i)
        threads.emplace_back([&decode, atOnce, i] {
            for (int n = i; n < Objects; n += atOnce)
                decode(i);
        });
    threads.clear();
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// The best of some rounds in turns.
struct Seconds {
    double here = 1e9;
    double there = 1e9;
};

Seconds measure(const Folder& folder, decoder::Pool& pool, int atOnce) {
    Seconds best;
    for (int round = 0; round < Rounds; ++round) {
        best.here = std::min(best.here, secondsOf(atOnce, [&](int number) { decodeHere(folder, number); }));
        best.there =
            std::min(best.there, secondsOf(atOnce, [&](int number) { decodeThere(folder, pool, number); }));
    }
    return best;
}

}  // namespace

int main() {
    return runBench([] {
        const Folder folder{Side};
        const Folder tiny{TinySide};
        decoder::Pool pool{{.program = TESSALY_DECODER}};
        std::printf("%d objects of %d x %d in lossless JPEG, the best of %d rounds in turns\n", Objects, Side,
                    Side, Rounds);
        for (const int atOnce : {1, 8}) {
            const Seconds full = measure(folder, pool, atOnce);
            const Seconds empty = measure(tiny, pool, atOnce);
            // As much as decoding could reach with a process for each object that cost nothing but itself.
            const double bound = full.here / (full.here + empty.there - empty.here);
            std::printf(
                "%d at a time: in the process %.0f objects/s, in its own %.0f objects/s, ratio %.2f\n"
                "  a process for each object, with %d x %d pixels: %.2f ms, and so the ratio is at most "
                "%.2f\n",
                atOnce, Objects / full.here, Objects / full.there, full.here / full.there, TinySide, TinySide,
                1e3 * (empty.there - empty.here) / Objects, bound);
        }
    });
}
