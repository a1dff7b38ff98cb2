#include "tessalyd/store/ArchiveWriter.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/dimse.h>
#include <dcmtk/dcmnet/diutil.h>

#include <system_error>

#include "archive/StoredPath.h"
#include "decoder/Syntaxes.h"
#include "dicom/data/FileMeta.h"
#include "tessalyd/Log.h"
#include "tessalyd/store/ArchiveReport.h"
#include "tessalyd/store/StoreFailure.h"

namespace tessaly::tessalyd {

namespace {

std::unique_ptr<archive::ArchiveFile> openFile(std::filesystem::path folder, std::string name) {
    return std::make_unique<archive::ArchiveFile>(std::move(folder), std::move(name), reportArchive);
}

}  // namespace

ArchiveWriter::ArchiveWriter(const PortConfiguration& port, ArchiveIndex& index, Decoding decoding,
                             IncomingObject object, std::vector<char>& buffer)
    : port_(port),
      index_(index),
      decoding_(std::move(decoding)),
      object_(std::move(object)),
      incoming_(object_.syntax),
      end_(object_.syntax),
      unplaced_(buffer, archive::localPath(port.root)) {}

void ArchiveWriter::take(std::span<const char> piece) noexcept {
    if (fault_)
        return;
    try {
        write(piece);
    } catch (...) {
        fault_ = std::current_exception();
    }
}

void ArchiveWriter::write(std::span<const char> piece) {
    end_.take(piece);
    if (file_) {
        file_->write(piece);
        return;
    }
    const bool isPlaceable = incoming_.take(piece);
    if (isPlaceable && unplaced_.size() + piece.size() > UnplacedBytes::MostInMemory) {
        begin(false);
        file_->write(piece);
        return;
    }
    unplaced_.append(piece);
    if (!isPlaceable && unplaced_.size() > dicom::LongestHeader)
        throw StoreFailure{STATUS_STORE_Error_CannotUnderstand, "The header of the object does not end"};
}

void ArchiveWriter::begin(bool complete) {
    header_ = incoming_.header();
    check(*header_);
    if (complete)
        checkEnd();
    header_->transferSyntaxUid = object_.syntax.uid();
    placement_ = index_.place(*header_, port_.root);
    const archive::Location& location = placement_->location();
    file_ = openFile(archive::localPath(location.folder()), location.imageFile);
    const std::vector<char> meta = metaHeader(header_->transferSyntaxUid);
    file_->write(meta);
    dataSetAt_ = meta.size();
    unplaced_.moveTo([this](std::span<const char> bytes) { file_->write(bytes); });
}

void ArchiveWriter::check(const ObjectHeader& header) const {
    // The names of folders and of the file: nothing that could lead out of the archive may get that far.
    if (!isUid(header.studyInstanceUid) || !isUid(header.seriesInstanceUid) || !isUid(header.sopInstanceUid))
        throw StoreFailure{STATUS_STORE_Error_CannotUnderstand,
                           "A UID of the object is missing or not valid"};
    if (header.sopInstanceUid != object_.sopInstanceUid || header.sopClassUid != object_.sopClassUid)
        throw StoreFailure{STATUS_STORE_Error_DataSetDoesNotMatchSOPClass,
                           "The data set is not the object that was announced"};
}

void ArchiveWriter::checkEnd() const {
    if (end_.isTruncated())
        throw StoreFailure{STATUS_STORE_Error_CannotUnderstand, "The data set is cut off"};
}

std::vector<char> ArchiveWriter::metaHeader(const std::string& transferSyntaxUid) const {
    return dicom::encoded(dicom::FileMeta{.sopClassUid = object_.sopClassUid,
                                          .sopInstanceUid = object_.sopInstanceUid,
                                          .transferSyntaxUid = transferSyntaxUid,
                                          .sourceAeTitle = object_.sender});
}

void ArchiveWriter::finish() {
    try {
        if (fault_)
            std::rethrow_exception(fault_);
        if (file_)
            checkEnd();
        else
            begin(true);
        if (!port_.saveCompressed && decoder::isDecodable(object_.syntax))
            decode();
        header_->fileSize = static_cast<long long>(file_->size());
        publish();
    } catch (const std::system_error& error) {
        throw StoreFailure{STATUS_STORE_Refused_OutOfResources, "The file cannot be written", error.what()};
    }
}

void ArchiveWriter::decode() {
    const dicom::TransferSyntax target{EXS_LittleEndianExplicit};
    const std::string syntaxUid = target.uid();
    auto decoded = openFile(file_->folder(), placement_->location().imageFile);
    const std::vector<char> meta = metaHeader(syntaxUid);
    decoded->write(meta);
    const base::FileDescriptor source = file_->openForReading();
    const decoder::Result result = decoding_.decoders.convert(
        {.file = source.get(),
         .dataSetAt = dataSetAt_,
         .size = file_->size() - dataSetAt_,
         .syntax = object_.syntax},
        {.file = decoded->descriptor().get(), .dataSetAt = meta.size(), .syntax = target},
        decoding_.interest);
    if (result.outcome == decoder::Outcome::Converted) {
        file_ = std::move(decoded);
        header_->transferSyntaxUid = syntaxUid;
    } else {
        OFLOG_WARN(serverLog(),
                   "object " << object_.sopInstanceUid.c_str()
                             << " cannot be decoded; it is stored as it came: " << result.reason.c_str());
    }
}

void ArchiveWriter::publish() {
    const auto claim = index_.claim(object_.sopInstanceUid);
    try {
        record();
    } catch (...) {
        file_->withdraw();  // before the claim ends: whoever has it next finds what was there
        throw;
    }
    file_->keep();
    if (former_)
        former_->remove();
}

void ArchiveWriter::record() {
    // What another server was first with, or the console has moved, is followed; not for ever.
    constexpr int MostMoves = 3;
    for (int moves = 0;; ++moves) {
        try {
            recordOnce();
            return;
        } catch (const Displaced&) {
            if (moves == MostMoves)
                throw;
            follow();
        } catch (const StoreUndecided&) {
            file_->leave();
            throw;
        }
    }
}

/// The file gets its name in the transaction: its instance's row keeps other servers' stores away then, and a
/// server that is killed has hardly been able to replace a file without its row. Where stores write in turn,
/// there are no other servers; there a new file, which replaces none, is not flushed while the others wait.
void ArchiveWriter::recordOnce() {
    if (index_.writesInTurn() && !file_->replaces())
        file_->giveName();
    else
        file_->flush();
    index_.record(
        *header_, placement_->location(),
        {.writeRows = [this](const db::Connection& connection) { object_.writeRows(connection, *header_); },
         .publish = [this] { file_->publish(); },
         .leave =
             [this](const std::optional<archive::Location>& former) {
                 former_.reset();  // of an earlier attempt: it holds the lock that is wanted
                 if (former)
                     former_.emplace(archive::localPath(former->path()));
             }});
}

void ArchiveWriter::follow() {
    auto placement = index_.place(*header_, port_.root, ArchiveIndex::Folders::LookedUp);
    const archive::Location& location = placement->location();
    auto file = openFile(archive::localPath(location.folder()), location.imageFile);
    file_->copyTo(*file);
    file_ = std::move(file);
    placement_ = std::move(placement);
}

}  // namespace tessaly::tessalyd
