#include "tessalyd/forwarding/ftp/Delivery.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <utility>

#include "dicom/data/ObjectHeader.h"

#include "tessalyd/forwarding/ftp/Source.h"
#include "tessalyd/forwarding/ftp/Volumes.h"

namespace tessaly::tessalyd::ftp {

namespace {

/// A server that refuses so many files in a row has no use for the next ones either.
constexpr int MostRefusals = 10;

Fault localFault(const std::string& reason) {
    return {Fault::Kind::Transient, Fault::Scope::File, "an object " + reason};
}

}  // namespace

Delivery::Delivery(const Node& node, const db::Connection& connection, decoder::Pool& decoders,
                   std::stop_token stop, Events events)
    : lookup_(connection),
      decoders_(decoders),
      nodeType_(node.type),
      stop_(stop),
      events_(std::move(events)),
      uploader_(node, std::move(stop)) {}

void Delivery::add(const std::string& sopInstanceUid) {
    if (stop_.stop_requested())
        throw Stopped{};
    std::optional<LocatedInstance> instance;
    try {
        instance = locate(sopInstanceUid);
    } catch (const Fault& fault) {
        return fail(series_ ? &*series_ : nullptr, sopInstanceUid, fault);
    }
    if (series_ && series_->uid != instance->seriesInstanceUid)
        finish();
    if (!series_)
        series_ = Series{.uid = instance->seriesInstanceUid,
                         .folder = instance->studyInstanceUid + "/" + instance->seriesInstanceUid};
    addTo(*series_, *instance);
}

LocatedInstance Delivery::locate(const std::string& sopInstanceUid) {
    auto found = lookup_.find(sopInstanceUid);
    if (!found)
        throw localFault("is not in the archive any more");
    // Names of folders and of the file.
    if (!dicom::isUid(found->studyInstanceUid) || !dicom::isUid(found->seriesInstanceUid) ||
        !dicom::isUid(found->stored.sopInstanceUid))
        throw localFault("has a UID that is none");
    return *std::move(found);
}

void Delivery::addTo(Series& series, const LocatedInstance& instance) {
    if (isVolumeType(nodeType_)) {
        series.instances.push_back(instance);
        return;
    }
    const std::string& uid = instance.stored.sopInstanceUid;
    try {
        std::optional<FileSource> source;
        try {
            source.emplace(openStored(instance.stored));
        } catch (const std::exception& fault) {
            throw localFault(std::string{"cannot be read: "} + fault.what());
        }
        if (instance.fileSize && source->size() != *instance.fileSize)
            throw localFault("is damaged: its file has another size");
        put(series, *source, uid + ".dcm");
        series.untold.push_back(uid);
        tell(series, 1);
    } catch (const Fault& fault) {
        fail(&series, uid, fault);
    }
}

void Delivery::put(Series& series, Source& source, const std::string& name) {
    if (final_)
        throw Fault{*final_};
    try {
        uploader_.put(source, series.folder, name);
    } catch (const Fault& fault) {
        if (fault.scope() == Fault::Scope::Connection || ++refusals_ >= MostRefusals)
            final_ = fault;
        throw;
    }
    refusals_ = 0;
    ++series.files;
    series.bytes += source.size();
}

void Delivery::finish() {
    if (!series_)
        return;
    Series series = std::move(*series_);
    series_.reset();
    try {
        finish(series);
    } catch (const Fault& fault) {
        for (const LocatedInstance& instance : series.instances)
            fail(&series, instance.stored.sopInstanceUid, fault);
        for (const std::string& uid : series.untold)
            fail(&series, uid, fault);
        series.untold.clear();
    }
    tell(series, 0);
}

void Delivery::finish(Series& series) {
    if (!series.instances.empty()) {
        for (VolumeFile& file : volumesOf(nodeType_, series.instances, decoders_, stop_))
            put(series, *file.source, file.name);
        for (const LocatedInstance& instance : series.instances)
            series.untold.push_back(instance.stored.sopInstanceUid);
        series.instances.clear();
    }
    if (series.hasFailed)
        return;
    const std::string text = std::to_string(series.files) + ' ' + std::to_string(series.bytes) + '\n';
    TextSource complete{text};
    put(series, complete, "complete");
}

void Delivery::tell(Series& series, std::size_t keep) const {
    const std::size_t told = series.untold.size() - std::min(keep, series.untold.size());
    for (std::size_t each = 0; each < told; ++each)
        events_.delivered();
    series.untold.erase(series.untold.begin(), series.untold.begin() + static_cast<std::ptrdiff_t>(told));
}

void Delivery::fail(Series* series, const std::string& sopInstanceUid, const Fault& fault) {
    if (series != nullptr)
        series->hasFailed = true;
    ++failed_;
    if (!fault_ || (fault_->kind() == Fault::Kind::Permanent && fault.kind() == Fault::Kind::Transient))
        fault_ = fault;
    events_.failed(sopInstanceUid);
}

}  // namespace tessaly::tessalyd::ftp
