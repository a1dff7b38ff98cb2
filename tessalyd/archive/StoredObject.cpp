#include "tessalyd/archive/StoredObject.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <cstring>
#include <stdexcept>
#include <vector>

#include "dicom/DataSetWalk.h"
#include "tessalyd/Log.h"
#include "tessalyd/archive/FileWindow.h"
#include "tessalyd/archive/SinkStream.h"

namespace tessaly::tessalyd {

namespace {

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

StoredObject::StoredObject(const StoredInstance& instance) try
    : ObjectFile(instance.file, openStored(instance).release()) {
    if (sopInstanceUid() != instance.sopInstanceUid)
        throw std::runtime_error{"the file is another object's"};
    FileWindow window{size(), [this](std::size_t offset, std::span<char> target) { readAt(offset, target); }};
    if (dicom::isCutOff([&window](std::size_t index) { return window.at(index); }, size(),
                        DcmXfer{kind().transferSyntax.c_str()}.getXfer()))
        throw std::runtime_error{"the file is cut off"};
} catch (const std::exception& fault) {
    OFLOG_DEBUG(serverLog(), instance.file.c_str() << ": " << fault.what());
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
