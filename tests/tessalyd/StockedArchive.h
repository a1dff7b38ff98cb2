#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <QStringList>
#include <initializer_list>
#include <utility>

#include "db/StatementCache.h"
#include "tessalyd/services/query/QueryIdentifier.h"
#include "tessalyd/store/ArchiveSession.h"
#include "tests/support/ScratchDatabase.h"

namespace tessaly::test {

/// A key of an identifier with its value, in the bytes that are sent.
using AskedKey = std::pair<DcmTagKey, std::string>;

[[nodiscard]] DcmDataset identifier(const char* level, const std::vector<AskedKey>& keys);

/// Adds rows of so many patients "Many^Nr1000", "Many^Nr1001" and so on, each with a study, its series and
/// its image. Their dates of study and birth are of some thousand days.
void stockMany(const ScratchDatabase& database, int count);

/// A scratch database whose archive is stocked by the server's own statements, without files, and a
/// connection that asks it.
class StockedArchive {
  public:
    StockedArchive();

    /// As if an object with this header had come. UIDs that are not given are made of the others: a study's
    /// from the patient's ID, a series' from the study's, an instance's from the series'.
    void store(tessalyd::ObjectHeader header);

    void storeMany(int count) const { stockMany(database, count); }

    /// The values of `wanted` in the answers, in their order.
    [[nodiscard]] QStringList find(const char* level, std::vector<AskedKey> keys, const DcmTagKey& wanted,
                                   const tessalyd::QueryOptions& options = {});
    /// The same for one query without the help of indexes.
    [[nodiscard]] QStringList findByRows(const char* level, std::vector<AskedKey> keys,
                                         const DcmTagKey& wanted, const tessalyd::QueryOptions& options = {});

    ScratchDatabase database;
    bool hasOlderRows = false;  ///< as the configuration says of the archive
    tessalyd::ArchiveSession session{std::chrono::seconds{0}};
    db::Connection connection;
    db::StatementCache statements{connection};

  private:
    QStringList search(const char* level, std::vector<AskedKey> keys, const DcmTagKey& wanted,
                       const tessalyd::QueryOptions& options, bool narrow);
};

/// Reading one row of Study takes the engine some milliseconds from now on, until it is undone.
void makeStudiesSlow(const ScratchDatabase& database);
/// None of the rows of Study comes any more, however long one waits: with one at least in the table.
void makeStudiesEndless(const ScratchDatabase& database);
void makeStudiesFast(const ScratchDatabase& database);

/// Texts in an order of their own, for comparing sets.
[[nodiscard]] QStringList sorted(QStringList texts);

}  // namespace tessaly::test
