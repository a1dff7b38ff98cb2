#pragma once

#include <filesystem>

#include "base/FileDescriptor.h"
#include "dicom/data/OutgoingObject.h"

namespace tessaly::dicom {

/// A DICOM file as it lies on the disk. What it is comes from its meta header; its data set is read as it is
/// sent, and never held as a whole.
class ObjectFile : public OutgoingObject {
  public:
    /// Opens the file and reads its meta header. Throws std::runtime_error.
    explicit ObjectFile(std::filesystem::path path);
    /// The same with a file that the caller has opened for reading, and gives away. Faults do not name the
    /// path.
    ObjectFile(std::filesystem::path path, base::FileDescriptor file);

    [[nodiscard]] const ObjectKind& kind() const noexcept override { return kind_; }
    [[nodiscard]] const std::string& sopInstanceUid() const noexcept override { return sopInstanceUid_; }
    [[nodiscard]] std::size_t size() const noexcept override { return size_; }
    void read(std::span<char> target) override;
    /// A file alone is only what it is.
    [[nodiscard]] std::unique_ptr<OutgoingObject> in(const std::string& transferSyntax) override;

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }
    /// Its own, open for reading alone.
    [[nodiscard]] int descriptor() const noexcept { return file_.get(); }
    /// Where in the file the data set begins.
    [[nodiscard]] std::size_t dataSetAt() const noexcept { return dataSetAt_; }
    /// Bytes of the data set from anywhere in it, which leaves read() where it is.
    void readAt(std::size_t offset, std::span<char> target) const;

  private:
    void readWhatItIs();
    void readHead();
    void readMetaHeader();
    [[noreturn]] void fail(const std::string& why) const;
    void readFile(std::size_t offset, std::span<char> target) const;

    std::filesystem::path path_;
    std::string named_;  // in the faults
    base::FileDescriptor file_;
    // The file's beginning: of most files all there is. Nothing is written there before what is read.
    std::unique_ptr<char[]> head_;  // NOLINT(modernize-avoid-c-arrays)
    std::size_t headSize_ = 0;
    ObjectKind kind_;
    std::string sopInstanceUid_;
    std::size_t dataSetAt_ = 0;
    std::size_t fileSize_ = 0;
    std::size_t size_ = 0;  // of the data set
    std::size_t next_ = 0;
};

}  // namespace tessaly::dicom
