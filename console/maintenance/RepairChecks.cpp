#include "console/maintenance/RepairChecks.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "console/maintenance/RowSpool.h"
#include "db/Error.h"
#include "db/Number.h"
#include "db/Query.h"
#include "db/StoredPath.h"
#include "db/Transaction.h"

namespace tessaly::maintenance {

namespace {

using Row = std::vector<std::string>;

enum class Verdict { Keep, Remove, SayAndRemove };

/// One check: a walk, a test of each row, a rule over what the test found, and the removal.
struct Shape {
    const char* walk;
    std::vector<std::string_view> columns;  ///< that are read of the walk; the first is the row's key
    std::size_t tested;                     ///< which of them is the test's parameter
    db::Param (*parameter)(const std::string& cell);
    const char* row;  ///< the same columns of one row, by its key
    const char* test;
    Verdict (*rule)(db::ResultSet& found, const Row& row);
    const char* hold;  ///< changes nothing, and keeps others from it until the removal
    const char* removal;
};

db::Param number(const std::string& cell) {
    if (const auto value = db::toInteger(cell))
        return db::integer(*value);
    throw db::Error{"\"" + cell + "\" is no number of a patient"};
}

db::Param text(const std::string& cell) {
    return db::varchar(cell);
}

/// A plain file that is not hidden. A look-up without an answer (no right, an archive that is not mounted
/// properly) throws: it is no reason to forget an image.
bool isOrdinaryFile(const std::string& path) {
    if (path[path.rfind('/') + 1] == '.')
        return false;
    struct stat status {};
    if (stat(path.c_str(), &status) == 0)
        return S_ISREG(status.st_mode);
    if (errno == ENOENT || errno == ENOTDIR || errno == ENAMETOOLONG || errno == ELOOP)
        return false;
    throw std::system_error(errno, std::generic_category(), path);
}

/// An image without its series or study goes silently; one without its file is announced.
Verdict judgeImage(db::ResultSet& owner, const Row& image) {
    if (!owner.next())
        return Verdict::Remove;
    const std::string& folder = owner.text("SeriesDir");
    const std::string path = owner.text("StudyPath") + "\\" + folder + "\\" + image.back();
    return isOrdinaryFile(db::localPath(path)) ? Verdict::Keep : Verdict::SayAndRemove;
}

template <const auto& Column>
Verdict judgeCount(db::ResultSet& count, const Row& /*row*/) {
    return count.next() && count.integer(Column.data()) == 0 ? Verdict::Remove : Verdict::Keep;
}

constexpr auto NumImg = std::to_array("NumImg");
constexpr auto NumSeries = std::to_array("NumSeries");
constexpr auto NumStudies = std::to_array("NumStudies");

const Shape& shapeOf(Check check) {
    static const std::array Shapes{
        Shape{.walk = "SELECT * FROM Image",
              .columns = {"SOPInstanceUID", "SeriesInstanceUID", "ImageFile"},
              .tested = 1,
              .parameter = text,
              .row = "SELECT SOPInstanceUID, SeriesInstanceUID, ImageFile FROM Image WHERE SOPInstanceUID=?",
              .test = "SELECT Series.SeriesDir, Study.StudyPath from Study, Series "
                      "WHERE Series.SeriesInstanceUID=? "
                      "AND Study.StudyInstanceUID=Series.StudyInstanceUID",
              .rule = judgeImage,
              .hold = "UPDATE Image SET ImageFile=ImageFile WHERE SOPInstanceUID=?",
              .removal = "DELETE FROM Image WHERE SOPInstanceUID=?"},
        Shape{.walk = "SELECT SeriesInstanceUID FROM Series",
              .columns = {"SeriesInstanceUID"},
              .tested = 0,
              .parameter = text,
              .row = "SELECT SeriesInstanceUID FROM Series WHERE SeriesInstanceUID=?",
              .test = "SELECT COUNT(*) AS NumImg FROM Image Where SeriesInstanceUID=?",
              .rule = judgeCount<NumImg>,
              .hold = "UPDATE Series SET SeriesDir=SeriesDir WHERE SeriesInstanceUID=?",
              .removal = "DELETE FROM Series WHERE SeriesInstanceUID=?"},
        Shape{.walk = "SELECT * FROM Study",
              .columns = {"StudyInstanceUID"},
              .tested = 0,
              .parameter = text,
              .row = "SELECT StudyInstanceUID FROM Study WHERE StudyInstanceUID=?",
              .test = "SELECT COUNT(*) AS NumSeries FROM Series Where StudyInstanceUID=?",
              .rule = judgeCount<NumSeries>,
              .hold = "UPDATE Study SET StudyPath=StudyPath WHERE StudyInstanceUID=?",
              .removal = "DELETE FROM Study WHERE StudyInstanceUID=?"},
        Shape{.walk = "SELECT * FROM Patient",
              .columns = {"ID"},
              .tested = 0,
              .parameter = number,
              .row = "SELECT ID FROM Patient WHERE ID=?",
              .test = "SELECT COUNT(*) AS NumStudies FROM [Study] WHERE IDPatient=?",
              .rule = judgeCount<NumStudies>,
              .hold = "UPDATE Patient SET ID=ID WHERE ID=?",
              .removal = "DELETE FROM Patient WHERE ID=?"},
    };
    return Shapes.at(static_cast<std::size_t>(check));
}

constexpr int ReadingStep = 1000;  // rows between two looks at the user interface

RowSpool readRows(const db::Connection& connection, const Shape& shape, const RepairCallbacks& callbacks) {
    RowSpool spool{shape.columns.size()};
    db::Query walk{connection, shape.walk};
    db::ResultSet rows = walk.open();
    for (int count = 1; rows.next(); ++count) {
        for (const std::string_view column : shape.columns)
            spool.add(rows.text(column));
        if (count % ReadingStep != 0)
            continue;
        callbacks.reading();
        if (callbacks.stopRequested())
            break;
    }
    spool.rewind();
    return spool;
}

/// What one check asks and does of single rows, its statements prepared once.
class Rows {
  public:
    Rows(const db::Connection& connection, const Shape& shape)
        : connection_(connection),
          shape_(shape),
          row_(connection, shape.row),
          test_(connection, shape.test),
          hold_(connection, shape.hold),
          removal_(connection, shape.removal) {}

    /// The stated test and rule, on the row as it was read. Leaves no set open: the user may take his time
    /// over what comes of it.
    [[nodiscard]] Verdict judgeAsRead(const Row& row) {
        db::ResultSet found = test_.bind(1, shape_.parameter(row[shape_.tested])).open();
        return shape_.rule(found, row);
    }

    /// The same on what holds now. A row that is gone or has become another since it was read is not for this
    /// pass to judge.
    [[nodiscard]] Verdict judgeNow(const Row& row) {
        return isAsRead(row) ? judgeAsRead(row) : Verdict::Keep;
    }

    /// Removes the row if it still has to go once everybody else has finished with it, and if no more has
    /// come to light than the user was told.
    void removeIfLost(const Row& row, Verdict told) {
        // First a statement that writes, if only nothing: it waits for the transaction of a server that is
        // just storing the image anew, and the row is judged on what that has left.
        db::Transaction transaction{connection_};
        hold_.bind(1, key(row)).execute();
        const Verdict verdict = judgeNow(row);
        if (verdict == Verdict::Keep || (verdict != told && verdict == Verdict::SayAndRemove))
            return;
        removal_.bind(1, key(row)).execute();
        transaction.commit();
    }

  private:
    [[nodiscard]] db::Param key(const Row& row) const { return shape_.parameter(row.front()); }

    [[nodiscard]] bool isAsRead(const Row& row) {
        db::ResultSet found = row_.bind(1, key(row)).open();
        if (!found.next())
            return false;
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (found.text(shape_.columns[i]) != row[i])
                return false;
        }
        return true;
    }

    const db::Connection& connection_;
    const Shape& shape_;
    db::Query row_;
    db::Query test_;
    db::Query hold_;
    db::Query removal_;
};

int countRows(const db::Connection& connection, const char* statement) {
    db::Query query{connection, statement};
    db::ResultSet rows = query.open();
    return rows.next() ? static_cast<int>(rows.integer("Num")) : 0;
}

}  // namespace

int countArchiveRows(const db::Connection& connection) {
    return countRows(connection, "SELECT Count(*) as Num FROM Image") +
           countRows(connection, "SELECT Count(*) as Num FROM Series") +
           countRows(connection, "SELECT Count(*) as Num FROM Study") +
           countRows(connection, "SELECT Count(*) as Num FROM Patient");
}

void runCheck(const db::Connection& connection, SharedRead& read, Check check,
              const RepairCallbacks& callbacks) {
    if (callbacks.stopRequested())
        return;
    const Shape& shape = shapeOf(check);
    Rows single{connection, shape};
    RowSpool rows = readRows(connection, shape, callbacks);
    Row row;
    while (!callbacks.stopRequested() && rows.next(row)) {
        read.hold();
        Verdict verdict = single.judgeAsRead(row);
        if (verdict != Verdict::Keep) {
            read.letGo();
            verdict = single.judgeNow(row);
        }
        if (verdict == Verdict::SayAndRemove)
            callbacks.missingFile();
        if (verdict != Verdict::Keep)
            single.removeIfLost(row, verdict);
        callbacks.rowDone();
    }
    read.letGo();
}

}  // namespace tessaly::maintenance
