#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QFile>
#include <QTest>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/OtherArchive.h"
#include "tests/tessalyd/TagNumber.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// What becomes of an object: its file, its rows, and the answer to the sender.
class StorageTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void anObjectIsFiledAndRegistered();
    void objectsOfAStudyShareItsRows();
    void laterObjectsBringTheRowsUpToDate();
    void namesAreStoredAsUtf8_data();
    void namesAreStoredAsUtf8();
    void anotherTextLeavesTheNameAlone_data();
    void anotherTextLeavesTheNameAlone();
    void patientsAreKeptApartWhateverElseTheirObjectsSay();
    void theSameInstanceReplacesItsFile();
    void anInstanceThatMovesLeavesNoFileBehind();
    void aStudyKeepsItsFolderOnEveryPort();
    void theSyntaxIsKeptOrDecoded_data();
    void theSyntaxIsKeptOrDecoded();
    void pixelsThatCannotBeDecodedAreKeptAsTheyCame();
    void whatIsTooDeepForTheDecoderIsKeptAsItCame();
    void aLargeObjectIsWrittenAsItComes();
    void anotherProductsObjectsAreStored();
    void anotherArchiveForwardsItsObjects();
};

void StorageTest::anObjectIsFiledAndRegistered() {
    launch();
    const QString sent = writeObject({}, scratch(u"one.dcm"_s));
    QCOMPARE(run(u"storescu"_s, {u"-aet"_s, u"CT1"_s, u"localhost"_s, daemon_->port(), sent}).exitCode, 0);
    const ScratchDatabase& database = daemon_->database;
    QCOMPARE(database.rows(u"SELECT PatientID, Name, BirthDate, Sex FROM Patient"_s),
             (QList<QStringList>{{u"P1"_s, u"Doe^Jane"_s, u"19700102"_s, u"F"_s}}));
    QCOMPARE(database.rows(u"SELECT StudyInstanceUID, StudyPath, StudyID, StudyDate, StudyTime, "
                           "AccessionNumber, Description FROM Study "
                           "WHERE IDPatient=(SELECT ID FROM Patient)"_s),
             (QList<QStringList>{{u"1.2.826.0.1.1"_s, database.imageRoot() + u"\\1.2.826.0.1.1"_s, u"S5"_s,
                                  u"20240131"_s, u"101530"_s, u"A77"_s, u"Thorax"_s}}));
    QCOMPARE(database.rows(u"SELECT SeriesInstanceUID, StudyInstanceUID, SeriesDir, Modality, SeriesNumber, "
                           "Description FROM Series"_s),
             (QList<QStringList>{{u"1.2.826.0.1.1.1"_s, u"1.2.826.0.1.1"_s, u"1.2.826.0.1.1.1"_s, u"CT"_s,
                                  u"3"_s, u"Native"_s}}));
    QCOMPARE(database.rows(u"SELECT SOPInstanceUID, SeriesInstanceUID, ImageFile, SOPClassUID, "
                           "TransferSyntaxUID, InstanceNumber FROM Image"_s),
             (QList<QStringList>{{u"1.2.826.0.1.1.1.1"_s, u"1.2.826.0.1.1.1"_s, u"1.2.826.0.1.1.1.1.dcm"_s,
                                  QStringLiteral(UID_CTImageStorage),
                                  QStringLiteral(UID_LittleEndianExplicitTransferSyntax), u"1"_s}}));
    QCOMPARE(database.rows(
                 u"SELECT NameAlphabetic, NumberInSeries, PixelRows, PixelColumns FROM Patient, Image"_s),
             (QList<QStringList>{{u"doe^jane"_s, u"1"_s, u"32"_s, u"32"_s}}));
    const QString file = daemon_->images().value(0).file;
    QCOMPARE(daemon_->files(), QStringList{file});
    QCOMPARE(dataSetOf(file), dataSetOf(sent));
    DcmFileFormat stored;
    QVERIFY(stored.loadFile(qPrintable(file)).good());
    OFString sender;
    stored.getMetaInfo()->findAndGetOFString(DCM_SourceApplicationEntityTitle, sender);
    QCOMPARE(sender, OFString{"CT1"});
}

void StorageTest::objectsOfAStudyShareItsRows() {
    launch();
    RequestorAssociation peer{daemon_->port()};
    for (int i = 1; i <= 6; ++i) {
        const ObjectSpec spec{.series = i <= 4 ? "1.2.3.1" : "1.2.3.2",
                              .instance = "1.2.3.9." + std::to_string(i)};
        QCOMPARE(peer.store(*makeObject(spec)).status, 0);
    }
    QCOMPARE(
        peer.store(*makeObject(
                       {.patientId = "P2", .study = "1.2.4", .series = "1.2.4.1", .instance = "1.2.4.2"}))
            .status,
        0);
    QCOMPARE(daemon_->database.rows(u"SELECT (SELECT COUNT(*) FROM Patient), (SELECT COUNT(*) FROM Study), "
                                    "(SELECT COUNT(*) FROM Series), (SELECT COUNT(*) FROM Image)"_s),
             (QList<QStringList>{{u"2"_s, u"2"_s, u"3"_s, u"7"_s}}));
    for (const Daemon::Image& image : daemon_->images())
        QVERIFY2(QFile::exists(image.file), qPrintable(image.file));
}

void StorageTest::laterObjectsBringTheRowsUpToDate() {
    launch();
    QCOMPARE(store({}).status, 0);
    QCOMPARE(store({.patientName = "Doe^Janet", .instance = "1.2.826.0.1.1.1.2"}).status, 0);
    QCOMPARE(daemon_->database.value(u"SELECT Name FROM Patient"_s), u"Doe^Janet"_s);
    QCOMPARE(store({.patientId = "P9", .instance = "1.2.826.0.1.1.1.3"}).status, 0);
    QCOMPARE(
        daemon_->database.value(u"SELECT PatientID FROM Patient WHERE ID=(SELECT IDPatient FROM Study)"_s),
        u"P9"_s);
}

void StorageTest::namesAreStoredAsUtf8_data() {
    QTest::addColumn<QByteArray>("characterSet");
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QString>("stored");
    QTest::newRow("Latin alphabet 1")
        << QByteArray{"ISO_IR 100"} << QByteArray{"M\xfcller^J\xf6rg"} << u"Müller^Jörg"_s;
    QTest::newRow("Unicode") << QByteArray{"ISO_IR 192"} << QByteArray{"Müller^Jörg"} << u"Müller^Jörg"_s;
    QTest::newRow("Cyrillic") << QByteArray{"ISO_IR 144"}
                              << QByteArray{"\xbb\xee\xda\x63\x65\xdc\xd1\x79\x70\x33"} << u"Люкceмбyp3"_s;
    QTest::newRow("Japanese, with code extensions")
        << QByteArray{"\\ISO 2022 IR 87"} << QByteArray{"Yamada^Tarou=\x1b$B;3ED\x1b(B^\x1b$BB@O:\x1b(B"}
        << u"Yamada^Tarou=山田^太郎"_s;
    QTest::newRow("Korean, with code extensions")
        << QByteArray{"\\ISO 2022 IR 149"}
        << QByteArray{"Hong^Gildong=\x1b$)C\xfb\xf3^\x1b$)C\xd1\xce\xd4\xd7"} << u"Hong^Gildong=洪^吉洞"_s;
    QTest::newRow("Japanese, with katakana of eight bits")
        << QByteArray{"ISO 2022 IR 13\\ISO 2022 IR 87"}
        << QByteArray{"\xd4\xcf\xc0\xde^\xc0\xdb\xb3=\x1b$B;3ED\x1b(J^\x1b$BB@O:\x1b(J"}
        << u"ﾔﾏﾀﾞ^ﾀﾛｳ=山田^太郎"_s;
    QTest::newRow("Japanese, katakana of eight bits alone")
        << QByteArray{"ISO 2022 IR 13\\ISO 2022 IR 87"} << QByteArray{"\xd4\xcf\xc0\xde^\xc0\xdb\xb3"}
        << u"ﾔﾏﾀﾞ^ﾀﾛｳ"_s;
    QTest::newRow("Latin alphabet 1, before Japanese") << QByteArray{"ISO 2022 IR 100\\ISO 2022 IR 87"}
                                                       << QByteArray{"M\xfcller^J\xf6rg"} << u"Müller^Jörg"_s;
    QTest::newRow("Chinese, with code extensions")
        << QByteArray{"\\ISO 2022 IR 58"}
        << QByteArray{"Zhang^XiaoDong=\x1b$)A\xd5\xc5^\x1b$)A\xd0\xa1\xb6\xab"}
        << u"Zhang^XiaoDong=张^小东"_s;
    QTest::newRow("Chinese, of its own")
        << QByteArray{"GB18030"} << QByteArray{"\xcd\xf5^\xd0\xa1\xb6\xab"} << u"王^小东"_s;
    QTest::newRow("the only set, named as if others followed")
        << QByteArray{"ISO 2022 IR 100"} << QByteArray{"M\xfcller"} << u"Müller"_s;
    QTest::newRow("controls") << QByteArray{"ISO_IR 100"} << QByteArray{"M\xfcl\x07ler\x1b^\tA \r\n"}
                              << u"Mül ler ^ A"_s;
    QTest::newRow("not what it says") << QByteArray{"ISO_IR 192"} << QByteArray{"M\xfcller"} << u"M?ller"_s;
    QTest::newRow("says nothing") << QByteArray{} << QByteArray{"M\xfcller"} << u"M?ller"_s;
    QTest::newRow("unknown set") << QByteArray{"ISO_IR 999"} << QByteArray{"M\xfcller"} << u"M?ller"_s;
}

void StorageTest::namesAreStoredAsUtf8() {
    QFETCH(const QByteArray, characterSet);
    QFETCH(const QByteArray, sent);
    QFETCH(const QString, stored);
    launch();
    const auto object = makeObject({.patientName = sent.toStdString()});
    if (!characterSet.isEmpty())
        object->getDataset()->putAndInsertString(DCM_SpecificCharacterSet, characterSet.constData());
    QCOMPARE(RequestorAssociation{daemon_->port()}.store(*object).status, 0);
    QCOMPARE(daemon_->database.value(u"SELECT Name FROM Patient"_s), stored);
}

void StorageTest::anotherTextLeavesTheNameAlone_data() {
    QTest::addColumn<QByteArray>("characterSet");
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<quint32>("other");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("stored");
    const QByteArray longText(5000, 'x');  // more than is read of any value
    QTest::newRow("long comments on the image")
        << QByteArray{"ISO_IR 100"} << QByteArray{"M\xfcller^J\xf6rg"} << tagNumber(DCM_ImageComments)
        << longText << u"Müller^Jörg"_s;
    QTest::newRow("long comments on the patient")
        << QByteArray{"\\ISO 2022 IR 149"}
        << QByteArray{"Hong^Gildong=\x1b$)C\xfb\xf3^\x1b$)C\xd1\xce\xd4\xd7"}
        << tagNumber(DCM_PatientComments) << longText << u"Hong^Gildong=洪^吉洞"_s;
    QTest::newRow("a description cut off in a character")
        << QByteArray{"GB18030"} << QByteArray{"\xcd\xf5^\xd0\xa1\xb6\xab"} << tagNumber(DCM_StudyDescription)
        << QByteArray{"\xd0\xd8\xb2\xbf\xb6"} << u"王^小东"_s;
    QTest::newRow("a description in another set") << QByteArray{"ISO_IR 192"} << QByteArray{"Müller^Jörg"}
                                                  << tagNumber(DCM_SeriesDescription)
                                                  << QByteArray{"Sch\xe4" "del"} << u"Müller^Jörg"_s;
}

void StorageTest::anotherTextLeavesTheNameAlone() {
    QFETCH(const QByteArray, characterSet);
    QFETCH(const QByteArray, sent);
    QFETCH(const quint32, other);
    QFETCH(const QByteArray, text);
    QFETCH(const QString, stored);
    launch();
    const auto object = makeObject({.patientName = sent.toStdString()});
    object->getDataset()->putAndInsertString(DCM_SpecificCharacterSet, characterSet.constData());
    object->getDataset()->putAndInsertString(tagOf(other), text.constData());
    QCOMPARE(RequestorAssociation{daemon_->port()}.store(*object).status, 0);
    QCOMPARE(daemon_->database.value(u"SELECT Name FROM Patient"_s), stored);
}

void StorageTest::patientsAreKeptApartWhateverElseTheirObjectsSay() {
    launch();
    RequestorAssociation peer{daemon_->port()};
    for (const auto& [id, study] : {std::pair{"M\xdc"
                                              "1",
                                              "1.2.1"},
                                    {"M\xd6"
                                     "1",
                                     "1.2.2"}}) {
        const std::string uid{study};
        const auto object =
            makeObject({.patientId = id, .study = uid, .series = uid + ".1", .instance = uid + ".1.1"});
        object->getDataset()->putAndInsertString(DCM_SpecificCharacterSet, "ISO_IR 100");
        object->getDataset()->putAndInsertString(DCM_ImageComments, std::string(5000, 'x').c_str());
        QCOMPARE(peer.store(*object).status, 0);
    }
    QCOMPARE(daemon_->database.rows(u"SELECT PatientID FROM Patient ORDER BY ID"_s),
             (QList<QStringList>{{u"MÜ1"_s}, {u"MÖ1"_s}}));
}

void StorageTest::theSameInstanceReplacesItsFile() {
    launch();
    QCOMPARE(store({.seed = 1}).status, 0);
    const QString again = writeObject({.seed = 2}, scratch(u"two.dcm"_s), EXS_LittleEndianImplicit);
    QCOMPARE(run(u"storescu"_s, {u"-xi"_s, u"localhost"_s, daemon_->port(), again}).exitCode, 0);
    QCOMPARE(daemon_->database.rows(u"SELECT TransferSyntaxUID, InstanceNumber FROM Image"_s),
             (QList<QStringList>{{QStringLiteral(UID_LittleEndianImplicitTransferSyntax), u"2"_s}}));
    QCOMPARE(daemon_->files().size(), 1);
    QCOMPARE(dataSetOf(daemon_->files().first()), dataSetOf(again));
}

void StorageTest::anInstanceThatMovesLeavesNoFileBehind() {
    launch();
    QCOMPARE(store({}).status, 0);
    QCOMPARE(store({.study = "1.2.7", .series = "1.2.7.1"}).status, 0);
    QCOMPARE(daemon_->images().size(), 1);
    QCOMPARE(daemon_->files(),
             QStringList{daemon_->database.imageRoot() + u"/1.2.7/1.2.7.1/1.2.826.0.1.1.1.1.dcm"_s});
    QCOMPARE(daemon_->images().first().file, daemon_->files().first());
}

void StorageTest::aStudyKeepsItsFolderOnEveryPort() {
    QTemporaryDir other;
    launch({PortRow{}, PortRow{.root = other.path()}});
    QCOMPARE(store({.instance = "1.2.1"}, 0).status, 0);
    QCOMPARE(store({.instance = "1.2.2"}, 1).status, 0);
    QCOMPARE(daemon_->files().size(), 2);
    QCOMPARE(QDir{other.path()}.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList{});
    // A study that an administrator has given another place is followed there.
    QVERIFY(QFile::rename(daemon_->database.imageRoot() + u"/1.2.826.0.1.1"_s, other.filePath(u"moved"_s)));
    daemon_->database.run(u"UPDATE Study SET StudyPath=?"_s, {other.path() + u"\\moved"_s});
    QCOMPARE(store({.instance = "1.2.3"}, 0).status, 0);
    const auto images = daemon_->images();
    QCOMPARE(images.size(), 3);
    for (const Daemon::Image& image : images)
        QVERIFY2(QFile::exists(image.file), qPrintable(image.file));
}

void StorageTest::theSyntaxIsKeptOrDecoded_data() {
    QTest::addColumn<int>("sent");
    QTest::addColumn<QString>("option");
    QTest::addColumn<bool>("saveCompressed");
    QTest::addColumn<int>("stored");
    constexpr int Explicit = EXS_LittleEndianExplicit;
    const auto row = [](const char* name, int sent, const QString& option, bool save, int stored) {
        QTest::newRow(name) << sent << option << save << stored;
    };
    row("RLE kept", EXS_RLELossless, u"-xr"_s, true, EXS_RLELossless);
    row("RLE decoded", EXS_RLELossless, u"-xr"_s, false, Explicit);
    row("JPEG lossless kept", EXS_JPEGProcess14SV1, u"-xs"_s, true, EXS_JPEGProcess14SV1);
    row("JPEG lossless decoded", EXS_JPEGProcess14SV1, u"-xs"_s, false, Explicit);
    row("JPEG 12 bit kept", EXS_JPEGProcess2_4, u"-xx"_s, true, EXS_JPEGProcess2_4);
    row("JPEG 12 bit decoded", EXS_JPEGProcess2_4, u"-xx"_s, false, Explicit);
    row("JPEG-LS kept", EXS_JPEGLSLossless, u"-xt"_s, true, EXS_JPEGLSLossless);
    row("JPEG-LS decoded", EXS_JPEGLSLossless, u"-xt"_s, false, Explicit);
    row("big endian stays", EXS_BigEndianExplicit, u"-xb"_s, false, EXS_BigEndianExplicit);
    row("implicit stays", EXS_LittleEndianImplicit, u"-xi"_s, false, EXS_LittleEndianImplicit);
}

void StorageTest::theSyntaxIsKeptOrDecoded() {
    QFETCH(const int, sent);
    QFETCH(const QString, option);
    QFETCH(const bool, saveCompressed);
    QFETCH(const int, stored);
    launch({PortRow{.saveCompressed = saveCompressed}});
    const QString object =
        writeObject({.side = 64}, scratch(u"one.dcm"_s), static_cast<E_TransferSyntax>(sent));
    const Outcome peer = run(u"storescu"_s, {option, u"localhost"_s, daemon_->port(), object});
    QVERIFY2(peer.exitCode == 0, qPrintable(peer.output));
    QCOMPARE(daemon_->files().size(), 1);
    const QString file = daemon_->files().first();
    QCOMPARE(file, daemon_->images().value(0).file);
    QCOMPARE(syntaxOf(file), static_cast<E_TransferSyntax>(stored));
    QCOMPARE(daemon_->database.value(u"SELECT TransferSyntaxUID FROM Image"_s),
             QString::fromLatin1(DcmXfer{static_cast<E_TransferSyntax>(stored)}.getXferID()));
    QCOMPARE(pixelsOf(file), pixelsOf(object));
    if (sent == stored)
        QCOMPARE(dataSetOf(file), dataSetOf(object));
}

void StorageTest::pixelsThatCannotBeDecodedAreKeptAsTheyCame() {
    launch({PortRow{.saveCompressed = false}});
    const QString object = writeObject({.side = 64}, scratch(u"one.dcm"_s), EXS_JPEGProcess14SV1);
    QFile file{object};
    QVERIFY(file.open(QIODevice::ReadWrite));
    const qint64 marker = file.readAll().lastIndexOf(QByteArray::fromHex("ffc3"));  // the frame's header
    QVERIFY(marker > 0 && file.seek(marker));
    file.write(QByteArray(12, '\0'));
    file.close();
    QCOMPARE(run(u"storescu"_s, {u"-xs"_s, u"localhost"_s, daemon_->port(), object}).exitCode, 0);
    QCOMPARE(daemon_->files().size(), 1);
    QCOMPARE(dataSetOf(daemon_->files().first()), dataSetOf(object));
}

void StorageTest::whatIsTooDeepForTheDecoderIsKeptAsItCame() {
    launch({PortRow{.saveCompressed = false}});
    const QString object = writeObject({}, scratch(u"one.dcm"_s), EXS_RLELossless);
    const auto nested = nestedSequences(100'000);
    const QByteArray data = dataSetOf(object) + QByteArray::fromHex("efff0100") + "SQ" +
                            QByteArray::fromHex("0000fffffffffeff00e0ffffffff") +  // behind the pixels
                            QByteArray{nested.data(), static_cast<qsizetype>(nested.size())};
    RequestorAssociation peer{daemon_->port(),
                              "TESTER",
                              "TESSALY",
                              {{UID_VerificationSOPClass, {UID_LittleEndianImplicitTransferSyntax}},
                               {UID_CTImageStorage, {UID_RLELosslessTransferSyntax}}}};
    const auto answer =
        peer.storeBytes(ObjectSpec{}.instance, {data.data(), static_cast<std::size_t>(data.size())});
    QCOMPARE(answer.status, 0);
    QCOMPARE(daemon_->files().size(), 1);
    QVERIFY(dataSetOf(daemon_->files().first()) == data);
}

void StorageTest::aLargeObjectIsWrittenAsItComes() {
    launch();
    const QString object = writeObject({.side = 3000}, scratch(u"large.dcm"_s));  // 18 MB
    QCOMPARE(run(u"storescu"_s, {u"localhost"_s, daemon_->port(), object}).exitCode, 0);
    QCOMPARE(daemon_->files().size(), 1);
    QVERIFY(dataSetOf(daemon_->files().first()) == dataSetOf(object));
}

void StorageTest::anotherProductsObjectsAreStored() {
    launch();
    const QString sent = writeObject({}, scratch(u"one.dcm"_s));
    // Its exit code tells nothing: it crashes when it is through, whoever its peer is.
    (void)run(u"gdcmscu"_s, {u"--store"_s, u"--aetitle"_s, u"GDCM"_s, u"--call"_s, u"TESSALY"_s,
                             u"localhost"_s, daemon_->port(), sent});
    QCOMPARE(daemon_->files().size(), 1);
    QCOMPARE(daemon_->images().value(0).file, daemon_->files().first());
    QCOMPARE(pixelsOf(daemon_->files().first()), pixelsOf(sent));
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
    QCOMPARE(daemon_->ends.first(), (Daemon::Event{daemon_->port(), u"GDCM"_s, u"TESSALY"_s, 0}));
}

void StorageTest::anotherArchiveForwardsItsObjects() {
    launch();
    auto archive = std::make_unique<OtherArchive>(scratch(u"orthanc"_s), u"ARCHIVE"_s, daemon_->port());
    constexpr int Many = 20;
    for (int i = 1; i <= Many; ++i) {
        const QString file = writeObject({.instance = "1.2.5." + std::to_string(i), .seed = i},
                                         scratch(u"%1.dcm"_s.arg(i)), EXS_JPEGProcess14SV1);
        QFile object{file};
        QVERIFY(object.open(QIODevice::ReadOnly));
        QVERIFY(!archive->ask(u"instances"_s, object.readAll()).isEmpty());
    }
    const QByteArray study = archive->ask(u"studies"_s).split('"').value(1);
    QVERIFY(!archive->ask(u"modalities/tessaly/store"_s, study).isEmpty());
    archive.reset();
    QCOMPARE(daemon_->images().size(), Many);
    for (const Daemon::Image& image : daemon_->images()) {
        QCOMPARE(syntaxOf(image.file), EXS_JPEGProcess14SV1);
        QCOMPARE(pixelsOf(image.file), pixelsOf(scratch(image.instance.section(u'.', -1) + u".dcm"_s)));
    }
    EVENTUALLY_COMPARE(daemon_->connections.value(0).calling, u"ARCHIVE"_s);
}

QTEST_GUILESS_MAIN(StorageTest)
#include "tst_storage.moc"
