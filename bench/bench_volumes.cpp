#include <dcmtk/dcmdata/dcdeftag.h>

#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <random>
#include <thread>

#include "bench/Bench.h"
#include "bench/Measure.h"
#include "tests/tessalyd/forwarding/volumes/MadeSeries.h"

// Volumes of a series of 150 images of 512 x 512 beside another converter's, from files into files, in turns;
// and how long it takes to end the work.

namespace {

using namespace tessaly;
using namespace Qt::StringLiterals;
using Clock = std::chrono::steady_clock;
using test::VolumeFormat;

constexpr int Side = 512;
constexpr int Images = 150;
constexpr int Rounds = 3;
constexpr int Stops = 40;

/// Something round with a few tissues in it, and noise as scanners have it, in air less.
std::vector<Uint16> slicePixels(int slice, std::mt19937& random) {
    constexpr int Middle = Side / 2;
    std::normal_distribution<double> noise{0, 1};
    std::vector<Uint16> pixels;
    for (int row = 0; row < Side; ++row)
        for (int column = 0; column < Side; ++column) {
            const double x = (column - Middle) / 200.0;
            const double y = (row - Middle) / 150.0;
            const double radius = x * x + y * y;
            double value = 24;
            if (radius < 1)
                value = 1064 + 60 * std::sin(8 * x + slice / 9.0) * std::cos(6 * y);
            if (radius < 1 && radius > 0.9)
                value = 1900;
            value += noise(random) * (radius < 1 ? 12 : 4);
            pixels.push_back(static_cast<Uint16>(std::clamp(value, 0.0, 4095.0)));
        }
    return pixels;
}

void make(test::MadeSeries& series, E_TransferSyntax syntax) {
    test::SeriesSpec spec;
    spec.sopClass = "1.2.840.10008.5.1.4.1.1.2";
    spec.modality = "CT";
    spec.rows = spec.columns = Side;
    spec.depth = Images;
    spec.attributes = {{DCM_RescaleSlope, "1"}, {DCM_RescaleIntercept, "-1024"}};
    std::mt19937 random{1};
    for (int slice = 0; slice < Images; ++slice) {
        const auto object = test::makeSlice(spec, slice);
        const auto pixels = slicePixels(slice, random);
        if (object->getDataset()->putAndInsertUint16Array(DCM_PixelData, pixels.data(), pixels.size()).bad())
            throw std::runtime_error{"no pixels"};
        series.add(*object, syntax);
    }
    series.request.seriesInstanceUid = "1.2.3";
    series.request.folder = series.folder().toStdString();
}

double secondsOf(const std::function<void()>& work) {
    const auto begin = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

struct Own {
    double seconds = 0;
    double megabytes = 0;  ///< of this process; each decoder has limits of its own
    double bytes = 0;      ///< of what is written
};

Own ours(const test::MadeSeries& series, VolumeFormat format) {
    return bench::inChild([&] {
        auto request = series.request;
        request.format = format;
        decoder::Pool decoders{{.program = DECODER}};
        Own own;
        std::vector<std::string> names;
        own.seconds = secondsOf(
            [&] { names = tessalyd::volumes::writeVolumes(request, decoders, {.stop = {}}).names; });
        own.megabytes = bench::peakMegabytes();
        for (const std::string& name : names)
            own.bytes += static_cast<double>(std::filesystem::file_size(request.folder / name));
        return own;
    });
}

Own theirs(const test::MadeSeries& series, const QString& compression) {
    const QTemporaryDir folder;
    Own own;
    own.seconds = secondsOf([&] {
        if (QProcess::execute(u"sh"_s, {u"-c"_s, u"exec dcm2niix -b n -f o -z %1 -o %2 %3 >/dev/null"_s.arg(
                                                     compression, folder.path(), series.objects())}) != 0)
            throw std::runtime_error{"dcm2niix"};
    });
    for (const auto& file : std::filesystem::directory_iterator{folder.path().toStdString()})
        own.bytes += static_cast<double>(file.file_size());
    return own;
}

void print(const char* what, const Own& own) {
    std::printf("  %-40s %6.3f s  %6.1f MB written", what, own.seconds, own.bytes / 1e6);
    if (own.megabytes > 0)
        std::printf("  peak of memory %5.1f MB", own.megabytes);
    std::printf("\n");
}

void measure(const char* name, E_TransferSyntax syntax) {
    test::MadeSeries series;
    make(series, syntax);
    const std::vector<std::pair<const char*, std::function<Own()>>> ways{
        {"NIfTI-1, compressed", [&] { return ours(series, VolumeFormat::Nifti); }},
        {"Analyze 7.5", [&] { return ours(series, VolumeFormat::Analyze); }},
        {"dcm2niix, compressed (-z y)", [&] { return theirs(series, u"y"_s); }},
        {"dcm2niix, compressed, fastest (-z y -1)", [&] { return theirs(series, u"y -1"_s); }},
        {"dcm2niix, not compressed (-z n)", [&] { return theirs(series, u"n"_s); }}};
    std::vector<Own> best(ways.size(), Own{.seconds = 1e9});
    for (int round = 0; round < Rounds; ++round)
        for (std::size_t i = 0; i < ways.size(); ++i) {
            const Own own = ways[i].second();
            best[i] = {.seconds = std::min(best[i].seconds, own.seconds),
                       .megabytes = std::max(best[i].megabytes, own.megabytes),
                       .bytes = own.bytes};
        }
    std::printf("%s, the best of %d rounds in turns\n", name, Rounds);
    for (std::size_t i = 0; i < ways.size(); ++i)
        print(ways[i].first, best[i]);
    // Stopped at moments all over the work.
    double longest = 0;
    int stopped = 0;
    decoder::Pool decoders{{.program = DECODER}};
    for (int i = 0; i < Stops; ++i) {
        std::stop_source stop;
        Clock::time_point asked;
        std::jthread other{[&] {
            std::this_thread::sleep_for(std::chrono::duration<double>(best[0].seconds * (i + 0.5) / Stops));
            asked = Clock::now();
            stop.request_stop();
        }};
        try {
            static_cast<void>(
                tessalyd::volumes::writeVolumes(series.request, decoders, {.stop = stop.get_token()}));
        } catch (const decoder::Abandoned&) {
            const auto ended = Clock::now();
            other.join();
            longest = std::max(longest, std::chrono::duration<double>(ended - asked).count());
            ++stopped;
        }
    }
    std::printf("  stopped %d times: ended after %.0f ms at most\n", stopped, longest * 1e3);
}

}  // namespace

int main() {
    return runBench([] {
        std::printf("%d images of %d x %d, 12 bits\n", Images, Side, Side);
        measure("not compressed", EXS_LittleEndianExplicit);
        measure("lossless JPEG", EXS_JPEGProcess14SV1);
    });
}
