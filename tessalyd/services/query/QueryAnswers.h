#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <string>
#include <vector>

#include "tessalyd/search/ArchiveSearch.h"
#include "tessalyd/services/query/QueryIdentifier.h"

namespace tessaly::tessalyd {

/// The answers to a C-FIND, one at a time; memory does not grow with their number. Belongs to one thread.
class QueryAnswers {
  public:
    QueryAnswers(QueryIdentifier identifier, const std::string& retrieveAeTitle, SearchLimits limits = {});

    /// As ArchiveSearch. Throws db::Error, and RequestFailure when the query takes too long.
    void read(db::StatementCache& statements);
    [[nodiscard]] bool isComplete() const noexcept { return search_.isComplete(); }
    /// Goes to the next answer of those that have been read. False when there is none.
    [[nodiscard]] bool next();
    [[nodiscard]] bool wasStopped() const noexcept { return search_.wasStopped(); }

    /// The current answer, to be sent as it is. Holds until next().
    [[nodiscard]] DcmDataset& answer() noexcept { return answer_; }
    /// The status that goes with every answer.
    [[nodiscard]] Uint16 pendingStatus() const noexcept { return pendingStatus_; }

  private:
    struct Slot {
        DcmElement* element;  // of answer_
        std::size_t key;
    };
    DcmElement* add(const DcmTagKey& tag, DcmEVR vr, const std::string& value);

    ArchiveSearch search_;
    Uint16 pendingStatus_;
    DcmDataset answer_;
    std::vector<Slot> slots_;
    bool namesCharacterSet_ = false;
};

}  // namespace tessaly::tessalyd
