#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcostrmb.h>

#include <QTest>

#include "dicom/net/Command.h"

using namespace tessaly::dicom;

namespace {

/// A command set as another encoder writes it.
std::vector<char> encodedByTheToolkit(DcmDataset& set) {
    std::vector<char> bytes(4096);
    DcmOutputBufferStream stream{bytes.data(), static_cast<offile_off_t>(bytes.size())};
    set.transferInit();
    set.write(stream, EXS_LittleEndianImplicit, EET_ExplicitLength, nullptr, EGL_withGL);
    set.transferEnd();
    bytes.resize(static_cast<std::size_t>(stream.tell()));
    return bytes;
}

Command storeRequest() {
    auto command = Command::request(CommandField::CStore, 7);
    command.set(DCM_AffectedSOPClassUID, "1.2.840.10008.5.1.4.1.1.2");
    command.set(DCM_AffectedSOPInstanceUID, "1.2.3");
    command.set(DCM_Priority, std::uint16_t{0});
    command.setHasDataSet(true);
    return command;
}

/// One element in implicit little endian.
QByteArray element(int number, const QByteArray& value, int group = 0) {
    QByteArray bytes;
    const auto append = [&bytes](qsizetype of, int size) {
        for (int i = 0; i < size; ++i)
            bytes += static_cast<char>(of >> 8 * i);
    };
    append(group, 2);
    append(number, 2);
    append(value.size(), 4);
    return bytes + value;
}

QByteArray us(int value) {
    return {QByteArray(1, static_cast<char>(value)) + static_cast<char>(value >> 8)};
}

std::optional<Command> parsed(const QByteArray& bytes) {
    return Command::parse({bytes.constData(), static_cast<std::size_t>(bytes.size())});
}

}  // namespace

/// Command sets as values, without a network.
class CommandTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theBytesAreThoseOfAnotherEncoder();
    void whatIsEncodedIsParsed();
    void aResponseIsMadeOfAnyRequest_data();
    void aResponseIsMadeOfAnyRequest();
    void whatIsMalformedIsNoCommand_data();
    void whatIsMalformedIsNoCommand();
    void unknownRequestsAreCommandsToo();
    void theTextIsPrintable();
};

void CommandTest::theBytesAreThoseOfAnotherEncoder() {
    DcmDataset set;
    set.putAndInsertString(DCM_AffectedSOPClassUID, "1.2.840.10008.5.1.4.1.1.2");
    set.putAndInsertUint16(DCM_CommandField, 0x0001);
    set.putAndInsertUint16(DCM_MessageID, 7);
    set.putAndInsertUint16(DCM_Priority, 0);
    set.putAndInsertUint16(DCM_CommandDataSetType, 1);
    set.putAndInsertString(DCM_AffectedSOPInstanceUID, "1.2.3");
    set.putAndInsertString(DCM_MoveOriginatorApplicationEntityTitle, "MOVER");
    set.putAndInsertUint16(DCM_MoveOriginatorMessageID, 9);
    Command command = storeRequest();
    command.set(DCM_MoveOriginatorApplicationEntityTitle, "MOVER");
    command.set(DCM_MoveOriginatorMessageID, std::uint16_t{9});
    const auto mine = command.encoded();
    const auto theirs = encodedByTheToolkit(set);
    QCOMPARE(QByteArray(mine.data(), static_cast<qsizetype>(mine.size())).toHex(),
             QByteArray(theirs.data(), static_cast<qsizetype>(theirs.size())).toHex());
}

void CommandTest::whatIsEncodedIsParsed() {
    const auto command = Command::parse(storeRequest().encoded());
    QVERIFY(command.has_value());
    QVERIFY(command->field() == CommandField::CStore);
    QVERIFY(!command->isResponse());
    QVERIFY(command->hasDataSet());
    QCOMPARE(int{command->messageId()}, 7);
    QCOMPARE(command->sopClassUid(), std::string{"1.2.840.10008.5.1.4.1.1.2"});
    QCOMPARE(command->sopInstanceUid(), std::string{"1.2.3"});
    QVERIFY(!command->number(DCM_ActionTypeID).has_value());
    QCOMPARE(command->value(DCM_MoveDestination), std::string{});
}

void CommandTest::aResponseIsMadeOfAnyRequest_data() {
    QTest::addColumn<int>("field");
    QTest::newRow("C-STORE") << int{0x0001};
    QTest::newRow("C-FIND") << int{0x0020};
    QTest::newRow("C-ECHO") << int{0x0030};
    QTest::newRow("N-EVENT-REPORT") << int{0x0100};
    QTest::newRow("N-GET") << int{0x0110};
    QTest::newRow("N-SET") << int{0x0120};
    QTest::newRow("N-ACTION") << int{0x0130};
    QTest::newRow("N-CREATE") << int{0x0140};
    QTest::newRow("N-DELETE") << int{0x0150};
    QTest::newRow("none that is known") << int{0x0777};
}

void CommandTest::aResponseIsMadeOfAnyRequest() {
    QFETCH(const int, field);
    auto request = Command::request(static_cast<CommandField>(field), 300);
    request.set(DCM_RequestedSOPClassUID, "1.2.840.10008.1.20.1");
    request.set(DCM_RequestedSOPInstanceUID, "1.2.840.10008.1.20.1.1");
    request.set(DCM_ActionTypeID, std::uint16_t{1});
    request.setHasDataSet(true);
    const auto response = Command::parse(Command::responseTo(request, 0x0110).encoded());
    QVERIFY(response.has_value());
    QVERIFY(response->isResponse());
    QCOMPARE(int(response->field()), field);
    QCOMPARE(int{response->messageId()}, 300);
    QCOMPARE(int{response->status()}, 0x0110);
    QVERIFY(!response->hasDataSet());
    QCOMPARE(response->value(DCM_AffectedSOPClassUID), std::string{"1.2.840.10008.1.20.1"});
    QCOMPARE(response->value(DCM_AffectedSOPInstanceUID), std::string{"1.2.840.10008.1.20.1.1"});
    QCOMPARE(int{response->number(DCM_ActionTypeID).value_or(0)}, 1);
}

void CommandTest::whatIsMalformedIsNoCommand_data() {
    QTest::addColumn<QByteArray>("bytes");
    const QByteArray field = element(0x0100, us(0x0030));
    const QByteArray id = element(0x0110, us(1));
    const QByteArray none = element(0x0800, us(0x0101));
    const QByteArray sopClass = element(0x0002, "1.2.840.10008.1.1");
    QVERIFY(parsed(sopClass + field + id + none).has_value());  // all the others are this one, spoiled
    QTest::newRow("nothing") << QByteArray{};
    QTest::newRow("half an element's head") << sopClass + field + id + none + QByteArray(5, '\0');
    QTest::newRow("longer than what came") << sopClass + field + id + none.chopped(1);
    QTest::newRow("of undefined length")
        << sopClass + field + id + none + QByteArray::fromHex("0000010000000000ffffffff").sliced(2, 8);
    QTest::newRow("of another group") << sopClass + field + id + none + element(0x0010, "A ", 0x0010);
    QTest::newRow("no field") << sopClass + id + none;
    QTest::newRow("no message ID") << sopClass + field + none;
    QTest::newRow("no data set type") << sopClass + field + id;
    QTest::newRow("no SOP class") << field + id + none;
    QTest::newRow("a field of four bytes") << sopClass + element(0x0100, us(0x0030) + us(0)) + id + none;
    QTest::newRow("a UID of 65 characters") << element(0x0002, QByteArray(65, '1')) + field + id + none;
    QTest::newRow("a title of 17 characters")
        << sopClass + field + id + element(0x0600, QByteArray(17, 'A')) + none;
    QTest::newRow("a response without a status")
        << sopClass + element(0x0100, us(0x8030)) + element(0x0120, us(1)) + none;
    QTest::newRow("an N-ACTION without its type")
        << element(0x0003, "1.2.3") + element(0x0100, us(0x0130)) + id + none + element(0x1001, "1.2.3.4");
}

void CommandTest::whatIsMalformedIsNoCommand() {
    QFETCH(const QByteArray, bytes);
    QVERIFY(!parsed(bytes).has_value());
}

void CommandTest::unknownRequestsAreCommandsToo() {
    const auto command =
        parsed(element(0x0100, us(0x0777)) + element(0x0110, us(5)) + element(0x0800, us(1)));
    QVERIFY(command.has_value());
    QVERIFY(command->hasDataSet());  // so that it can be passed over
    QCOMPARE(int{command->messageId()}, 5);
    QCOMPARE(command->text().substr(0, 15), std::string{"command 0777 RQ"});
}

void CommandTest::theTextIsPrintable() {
    auto response = Command::responseTo(storeRequest(), 0xb000);
    response.set(DCM_ErrorComment, "one\ntwo\x1b[31m");
    response.set(DCM_OffendingElement, DCM_PatientName);
    QCOMPARE(QString::fromStdString(response.text()),
             QStringLiteral("C-STORE RSP\n"
                            "  (0000,0002) Affected SOP Class UID: [1.2.840.10008.5.1.4.1.1.2]\n"
                            "  (0000,0100) Command Field: 8001\n"
                            "  (0000,0120) Message ID Being Responded To: 0007\n"
                            "  (0000,0800) Command Data Set Type: 0101\n"
                            "  (0000,0900) Status: b000\n"
                            "  (0000,0901) Offending Element: 0010 0010\n"
                            "  (0000,0902) Error Comment: [one\\x0atwo\\x1b[31m]\n"
                            "  (0000,1000) Affected SOP Instance UID: [1.2.3]"));
}

QTEST_APPLESS_MAIN(CommandTest)
#include "tst_command.moc"
