#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <fcntl.h>

#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QTimer>
#include <array>
#include <future>

#include "base/FileDescriptor.h"
#include "dicom/data/DataSetWalk.h"
#include "tessalyd/association/CommandLengthLimit.h"
#include "tessalyd/association/Transport.h"
#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/RequestorAssociation.h"

using namespace Qt::StringLiterals;
using namespace tessaly::dicom;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

namespace {

/// Keeps the connection that comes, as it came.
class Doorkeeper : public QTcpServer {
  public:
    Doorkeeper() { listen(QHostAddress::LocalHost); }

    tessaly::base::FileDescriptor accepted;

  protected:
    void incomingConnection(qintptr socket) override {
        accepted = tessaly::base::FileDescriptor{static_cast<int>(socket)};
        ::fcntl(accepted.get(), F_SETFL, 0);  // what reads it means to wait
    }
};

}  // namespace

/// What a peer may cost the server at most: stack, memory, time.
class BoundsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void sequencesAreCountedInEveryEncoding_data();
    void sequencesAreCountedInEveryEncoding();
    void whatLooksLikeSequencesIsPassedOver();
    void whatIsUnknownComesInTheDefaultSyntax();
    void noDisguiseHidesTheDepth_data();
    void noDisguiseHidesTheDepth();
    void whatAValueHoldsMayLookLikeAnything();
    void cutValuesAreNoticed_data();
    void cutValuesAreNoticed();
    void cutHeadersAreNoticed_data();
    void cutHeadersAreNoticed();
    void commandsAreMeasuredInWhateverPartsTheyCome();
    void lengthsThatDoNotFitAreNoticed();
    void aRequestThatComesSlowlyIsGivenUp();

  private:
    [[nodiscard]] static std::span<const char> view(const QByteArray& bytes) {
        return {bytes.data(), static_cast<std::size_t>(bytes.size())};
    }
    [[nodiscard]] static QByteArray encoded(DcmDataset& set, E_TransferSyntax syntax, bool lengths) {
        QByteArray data(64 << 10, '\0');
        DcmOutputBufferStream stream{data.data(), static_cast<offile_off_t>(data.size())};
        set.transferInit();
        set.write(stream, syntax, lengths ? EET_ExplicitLength : EET_UndefinedLength, nullptr);
        return data.first(static_cast<qsizetype>(stream.tell()));
    }
    [[nodiscard]] static bool isDeep(const QByteArray& data,
                                     E_TransferSyntax syntax = EXS_LittleEndianExplicit,
                                     const DcmTagKey& end = DcmTagKey{0xffff, 0xffff}) {
        return exceedsNestingLimit(view(data), syntax, end);
    }
};

void BoundsTest::sequencesAreCountedInEveryEncoding_data() {
    QTest::addColumn<int>("syntax");
    QTest::addColumn<bool>("lengths");
    for (const E_TransferSyntax syntax :
         {EXS_LittleEndianImplicit, EXS_LittleEndianExplicit, EXS_BigEndianExplicit}) {
        for (const bool lengths : {false, true})
            QTest::addRow("%s, %s lengths", DcmXfer{syntax}.getXferName(), lengths ? "with" : "without")
                << static_cast<int>(syntax) << lengths;
    }
}

void BoundsTest::sequencesAreCountedInEveryEncoding() {
    QFETCH(const int, syntax);
    QFETCH(const bool, lengths);
    const auto isTooDeep = [&](int depth) {
        DcmDataset set;
        DcmItem* innermost = &set;
        for (int i = 0; i < depth; ++i) {
            // A second one beside each must not add to the depth.
            innermost->putAndInsertString(DCM_SOPInstanceUID, "1.2");
            innermost->findOrCreateSequenceItem(DCM_SourceImageSequence, innermost);
        }
        DcmItem* beside = nullptr;
        for (int i = 0; i < 200; ++i)
            set.findOrCreateSequenceItem(DCM_ReferencedStudySequence, beside, -2);
        const auto transferSyntax = static_cast<E_TransferSyntax>(syntax);
        return isDeep(encoded(set, transferSyntax, lengths), transferSyntax);
    };
    QVERIFY(!isTooDeep(0));
    QVERIFY(!isTooDeep(64));
    QVERIFY(isTooDeep(65));
}

void BoundsTest::whatLooksLikeSequencesIsPassedOver() {
    const auto sequences = nestedSequences(65);
    const QByteArray nested{sequences.data(), static_cast<qsizetype>(sequences.size())};
    QVERIFY(isDeep(nested));
    for (qsizetype size = 0; size < nested.size() - 8; ++size)
        QVERIFY(!isDeep(nested.first(size)));
    QVERIFY(!isDeep(nested, EXS_LittleEndianExplicit, DCM_ReferencedImageSequence));
    // In a fragment of pixels.
    const QByteArray fragment = QByteArray::fromHex("e07f1000") + "OB" +
                                QByteArray::fromHex("0000fffffffffeff00e000000000feff00e01c050000") + nested;
    QCOMPARE(nested.size() + 8, 0x51c);
    QVERIFY(!isDeep(fragment));
}

void BoundsTest::whatIsUnknownComesInTheDefaultSyntax() {
    const auto sequences = nestedSequences(65, EXS_LittleEndianImplicit);
    const QByteArray content = QByteArray::fromHex("feff00e0ffffffff") +
                               QByteArray{sequences.data(), static_cast<qsizetype>(sequences.size())};
    QVERIFY(isDeep(QByteArray::fromHex("09000110") + "UN" + QByteArray::fromHex("0000ffffffff") + content));
    QVERIFY(isDeep(QByteArray::fromHex("00091001") + "UN" + QByteArray::fromHex("0000ffffffff") + content,
                   EXS_BigEndianExplicit));
}

void BoundsTest::noDisguiseHidesTheDepth_data() {
    QTest::addColumn<QByteArray>("sequence");
    const auto row = [](const char* name, const char* header, const char* item) {
        QTest::newRow(name) << QByteArray::fromHex(header) + QByteArray::fromHex(item);
    };
    row("shorter than what is in it", "080040115351000008000000", "feff00e0ffffffff");
    row("in an item that is shorter", "0800401153510000ffffffff", "feff00e008000000");
    row("in the place of the pixels", "e07f100053510000ffffffff", "feff00e0ffffffff");
    row("between delimiters that end nothing", "0800401153510000ffffffff",
        "feff00e000000010feff0de000000000feff00e0ffffffff");
}

void BoundsTest::noDisguiseHidesTheDepth() {
    QFETCH(const QByteArray, sequence);
    QVERIFY(isDeep(sequence.repeated(200)));
}

void BoundsTest::whatAValueHoldsMayLookLikeAnything() {
    const QByteArray elementBehind =
        QByteArray::fromHex("10001000") + "PN" + QByteArray::fromHex("0400") + "Doe ";
    for (const char* content :
         {"feff00e0ffffffff"
          "08001600"
          "55490200312e"
          "feffdde000000000"
          "01020304",  // explicit
          "feff00e004000000"
          "01020304"
          "0506070809aabbccddeeff00",
          "feff00e0ffffffff"
          "0102030405060708090a0b0c0d0e0f10",
          "feff00e0fffffffffeff0de000000000feff0de000000000feffdde000000000ffffffffffffffff"}) {
        for (const char* vr : {"OB", "UN", "SQ"}) {
            const QByteArray value = QByteArray::fromHex(content);
            const QByteArray data = QByteArray::fromHex("09000110") + vr + QByteArray::fromHex("0000") +
                                    static_cast<char>(value.size()) + QByteArray(3, '\0') + value +
                                    elementBehind;
            QVERIFY2(!isTruncated(view(data), EXS_LittleEndianExplicit), content);
            QVERIFY2(isTruncated(view(data.chopped(1)), EXS_LittleEndianExplicit), content);
            QVERIFY2(isTruncated(view(data.chopped(elementBehind.size() + 1)), EXS_LittleEndianExplicit),
                     content);
        }
    }
}

void BoundsTest::cutValuesAreNoticed_data() {
    sequencesAreCountedInEveryEncoding_data();
}

void BoundsTest::cutValuesAreNoticed() {
    QFETCH(const int, syntax);
    QFETCH(const bool, lengths);
    const auto transferSyntax = static_cast<E_TransferSyntax>(syntax);
    DcmDataset set;
    DcmItem* item = nullptr;
    for (const char* uid : {"1.2.3.4", "1.2.3.5"}) {
        set.findOrCreateSequenceItem(DCM_SourceImageSequence, item, -2);
        item->putAndInsertString(DCM_ReferencedSOPInstanceUID, uid);
    }
    const QByteArray data = encoded(set, transferSyntax, lengths);
    QVERIFY(!isTruncated(view(data), transferSyntax));
    constexpr int Delimiters = 16;  // of the last item and of the sequence: some devices leave them out
    const qsizetype end = lengths ? data.size() : data.size() - Delimiters;
    QVERIFY(!isTruncated(view(data.first(end)), transferSyntax));
    for (int missing = 1; missing <= 8; ++missing)
        QVERIFY2(isTruncated(view(data.first(end - missing)), transferSyntax),
                 qPrintable(QString::number(missing)));
    QVERIFY(!isTruncated(view(data + QByteArray(64, '\0')), transferSyntax));  // padding
}

void BoundsTest::cutHeadersAreNoticed_data() {
    sequencesAreCountedInEveryEncoding_data();
}

void BoundsTest::cutHeadersAreNoticed() {
    QFETCH(const int, syntax);
    QFETCH(const bool, lengths);
    const auto transferSyntax = static_cast<E_TransferSyntax>(syntax);
    DcmDataset set;
    set.putAndInsertUint16(DCM_Rows, 1);
    const QByteArray before = encoded(set, transferSyntax, lengths);
    constexpr std::array<Uint16, 4> Pixels{1, 2, 3, 4};
    set.putAndInsertUint16Array(DCM_PixelData, Pixels.data(), Pixels.size());
    const QByteArray data = encoded(set, transferSyntax, lengths);
    QVERIFY(data.startsWith(before));
    QVERIFY(!isTruncated(view(data), transferSyntax));
    QVERIFY(!isTruncated(view(before), transferSyntax));
    for (int more = 1; more <= 11; ++more) {
        QVERIFY2(isTruncated(view(data.first(before.size() + more)), transferSyntax),
                 qPrintable(QString::number(more)));
        QVERIFY2(!isTruncated(view(data + QByteArray(more, '\0')), transferSyntax),
                 qPrintable(QString::number(more)));
    }
}

void BoundsTest::commandsAreMeasuredInWhateverPartsTheyCome() {
    const auto pdu = [](int bytes, char flags) {
        QByteArray header = QByteArray::fromHex("0400");
        for (const int length : {bytes + 6, bytes + 2})
            header += QByteArray::fromHex(QByteArray::number(length, 16).rightJustified(8, '0'));
        return header + '\1' + flags + QByteArray(bytes, 'x');
    };
    constexpr char Command = 1;
    constexpr char LastOfCommand = 3;
    constexpr char Data = 0;
    const QByteArray fits = associationRequest() + pdu(100'000, Data) + pdu(2048, Command) +
                            pdu(2048, LastOfCommand) + pdu(4096, LastOfCommand) + pdu(100'000, Data);
    for (const int part : {1, 5, 6, 7, 65536, static_cast<int>(fits.size())}) {
        CommandLengthLimit meter;
        bool good = true;
        for (qsizetype at = 0; at < fits.size(); at += part) {
            const QByteArray bytes = fits.mid(at, part);
            good = good && meter.follow(view(bytes));
        }
        QVERIFY2(good, qPrintable(QString::number(part)));
        QByteArray more = pdu(4095, Command);
        QVERIFY(meter.follow(view(more)));
        more = pdu(2, LastOfCommand);
        QVERIFY(!meter.follow(view(more)));
    }
}

void BoundsTest::lengthsThatDoNotFitAreNoticed() {
    for (const char* hex : {"040000000005000000010102",    // no room for the header of a part
                            "0400000000060000000101ff",    // a part without its context and flags
                            "04000000000600000003010200",  // a part longer than what holds it
                            "040000000006ffffffff0102"}) {
        const QByteArray bytes = QByteArray::fromHex(hex);
        CommandLengthLimit meter;
        QVERIFY2(!meter.follow(view(bytes)), hex);
    }
}

void BoundsTest::aRequestThatComesSlowlyIsGivenUp() {
    Transport transport{{.request = std::chrono::seconds{1}}};
    const QByteArray request = associationRequest();
    for (const bool slowly : {false, true}) {
        Doorkeeper door;
        QTcpSocket peer;
        peer.connectToHost(door.serverAddress(), door.serverPort());
        EVENTUALLY(door.accepted.isOpen() && peer.state() == QAbstractSocket::ConnectedState);
        // Slowly: in time for every single wait, and all the same far too late for the whole.
        constexpr qsizetype Head = 10;
        qsizetype sent = peer.write(slowly ? request.first(Head) : request);
        QVERIFY(peer.flush());
        QTimer drip;
        connect(&drip, &QTimer::timeout, &peer, [&] { sent += peer.write(request.mid(sent, 1)); });
        drip.start(100);
        auto received = std::async(std::launch::async, [&transport, &door] {
            std::stop_source stop;
            AssociationPtr association;
            return transport.receive(std::move(door.accepted), stop.get_token(), association).good();
        });
        EVENTUALLY(received.wait_for(std::chrono::seconds::zero()) == std::future_status::ready);
        QCOMPARE(received.get(), !slowly);
        QCOMPARE(sent == request.size(), !slowly);
    }
}

QTEST_GUILESS_MAIN(BoundsTest)
#include "tst_bounds.moc"
