#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/dcmnet/dimse.h>

#include <QTest>

#include "tessalyd/services/query/IdentifierParser.h"
#include "tessalyd/services/query/QueryIdentifier.h"
#include "tests/tessalyd/RequestorAssociation.h"
#include "tests/tessalyd/StockedArchive.h"
#include "tests/tessalyd/TagNumber.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// Which identifiers are understood, and what the others are told.
class QueryIdentifierTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void queriesAreRefused_data();
    void queriesAreRefused();
    void queriesAreTaken_data();
    void queriesAreTaken();
    void retrievalsAreRefused_data();
    void retrievalsAreRefused();
    void aRetrievalHasUniqueKeysAlone();
    void whatIsNoIdentifierIsRefused_data();
    void whatIsNoIdentifierIsRefused();
    void aListHasAtMostTenThousandValues_data();
    void aListHasAtMostTenThousandValues();
    void anIdentifierHasAtMostTwoThousandElements_data();
    void anIdentifierHasAtMostTwoThousandElements();
    void aValueThatLooksLikeASequenceHidesNoDepth();
    void elementsAreReadInWhateverOrderTheyCome();
    void keysAreToldFromOtherElements();
    void everyKeyHasItsLevel();

  private:
    using Keys = QList<QPair<quint32, QByteArray>>;
    static DcmDataset dataset(const QByteArray& level, const Keys& keys) {
        std::vector<AskedKey> asked;
        for (const auto& [tag, value] : keys)
            asked.emplace_back(tagOf(tag), value.toStdString());
        DcmDataset made = identifier(level, asked);
        if (level.isNull())
            made.findAndDeleteElement(DCM_QueryRetrieveLevel);
        return made;
    }
    static std::vector<char> bytesOf(DcmDataset& set, E_TransferSyntax syntax) {
        std::vector<char> bytes(1U << 20U);
        DcmOutputBufferStream stream{bytes.data(), static_cast<offile_off_t>(bytes.size())};
        set.transferInit();
        if (set.write(stream, syntax, EET_ExplicitLength, nullptr).bad())
            throw std::runtime_error{"too large"};
        bytes.resize(static_cast<std::size_t>(stream.tell()));
        return bytes;
    }
    static void addRefusalColumns();
    static void addRefusal(const char* name, InformationModel model, const char* level, const Keys& keys,
                           const DcmTagKey& offending);
    template <class Read>
    static void verifyRefused(Read read, quint32 offending);
};

namespace {
constexpr auto Patient = InformationModel::PatientRoot;
constexpr auto Study = InformationModel::StudyRoot;
}  // namespace

void QueryIdentifierTest::addRefusalColumns() {
    QTest::addColumn<int>("model");
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<Keys>("keys");
    QTest::addColumn<quint32>("offending");
}

void QueryIdentifierTest::addRefusal(const char* name, InformationModel model, const char* level,
                                     const Keys& keys, const DcmTagKey& offending) {
    QTest::newRow(name) << static_cast<int>(model) << QByteArray{level} << keys << tagNumber(offending);
}

template <class Read>
void QueryIdentifierTest::verifyRefused(Read read, quint32 offending) {
    try {
        read();
        QFAIL("taken");
    } catch (const RequestFailure& failure) {
        QCOMPARE(failure.status(), Uint16{0xa900});
        QVERIFY(failure.detail().offendingElement.has_value());
        QCOMPARE(tagNumber(*failure.detail().offendingElement), offending);
        QVERIFY(*failure.what() != '\0');
        QVERIFY(std::strlen(failure.what()) <= 64);
    }
}

void QueryIdentifierTest::queriesAreRefused_data() {
    addRefusalColumns();
    const auto row = addRefusal;
    const quint32 patient = tagNumber(DCM_PatientID);
    const quint32 study = tagNumber(DCM_StudyInstanceUID);
    const quint32 series = tagNumber(DCM_SeriesInstanceUID);
    row("no level", Study, nullptr, {}, DCM_QueryRetrieveLevel);
    row("empty level", Study, "", {}, DCM_QueryRetrieveLevel);
    row("unknown level", Study, "FRAME", {}, DCM_QueryRetrieveLevel);
    row("level in small letters", Study, "study", {}, DCM_QueryRetrieveLevel);
    row("two levels", Study, "STUDY\\SERIES", {}, DCM_QueryRetrieveLevel);
    row("level that the model has not", Study, "PATIENT", {}, DCM_QueryRetrieveLevel);
    row("study without patient", Patient, "STUDY", {}, DCM_PatientID);
    row("study with an empty patient", Patient, "STUDY", {{patient, ""}}, DCM_PatientID);
    row("study with a wildcard", Patient, "STUDY", {{patient, "P*"}}, DCM_PatientID);
    row("study with a question mark", Patient, "STUDY", {{patient, "P?"}}, DCM_PatientID);
    row("study with a list", Patient, "STUDY", {{patient, "P\\Q"}}, DCM_PatientID);
    row("series without study", Study, "SERIES", {}, DCM_StudyInstanceUID);
    row("series without patient", Patient, "SERIES", {{study, "1.2"}}, DCM_PatientID);
    row("series with a list of studies", Study, "SERIES", {{study, "1.2\\1.3"}}, DCM_StudyInstanceUID);
    row("series with a wildcard", Study, "SERIES", {{study, "*"}}, DCM_StudyInstanceUID);
    row("image without series", Study, "IMAGE", {{study, "1.2"}}, DCM_SeriesInstanceUID);
    row("image without study", Study, "IMAGE", {{series, "1.2"}}, DCM_StudyInstanceUID);
    row("image with a list of series", Study, "IMAGE", {{study, "1.2"}, {series, "1.3\\1.4"}},
        DCM_SeriesInstanceUID);
}

void QueryIdentifierTest::queriesAreRefused() {
    QFETCH(const int, model);
    QFETCH(const QByteArray, level);
    QFETCH(const Keys, keys);
    QFETCH(const quint32, offending);
    DcmDataset question = dataset(level, keys);
    verifyRefused([&] { (void)readQuery(question, static_cast<InformationModel>(model), {}); }, offending);
    // Whatever a query may leave out, a retrieval may not.
    verifyRefused([&] { (void)readRetrieval(question, static_cast<InformationModel>(model)); }, offending);
}

void QueryIdentifierTest::queriesAreTaken_data() {
    QTest::addColumn<int>("model");
    QTest::addColumn<bool>("relational");
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<Keys>("keys");
    const auto row = [](const char* name, InformationModel model, bool relational, const char* level,
                        const Keys& keys) {
        QTest::newRow(name) << static_cast<int>(model) << relational << QByteArray{level} << keys;
    };
    const quint32 patient = tagNumber(DCM_PatientID);
    const quint32 study = tagNumber(DCM_StudyInstanceUID);
    row("patients", Patient, false, "PATIENT", {});
    row("studies", Study, false, "STUDY", {});
    row("level with padding", Study, false, "STUDY ", {});
    row("studies of a patient", Patient, false, "STUDY", {{patient, "P1"}});
    row("series of a study", Study, false, "SERIES", {{study, "1.2"}});
    row("series of a patient's study", Patient, false, "SERIES", {{patient, "P1"}, {study, "1.2"}});
    row("relational studies", Patient, true, "STUDY", {});
    row("relational series", Study, true, "SERIES", {{patient, "P*"}});
    row("relational images", Patient, true, "IMAGE", {{study, "1.2\\1.3"}});
}

void QueryIdentifierTest::queriesAreTaken() {
    QFETCH(const int, model);
    QFETCH(const bool, relational);
    QFETCH(const QByteArray, level);
    QFETCH(const Keys, keys);
    DcmDataset question = dataset(level, keys);
    const auto read = readQuery(question, static_cast<InformationModel>(model), {.relational = relational});
    QCOMPARE(QByteArray::fromStdString(std::string{levelName(read.query.level)}), level.trimmed());
    QCOMPARE(static_cast<qsizetype>(read.query.keys.size()), keys.size());
    QVERIFY(!read.hasUnsupported);
}

void QueryIdentifierTest::retrievalsAreRefused_data() {
    addRefusalColumns();
    const auto row = addRefusal;
    const quint32 patient = tagNumber(DCM_PatientID);
    const quint32 study = tagNumber(DCM_StudyInstanceUID);
    const quint32 series = tagNumber(DCM_SeriesInstanceUID);
    row("no patient", Patient, "PATIENT", {}, DCM_PatientID);
    row("empty patient", Patient, "PATIENT", {{patient, ""}}, DCM_PatientID);
    row("two empty patients", Patient, "PATIENT", {{patient, "\\"}}, DCM_PatientID);
    row("blank patients", Patient, "PATIENT", {{patient, " \\ \\"}}, DCM_PatientID);
    row("blank patient", Patient, "PATIENT", {{patient, "  "}}, DCM_PatientID);
    row("all patients", Patient, "PATIENT", {{patient, "*"}}, DCM_PatientID);
    row("patients by wildcard", Patient, "PATIENT", {{patient, "P?"}}, DCM_PatientID);
    row("patient by name", Patient, "PATIENT", {{tagNumber(DCM_PatientName), "Doe"}}, DCM_PatientID);
    row("no study", Study, "STUDY", {}, DCM_StudyInstanceUID);
    row("empty study", Study, "STUDY", {{study, ""}}, DCM_StudyInstanceUID);
    row("two empty studies", Study, "STUDY", {{study, "\\"}}, DCM_StudyInstanceUID);
    row("list of nothing", Study, "STUDY", {{study, "\\ \\"}}, DCM_StudyInstanceUID);
    row("studies by wildcard", Study, "STUDY", {{study, "1.2.*"}}, DCM_StudyInstanceUID);
    row("all studies of a patient", Patient, "STUDY", {{patient, "P"}, {study, ""}}, DCM_StudyInstanceUID);
    row("all series", Study, "SERIES", {{study, "1.2"}, {series, ""}}, DCM_SeriesInstanceUID);
    row("all images", Study, "IMAGE", {{study, "1.2"}, {series, "1.3"}}, DCM_SOPInstanceUID);
}

void QueryIdentifierTest::retrievalsAreRefused() {
    QFETCH(const int, model);
    QFETCH(const QByteArray, level);
    QFETCH(const Keys, keys);
    QFETCH(const quint32, offending);
    DcmDataset question = dataset(level, keys);
    verifyRefused([&] { (void)readRetrieval(question, static_cast<InformationModel>(model)); }, offending);
}

void QueryIdentifierTest::aRetrievalHasUniqueKeysAlone() {
    DcmDataset question = identifier("SERIES", {{DCM_PatientID, "P1"},
                                                {DCM_PatientName, "Doe"},
                                                {DCM_StudyInstanceUID, "1.2"},
                                                {DCM_SeriesInstanceUID, "1.3\\1.4"},
                                                {DCM_Modality, "CT"}});
    const ArchiveQuery query = readRetrieval(question, Patient);
    QStringList names;
    for (const ArchiveQuery::Key& key : query.keys)
        names += QString::fromLatin1(key.key->name.data());
    QCOMPARE(names, QStringList({u"PatientID"_s, u"StudyInstanceUID"_s, u"SeriesInstanceUID"_s}));
    QVERIFY(query.keys.back().match.matches("1.3").has_value());
    QVERIFY(query.keys.back().match.matches("1.4").has_value());
    QVERIFY(!query.keys.back().match.matches("1.5").has_value());
}

void QueryIdentifierTest::whatIsNoIdentifierIsRefused_data() {
    QTest::addColumn<QByteArray>("bytes");
    const QByteArray level{"\x08\x00\x52\x00\x43\x53\x06\x00STUDY ", 14};
    QTest::newRow("nonsense") << QByteArray{"nonsense"};
    QTest::newRow("cut off in a value") << level.chopped(2);
    QTest::newRow("a value of four gigabytes")
        << level + QByteArray{"\x10\x00\x10\x00UN\0\0\xf0\xff\xff\xff", 12};
    QByteArray deep = level;
    for (int i = 0; i < 1000; ++i)
        deep += QByteArray{"\x40\x00\x75\x02SQ\0\0\xff\xff\xff\xff\xfe\xff\x00\xe0\xff\xff\xff\xff", 20};
    QTest::newRow("nested too deeply") << deep;
}

void QueryIdentifierTest::whatIsNoIdentifierIsRefused() {
    QFETCH(const QByteArray, bytes);
    try {
        (void)parseIdentifier(bytes, EXS_LittleEndianExplicit);
        QFAIL("taken");
    } catch (const RequestFailure& failure) {
        QCOMPARE(failure.status(), Uint16{0xc000});
        QVERIFY(std::strlen(failure.what()) <= 64);
    }
    const QByteArray level{"\x08\x00\x52\x00\x43\x53\x06\x00STUDY ", 14};
    const auto parsed = parseIdentifier(level, EXS_LittleEndianExplicit);
    QCOMPARE(readQuery(*parsed, Study, {}).query.level, Level::Study);
}

void QueryIdentifierTest::aListHasAtMostTenThousandValues_data() {
    QTest::addColumn<quint32>("tag");
    QTest::newRow("UIDs") << tagNumber(DCM_StudyInstanceUID);
    QTest::newRow("modalities") << tagNumber(DCM_ModalitiesInStudy);
}

void QueryIdentifierTest::aListHasAtMostTenThousandValues() {
    QFETCH(const quint32, tag);
    constexpr int Most = 10'000;
    const auto listOf = [](int count) {
        std::string list = "1.1";
        for (int number = 2; number <= count; ++number)
            list += "\\1." + std::to_string(number);
        return list;
    };
    const auto parsed = [tag](const std::string& list) {
        DcmDataset made = identifier("STUDY", {{tagOf(tag), list}});
        return parseIdentifier(bytesOf(made, EXS_LittleEndianImplicit), EXS_LittleEndianImplicit);
    };
    const auto taken = parsed(listOf(Most));
    const ArchiveQuery query = readQuery(*taken, Study, {}).query;
    const KeyMatch& match = query.keys.at(0).match;
    QVERIFY(!match.isUniversal());
    QVERIFY(match.matches("1.1").has_value());
    QVERIFY(match.matches("1." + std::to_string(Most)).has_value());
    QVERIFY(!match.matches("1." + std::to_string(Most + 1)).has_value());

    const auto refused = parsed(listOf(Most + 1));
    verifyRefused([&] { (void)readQuery(*refused, Study, {}); }, tag);
    if (tag == tagNumber(DCM_StudyInstanceUID))
        verifyRefused([&] { (void)readRetrieval(*refused, Study); }, tag);
}

void QueryIdentifierTest::anIdentifierHasAtMostTwoThousandElements_data() {
    QTest::addColumn<int>("most");
    QTest::addColumn<QByteArray>("sequence");                      // what stands before them
    const int all = static_cast<int>(MostIdentifierElements) - 1;  // the level is one
    QTest::newRow("beside each other") << all << QByteArray{};
    QTest::newRow("in a sequence") << all - 2
                                   << QByteArray::fromHex("08001111") + "SQ" +
                                          QByteArray::fromHex("0000fffffffffeff00e0ffffffff");
}

/// In descending order, which the toolkit sorts in quadratic time.
void QueryIdentifierTest::anIdentifierHasAtMostTwoThousandElements() {
    QFETCH(const int, most);
    QFETCH(const QByteArray, sequence);
    const auto bytes = [&](int count) {
        QByteArray data{"\x08\x00\x52\x00\x43\x53\x06\x00STUDY ", 14};
        data += sequence;
        for (int number = count; number > 0; --number)
            data += QByteArray{"\x11\x00", 2} + static_cast<char>(number & 0xff) +
                    static_cast<char>(number >> 8) + QByteArray{"LO\0\0", 4};
        return data;
    };
    const auto parsed = parseIdentifier(bytes(most), EXS_LittleEndianExplicit);
    QCOMPARE(readQuery(*parsed, Study, {}).query.level, Level::Study);
    try {
        (void)parseIdentifier(bytes(most + 1), EXS_LittleEndianExplicit);
        QFAIL("taken");
    } catch (const RequestFailure& failure) {
        QCOMPARE(failure.status(), Uint16{0xc000});
        QCOMPARE(std::string{failure.what()}, std::string{"The identifier has too many elements"});
    }
}

/// The value of the first element begins as a sequence does, and what is in it claims all that follows.
void QueryIdentifierTest::aValueThatLooksLikeASequenceHidesNoDepth() {
    const QByteArray disguise = QByteArray::fromHex("09000110") + "OB" + QByteArray::fromHex("000014000000") +
                                QByteArray::fromHex("feff00e0ffffffff") + QByteArray::fromHex("09000210") +
                                "OB" + QByteArray::fromHex("0000ffffff00");
    const auto nested = nestedSequences(10'000);
    const QByteArray deep = QByteArray{"\x08\x00\x52\x00\x43\x53\x06\x00STUDY ", 14} + disguise +
                            QByteArray{nested.data(), static_cast<qsizetype>(nested.size())};
    try {
        (void)parseIdentifier(deep, EXS_LittleEndianExplicit);
        QFAIL("taken");
    } catch (const RequestFailure& failure) {
        QCOMPARE(failure.status(), Uint16{0xc000});
    }
}

void QueryIdentifierTest::elementsAreReadInWhateverOrderTheyCome() {
    const QByteArray number = QByteArray::fromHex("28001000") + "US" + QByteArray::fromHex("02000002");
    const QByteArray date = QByteArray::fromHex("08002000") + "DA" + QByteArray::fromHex("0800") + "20240131";
    const QByteArray level{"\x08\x00\x52\x00\x43\x53\x06\x00IMAGE ", 14};
    const auto parsed = parseIdentifier(number + level + date, EXS_LittleEndianExplicit);
    const QueryIdentifier query = readQuery(*parsed, Study, {.relational = true});
    QCOMPARE(query.query.keys.size(), std::size_t{2});
    QCOMPARE(query.query.keys.at(0).key->tag, DCM_StudyDate);
    QVERIFY(query.query.keys.at(0).match.matches("20240131").has_value());
    QVERIFY(!query.query.keys.at(0).match.matches("20240201").has_value());
    QCOMPARE(query.query.keys.at(1).key->tag, DCM_Rows);
    QVERIFY(query.query.keys.at(1).match.matches("512").has_value());
    QVERIFY(!query.query.keys.at(1).match.matches("2").has_value());
}

void QueryIdentifierTest::keysAreToldFromOtherElements() {
    const auto unsupported = [](const std::vector<AskedKey>& keys, const char* level = "STUDY") {
        DcmDataset question = identifier(level, keys);
        return readQuery(question, Study, {.relational = true}).hasUnsupported;
    };
    QVERIFY(!unsupported({{DCM_PatientName, "Doe"}, {DCM_StudyDate, ""}, {DCM_RetrieveAETitle, ""}}));
    QVERIFY(!unsupported({{DCM_SpecificCharacterSet, "ISO_IR 100"}, {DcmTagKey{0x0008, 0x0000}, "10"}}));
    QVERIFY(!unsupported({{DCM_NumberOfStudyRelatedSeries, ""}}));
    QVERIFY(unsupported({{DCM_NumberOfStudyRelatedSeries, "1"}}));
    QVERIFY(unsupported({{DCM_InstitutionName, ""}}));
    QVERIFY(unsupported({{DCM_SeriesInstanceUID, ""}}));  // of a level below
    QVERIFY(!unsupported({{DCM_SeriesInstanceUID, ""}}, "SERIES"));
    QVERIFY(unsupported({{DCM_ModalitiesInStudy, ""}}, "SERIES"));
}

void QueryIdentifierTest::everyKeyHasItsLevel() {
    for (const QueryKey& key : queryKeys()) {
        for (const Level level : {Level::Patient, Level::Study, Level::Series, Level::Image}) {
            DcmDataset question = identifier(std::string{levelName(level)}.c_str(), {{key.tag, ""}});
            const auto read = readQuery(question, Patient, {.relational = true});
            const bool modalitiesBelow = key.matching == Matching::Modalities && level > key.level;
            QCOMPARE(read.query.keys.size(), std::size_t{level >= key.level && !modalitiesBelow ? 1U : 0U});
            QCOMPARE(read.attributes.size(), std::size_t{1});
        }
    }
}

QTEST_APPLESS_MAIN(QueryIdentifierTest)
#include "tst_queryidentifier.moc"
