#include "tessalyd/search/StoredObject.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "dicom/data/DataSetWalk.h"
#include "dicom/data/FileWindow.h"
#include "tessalyd/Log.h"

namespace tessaly::tessalyd {

namespace {

/// Bytes on the disk that nobody else can come to, gone with this.
using UnnamedFile = std::unique_ptr<std::FILE, decltype([](std::FILE* file) { std::fclose(file); })>;

[[noreturn]] void failConverted() {
    throw std::system_error{errno, std::generic_category(), "the converted object"};
}

/// In another syntax than the file's.
class ConvertedObject final : public dicom::OutgoingObject {
  public:
    ConvertedObject(dicom::ObjectKind kind, std::string sopInstanceUid, UnnamedFile file)
        : kind_(std::move(kind)), sopInstanceUid_(std::move(sopInstanceUid)), file_(std::move(file)) {
        struct stat found {};
        if (::fstat(::fileno(file_.get()), &found) < 0)
            failConverted();
        size_ = static_cast<std::size_t>(found.st_size);
    }

    [[nodiscard]] const dicom::ObjectKind& kind() const noexcept override { return kind_; }
    [[nodiscard]] const std::string& sopInstanceUid() const noexcept override { return sopInstanceUid_; }
    [[nodiscard]] std::size_t size() const noexcept override { return size_; }
    void read(std::span<char> target) override {
        while (!target.empty()) {
            const ssize_t count =
                ::pread(::fileno(file_.get()), target.data(), target.size(), static_cast<off_t>(next_));
            if (count == 0)
                errno = EIO;
            if (count == 0 || (count < 0 && errno != EINTR))
                failConverted();
            if (count > 0) {
                target = target.subspan(static_cast<std::size_t>(count));
                next_ += static_cast<std::size_t>(count);
            }
        }
    }
    [[nodiscard]] std::unique_ptr<OutgoingObject> in(const std::string& /*transferSyntax*/) override {
        return nullptr;
    }

  private:
    dicom::ObjectKind kind_;
    std::string sopInstanceUid_;
    UnnamedFile file_;
    std::size_t size_ = 0;
    std::size_t next_ = 0;
};

}  // namespace

StoredObject::StoredObject(const StoredInstance& instance) try
    : ObjectFile(instance.file, openStored(instance)) {
    if (sopInstanceUid() != instance.sopInstanceUid)
        throw std::runtime_error{"the file is another object's"};
    dicom::FileWindow window{size(),
                             [this](std::size_t offset, std::span<char> target) { readAt(offset, target); }};
    if (dicom::isTruncated([&window](std::size_t index) { return window.at(index); }, size(),
                           dicom::TransferSyntax{kind().transferSyntax}))
        throw std::runtime_error{"the file is cut off"};
} catch (const std::exception& fault) {
    OFLOG_DEBUG(serverLog(), instance.file.c_str() << ": " << fault.what());
}

std::unique_ptr<dicom::OutgoingObject> StoredObject::convertedTo(const std::string& transferSyntax,
                                                                 decoder::Pool& decoders,
                                                                 const decoder::Interest& interest) const {
    UnnamedFile file{std::tmpfile()};
    if (!file)
        failConverted();
    const decoder::Result result = decoders.convert(
        {.file = descriptor(),
         .dataSetAt = dataSetAt(),
         .size = size(),
         .syntax = dicom::TransferSyntax{kind().transferSyntax}},
        {.file = ::fileno(file.get()), .syntax = dicom::TransferSyntax{transferSyntax}}, interest);
    if (result.outcome == decoder::Outcome::Stopped)
        return nullptr;
    if (result.outcome == decoder::Outcome::NotConvertible)
        throw std::runtime_error{"it cannot be decoded: " + result.reason};
    return std::make_unique<ConvertedObject>(dicom::ObjectKind{kind().sopClass, transferSyntax},
                                             sopInstanceUid(), std::move(file));
}

}  // namespace tessaly::tessalyd
