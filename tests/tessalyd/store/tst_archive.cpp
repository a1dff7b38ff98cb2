#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/dcmdata/dcvrlo.h>
#include <dcmtk/dcmdata/dcvrus.h>

#include <QTest>

#include "archive/ArchiveFile.h"
#include "db/Connection.h"
#include "db/Query.h"
#include "tessalyd/association/OpenAssociations.h"
#include "tessalyd/configuration/Configuration.h"
#include "tessalyd/store/ArchiveIndex.h"
#include "tessalyd/store/IncomingHeader.h"
#include "tessalyd/store/StoreFailure.h"
#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/Objects.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

namespace {

/// Returns nullopt if the header is not there yet, unless the data set ends here.
std::optional<ObjectHeader> readHeader(std::span<const char> data, E_TransferSyntax syntax, bool complete) {
    IncomingHeader incoming{syntax};
    if (!incoming.take(data) && !complete)
        return std::nullopt;
    return incoming.header();
}

/// Of FTP nodes and of images.
QString rowsIn(const ScratchDatabase& database) {
    return database.value(u"SELECT COUNT(*) FROM FtpNodes"_s) + u' ' +
           database.value(u"SELECT COUNT(*) FROM Image"_s);
}

}  // namespace

/// The server's parts by themselves, where a client cannot reach every case.
class ArchiveTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void uidsAreToldFromOtherNames_data();
    void uidsAreToldFromOtherNames();
    void temporaryNamesAreItsOwnOnly();
    void aHeaderIsReadAsSoonAsItIsThere();
    void aHeaderHasWhatQueriesAskFor();
    void whatIsNoDateIsCutBetweenCharacters();
    void longValuesArePassedOver_data();
    void longValuesArePassedOver();
    void whatIsNoDataSetIsRefused();
    void aNewStudyHasOneFolderForAllPorts();
    void otherRowsAreThereExactlyWhenTheObjectsAre();
    void theConfigurationIsRead();
    void withoutTheServersRowItsColumnsHaveUsualValues();
    void openAssociationsAreCountedPerPort();

  private:
    /// The data set as it is sent.
    [[nodiscard]] static std::vector<char> sent(DcmFileFormat& object, E_TransferSyntax syntax) {
        std::vector<char> data(64U << 10U);
        DcmOutputBufferStream stream{data.data(), static_cast<offile_off_t>(data.size())};
        DcmDataset& set = *object.getDataset();
        set.transferInit();
        if (set.write(stream, syntax, EET_ExplicitLength, nullptr).bad())
            throw std::runtime_error{"too large"};
        data.resize(static_cast<std::size_t>(stream.tell()));
        return data;
    }
    [[nodiscard]] static std::span<const char> bytes(const char* text) { return {text, std::strlen(text)}; }
};

void ArchiveTest::uidsAreToldFromOtherNames_data() {
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("fit");
    const auto row = [](const char* text, bool fit) {
        QTest::addRow("'%s'", text) << QByteArray{text} << fit;
    };
    row("1.2.840.10008", true);
    row("1", true);
    row("1.02", true);
    row("", false);
    row(".", false);
    row("..", false);
    row("1..2", false);
    row("1.2.", false);
    row(".1", false);
    row("1/2", false);
    row("1\\2", false);
    row("1.x", false);
    row("-1", false);
    QTest::newRow("64 characters") << QByteArray(64, '1') << true;
    QTest::newRow("65 characters") << QByteArray(65, '1') << false;
}

void ArchiveTest::uidsAreToldFromOtherNames() {
    QFETCH(const QByteArray, text);
    QFETCH(const bool, fit);
    QCOMPARE(isUid(text.toStdString()), fit);
}

void ArchiveTest::temporaryNamesAreItsOwnOnly() {
    QVERIFY(archive::isTemporaryName(".tessalyd-12-3.part"));
    for (const char* other : {"", ".tessalyd-.part", ".tessalyd-1-2.part~", "tessalyd-1-2.part",
                              ".tessalyd-x.part", "1.2.3.dcm", ".part", ".tessalyd-"})
        QVERIFY2(!archive::isTemporaryName(other), other);
}

void ArchiveTest::aHeaderIsReadAsSoonAsItIsThere() {
    const auto data = sent(*makeObject({.side = 64}), EXS_LittleEndianExplicit);
    const std::span all{data};
    std::size_t needed = 0;
    while (!readHeader(all.first(needed), EXS_LittleEndianExplicit, false))
        ++needed;
    QVERIFY(needed > 200 && needed < 1000);  // the pixels are not waited for
    const auto header = readHeader(all.first(needed), EXS_LittleEndianExplicit, false);
    QCOMPARE(header->studyInstanceUid, std::string{"1.2.826.0.1.1"});
    QCOMPARE(header->instanceNumber, std::string{"1"});
    QCOMPARE(header->patientName, std::string{"Doe^Jane"});
}

void ArchiveTest::aHeaderHasWhatQueriesAskFor() {
    const auto object = makeObject({.patientName = "Doe^Jane^^"});
    DcmDataset& set = *object->getDataset();
    for (const auto& [tag, value] :
         {std::pair{DCM_ReferringPhysicianName, "Ref^A "}, std::pair{DCM_SeriesDate, "2024.02.03"},
          std::pair{DCM_SeriesTime, "1011"}, std::pair{DCM_BodyPartExamined, "CHEST"},
          std::pair{DCM_ProtocolName, " Low dose"}, std::pair{DCM_ContentDate, "20240204"},
          std::pair{DCM_ContentTime, "101112.5"}, std::pair{DCM_NumberOfFrames, "12"},
          std::pair{DCM_InstanceNumber, "+007"}, std::pair{DCM_SeriesNumber, "99999999999"}})
        set.putAndInsertString(tag, value);
    const auto header = readHeader(sent(*object, EXS_LittleEndianExplicit), EXS_LittleEndianExplicit, true);
    QVERIFY(header.has_value());
    QCOMPARE(header->nameGroups[0], std::string{"doe^jane"});
    QCOMPARE(header->referringPhysicianName, std::string{"Ref^A"});
    QCOMPARE(header->seriesDate, std::string{"20240203"});
    QCOMPARE(header->seriesTime, std::string{"1011"});
    QCOMPARE(header->bodyPartExamined, std::string{"CHEST"});
    QCOMPARE(header->protocolName, std::string{"Low dose"});
    QCOMPARE(header->contentDate, std::string{"20240204"});
    QCOMPARE(header->contentTime, std::string{"101112.5"});
    QCOMPARE(header->pixelRows, std::optional{32LL});
    QCOMPARE(header->pixelColumns, std::optional{32LL});
    QCOMPARE(header->numberOfFrames, std::optional{12LL});
    QCOMPARE(header->numberInSeries, 7LL);

    // A number that the tables cannot hold sorts as if there were none.
    set.putAndInsertString(DCM_InstanceNumber, "99999999999");
    set.findAndDeleteElement(DCM_Rows);
    const auto other = readHeader(sent(*object, EXS_LittleEndianExplicit), EXS_LittleEndianExplicit, true);
    QCOMPARE(other->numberInSeries, 0LL);
    QVERIFY(!other->pixelRows);
}

/// Half a character would be no text: a database server refuses the whole object then.
void ArchiveTest::whatIsNoDateIsCutBetweenCharacters() {
    const auto object = makeObject({});
    object->getDataset()->putAndInsertString(DCM_SpecificCharacterSet, "ISO_IR 100");
    auto date = std::make_unique<DcmLongString>(DcmTag{DCM_PatientBirthDate, EVR_LO});
    QVERIFY(date->putString("202\xbe\xbe\xbe\xbe\xbe\xbe\xbe").good());
    QVERIFY(object->getDataset()->insert(date.release(), OFTrue).good());
    const auto header = readHeader(sent(*object, EXS_LittleEndianExplicit), EXS_LittleEndianExplicit, true);
    QCOMPARE(QString::fromStdString(header->birthDate), u"202\u00be\u00be\u00be\u00be\u00be"_s);
}

void ArchiveTest::longValuesArePassedOver_data() {
    QTest::addColumn<int>("syntax");
    QTest::newRow("little endian") << int{EXS_LittleEndianExplicit};
    QTest::newRow("big endian") << int{EXS_BigEndianExplicit};
}

void ArchiveTest::longValuesArePassedOver() {
    QFETCH(const int, syntax);
    const auto object = makeObject({.patientName = std::string(5000, 'n')});
    const std::vector<Uint16> numbers(4000, 7);
    for (const DcmTag& tag : {DcmTag{0x0009, 0x1001, EVR_US}, DcmTag{DCM_PatientID, EVR_US}}) {
        auto element = std::make_unique<DcmUnsignedShort>(tag);
        QVERIFY(element->putUint16Array(numbers.data(), numbers.size()).good());
        QVERIFY(object->getDataset()->insert(element.release(), OFTrue).good());
    }
    const auto data = sent(*object, static_cast<E_TransferSyntax>(syntax));
    QVERIFY(!readHeader(std::span{data}.first(6000), static_cast<E_TransferSyntax>(syntax), false));
    const auto header = readHeader(data, static_cast<E_TransferSyntax>(syntax), true);
    QVERIFY(header.has_value());
    QCOMPARE(header->patientName, std::string{});
    QCOMPARE(header->patientId, std::string{});
    QCOMPARE(header->studyInstanceUid, std::string{"1.2.826.0.1.1"});
    QCOMPARE(header->instanceNumber, std::string{"1"});
}

void ArchiveTest::whatIsNoDataSetIsRefused() {
    const auto refused = [](std::span<const char> data) {
        try {
            const auto header = readHeader(data, EXS_LittleEndianExplicit, true);
            return header && !isUid(header->studyInstanceUid);  // read as far as it went, and refused then
        } catch (const StoreFailure& failure) {
            return failure.status() == 0xc000;
        }
    };
    QVERIFY(refused({}));
    QVERIFY(refused(bytes("neither a tag nor a length is in this text")));
    const std::string cut{
        "\x08\x00\x18\x00UI\x40\x00"
        "1.2.3",
        13};  // says 64 bytes
    QVERIFY(refused(cut));
}

void ArchiveTest::aNewStudyHasOneFolderForAllPorts() {
    const ScratchDatabase database;
    ArchiveIndex index;
    ObjectHeader header;
    header.studyInstanceUid = "1.2";
    header.seriesInstanceUid = "1.2.1";
    header.sopInstanceUid = "1.2.1.1";
    {
        const auto first = index.place(header, "/one");
        const auto second = index.place(header, "/two");  // before the first has its rows
        QCOMPARE(first->location().path(), std::string{"/one\\1.2\\1.2.1\\1.2.1.1.dcm"});
        QCOMPARE(second->location(), first->location());
    }
    const auto third = index.place(header, "/two");  // nothing came of the other two
    QCOMPARE(third->location().studyPath, std::string{"/two\\1.2"});
    index.record(header, third->location());
    QCOMPARE(index.place(header, "/three")->location(), third->location());
    database.run(u"UPDATE Study SET StudyPath='/moved'"_s);
    QVERIFY_EXCEPTION_THROWN(index.record(header, third->location()), StoreFailure);
}

void ArchiveTest::otherRowsAreThereExactlyWhenTheObjectsAre() {
    const ScratchDatabase database;
    ArchiveIndex index;
    ObjectHeader header;
    header.studyInstanceUid = "1.2";
    header.seriesInstanceUid = "1.2.1";
    header.sopInstanceUid = "1.2.1.1";
    const auto placement = index.place(header, "/one");
    const auto writeRows = [](const tessaly::db::Connection& connection) {
        tessaly::db::Query{connection, "INSERT INTO FtpNodes (Name) VALUES ('beside')"}.execute();
    };
    const auto fail = [] { throw std::runtime_error{"the disk is full"}; };
    QVERIFY_EXCEPTION_THROWN(
        index.record(header, placement->location(), {.writeRows = writeRows, .publish = fail}),
        std::runtime_error);
    QCOMPARE(rowsIn(database), u"0 0"_s);
    index.record(header, placement->location(), {.writeRows = writeRows});
    QCOMPARE(rowsIn(database), u"1 1"_s);
    // A row that cannot be written leaves the object without one too.
    header.sopInstanceUid = "1.2.1.2";
    QVERIFY_EXCEPTION_THROWN(index.record(header, placement->location(), {.writeRows = writeRows}),
                             std::exception);
    QCOMPARE(rowsIn(database), u"1 1"_s);
}

void ArchiveTest::theConfigurationIsRead() {
    const ScratchDatabase database;
    database.run(u"UPDATE DicomServer SET LogLevel=2, DumpLevel=21, QueryTimeout=7"_s);
    database.run(u"UPDATE Port SET AETitle=' A B ', CheckCallingAE=1, SaveCompressed=0"_s);
    database.run(u"INSERT INTO DicomNodes (Name, AETitle) VALUES ('x', 'X1 '), ('y', 'Y1'), ('z', NULL)"_s);
    database.run(u"INSERT INTO PortRemoteNodes VALUES ('11112', 'X'), ('11112', 'z'), ('104', 'y')"_s);
    db::Connection connection;
    openDatabase(connection);
    const Configuration configuration = readConfiguration(connection);
    QCOMPARE(configuration.log.level, tessalyd::LogLevel::Warnings);
    QVERIFY(configuration.log.dumps(Dump::Socket) && configuration.log.dumps(Dump::Vr));
    QVERIFY(configuration.log.dumps(Dump::Association) && !configuration.log.dumps(Dump::Dul));
    QCOMPARE(configuration.queryTimeout, std::chrono::seconds{7});
    QCOMPARE(configuration.ports.size(), std::size_t{1});
    const PortConfiguration& port = configuration.ports.front();
    QCOMPARE(port.number(), std::optional<std::uint16_t>{11112});
    QCOMPARE(port.aeTitle, std::string{"A B"});
    QCOMPARE(port.maxConnections, 10);
    QCOMPARE(port.root, database.imageRoot().toStdString());
    QVERIFY(port.checkCallingAE && !port.checkCalledAE && !port.saveCompressed);
    QCOMPARE(port.acceptedCallers, std::vector<std::string>{"X1"});
}

void ArchiveTest::withoutTheServersRowItsColumnsHaveUsualValues() {
    const ScratchDatabase database;
    database.run(u"DELETE FROM DicomServer"_s);
    db::Connection connection;
    openDatabase(connection);
    const Configuration configuration = readConfiguration(connection);
    QCOMPARE(configuration.log.level, tessalyd::LogLevel::Normal);
    QCOMPARE(configuration.log.dumpBits, 0U);
    QCOMPARE(configuration.queryTimeout, std::chrono::seconds{0});
    QCOMPARE(configuration.ports.size(), std::size_t{1});
}

void ArchiveTest::openAssociationsAreCountedPerPort() {
    QStringList events;
    const auto note = [&events](QChar sign) {
        return [&events, sign](const AssociationNames& names, int total) {
            events << sign + QString::fromStdString(names.port) + u' ' + QString::number(total);
        };
    };
    OpenAssociations open{note(u'+'), note(u'-')};
    {
        const auto first =
            open.open({.port = "1", .callingAeTitle = "A", .calledAeTitle = "B"}, {}, {.all = 1});
        QVERIFY(first.has_value());
        QVERIFY(!open.open({.port = "1", .callingAeTitle = "A", .calledAeTitle = "B"}, {}, {.all = 1}));
        const auto second =
            open.open({.port = "2", .callingAeTitle = "A", .calledAeTitle = "B"}, {}, {.all = 1});
        QCOMPARE(open.total(), 2);
    }
    QVERIFY(
        open.open({.port = "1", .callingAeTitle = "A", .calledAeTitle = "B"}, {}, {.all = 1}).has_value());
    QCOMPARE(events, (QStringList{u"+1 1"_s, u"+2 2"_s, u"-2 1"_s, u"-1 0"_s, u"+1 1"_s, u"-1 0"_s}));
}

QTEST_GUILESS_MAIN(ArchiveTest)
#include "tst_archive.moc"
