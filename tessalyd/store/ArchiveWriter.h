#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "archive/ArchiveFile.h"
#include "archive/FormerFile.h"
#include "decoder/Pool.h"
#include "dicom/data/DataSetWalk.h"
#include "tessalyd/configuration/Configuration.h"
#include "tessalyd/store/ArchiveIndex.h"
#include "tessalyd/store/IncomingHeader.h"
#include "tessalyd/store/UnplacedBytes.h"

namespace tessaly::tessalyd {

/// What is known of an object before its data set comes.
struct IncomingObject {
    std::string sopClassUid;
    std::string sopInstanceUid;
    dicom::TransferSyntax syntax;
    std::string sender;  ///< AE title
    /// Rows of others' that are to be there exactly when the object's are (StoreSteps::writeRows).
    std::function<void(const db::Connection&, const ObjectHeader&)> writeRows = [](const db::Connection&,
                                                                                   const ObjectHeader&) {};
};

/// What decodes objects, and whose stop ends that at once: the object is stored as it came then.
struct Decoding {
    decoder::Pool& decoders;
    decoder::Interest interest;
};

/// Takes one object into the archive. Its data set is walked through once, as it comes, and is written to the
/// disk once so much of it is there that the folder is known: memory does not grow with the object, whatever
/// its header is like. Until finish() has returned, the archive does not have the object, and the destructor
/// leaves nothing of it.
class ArchiveWriter {
  public:
    /// `buffer` is working space that may be used for the next object again.
    ArchiveWriter(const PortConfiguration& port, ArchiveIndex& index, Decoding decoding,
                  IncomingObject object, std::vector<char>& buffer);

    /// Takes the next piece of the data set. A fault comes out of finish(), so that the sender can be
    /// listened to until its end and then be answered; what comes after it is dropped.
    void take(std::span<const char> piece) noexcept;

    /// The data set is complete: when this returns, the file is on the disk under its name and the tables
    /// have it. Throws StoreFailure.
    void finish();

  private:
    void write(std::span<const char> piece);
    void begin(bool complete);
    void check(const ObjectHeader& header) const;
    void checkEnd() const;
    [[nodiscard]] std::vector<char> metaHeader(const std::string& transferSyntaxUid) const;
    void decode();
    void publish();
    void record();
    void recordOnce();
    void follow();

    const PortConfiguration& port_;
    ArchiveIndex& index_;
    Decoding decoding_;
    IncomingObject object_;
    IncomingHeader incoming_;
    dicom::TruncationCheck end_;
    UnplacedBytes unplaced_;  // all that has come, until file_ is there
    std::exception_ptr fault_;
    std::optional<ObjectHeader> header_;  // once it is known, with placement_ and file_
    std::unique_ptr<ArchiveIndex::Placement> placement_;
    std::unique_ptr<archive::ArchiveFile> file_;
    std::optional<archive::FormerFile> former_;  // of the same instance, in another folder
    std::size_t dataSetAt_ = 0;                  // in the file
};

}  // namespace tessaly::tessalyd
