// How fast objects are sent to a peer, beside another product's sender, to the same receiver, which writes
// nothing. Prints a table; judges nothing.

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <vector>

#include "dicom/data/ObjectFile.h"
#include "dicom/net/ObjectSender.h"
#include "tests/dicom/net/Peers.h"
#include "tests/tessalyd/Objects.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

constexpr int Rounds = 5;

double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void sendHere(const QString& port, const QStringList& files) {
    std::unique_ptr<dicom::ObjectSender> sender;
    for (const QString& file : files) {
        dicom::ObjectFile object{file.toStdString()};
        if (!sender) {
            sender = std::make_unique<dicom::ObjectSender>(dicom::PeerAddress{.host = "127.0.0.1",
                                                                              .port = port.toUShort(),
                                                                              .callingAeTitle = "TESSALY",
                                                                              .calledAeTitle = "PEER"},
                                                           std::vector{object.kind()}, std::stop_token{});
        }
        const dicom::SendResult result = sender->send(object);
        if (result.outcome != dicom::SendResult::Outcome::Success)
            throw std::runtime_error{result.detail};
    }
}

void sendThere(const QString& port, const QString& folder) {
    QProcess sender;
    sender.start(u"storescu"_s, {u"+sd"_s, u"127.0.0.1"_s, port, folder});
    if (!sender.waitForFinished(-1) || sender.exitCode() != 0)
        throw std::runtime_error{"the other sender failed"};
}

void compare(int count, int side) {
    const QTemporaryDir folder;
    QStringList files;
    for (int i = 0; i < count; ++i)
        files << writeObject({.instance = "1.2.3." + std::to_string(i + 1), .side = side, .seed = i},
                             folder.filePath(u"%1.dcm"_s.arg(i)));
    const auto peer = Product::storescp({u"--ignore"_s});
    double here = 1e9;
    double there = 1e9;
    for (int round = 0; round < Rounds; ++round) {  // in turns
        here = std::min(here, secondsOf([&] { sendHere(peer->port(), files); }));
        there = std::min(there, secondsOf([&] { sendThere(peer->port(), folder.path()); }));
    }
    std::printf("%6d of %9.1f KB   %8.0f/s   %8.0f/s   %5.2f\n", count,
                static_cast<double>(dataSetOf(files.first()).size()) / 1024, count / here, count / there,
                there / here);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application{argc, argv};
    qputenv("TCP_NODELAY", "1");  // for the other product, on both sides
    std::printf("objects                 ObjectSender     storescu   ratio\n");
    compare(2000, 128);
    compare(20, 3000);
}
