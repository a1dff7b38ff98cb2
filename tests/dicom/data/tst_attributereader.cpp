#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcostrmb.h>

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>

#include "dicom/data/DataSetWalk.h"
#include "dicom/data/ElementListing.h"
#include "dicom/data/ObjectHeader.h"
#include "tests/tessalyd/Objects.h"
#include "tests/tessalyd/RequestorAssociation.h"

using namespace Qt::StringLiterals;
using namespace tessaly::dicom;
using namespace tessaly::test;

namespace {

/// Counts what a walk does.
class Counter final : public ElementVisitor {
  public:
    [[nodiscard]] bool element(const ElementHead& /*head*/) override {
        ++steps;
        return true;
    }
    void value(std::span<const char> piece) override { bytes += piece.size(); }

    std::size_t steps = 0;
    std::size_t bytes = 0;
};

std::span<const char> view(const QByteArray& bytes) {
    return {bytes.data(), static_cast<std::size_t>(bytes.size())};
}

/// An element in explicit little endian; its representation is one with a short length.
QByteArray element(const DcmTagKey& tag, const char* vr, const QByteArray& value) {
    QByteArray bytes;
    for (const unsigned number : {unsigned{tag.getGroup()}, unsigned{tag.getElement()}})
        bytes += QByteArray(1, static_cast<char>(number & 0xffU)) + static_cast<char>(number >> 8U);
    return bytes + vr + static_cast<char>(value.size() & 0xff) + static_cast<char>(value.size() >> 8) + value;
}

}  // namespace

/// Headers as they are read while they arrive.
class AttributeReaderTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theSameIsReadInWhateverPiecesItComes_data();
    void theSameIsReadInWhateverPiecesItComes();
    void theEndIsFoundInWhateverPiecesItComes_data();
    void theEndIsFoundInWhateverPiecesItComes();
    void elementsOutOfOrderAreReadUpToALimit();
    void theFirstOfSeveralElementsCounts();
    void whatIsSentAsUnknownIsReadAsTheDictionaryKnowsIt();
    void aValueThatLooksLikeASequenceHidesNothingBehindIt();
    void aSequenceThatHasNoLastDelimiterOfItemEnds();
    void workAndMemoryAreProportional_data();
    void workAndMemoryAreProportional();
    void sequencesInEachOtherAreRefusedBeyondTheLimit();
    void noDisguiseHidesTheDepth();
    void aDeflatedFileHasItsHeader();
    void aFileThatIsCutOffHasNone();
    void theListingIsPrintableAndBounded();

  private:
    /// The data set as it is sent, with what a header has around its values.
    [[nodiscard]] static QByteArray sent(E_TransferSyntax syntax, E_EncodingType lengths) {
        const auto object = makeObject({.patientName = "M\xfcller^J\xf6rg", .side = 8});
        DcmDataset& set = *object->getDataset();
        set.putAndInsertString(DCM_SpecificCharacterSet, "ISO_IR 100");
        for (int i = 0; i < 3; ++i) {
            DcmItem* item = nullptr;
            set.findOrCreateSequenceItem(DCM_ReferencedStudySequence, item, -2);
            item->putAndInsertString(DCM_StudyInstanceUID, "9.9.9");
            item->findOrCreateSequenceItem(DCM_ReferencedSeriesSequence, item, -2);
            item->putAndInsertString(DCM_PatientID, "another");
        }
        QByteArray data(1 << 16, '\0');
        DcmOutputBufferStream stream{data.data(), static_cast<offile_off_t>(data.size())};
        set.transferInit();
        set.write(stream, syntax, lengths, nullptr);
        return data.first(static_cast<qsizetype>(stream.tell()));
    }
    [[nodiscard]] static ObjectHeader headerOf(const QByteArray& data,
                                               E_TransferSyntax syntax = EXS_LittleEndianExplicit) {
        HeaderReader reader{syntax};
        reader.take(view(data));
        return reader.header();
    }
};

void AttributeReaderTest::theSameIsReadInWhateverPiecesItComes_data() {
    QTest::addColumn<int>("syntax");
    QTest::addColumn<int>("lengths");
    for (const E_TransferSyntax syntax :
         {EXS_LittleEndianImplicit, EXS_LittleEndianExplicit, EXS_BigEndianExplicit}) {
        for (const E_EncodingType lengths : {EET_ExplicitLength, EET_UndefinedLength})
            QTest::addRow("%s, %s lengths", DcmXfer{syntax}.getXferName(),
                          lengths == EET_ExplicitLength ? "with" : "without")
                << static_cast<int>(syntax) << static_cast<int>(lengths);
    }
}

void AttributeReaderTest::theSameIsReadInWhateverPiecesItComes() {
    QFETCH(const int, syntax);
    QFETCH(const int, lengths);
    const auto transferSyntax = static_cast<E_TransferSyntax>(syntax);
    const QByteArray data = sent(transferSyntax, static_cast<E_EncodingType>(lengths));
    const auto verify = [](const ObjectHeader& header) {
        return header.patientName == "Müller^Jörg" && header.patientId == "P1" &&
               header.studyInstanceUid == "1.2.826.0.1.1" && header.sopInstanceUid == "1.2.826.0.1.1.1.1" &&
               header.studyDescription == "Thorax" && header.instanceNumber == "1" && header.pixelRows == 8 &&
               header.pixelColumns == 8;
    };
    QVERIFY(verify(headerOf(data, transferSyntax)));
    for (qsizetype split = 0; split <= data.size(); ++split) {
        HeaderReader reader{transferSyntax};
        reader.take(view(data).first(static_cast<std::size_t>(split)));
        reader.take(view(data).subspan(static_cast<std::size_t>(split)));
        QVERIFY2(verify(reader.header()), qPrintable(QString::number(split)));
    }
    HeaderReader reader{transferSyntax};
    for (const char& byte : data)
        reader.take({&byte, 1});
    QVERIFY(verify(reader.header()));
}

void AttributeReaderTest::theEndIsFoundInWhateverPiecesItComes_data() {
    theSameIsReadInWhateverPiecesItComes_data();
}

void AttributeReaderTest::theEndIsFoundInWhateverPiecesItComes() {
    QFETCH(const int, syntax);
    QFETCH(const int, lengths);
    const auto transferSyntax = static_cast<E_TransferSyntax>(syntax);
    const QByteArray data = sent(transferSyntax, static_cast<E_EncodingType>(lengths));
    for (qsizetype size = 0; size <= data.size(); ++size) {
        const QByteArray part = data.first(size);
        const auto byteAt = [&part](std::size_t index) { return part[static_cast<qsizetype>(index)]; };
        const bool whole = isTruncated(view(part), transferSyntax);
        QCOMPARE(isTruncated(byteAt, static_cast<std::size_t>(size), transferSyntax), whole);
        TruncationCheck check{transferSyntax};
        for (const char& byte : part)
            check.take({&byte, 1});
        QCOMPARE(check.isTruncated(), whole);
    }
    QVERIFY(!isTruncated(view(data), transferSyntax));
}

/// They are put into order when they are decoded, which takes its time.
void AttributeReaderTest::elementsOutOfOrderAreReadUpToALimit() {
    const auto descending = [](std::size_t count) {
        QByteArray data = element(DCM_PatientID, "LO", "P7");
        for (std::size_t number = count; number > 0; --number)
            data += element({0x0009, static_cast<Uint16>(number)}, "LO", {});
        return data + element(DCM_StudyInstanceUID, "UI", "1.2.3");
    };
    const ObjectHeader header = headerOf(descending(AttributeReader::MostOutOfOrder));
    QCOMPARE(header.patientId, std::string{"P7"});
    QCOMPARE(header.studyInstanceUid, std::string{"1.2.3"});
    QVERIFY_EXCEPTION_THROWN(headerOf(descending(AttributeReader::MostOutOfOrder + 1)), HeaderFault);
}

void AttributeReaderTest::theFirstOfSeveralElementsCounts() {
    const QByteArray both = element(DCM_PatientID, "LO", "P1") + element(DCM_PatientID, "LO", "P2");
    QCOMPARE(headerOf(both).patientId, std::string{"P1"});
    const QByteArray longer = element(DCM_PatientID, "LO", QByteArray(5000, 'x'));
    QCOMPARE(headerOf(longer + both).patientId, std::string{});
}

void AttributeReaderTest::whatIsSentAsUnknownIsReadAsTheDictionaryKnowsIt() {
    const QByteArray unknown = QByteArray::fromHex("10001000") + "UN" + QByteArray::fromHex("000008000000") +
                               "Doe^Jane" + QByteArray::fromHex("28001000") + "UN" +
                               QByteArray::fromHex("0000020000000002");
    QCOMPARE(headerOf(unknown).patientName, std::string{"Doe^Jane"});
    QCOMPARE(headerOf(unknown).pixelRows, std::optional{512LL});
}

void AttributeReaderTest::aValueThatLooksLikeASequenceHidesNothingBehindIt() {
    const QByteArray value = QByteArray::fromHex("feff00e0ffffffff0900021055540000ffffff00");
    for (const char* vr : {"OB", "UN"}) {
        const QByteArray data = QByteArray::fromHex("09000110") + vr + QByteArray::fromHex("000014000000") +
                                value + element(DCM_PatientID, "LO", "P1");
        QCOMPARE(headerOf(data).patientId, std::string{"P1"});
    }
}

void AttributeReaderTest::aSequenceThatHasNoLastDelimiterOfItemEnds() {
    const QByteArray data = QByteArray::fromHex("08001111") + "SQ" +
                            QByteArray::fromHex("0000fffffffffeff00e0ffffffff") +
                            element(DCM_ReferencedSOPInstanceUID, "UI", "1.2") +
                            QByteArray::fromHex("feffdde000000000") + element(DCM_PatientID, "LO", "P1");
    QCOMPARE(headerOf(data).patientId, std::string{"P1"});
}

void AttributeReaderTest::workAndMemoryAreProportional_data() {
    QTest::addColumn<QByteArray>("begin");
    QTest::addColumn<QByteArray>("unit");
    const QByteArray sequence = QByteArray::fromHex("09000110") + "SQ" + QByteArray::fromHex("0000ffffffff");
    QTest::newRow("empty items") << sequence << QByteArray::fromHex("feff00e000000000");
    QTest::newRow("elements in an item")
        << sequence + QByteArray::fromHex("feff00e0ffffffff") << element({0x0009, 1}, "LO", {});
    QTest::newRow("sequences that end") << QByteArray{} << sequence + QByteArray::fromHex("feffdde000000000");
    QTest::newRow("delimiters that end nothing") << sequence << QByteArray::fromHex("feff0de000000000");
    QTest::newRow("values that look like sequences")
        << QByteArray{}
        << QByteArray::fromHex("09000110") + "UN" + QByteArray::fromHex("000010000000") +
               QByteArray::fromHex("feff00e0ffffffff0000000000000000");
}

void AttributeReaderTest::workAndMemoryAreProportional() {
    QFETCH(const QByteArray, begin);
    QFETCH(const QByteArray, unit);
    using Reading = ElementWalk::Reading;
    for (const Reading reading : {Reading::ByRepresentation, Reading::ByContent, Reading::Enclosed}) {
        Counter counter;
        ElementWalk walk{EXS_LittleEndianExplicit, reading, counter};
        const QByteArray data = begin + unit.repeated(10'000);
        walk.take(view(data));
        constexpr std::size_t ShortestHead = 8;
        QVERIFY(counter.steps <= static_cast<std::size_t>(data.size()) / ShortestHead);
        QVERIFY(counter.bytes <= static_cast<std::size_t>(data.size()));
    }
    // All that is wanted, as long as it may be: the bound of what is kept.
    AttributeReader reader{EXS_LittleEndianExplicit, {DCM_PatientID, DCM_PatientName}, DCM_Rows};
    reader.take(view(element(DCM_PatientID, "LO", QByteArray(4096, 'x')) + begin));
    for (int i = 0; i < 9'000; ++i)
        reader.take(view(unit));
    QCOMPARE(reader.bytesKept(), std::size_t{4096});
    reader.take(view(element(DCM_PatientName, "PN", QByteArray(4097, 'x'))));
    QCOMPARE(reader.bytesKept(), std::size_t{4096});
}

void AttributeReaderTest::sequencesInEachOtherAreRefusedBeyondTheLimit() {
    for (const E_TransferSyntax syntax : {EXS_LittleEndianImplicit, EXS_LittleEndianExplicit}) {
        for (const int depth : {64, 65, 100'000}) {
            const auto nested = nestedSequences(depth, syntax);
            HeaderReader reader{syntax};
            if (depth == 64)
                QVERIFY(!reader.take(nested));
            else
                QVERIFY_EXCEPTION_THROWN(reader.take(nested), HeaderFault);
        }
    }
}

/// The value of the first element begins as a sequence does, and what is in it claims all that follows.
void AttributeReaderTest::noDisguiseHidesTheDepth() {
    const auto sequences = nestedSequences(65);
    const QByteArray nested{sequences.data(), static_cast<qsizetype>(sequences.size())};
    const QByteArray disguise = QByteArray::fromHex("09000110") + "OB" + QByteArray::fromHex("000014000000") +
                                QByteArray::fromHex("feff00e0ffffffff090002104f420000ffffff00");
    QVERIFY(exceedsNestingLimit(view(nested), EXS_LittleEndianExplicit));
    QVERIFY(exceedsNestingLimit(view(disguise + nested), EXS_LittleEndianExplicit));
}

void AttributeReaderTest::aDeflatedFileHasItsHeader() {
    const QTemporaryDir folder;
    const QString file =
        writeObject({.side = 300}, folder.filePath(u"one.dcm"_s), EXS_DeflatedLittleEndianExplicit);
    const ObjectHeader header = readHeader(std::filesystem::path{file.toStdString()});
    QCOMPARE(header.patientName, std::string{"Doe^Jane"});
    QCOMPARE(header.pixelRows, std::optional{300LL});
}

void AttributeReaderTest::aFileThatIsCutOffHasNone() {
    const QTemporaryDir folder;
    const QString file = writeObject({}, folder.filePath(u"one.dcm"_s));
    const std::filesystem::path path{file.toStdString()};
    QCOMPARE(readHeader(path).patientId, std::string{"P1"});
    constexpr qint64 Behind =
        2048 + 12 + 70;  // the pixels, their head, and elements of group 0028: in one of them
    QVERIFY(QFile::resize(file, QFileInfo{file}.size() - Behind - 33));
    QVERIFY_EXCEPTION_THROWN(readHeader(path), std::runtime_error);
}

void AttributeReaderTest::theListingIsPrintableAndBounded() {
    ElementListing listing;
    const QByteArray data =
        element(DCM_PatientName, "PN", "Doe^J\x1b\n\xfc") + element(DCM_Rows, "US", QByteArray{"\0\2", 2});
    HeaderReader small{EXS_LittleEndianExplicit, &listing};
    small.take(view(data));
    const std::string text = listing.take();
    QVERIFY2(text.starts_with("(0010,0010) PN [Doe^J\\x1b\\x0a\\xfc]"), text.c_str());
    QVERIFY2(text.find("(0028,0010) US 512 ") != std::string::npos, text.c_str());

    HeaderReader large{EXS_LittleEndianExplicit, &listing};
    const QByteArray item = QByteArray::fromHex("feff00e0ffffffff");
    large.take(view(QByteArray::fromHex("09000110") + "SQ" + QByteArray::fromHex("0000ffffffff") + item));
    for (int i = 0; i < 5000; ++i)
        large.take(view(element({0x0009, 0x1002}, "LT", QByteArray(1000, '\n'))));
    const std::string lines = listing.take();
    QCOMPARE(std::count(lines.begin(), lines.end(), '\n'), std::ptrdiff_t{ElementListing::MostLines + 1});
    QVERIFY(lines.size() < 400 * ElementListing::MostLines);
    QVERIFY(lines.ends_with("4002 more elements\n"));
}

QTEST_GUILESS_MAIN(AttributeReaderTest)
#include "tst_attributereader.moc"
