#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QTemporaryDir>
#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tessalyd/forwarding/volumes/Vector.h"
#include "tessalyd/forwarding/volumes/Volumes.h"
#include "tests/tessalyd/Objects.h"

namespace tessaly::test {

using tessalyd::volumes::Vector;
using tessalyd::volumes::VolumeFormat;

/// Of a text, as it is put into an object.
using Attribute = std::pair<DcmTagKey, std::string>;

/// Images that lie one above the other, and whose every pixel is known.
struct SeriesSpec {
    std::string sopClass = "1.2.840.10008.5.1.4.1.1.4";  ///< MR images
    std::string modality = "MR";
    std::string series = "1.2.826.0.1.1.1";
    int rows = 24;
    int columns = 32;
    int depth = 7;
    int times = 1;
    std::array<Vector, 2> orientation{Vector{1, 0, 0}, Vector{0, 1, 0}};  ///< along a row, along a column
    std::array<double, 2> spacing{0.8, 0.6};  ///< from row to row, from column to column
    Vector first{-10.5, 20.25, 30};
    Vector step{0, 0, 2.5};
    int bits = 16;
    int stored = 12;
    bool isSigned = false;
    int firstInstance = 1;
    std::vector<Attribute> attributes = {};  ///< of every object
    /// What one object has beside or instead of the others'.
    std::function<std::vector<Attribute>(int slice, int time)> differing = {};

    /// Where a pixel's middle is: PS3.3 C.7.6.2.1.1.
    [[nodiscard]] Vector place(int row, int column, int slice) const {
        return first + step * slice + orientation[0] * (spacing[1] * column) +
               orientation[1] * (spacing[0] * row);
    }
    /// As it is stored.
    [[nodiscard]] int value(int row, int column, int slice, int time = 0) const {
        const int range = 1 << (stored - (isSigned ? 1 : 0));
        return (row * 7 + column * 13 + slice * 101 + time * 577 + row * column) % range -
               (isSigned ? range / 2 : 0);
    }
};

/// A direction as it is put into an object.
[[nodiscard]] std::string textOf(const Vector& vector);
[[nodiscard]] std::string textOf(const SeriesSpec& spec);  ///< the orientation

/// One image of the series.
[[nodiscard]] std::unique_ptr<DcmFileFormat> makeSlice(const SeriesSpec& spec, int slice, int time = 0);
/// All of them as the frames of one object, time after time, each from the last position to the first.
[[nodiscard]] std::unique_ptr<DcmFileFormat> makeEnhanced(const SeriesSpec& spec);
/// The data set of a lossless JPEG-LS object of many large frames, all at the same position.
[[nodiscard]] QByteArray slowToDecode();

/// Objects in files of a folder of their own, and the volumes that are made of them.
class MadeSeries {
  public:
    /// In an order that nobody would sort them in.
    void add(const SeriesSpec& spec, E_TransferSyntax syntax = EXS_LittleEndianExplicit);
    void add(DcmFileFormat& object, E_TransferSyntax syntax = EXS_LittleEndianExplicit);

    /// A file of this data set, whatever that is.
    void addFile(dicom::TransferSyntax syntax, const QByteArray& dataSet);

    /// Throws what writeVolumes() throws.
    tessalyd::volumes::Volumes write(VolumeFormat format = VolumeFormat::Nifti,
                                     const decoder::Interest& interest = {.stop = {}});
    /// Why it was refused; empty where it was not.
    [[nodiscard]] QString refusal(VolumeFormat format = VolumeFormat::Nifti);

    [[nodiscard]] QString objects() const { return objects_.path(); }
    [[nodiscard]] QString folder() const { return volumes_.path(); }
    [[nodiscard]] QString path(const std::string& name) const {
        return volumes_.filePath(QString::fromStdString(name));
    }
    tessalyd::volumes::VolumeRequest request;  ///< the files are put in as they are added

  private:
    QTemporaryDir objects_;
    QTemporaryDir volumes_;
};

/// The pool of all tests of a program.
[[nodiscard]] decoder::Pool& decoders();

/// What `dcm2niix` makes of the files of a folder: paths, sorted.
[[nodiscard]] QStringList converted(const QString& objects, const QString& folder);

/// What another reader of volumes says, volumes.py. Empty where it fails, which is a failure of the test.
[[nodiscard]] QJsonObject asked(const QStringList& arguments);
/// The volume beside what the series has at the same places and times, by `scaled` of what is stored.
[[nodiscard]] QJsonObject besideFormula(
    const QString& volume, const SeriesSpec& spec,
    const std::function<double(int stored, int slice, int time)>& scaled = [](int stored, int, int) {
        return stored;
    });

}  // namespace tessaly::test
