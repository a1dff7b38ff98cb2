#include <dcmtk/dcmdata/dcuid.h>

#include <QtEndian>
#include <array>

#include "dicom/data/ObjectHeader.h"
#include "dicom/data/TransferSyntaxes.h"
#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/Deflated.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
using tessaly::dicom::HeaderReader;
using tessaly::dicom::ObjectHeader;
using tessaly::dicom::TransferSyntax;

namespace {

const TransferSyntax Deflated{EXS_DeflatedLittleEndianExplicit};
constexpr const char* Instance = "1.2.826.0.1.1.1.1";

std::span<const char> view(const QByteArray& bytes) {
    return {bytes.data(), static_cast<std::size_t>(bytes.size())};
}

/// A private element of zeros, in explicit little endian.
QByteArray zeros(quint32 length) {
    QByteArray size(4, '\0');
    qToLittleEndian(length, size.data());
    return QByteArray::fromHex("09000110") + QByteArray{"OB\0\0", 4} + size +
           QByteArray(static_cast<qsizetype>(length), '\0');
}

QByteArray plainObject() {
    return dataSetIn(TransferSyntax{EXS_LittleEndianExplicit}, {.instance = Instance});
}

/// The object with the bytes behind its SOP instance UID, where the header goes on.
QByteArray withBehindInstance(const QByteArray& added) {
    QByteArray object = plainObject();
    const QByteArray uid{Instance};
    return object.insert(object.indexOf(uid) + uid.size() + uid.size() % 2, added);
}

/// The beginning of a raw deflate stream that goes on behind the bytes, which stand in it as they are.
QByteArray openStream(const QByteArray& plain) {
    constexpr qsizetype LongestBlock = 65535;
    QByteArray stream;
    for (qsizetype at = 0; at < plain.size(); at += LongestBlock) {
        const QByteArray block = plain.mid(at, LongestBlock);
        const auto length = static_cast<quint16>(block.size());
        std::array<char, 5> head{};  // stored, and not the last
        qToLittleEndian(length, head.data() + 1);
        qToLittleEndian(static_cast<quint16>(~length), head.data() + 3);
        stream += QByteArray{head.data(), head.size()} + block;
    }
    return stream;
}

/// Of a type that does not exist.
const QByteArray BrokenBlock{"\x06\x06"};

}  // namespace

/// Objects whose data set comes deflated.
class DeflatedTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void theHeaderIsTheSameInEverySyntax();
    void piecesDoNotMatter();
    void pixelDataIsNotInflated();
    void whatCannotBeReadIsRefused_data();
    void whatCannotBeReadIsRefused();
    void aHeaderOf64MegabytesIsTaken();

  private:
    [[nodiscard]] RequestorAssociation::Answer send(const QByteArray& bytes) const {
        RequestorAssociation sender{
            daemon_->port(), "TESTER", "TESSALY", {{UID_CTImageStorage, {Deflated.uid()}}}};
        return sender.storeBytes(0, UID_CTImageStorage, Instance, view(bytes));
    }
};

void DeflatedTest::theHeaderIsTheSameInEverySyntax() {
    const auto read = [](TransferSyntax syntax) {
        HeaderReader reader{syntax};
        const QByteArray bytes = dataSetIn(syntax, {.patientName = "Doe^Jane"});
        reader.take(view(bytes));
        return reader.header();
    };
    const ObjectHeader expected = read(TransferSyntax{EXS_LittleEndianExplicit});
    QCOMPARE(expected.patientName, std::string{"Doe^Jane"});
    for (const auto& row : tessaly::dicom::transferSyntaxes()) {
        const ObjectHeader header = read(TransferSyntax{row});
        for (const auto member :
             {&ObjectHeader::patientId, &ObjectHeader::patientName, &ObjectHeader::birthDate,
              &ObjectHeader::studyInstanceUid, &ObjectHeader::studyDate, &ObjectHeader::seriesInstanceUid,
              &ObjectHeader::modality, &ObjectHeader::sopInstanceUid, &ObjectHeader::sopClassUid,
              &ObjectHeader::instanceNumber})
            QVERIFY2(header.*member == expected.*member, row.name);
        QVERIFY2(header.pixelRows && header.pixelColumns, row.name);
    }
}

void DeflatedTest::piecesDoNotMatter() {
    const QByteArray bytes = dataSetIn(Deflated, {});
    for (const qsizetype piece : {1, 7, 100}) {
        HeaderReader reader{Deflated};
        for (qsizetype at = 0; at < bytes.size() && !reader.isDone(); at += piece) {
            const QByteArray part = bytes.mid(at, piece);
            reader.take(view(part));
        }
        QCOMPARE(reader.header().patientName, std::string{"Doe^Jane"});
    }
}

/// What comes behind the header is not looked at, be it endless or broken.
void DeflatedTest::pixelDataIsNotInflated() {
    launch();
    const QByteArray sent =
        openStream(plainObject() + QByteArray(qsizetype{64} << 20, '\0')) + BrokenBlock.repeated(1 << 20);
    QCOMPARE(send(sent).status, 0);
    QCOMPARE(dataSetOf(daemon_->files().first()), sent);
}

void DeflatedTest::whatCannotBeReadIsRefused_data() {
    QTest::addColumn<QByteArray>("sent");
    const QByteArray whole = deflated(plainObject());
    QTest::newRow("cut off within the header") << whole.left(100);
    QTest::newRow("broken within the header") << openStream(plainObject().left(100)) + BrokenBlock;
    QTest::newRow("nothing of it deflated") << plainObject();
    QTest::newRow("with a header of zlib's") << QByteArray::fromHex("789c") + whole;
    QTest::newRow("a header that is cut off, in a stream that is whole") << deflated(plainObject().left(200));
    QTest::newRow("a header of more than 64 MB")
        << deflated(withBehindInstance(zeros((quint32{64} << 20U) + 65536)));
    QTest::newRow("blocks without bytes") << QByteArray::fromHex("000000ffff").repeated(14 << 20);
    QTest::newRow("nothing") << deflated({});
}

void DeflatedTest::whatCannotBeReadIsRefused() {
    QFETCH(const QByteArray, sent);
    launch();
    const RequestorAssociation::Answer answer = send(sent);
    QVERIFY(answer.arrived);
    QCOMPARE(answer.status, 0xc000);
    QCOMPARE(daemon_->entries(), QStringList{});
    QCOMPARE(daemon_->archiveRows(), 0);
}

void DeflatedTest::aHeaderOf64MegabytesIsTaken() {
    launch();
    const QByteArray sent = deflated(withBehindInstance(zeros((quint32{64} << 20U) - 4096)));
    QCOMPARE(send(sent).status, 0);
    QCOMPARE(dataSetOf(daemon_->files().first()), sent);
}

QTEST_GUILESS_MAIN(DeflatedTest)
#include "tst_deflated.moc"
