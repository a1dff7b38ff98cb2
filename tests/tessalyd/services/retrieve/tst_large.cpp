#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "dicom/net/ObjectSender.h"
#include "tests/tessalyd/Processes.h"
#include "tests/tessalyd/services/retrieve/MoveTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

namespace {

/// Bytes of pixel data. `./test` takes some that are more than the server may have in memory; the most that a
/// native object can say is 4,294,967,294.
std::uint32_t pixelBytes() {
    constexpr unsigned Usual = 200'000'000;
    bool isSet = false;
    const unsigned bytes = qEnvironmentVariable("TESSALY_TEST_OBJECT_BYTES").toUInt(&isSet);
    return isSet ? bytes : Usual;
}

std::vector<char> headerOf(std::uint32_t length) {
    const auto object = makeObject({.side = 16});
    DcmDataset& set = *object->getDataset();
    const std::unique_ptr<DcmElement> gone{set.remove(DCM_PixelData)};
    std::vector<char> bytes(1 << 16U);
    DcmOutputBufferStream stream{bytes.data(), static_cast<offile_off_t>(bytes.size())};
    set.transferInit();
    set.write(stream, EXS_LittleEndianExplicit, EET_ExplicitLength, nullptr);
    set.transferEnd();
    bytes.resize(static_cast<std::size_t>(stream.tell()));
    const QByteArray element = QByteArray::fromHex("e07f10004f570000");
    bytes.insert(bytes.end(), element.begin(), element.end());
    for (unsigned i = 0; i < sizeof length; ++i)
        bytes.push_back(static_cast<char>(length >> 8U * i));
    return bytes;
}

/// A data set that is made as it is read: a header, and pixels of which each eight bytes are their number.
class LargeObject : public dicom::OutgoingObject {
  public:
    explicit LargeObject(std::uint32_t length) : header_(headerOf(length)), length_(length) {}

    [[nodiscard]] const dicom::ObjectKind& kind() const noexcept override { return kind_; }
    [[nodiscard]] const std::string& sopInstanceUid() const noexcept override { return instance_; }
    [[nodiscard]] std::size_t size() const noexcept override { return header_.size() + length_; }
    void read(std::span<char> target) override {
        copy(at_, target);
        at_ += target.size();
    }
    [[nodiscard]] std::unique_ptr<OutgoingObject> in(const std::string& /*syntax*/) override {
        return nullptr;
    }

    /// What is at this place of the data set.
    void copy(std::size_t at, std::span<char> target) const {
        for (; !target.empty() && at < header_.size(); ++at, target = target.subspan(1))
            target.front() = header_[at];
        std::uint64_t number = (at - header_.size()) / sizeof number;
        std::size_t skipped = (at - header_.size()) % sizeof number;
        for (; !target.empty(); ++number, skipped = 0) {
            const std::size_t count = std::min(sizeof number - skipped, target.size());
            std::memcpy(target.data(), reinterpret_cast<const char*>(&number) + skipped, count);
            target = target.subspan(count);
        }
    }

  private:
    dicom::ObjectKind kind_{UID_CTImageStorage, UID_LittleEndianExplicitTransferSyntax};
    std::string instance_ = ObjectSpec{}.instance;
    std::vector<char> header_;
    std::uint32_t length_;
    std::size_t at_ = 0;
};

}  // namespace

/// An object that is larger than the server may be.
class LargeTest : public MoveTest {
    Q_OBJECT

  private Q_SLOTS:
    void itGoesInAndComesOutByteForByte();

  private:
    /// The peak of the server's memory, in kilobytes.
    [[nodiscard]] long long peakMemory() const;
};

long long LargeTest::peakMemory() const {
    return peakMemoryOf(daemon_->process.processId());
}

void LargeTest::itGoesInAndComesOutByteForByte() {
    LargeObject object{pixelBytes()};
    ScriptedServer server;
    std::atomic<std::size_t> came = 0;
    std::atomic<bool> isEqual = true;
    server.on(CommandField::CStore, [&](const Request& request, Association& association) {
        std::vector<char> wanted;
        (void)association.receiveDataSet([&](std::span<const char> part) {
            wanted.resize(part.size());
            object.copy(came, wanted);
            isEqual = isEqual && std::equal(part.begin(), part.end(), wanted.begin());
            came += part.size();
        });
        association.respond(request, STATUS_Success);
    });
    launchWith({destination(server.port())});
    const long long before = peakMemory();
    {
        dicom::ObjectSender sender{{.host = "127.0.0.1",
                                    .port = daemon_->port().toUShort(),
                                    .callingAeTitle = "MODALITY",
                                    .calledAeTitle = "TESSALY"},
                                   {object.kind()},
                                   {},
                                   {.silence = std::chrono::hours{1}}};
        const dicom::SendResult stored = sender.send(object);
        QVERIFY2(stored.outcome == dicom::SendResult::Outcome::Success, stored.detail.c_str());
    }
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, 0);
    QCOMPARE(moved.counters, (Progress{-1, 1, 0, 0}));
    QCOMPARE(came.load(), object.size());
    QVERIFY(isEqual);
    constexpr long long Most = 64 << 10;
    const long long grown = peakMemory() - before;
    QVERIFY2(grown < Most, qPrintable(QString::number(grown)));
}

QTEST_GUILESS_MAIN(LargeTest)
#include "tst_large.moc"
