#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QTest>
#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include "dicom/data/FileMeta.h"

using namespace tessaly::dicom;

/// The beginning of a file, beside the toolkit's.
class FileMetaTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void isThatOfTheToolkit_data();
    void isThatOfTheToolkit();
    void aValueThatIsTooLongIsRefused();

  private:
    static std::vector<char> byTheToolkit(const FileMeta& meta);
};

std::vector<char> FileMetaTest::byTheToolkit(const FileMeta& meta) {
    DcmMetaInfo info;
    constexpr std::array<Uint8, 2> Version{0, 1};
    info.putAndInsertUint8Array(DCM_FileMetaInformationVersion, Version.data(), Version.size());
    info.putAndInsertString(DCM_MediaStorageSOPClassUID, meta.sopClassUid.c_str());
    info.putAndInsertString(DCM_MediaStorageSOPInstanceUID, meta.sopInstanceUid.c_str());
    info.putAndInsertString(DCM_TransferSyntaxUID, meta.transferSyntaxUid.c_str());
    info.putAndInsertString(DCM_ImplementationClassUID, OFFIS_IMPLEMENTATION_CLASS_UID);
    info.putAndInsertString(DCM_ImplementationVersionName, OFFIS_DTK_IMPLEMENTATION_VERSION_NAME);
    info.putAndInsertString(DCM_SourceApplicationEntityTitle, meta.sourceAeTitle.c_str());
    info.computeGroupLengthAndPadding(EGL_withGL, EPD_noChange, META_HEADER_DEFAULT_TRANSFERSYNTAX,
                                      EET_ExplicitLength);
    std::vector<char> bytes(4096);
    DcmOutputBufferStream out{bytes.data(), static_cast<offile_off_t>(bytes.size())};
    info.transferInit();
    info.write(out, META_HEADER_DEFAULT_TRANSFERSYNTAX, EET_ExplicitLength, nullptr);
    bytes.resize(static_cast<std::size_t>(out.tell()));
    return bytes;
}

void FileMetaTest::isThatOfTheToolkit_data() {
    QTest::addColumn<QByteArray>("instance");
    QTest::addColumn<QByteArray>("syntax");
    QTest::addColumn<QByteArray>("source");
    QTest::newRow("even") << QByteArray{"1.2.34"} << QByteArray{UID_LittleEndianExplicitTransferSyntax}
                          << QByteArray{"CT01"};
    QTest::newRow("odd") << QByteArray{"1.2.3"} << QByteArray{UID_LittleEndianImplicitTransferSyntax}
                         << QByteArray{"CT1"};
    QTest::newRow("longest") << "1." + QByteArray(62, '9') << QByteArray{UID_RLELosslessTransferSyntax}
                             << QByteArray(16, 'X');
    QTest::newRow("no title") << QByteArray{"1.2.3"} << QByteArray{"1.2.3.4"} << QByteArray{};
}

void FileMetaTest::isThatOfTheToolkit() {
    QFETCH(const QByteArray, instance);
    QFETCH(const QByteArray, syntax);
    QFETCH(const QByteArray, source);
    const FileMeta meta{.sopClassUid = UID_CTImageStorage,
                        .sopInstanceUid = instance.toStdString(),
                        .transferSyntaxUid = syntax.toStdString(),
                        .sourceAeTitle = source.toStdString()};
    const std::vector<char> ours = encoded(meta);
    const std::vector<char> theirs = byTheToolkit(meta);
    QCOMPARE(QByteArray(ours.data(), qsizetype(ours.size())),
             QByteArray(theirs.data(), qsizetype(theirs.size())));
}

void FileMetaTest::aValueThatIsTooLongIsRefused() {
    QVERIFY_EXCEPTION_THROWN((void)encoded(FileMeta{.sopClassUid = std::string(65535, '1')}),
                             std::length_error);
    QVERIFY(!encoded(FileMeta{.sopClassUid = std::string(65534, '1')}).empty());
}

QTEST_GUILESS_MAIN(FileMetaTest)
#include "tst_filemeta.moc"
