#include "tests/tessalyd/forwarding/volumes/MadeSeries.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcitem.h>
#include <dcmtk/dcmdata/dcostrmb.h>

#include <QDir>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryFile>
#include <QTextStream>
#include <cstring>
#include <numeric>
#include <stdexcept>

#include "tests/tessalyd/Encapsulated.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

namespace {

void check(const OFCondition& condition) {
    if (condition.bad())
        throw std::runtime_error{condition.text()};
}

std::string textOf(double number) {
    return QByteArray::number(number, 'g', 12).toStdString();
}

QByteArray pixelsOf(const SeriesSpec& spec, int slice, int time) {
    QByteArray bytes;
    for (int row = 0; row < spec.rows; ++row)
        for (int column = 0; column < spec.columns; ++column) {
            const auto value = static_cast<std::uint32_t>(spec.value(row, column, slice, time));
            for (int byte = 0; byte < spec.bits / 8; ++byte)
                bytes.append(static_cast<char>(value >> 8 * byte));
        }
    return bytes;
}

void putPixels(DcmDataset& set, const SeriesSpec& spec, const QByteArray& bytes) {
    if (spec.bits == 8) {
        check(set.putAndInsertUint8Array(DCM_PixelData, reinterpret_cast<const Uint8*>(bytes.data()),
                                         static_cast<unsigned long>(bytes.size())));
        return;
    }
    std::vector<Uint16> words(static_cast<std::size_t>(bytes.size() / 2));
    std::memcpy(words.data(), bytes.data(), words.size() * 2);
    check(set.putAndInsertUint16Array(DCM_PixelData, words.data(), words.size()));
}

void put(DcmItem& item, const Attribute& attribute) {
    check(item.putAndInsertString(attribute.first, attribute.second.c_str()));
}

/// What every object has.
std::unique_ptr<DcmFileFormat> makeImage(const SeriesSpec& spec, int number) {
    auto object = std::make_unique<DcmFileFormat>();
    DcmDataset& set = *object->getDataset();
    for (const Attribute& attribute : {Attribute{DCM_SOPClassUID, spec.sopClass},
                                       {DCM_SOPInstanceUID, spec.series + "." + std::to_string(number)},
                                       {DCM_Modality, spec.modality},
                                       {DCM_PatientName, "Doe^Jane"},
                                       {DCM_PatientID, "P1"},
                                       {DCM_StudyDate, "20240131"},
                                       {DCM_StudyTime, "101530"},
                                       {DCM_SeriesNumber, "3"},
                                       {DCM_SeriesDescription, "series"},
                                       {DCM_StudyInstanceUID, "1.2.826.0.1.1"},
                                       {DCM_SeriesInstanceUID, spec.series},
                                       {DCM_FrameOfReferenceUID, "1.2.826.0.1.1.9"},
                                       {DCM_ImageType, "ORIGINAL\\PRIMARY\\M"},
                                       {DCM_InstanceNumber, std::to_string(number)},
                                       {DCM_PhotometricInterpretation, "MONOCHROME2"}})
        put(set, attribute);
    for (const auto& [tag, value] : {std::pair{DCM_Rows, spec.rows},
                                     {DCM_Columns, spec.columns},
                                     {DCM_SamplesPerPixel, 1},
                                     {DCM_BitsAllocated, spec.bits},
                                     {DCM_BitsStored, spec.stored},
                                     {DCM_HighBit, spec.stored - 1},
                                     {DCM_PixelRepresentation, spec.isSigned ? 1 : 0}})
        check(set.putAndInsertUint16(tag, static_cast<Uint16>(value)));
    return object;
}

std::vector<Attribute> differingOf(const SeriesSpec& spec, int slice, int time) {
    return spec.differing ? spec.differing(slice, time) : std::vector<Attribute>{};
}

Attribute spacingOf(const SeriesSpec& spec) {
    return {DCM_PixelSpacing, textOf(spec.spacing[0]) + "\\" + textOf(spec.spacing[1])};
}

DcmItem& groupIn(DcmItem& item, const DcmTagKey& tag) {
    DcmItem* group = nullptr;
    check(item.findOrCreateSequenceItem(tag, group));
    return *group;
}

}  // namespace

std::string textOf(const Vector& vector) {
    return textOf(vector.x) + "\\" + textOf(vector.y) + "\\" + textOf(vector.z);
}

std::string textOf(const SeriesSpec& spec) {
    return textOf(spec.orientation[0]) + "\\" + textOf(spec.orientation[1]);
}

std::unique_ptr<DcmFileFormat> makeSlice(const SeriesSpec& spec, int slice, int time) {
    auto object = makeImage(spec, spec.firstInstance + time * spec.depth + slice);
    DcmDataset& set = *object->getDataset();
    put(set, {DCM_ImageOrientationPatient, textOf(spec)});
    put(set, {DCM_ImagePositionPatient, textOf(spec.place(0, 0, slice))});
    put(set, spacingOf(spec));
    put(set, {DCM_SliceThickness, textOf(tessalyd::volumes::length(spec.step))});
    for (const Attribute& attribute : spec.attributes)
        put(set, attribute);
    for (const Attribute& attribute : differingOf(spec, slice, time))
        put(set, attribute);
    putPixels(set, spec, pixelsOf(spec, slice, time));
    return object;
}

std::unique_ptr<DcmFileFormat> makeEnhanced(const SeriesSpec& spec) {
    auto object = makeImage(spec, spec.firstInstance);
    DcmDataset& set = *object->getDataset();
    put(set, {DCM_NumberOfFrames, std::to_string(spec.depth * spec.times)});
    for (const Attribute& attribute : spec.attributes)
        put(set, attribute);
    DcmItem& shared = groupIn(set, DCM_SharedFunctionalGroupsSequence);
    put(groupIn(shared, DCM_PlaneOrientationSequence), {DCM_ImageOrientationPatient, textOf(spec)});
    put(groupIn(shared, DCM_PixelMeasuresSequence), spacingOf(spec));
    QByteArray pixels;
    for (int time = 0; time < spec.times; ++time)
        for (int slice = spec.depth - 1; slice >= 0; --slice) {
            DcmItem* frame = nullptr;
            check(set.findOrCreateSequenceItem(DCM_PerFrameFunctionalGroupsSequence, frame, -2));
            put(groupIn(*frame, DCM_PlanePositionSequence),
                {DCM_ImagePositionPatient, textOf(spec.place(0, 0, slice))});
            DcmItem& content = groupIn(*frame, DCM_FrameContentSequence);
            check(content.putAndInsertUint32(DCM_TemporalPositionIndex, static_cast<Uint32>(time + 1)));
            for (const Attribute& attribute : differingOf(spec, slice, time))
                put(attribute.first == DCM_RescaleSlope || attribute.first == DCM_RescaleIntercept
                        ? groupIn(*frame, DCM_PixelValueTransformationSequence)
                        : content,
                    attribute);
            pixels += pixelsOf(spec, slice, time);
        }
    putPixels(set, spec, pixels);
    return object;
}

QByteArray slowToDecode() {
    DcmDataset set;
    const auto in = [&](const DcmTagKey& sequence) -> DcmItem& {
        DcmItem* shared = nullptr;
        DcmItem* group = nullptr;
        check(set.findOrCreateSequenceItem(DCM_SharedFunctionalGroupsSequence, shared));
        check(shared->findOrCreateSequenceItem(sequence, group));
        return *group;
    };
    const std::string orientation = textOf(SeriesSpec{});
    check(in(DCM_PlanePositionSequence).putAndInsertString(DCM_ImagePositionPatient, "0\\0\\0"));
    check(in(DCM_PlaneOrientationSequence)
              .putAndInsertString(DCM_ImageOrientationPatient, orientation.c_str()));
    check(in(DCM_PixelMeasuresSequence).putAndInsertString(DCM_PixelSpacing, "1\\1"));
    std::vector<char> bytes(set.calcElementLength(EXS_LittleEndianExplicit, EET_ExplicitLength));
    DcmOutputBufferStream out{bytes.data(), static_cast<offile_off_t>(bytes.size())};
    set.transferInit();
    check(set.write(out, EXS_LittleEndianExplicit, EET_ExplicitLength, nullptr));
    set.transferEnd();
    ImageSpec image;
    // Readers take elements in any order.
    return QByteArray{bytes.data(), static_cast<qsizetype>(bytes.size())} + manyLargeFrames(image, 40);
}

void MadeSeries::add(const SeriesSpec& spec, E_TransferSyntax syntax) {
    const int count = spec.depth * spec.times;
    int step = 5;
    while (std::gcd(count, step) != 1)  // or it would not go through all of them
        ++step;
    for (int i = 0, number = 0; i < count; ++i, number = (number + step) % count)
        add(*makeSlice(spec, number % spec.depth, number / spec.depth), syntax);
}

void MadeSeries::add(DcmFileFormat& object, E_TransferSyntax syntax) {
    const QString file = objects_.filePath(u"%1.dcm"_s.arg(request.objects.size()));
    if (DcmXfer{syntax}.isEncapsulated()) {
        needCodecs();
        check(object.chooseRepresentation(syntax, nullptr));
    }
    check(object.saveFile(qPrintable(file), syntax, EET_ExplicitLength));
    request.objects.emplace_back(file.toStdString());
}

void MadeSeries::addFile(dicom::TransferSyntax syntax, const QByteArray& dataSet) {
    const QString file = objects_.filePath(u"%1.dcm"_s.arg(request.objects.size()));
    writeFile(file, syntax, {}, dataSet);
    request.objects.emplace_back(file.toStdString());
}

tessalyd::volumes::Volumes MadeSeries::write(VolumeFormat format, const decoder::Interest& interest) {
    request.seriesInstanceUid = "1.2.826.0.1.1.1";
    request.format = format;
    request.folder = volumes_.path().toStdString();
    return tessalyd::volumes::writeVolumes(request, decoders(), interest);
}

QString MadeSeries::refusal(VolumeFormat format) {
    try {
        static_cast<void>(write(format));
        return {};
    } catch (const tessalyd::volumes::VolumeRefusal& refusal) {
        return QString::fromUtf8(refusal.what());
    }
}

decoder::Pool& decoders() {
    static decoder::Pool pool{{.program = DECODER}};
    return pool;
}

QStringList converted(const QString& objects, const QString& folder) {
    QProcess program;
    program.start(u"dcm2niix"_s,
                  {u"-z"_s, u"n"_s, u"-b"_s, u"n"_s, u"-f"_s, u"other"_s, u"-o"_s, folder, objects});
    if (!program.waitForFinished(-1) || program.exitCode() != 0)
        throw std::runtime_error{"dcm2niix: " + program.readAll().toStdString()};
    QStringList paths;
    for (const QFileInfo& file : QDir{folder}.entryInfoList({u"*.nii"_s}, QDir::Files, QDir::Name))
        paths.append(file.filePath());
    return paths;
}

QJsonObject asked(const QStringList& arguments) {
    QProcess program;
    program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // The system's own, which has the package, whatever else is on the path.
    program.start(u"/usr/bin/python3"_s, QStringList{QString::fromUtf8(VOLUMES_SCRIPT)} + arguments);
    if (!program.waitForFinished(-1) || program.exitCode() != 0)
        return {};
    return QJsonDocument::fromJson(program.readAllStandardOutput()).object();
}

QJsonObject besideFormula(const QString& volume, const SeriesSpec& spec,
                          const std::function<double(int, int, int)>& scaled) {
    QTemporaryFile file;
    if (!file.open())
        throw std::runtime_error{"no temporary file"};
    QTextStream lines{&file};
    lines.setRealNumberPrecision(12);
    for (int time = 0; time < spec.times; ++time)
        for (int slice = 0; slice < spec.depth; ++slice)
            for (int row = 0; row < spec.rows; ++row)
                for (int column = 0; column < spec.columns; ++column) {
                    const Vector place = spec.place(row, column, slice);
                    lines << place.x << ' ' << place.y << ' ' << place.z << ' ' << time << ' '
                          << scaled(spec.value(row, column, slice, time), slice, time) << '\n';
                }
    lines.flush();
    return asked({u"formula"_s, volume, file.fileName()});
}

}  // namespace tessaly::test
