#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>

#include "dicom/net/ObjectSender.h"
#include "tests/tessalyd/Processes.h"
#include "tests/tessalyd/services/retrieve/MoveTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

namespace {

/// Bytes of pixel data. `./test` takes some that are more than the server may have in memory; the variable
/// says otherwise.
std::uint64_t pixelBytes(const char* variable, std::uint64_t usual) {
    bool isSet = false;
    const auto bytes = qEnvironmentVariable(variable).toULongLong(&isSet);
    return isSet ? bytes : usual;
}

void put(std::vector<char>& bytes, std::uint64_t number, unsigned size) {
    for (unsigned i = 0; i < size; ++i)
        bytes.push_back(static_cast<char>(number >> 8U * i));
}

/// An element of the group of pixel data, up to its value.
void putHead(std::vector<char>& bytes, std::uint16_t element, const char* vr, std::uint32_t length) {
    put(bytes, 0x7fe0, 2);
    put(bytes, element, 2);
    bytes.insert(bytes.end(), vr, vr + 2);
    put(bytes, 0, 2);
    put(bytes, length, 4);
}

void putItem(std::vector<char>& bytes, std::uint16_t element, std::uint32_t length) {
    put(bytes, 0xfffe, 2);
    put(bytes, element, 2);
    put(bytes, length, 4);
}

/// What stands before the group of pixel data.
std::vector<char> headerOf(const char* sopClass, int frames) {
    const auto object = makeObject({.side = 16, .sopClass = sopClass});
    DcmDataset& set = *object->getDataset();
    const std::unique_ptr<DcmElement> gone{set.remove(DCM_PixelData)};
    if (frames > 1)
        set.putAndInsertString(DCM_NumberOfFrames, std::to_string(frames).c_str());
    std::vector<char> bytes(1 << 16U);
    DcmOutputBufferStream stream{bytes.data(), static_cast<offile_off_t>(bytes.size())};
    set.transferInit();
    set.write(stream, EXS_LittleEndianExplicit, EET_ExplicitLength, nullptr);
    set.transferEnd();
    bytes.resize(static_cast<std::size_t>(stream.tell()));
    return bytes;
}

/// A data set that is made as it is read: a header, and pixels of which each eight bytes are their number. In
/// fragments, each begins with an item.
class LargeObject : public dicom::OutgoingObject {
  public:
    /// With one element of that length; a film of some frames.
    LargeObject(std::uint64_t length, int frames)
        : kind_{frames > 1 ? FilmClass : UID_CTImageStorage, UID_LittleEndianExplicitTransferSyntax},
          header_(headerOf(kind_.sopClass.c_str(), frames)),
          part_(length),
          count_(1) {
        putHead(header_, 0x0010, "OW", static_cast<std::uint32_t>(length));
    }
    /// Of fragments, each a frame, whose places are in an extended offset table.
    static LargeObject ofFragments(std::uint64_t length) {
        constexpr std::uint64_t Fragment = 64 << 10U;
        LargeObject made;
        made.part_ = Fragment;
        made.count_ = length / Fragment;
        made.header_ = headerOf(made.kind_.sopClass.c_str(), static_cast<int>(made.count_));
        made.putTable(0x0001, [](std::uint64_t i) { return i * (Fragment + ItemHead); });
        made.putTable(0x0002, [](std::uint64_t) { return Fragment; });
        putHead(made.header_, 0x0010, "OB", 0xffffffff);
        putItem(made.header_, 0xe000, 0);  // the basic offset table
        putItem(made.itemHead_, 0xe000, Fragment);
        putItem(made.end_, 0xe0dd, 0);
        return made;
    }

    [[nodiscard]] const dicom::ObjectKind& kind() const noexcept override { return kind_; }
    [[nodiscard]] const std::string& sopInstanceUid() const noexcept override { return instance_; }
    [[nodiscard]] std::size_t size() const noexcept override {
        return header_.size() + count_ * (itemHead_.size() + part_) + end_.size();
    }
    void read(std::span<char> target) override {
        copy(at_, target);
        at_ += target.size();
    }
    [[nodiscard]] std::unique_ptr<OutgoingObject> in(const std::string& /*syntax*/) override {
        return nullptr;
    }

    /// What is at this place of the data set.
    void copy(std::size_t at, std::span<char> target) const {
        while (!target.empty()) {
            const std::size_t count = copyPiece(at, target);
            at += count;
            target = target.subspan(count);
        }
    }

  private:
    static constexpr std::uint64_t ItemHead = 8;

    LargeObject() : kind_{FilmClass, UID_JPEG2000LosslessOnlyTransferSyntax} {}

    template <class Value>
    void putTable(std::uint16_t element, const Value& value) {
        putHead(header_, element, "OV", static_cast<std::uint32_t>(count_ * 8));
        for (std::uint64_t i = 0; i < count_; ++i)
            put(header_, value(i), 8);
    }

    [[nodiscard]] static std::size_t take(std::span<const char> source, std::size_t at,
                                          std::span<char> target) {
        const std::size_t count = std::min(source.size() - at, target.size());
        std::copy_n(source.begin() + static_cast<std::ptrdiff_t>(at), count, target.begin());
        return count;
    }
    [[nodiscard]] std::size_t copyPiece(std::size_t at, std::span<char> target) const {
        if (at < header_.size())
            return take(header_, at, target);
        const std::size_t unit = itemHead_.size() + part_;
        const std::size_t inBody = at - header_.size();
        if (inBody >= count_ * unit)
            return take(end_, inBody - count_ * unit, target);
        const std::size_t inUnit = inBody % unit;
        if (inUnit < itemHead_.size())
            return take(itemHead_, inUnit, target);
        target = target.first(std::min(target.size(), unit - inUnit));
        fill(inBody, target);
        return target.size();
    }
    /// Numbers by the place in the body, so that no two parts are alike.
    static void fill(std::size_t at, std::span<char> target) {
        std::uint64_t number = at / sizeof number;
        std::size_t skipped = at % sizeof number;
        for (; !target.empty(); ++number, skipped = 0) {
            const std::size_t count = std::min(sizeof number - skipped, target.size());
            std::memcpy(target.data(), reinterpret_cast<const char*>(&number) + skipped, count);
            target = target.subspan(count);
        }
    }

    dicom::ObjectKind kind_;
    std::string instance_ = ObjectSpec{}.instance;
    std::vector<char> header_;
    std::vector<char> itemHead_;
    std::vector<char> end_;
    std::uint64_t part_ = 0;
    std::uint64_t count_ = 0;
    std::size_t at_ = 0;
};

LargeObject objectOf(const QString& kind) {
    if (kind == u"native")
        return {pixelBytes("TESSALY_TEST_OBJECT_BYTES", 200'000'000), 1};
    if (kind == u"film")
        return {pixelBytes("TESSALY_TEST_FILM_BYTES", 100'000'000), 1000};
    return LargeObject::ofFragments(pixelBytes("TESSALY_TEST_FRAGMENT_BYTES", 100'000'000));
}

/// Compares what comes with the object.
class Comparison {
  public:
    explicit Comparison(const LargeObject& object) : object_(object) {}
    void take(std::span<const char> part) {
        wanted_.resize(part.size());
        object_.copy(came_, wanted_);
        isEqual_ = isEqual_ && std::equal(part.begin(), part.end(), wanted_.begin());
        came_ += part.size();
    }
    [[nodiscard]] bool isWhole() const { return isEqual_ && came_ == object_.size(); }

  private:
    const LargeObject& object_;
    std::vector<char> wanted_;
    std::atomic<std::size_t> came_ = 0;
    std::atomic<bool> isEqual_ = true;
};

}  // namespace

/// An object that is larger than the server may be.
class LargeTest : public MoveTest {
    Q_OBJECT

  private Q_SLOTS:
    void itGoesInAndComesOutByteForByte_data();
    void itGoesInAndComesOutByteForByte();
    void aStudyOfManyObjectsComesOutWhole();

  private:
    using Take = std::function<void(const std::string& instance, std::span<const char> part)>;

    /// The peak of the server's memory, in kilobytes.
    [[nodiscard]] long long peakMemory() const { return peakMemoryOf(daemon_->process.processId()); }
    void send(LargeObject& object) const;
    void fetch(const dicom::ObjectKind& kind, const Take& take) const;
};

void LargeTest::send(LargeObject& object) const {
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

/// By C-GET, without keeping it.
void LargeTest::fetch(const dicom::ObjectKind& kind, const Take& take) const {
    constexpr std::chrono::seconds Patience{600};
    const auto association = dicom::openAssociation({.host = "127.0.0.1",
                                                     .port = daemon_->port().toUShort(),
                                                     .callingAeTitle = "VIEWER",
                                                     .calledAeTitle = "TESSALY"},
                                                    {{.sopClass = GetClass, .transferSyntaxes = {Explicit}},
                                                     {.sopClass = kind.sopClass,
                                                      .transferSyntaxes = {kind.transferSyntax},
                                                      .roles = dicom::bit(dicom::Role::Scp)}},
                                                    {}, {});
    QCOMPARE(association->contexts().size(), std::size_t{2});
    dicom::MessageStream& messages = association->messages();
    auto get = dicom::Command::request(dicom::CommandField::CGet, messages.nextMessageId());
    get.set(DCM_AffectedSOPClassUID, GetClass).set(DCM_Priority, std::uint16_t{0});
    DcmDataset identifier;
    identifier.putAndInsertString(DCM_QueryRetrieveLevel, "STUDY");
    identifier.putAndInsertString(DCM_StudyInstanceUID, Study);
    messages.send(association->contexts().front(), get, &identifier);
    for (;;) {
        const auto received = messages.receive(Patience);
        const dicom::Command& command = received.command;
        if (command.isResponse()) {
            if ((command.status() & 0xff00) == 0xff00)
                continue;
            QCOMPARE(command.status(), 0);
            break;
        }
        (void)messages.receiveDataSet(
            Patience, [&](std::span<const char> part) { take(command.sopInstanceUid(), part); });
        messages.send(association->contexts().back(), dicom::Command::responseTo(command, 0));
    }
    association->release();
}

void LargeTest::itGoesInAndComesOutByteForByte_data() {
    QTest::addColumn<QString>("kind");
    for (const char* kind : {"native", "fragments", "film"})
        QTest::newRow(kind) << QString::fromLatin1(kind);
}

void LargeTest::itGoesInAndComesOutByteForByte() {
    QFETCH(QString, kind);
    LargeObject object = objectOf(kind);
    constexpr long long Most = 64 << 10;
    Comparison moved{object};
    ScriptedServer server;
    server.on(CommandField::CStore, [&](const Request& request, Association& association) {
        (void)association.receiveDataSet([&](std::span<const char> part) { moved.take(part); });
        association.respond(request, STATUS_Success);
    });
    launchWith({destination(server.port())});
    const long long before = peakMemory();
    send(object);
    Comparison fetched{object};
    fetch(object.kind(), [&](const std::string&, std::span<const char> part) { fetched.take(part); });
    QVERIFY(fetched.isWhole());
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    const Retrieved answer = viewer.collect();
    QCOMPARE(answer.status, 0);
    QCOMPARE(answer.counters, (Progress{-1, 1, 0, 0}));
    QVERIFY(moved.isWhole());
    const long long grown = peakMemory() - before;
    QVERIFY2(grown < Most, qPrintable(QString::number(grown)));
}

void LargeTest::aStudyOfManyObjectsComesOutWhole() {
    constexpr int Side = 8;
    constexpr long long Most = 64 << 10;
    const int count = static_cast<int>(pixelBytes("TESSALY_TEST_STUDY_OBJECTS", 300));
    std::mutex mutex;
    QMap<QString, QByteArray> moved;
    ScriptedServer server;
    server.on(CommandField::CStore, [&](const Request& request, Association& association) {
        QByteArray bytes;
        (void)association.receiveDataSet([&](std::span<const char> part) {
            bytes.append(part.data(), static_cast<qsizetype>(part.size()));
        });
        const std::lock_guard lock{mutex};
        moved[QString::fromStdString(request.command.sopInstanceUid())] = bytes;
        association.respond(request, STATUS_Success);
    });
    launchWith({destination(server.port())});
    const long long before = peakMemory();
    QCOMPARE(storeStudy(count, Side).size(), count);
    QMap<QString, QByteArray> fetched;
    fetch({CtClass, Explicit}, [&](const std::string& instance, std::span<const char> part) {
        fetched[QString::fromStdString(instance)].append(part.data(), static_cast<qsizetype>(part.size()));
    });
    const auto stored = storedDataSets();
    QCOMPARE(stored.size(), count);
    QVERIFY(fetched == stored);
    Retriever viewer{daemon_->port()};
    askForMove(viewer);
    const Retrieved answer = viewer.collect();
    QCOMPARE(answer.status, 0);
    QCOMPARE(answer.counters, (Progress{-1, count, 0, 0}));
    QVERIFY(moved == stored);
    const long long grown = peakMemory() - before;
    QVERIFY2(grown < Most, qPrintable(QString::number(grown)));
}

QTEST_GUILESS_MAIN(LargeTest)
#include "tst_large.moc"
