// How fast files are put to an FTP server, beside another product's client, one connection each, to the same
// server on the loopback; and what 20,000 of them cost in memory. Prints tables; judges nothing.

#include <QCoreApplication>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <system_error>

#include <fcntl.h>

#include "bench/Bench.h"
#include "bench/Measure.h"
#include "tessalyd/forwarding/ftp/Uploader.h"
#include "tests/tessalyd/forwarding/ftp/FtpProduct.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::tessalyd::ftp;
using namespace tessaly::test;

namespace {

constexpr int Rounds = 5;

double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Each round has a folder of its own: files are made there, not replaced.
QString folderOf(const char* client, int round) {
    return QString::fromLatin1(client) + QString::number(round);
}

Node nodeOf(const FtpProduct& server, int round = 0) {
    return {.name = "BENCH",
            .host = server.host().toStdString(),
            .user = server.user().toStdString(),
            .password = FtpProduct::Password.toStdString(),
            .destination = folderOf("here", round).toStdString(),
            .type = "Quib"};
}

/// Seconds of the first file, whose connection is made, and of the one of the others that took longest.
struct Longest {
    double first = 0;
    double other = 0;

    void add(const Longest& more) {
        first = std::max(first, more.first);
        other = std::max(other, more.other);
    }
};

Longest putHere(const Node& node, const QStringList& files) {
    Uploader uploader{node, std::stop_token{}};
    Longest longest;
    for (const QString& name : files) {
        double& one = name == files.first() ? longest.first : longest.other;
        one = std::max(one, secondsOf([&] {
                           FileSource source{
                               base::FileDescriptor{::open(name.toUtf8().constData(), O_RDONLY | O_CLOEXEC)}};
                           uploader.put(source, "1.2/1.2.3", name.section(u'/', -1).toStdString());
                       }));
    }
    return longest;
}

void putThere(const FtpProduct& server, const QString& folder, int round) {
    QProcess client;
    client.setWorkingDirectory(folder);
    client.start(u"sh"_s, {u"-c"_s, u"exec ncftpput -V -m -u %1 -p %2 -P %3 127.0.0.1 %4 *.dcm"_s.arg(
                                        server.user(), FtpProduct::Password, server.port(),
                                        folderOf("there", round))});
    if (!client.waitForFinished(-1) || client.exitCode() != 0)
        throw std::runtime_error{"the other client failed: " + client.readAllStandardError().toStdString()};
}

QStringList makeFiles(const QString& folder, int count, int size) {
    QStringList names;
    for (int number = 0; number < count; ++number) {
        names << folder + u"/%1.dcm"_s.arg(number);
        QFile file{names.last()};
        if (!file.open(QIODevice::WriteOnly) ||
            file.write(QByteArray(size, static_cast<char>(number))) != size)
            throw std::runtime_error{"no room for the files"};
    }
    return names;
}

void compare(int count, int size) {
    const QTemporaryDir folder;
    const QStringList files = makeFiles(folder.path(), count, size);
    const FtpProduct server{FtpProduct::Kind::Vsftpd};
    double here = 1e9;
    double there = 1e9;
    Longest longest;
    for (int round = 0; round < Rounds; ++round) {  // in turns
        here = std::min(here, secondsOf([&] { longest.add(putHere(nodeOf(server, round), files)); }));
        there = std::min(there, secondsOf([&] { putThere(server, folder.path(), round); }));
        if (server.files().size() != qsizetype{2} * count * (round + 1))
            throw std::runtime_error{"not all files are there"};
    }
    std::printf("%6d of %4d KB       %8.0f/s   %8.0f/s   %5.2f   %8.1f ms %8.1f ms\n", count, size / 1000,
                count / here, count / there, there / here, longest.first * 1000, longest.other * 1000);
}

/// With what else there is: without TLS and with, to two servers.
void show(FtpProduct::Kind kind, const char* name, bool tls) {
    const QTemporaryDir folder;
    constexpr int Count = 500;
    const QStringList files = makeFiles(folder.path(), Count, 33'000);
    const FtpProduct server{kind, tls};
    if (tls)
        qputenv("SSL_CERT_FILE", server.certificate().toUtf8());
    Longest longest;
    double best = 1e9;
    for (int round = 0; round < Rounds; ++round)
        best = std::min(best, secondsOf([&] { longest.add(putHere(nodeOf(server, round), files)); }));
    std::printf("%-8s %-4s       %8.0f/s   %8.1f ms %8.1f ms\n", name, tls ? "TLS" : "", Count / best,
                longest.first * 1000, longest.other * 1000);
}

void measureMemory() {
    const QTemporaryDir folder;
    constexpr int Count = 20'000;
    const QStringList files = makeFiles(folder.path(), Count, 4'000);
    const FtpProduct server{FtpProduct::Kind::Vsftpd};
    const Node node = nodeOf(server);
    struct Peaks {
        double before = 0;  // what the bench itself has
        bench::Result after;
    };
    const Peaks peaks = bench::inChild([&] {
        const double before = bench::peakMegabytes();
        return Peaks{.before = before, .after = bench::measure([&] {
                                           (void)putHere(node, files);
                                           return std::size_t{Count};
                                       })};
    });
    std::printf("%d files of 4 KB: %.1f s, %.1f MB of memory more than before the first\n", Count,
                peaks.after.seconds, peaks.after.megabytes - peaks.before);
}

}  // namespace

void compareIn(const char* where, const char* temporary) {
    qputenv("TMPDIR", temporary);
    std::printf("files to vsftpd, %-9s Uploader     ncftpput   ratio   first file   longest other\n", where);
    compare(1000, 33'000);
    compare(200, 512'000);
    std::printf("\n");
}

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    QCoreApplication application{argc, argv};
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    return tessaly::runBench([] {
        compareIn("on disk", "/var/tmp");
        compareIn("in memory", "/dev/shm");  // no disk: what the clients themselves cost
        std::printf("500 of 33 KB in memory   Uploader   first file   longest other\n");
        show(FtpProduct::Kind::Vsftpd, "vsftpd", false);
        show(FtpProduct::Kind::Vsftpd, "vsftpd", true);
        show(FtpProduct::Kind::Proftpd, "proftpd", false);
        show(FtpProduct::Kind::Proftpd, "proftpd", true);
        std::printf("\n");
        measureMemory();
    });
}
