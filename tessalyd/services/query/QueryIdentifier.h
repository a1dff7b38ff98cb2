#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tessalyd/association/Service.h"
#include "tessalyd/search/ArchiveQuery.h"

namespace tessaly::tessalyd {

/// Values of one key; more are refused with A900.
constexpr std::size_t MostListValues = 10'000;

enum class InformationModel { PatientRoot, StudyRoot };

/// What was negotiated beyond the usual.
struct QueryOptions {
    bool relational = false;
    bool combinedDateTime = false;
};

/// A query's identifier, understood.
struct QueryIdentifier {
    /// One attribute of the answers, in the order of their tags.
    struct Attribute {
        DcmTagKey tag;
        DcmEVR vr;
        std::size_t key = None;    ///< index into the query's keys; None: comes back empty
        std::string creator = {};  ///< comes back as it is: what names the private elements behind it
        static constexpr std::size_t None = static_cast<std::size_t>(-1);
    };

    ArchiveQuery query;
    std::vector<Attribute> attributes;
    /// A key is there that does not choose, though it has a value, or that is always empty.
    bool hasUnsupported = false;
};

/// Understands the identifier of a C-FIND. Throws RequestFailure.
[[nodiscard]] QueryIdentifier readQuery(DcmDataset& identifier, InformationModel model,
                                        const QueryOptions& options);

/// Understands the identifier of a C-MOVE or C-GET: unique keys alone, those above the level with one value,
/// that of the level with one or a list. Other keys are passed over. Throws RequestFailure.
[[nodiscard]] ArchiveQuery readRetrieval(DcmDataset& identifier, InformationModel model);

/// As an identifier has it: "PATIENT", "STUDY", "SERIES", "IMAGE".
[[nodiscard]] std::string_view levelName(Level level);

}  // namespace tessaly::tessalyd
