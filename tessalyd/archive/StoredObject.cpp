#include "tessalyd/archive/StoredObject.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "dicom/DataSetWalk.h"
#include "tessalyd/archive/SinkStream.h"

namespace tessaly::tessalyd {

namespace {

/// A file's bytes for whoever steps through them: a window that follows.
class Window {
  public:
    explicit Window(const dicom::ObjectFile& file) : file_(file) {}

    char at(std::size_t index) {
        if (index < begin_ || index >= begin_ + filled_) {
            begin_ = index;
            filled_ = std::min(bytes_.size(), file_.size() - index);
            file_.readAt(begin_, std::span{bytes_}.first(filled_));
        }
        return bytes_[index - begin_];
    }

  private:
    const dicom::ObjectFile& file_;
    std::array<char, 4096> bytes_;
    std::size_t begin_ = 0;
    std::size_t filled_ = 0;
};

/// In another syntax than the file's.
class ConvertedObject final : public dicom::OutgoingObject {
  public:
    ConvertedObject(dicom::ObjectKind kind, std::string sopInstanceUid, std::vector<char> dataSet)
        : kind_(std::move(kind)), sopInstanceUid_(std::move(sopInstanceUid)), dataSet_(std::move(dataSet)) {}

    [[nodiscard]] const dicom::ObjectKind& kind() const noexcept override { return kind_; }
    [[nodiscard]] const std::string& sopInstanceUid() const noexcept override { return sopInstanceUid_; }
    [[nodiscard]] std::size_t size() const noexcept override { return dataSet_.size(); }
    void read(std::span<char> target) override {
        std::memcpy(target.data(), dataSet_.data() + next_, target.size());
        next_ += target.size();
    }
    [[nodiscard]] std::unique_ptr<OutgoingObject> in(const std::string& /*transferSyntax*/) override {
        return nullptr;
    }

  private:
    dicom::ObjectKind kind_;
    std::string sopInstanceUid_;
    std::vector<char> dataSet_;
    std::size_t next_ = 0;
};

}  // namespace

StoredObject::StoredObject(const StoredInstance& instance) : ObjectFile(instance.file) {
    if (sopInstanceUid() != instance.sopInstanceUid)
        throw std::runtime_error{instance.file + ": the file is another object's"};
    Window window{*this};
    if (dicom::isCutOff([&window](std::size_t index) { return window.at(index); }, size(),
                        DcmXfer{kind().transferSyntax.c_str()}.getXfer()))
        throw std::runtime_error{instance.file + ": the file is cut off"};
}

std::unique_ptr<dicom::OutgoingObject> StoredObject::in(const std::string& transferSyntax) {
    const E_TransferSyntax stored = DcmXfer{kind().transferSyntax.c_str()}.getXfer();
    const E_TransferSyntax target = DcmXfer{transferSyntax.c_str()}.getXfer();
    if (stored == EXS_Unknown || target == EXS_Unknown)
        return nullptr;
    std::vector<char> bytes(size());
    readAt(0, bytes);
    if (dicom::nestsTooDeep(bytes, stored))
        return nullptr;
    DcmDataset dataset;
    DcmInputBufferStream in;
    in.setBuffer(bytes.data(), static_cast<offile_off_t>(bytes.size()));
    in.setEos();
    dataset.transferInit();
    const OFCondition parsed = dataset.read(in, stored);
    dataset.transferEnd();
    if (parsed.bad() || dataset.chooseRepresentation(target, nullptr).bad() || !dataset.canWriteXfer(target))
        return nullptr;
    dataset.removeAllButCurrentRepresentations();
    bytes.clear();
    SinkStream out{
        [&bytes](std::span<const char> block) { bytes.insert(bytes.end(), block.begin(), block.end()); }};
    dataset.transferInit();
    const OFCondition written = dataset.write(out, target, EET_ExplicitLength, nullptr);
    dataset.transferEnd();
    out.rethrow();
    if (written.bad())
        return nullptr;
    return std::make_unique<ConvertedObject>(dicom::ObjectKind{kind().sopClass, transferSyntax},
                                             sopInstanceUid(), std::move(bytes));
}

}  // namespace tessaly::tessalyd
