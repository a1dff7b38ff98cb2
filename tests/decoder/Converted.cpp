#include "tests/decoder/Converted.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcistrmb.h>

#include <QtEndian>
#include <stdexcept>

#include "decoder/Transcoder.h"

namespace tessaly::test {

decoder::Bytes bytesOf(const QByteArray& bytes) {
    return {reinterpret_cast<const unsigned char*>(bytes.constData()),
            static_cast<std::size_t>(bytes.size())};
}

std::optional<QByteArray> converted(const QByteArray& object, dicom::TransferSyntax from,
                                    dicom::TransferSyntax to) {
    QByteArray made;
    const auto write = [&made](decoder::Bytes part) {
        made.append(reinterpret_cast<const char*>(part.data()), static_cast<qsizetype>(part.size()));
    };
    return decoder::convert(bytesOf(object), from, to, write) ? std::optional{made} : std::nullopt;
}

std::unique_ptr<DcmDataset> parsed(const QByteArray& object, E_TransferSyntax syntax) {
    auto set = std::make_unique<DcmDataset>();
    DcmInputBufferStream in;
    in.setBuffer(object.constData(), object.size());
    in.setEos();
    set->transferInit();
    if (set->read(in, syntax).bad())
        throw std::runtime_error{"no data set"};
    set->transferEnd();
    return set;
}

QByteArray pixelsIn(DcmItem& set) {
    const Uint16* words = nullptr;
    unsigned long count = 0;
    if (set.findAndGetUint16Array(DCM_PixelData, words, &count).bad())
        throw std::runtime_error{"no pixel data"};
    return {reinterpret_cast<const char*>(words), static_cast<qsizetype>(count * sizeof *words)};
}

QByteArray tableOf(const QList<QByteArrayList>& frames, qsizetype entrySize) {
    QByteArray table;
    quint32 offset = 0;
    for (const QByteArrayList& frame : frames) {
        QByteArray entry(entrySize, '\0');
        qToLittleEndian(offset, entry.data());
        table += entry;
        for (const QByteArray& part : frame)
            offset += 8 + static_cast<quint32>(part.size() + part.size() % 2);
    }
    return table;
}

}  // namespace tessaly::test
