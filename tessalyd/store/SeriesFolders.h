#pragma once

#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "archive/Location.h"
#include "tessalyd/store/ArchiveSession.h"
#include "tessalyd/store/IncomingHeader.h"

namespace tessaly::tessalyd {

/// The folders of the series that objects were stored in lately: the next object of one need not look them
/// up. Others may have changed the tables since. Thread-safe.
class SeriesFolders {
  public:
    static constexpr std::size_t MostSeries = 1024;

    /// Returns nullopt for a series that is not remembered with that study.
    [[nodiscard]] std::optional<ArchiveSession::Folders> find(const ObjectHeader& header) const;
    void remember(const ObjectHeader& header, const archive::Location& location);
    void forget(const ObjectHeader& header);
    void clear();

  private:
    struct Series {
        std::string study;
        std::string studyPath;
        std::string seriesDir;
    };
    mutable std::mutex mutex_;
    std::unordered_map<std::string, Series> series_;
};

}  // namespace tessaly::tessalyd
