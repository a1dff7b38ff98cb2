#include "tests/tessalyd/HostilePeers.h"

#include <dcmtk/dcmdata/dcuid.h>

#include <QRandomGenerator>
#include <exception>

#include "tests/tessalyd/Finding.h"
#include "tests/tessalyd/HostileObjects.h"
#include "tests/tessalyd/RawPeer.h"
#include "tests/tessalyd/RequestorAssociation.h"

namespace tessaly::test {

namespace {

using namespace std::chrono_literals;

const std::string Instance = "1.2.826.0.1.666";

/// A thread of the test's own sleeps: nothing is waited for.
void sleepUnlessStopped(std::chrono::milliseconds time, const std::stop_token& stop) {
    constexpr auto Interval = 20ms;
    for (auto left = time; left > 0ms && !stop.stop_requested(); left -= Interval)
        std::this_thread::sleep_for(Interval);
}

std::vector<RequestorAssociation::Context> storageIn(const std::string& syntax) {
    return {{UID_VerificationSOPClass, {UID_LittleEndianImplicitTransferSyntax}},
            {UID_CTImageStorage, {syntax}}};
}

QByteArray randomBytes(qsizetype size) {
    QByteArray bytes(size, Qt::Uninitialized);
    for (char& byte : bytes)
        byte = static_cast<char>(QRandomGenerator::global()->bounded(256));
    return bytes;
}

/// Keeps connections open that say something every now and then, or nothing.
void keepOpen(const QString& port, const QByteArray& first, const std::stop_token& stop) {
    constexpr int Connections = 30;
    constexpr int Times = 10;
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (int i = 0; i < Connections && !stop.stop_requested(); ++i) {
        peers.push_back(std::make_unique<RawPeer>(port, static_cast<std::uint8_t>(2 + i % 3)));
        peers.back()->send(first);
    }
    for (int time = 0; time < Times && !stop.stop_requested(); ++time) {
        sleepUnlessStopped(1s, stop);
        if (!first.isEmpty()) {
            for (const auto& peer : peers)
                peer->send(QByteArray(1, '\x04'));  // the beginning of a PDU, byte by byte
        }
    }
}

}  // namespace

HostilePeers::HostilePeers(QString asTheyCome, QString decoding, std::string querier)
    : asTheyCome_(std::move(asTheyCome)), decoding_(std::move(decoding)), querier_(std::move(querier)) {
    startPeers();
    startSenders();
    startRequestors();
}

HostilePeers::~HostilePeers() {
    for (std::jthread& thread : threads_)
        thread.request_stop();
}

void HostilePeers::repeat(const char* kind, Round round) {
    Tally& tally = *tallies_.emplace_back(std::make_unique<Tally>(kind));
    threads_.emplace_back([&tally, round = std::move(round)](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            try {
                round(stop);
                ++tally.rounds;
            } catch (const std::exception&) {  // refused or thrown out
                sleepUnlessStopped(100ms, stop);
            }
        }
    });
}

void HostilePeers::startPeers() {
    repeat("silent connections", [this](const auto& stop) { keepOpen(asTheyCome_, {}, stop); });
    repeat("associations of a byte now and then",
           [this](const auto& stop) { keepOpen(asTheyCome_, associationRequest(), stop); });
    repeat("rejected requests", [this](const auto& stop) {
        const RawPeer peer{asTheyCome_, 5};
        peer.send(associationRequest("1.2.3"));
        peer.waitForEnd(1s, stop);
    });
    repeat("random PDUs", [this](const auto& stop) {
        const RawPeer peer{asTheyCome_, 6};
        peer.send(associationRequest());
        peer.send(QByteArray(1, static_cast<char>(QRandomGenerator::global()->bounded(8))) +
                  randomBytes(4096));
        peer.waitForEnd(200ms, stop);
    });
}

void HostilePeers::startSenders() {
    for (const HostileObject& object : objectsAgainstDecoders(Instance)) {
        repeat(object.kind, [this, object](const auto& /*stop*/) {
            RequestorAssociation peer{decoding_, "HOSTILE", "TESSALY", storageIn(object.transferSyntax)};
            static_cast<void>(peer.storeBytes(Instance, object.dataSet));
        });
    }
    for (const HostileObject& object : objectsAgainstReaders(Instance)) {
        repeat(object.kind, [this, object](const auto& /*stop*/) {
            RequestorAssociation peer{asTheyCome_, "HOSTILE", "TESSALY", storageIn(object.transferSyntax)};
            static_cast<void>(peer.storeBytes(Instance, object.dataSet));
        });
    }
}

void HostilePeers::startRequestors() {
    const std::vector<RequestorAssociation::Context> implicit{
        {UID_VerificationSOPClass, {UID_LittleEndianImplicitTransferSyntax}},
        {PatientRootFind, {UID_LittleEndianImplicitTransferSyntax}},
        {StudyRootFind, {UID_LittleEndianImplicitTransferSyntax}}};
    repeat("a million modalities", [this, implicit](const auto& /*stop*/) {
        RequestorAssociation peer{asTheyCome_, querier_, "TESSALY", implicit};
        static_cast<void>(Finding{peer, identifierWithModalities(1'000'000)}.next());
    });
    for (int i = 0; i < 8; ++i) {
        repeat("a requestor that reads no answers", [this, implicit](const auto& stop) {
            RequestorAssociation peer{asTheyCome_, querier_, "TESSALY", implicit};
            const Finding all{peer, identifierWithModalities(1)};
            sleepUnlessStopped(5s, stop);
        });
    }
}

}  // namespace tessaly::test
