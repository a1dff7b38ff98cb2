#include "maintenance/RepairChecks.h"

#include <chrono>

#include "db/Query.h"
#include "db/Transaction.h"
#include "maintenance/ImageFiles.h"
#include "maintenance/RepairTable.h"
#include "maintenance/RowSpool.h"
#include "maintenance/RowWalk.h"

namespace tessaly::maintenance {

using namespace std::chrono_literals;

namespace {

constexpr int ReadingStep = 100;  // rows between two looks at the clock

/// Gives the user interface its turns between the rows.
class Turns {
  public:
    explicit Turns(Progress& progress) : progress_(progress) {}

    /// The last turn is a millisecond old; the first is due at once.
    [[nodiscard]] bool areDue() const { return Clock::now() >= due_; }
    void take(const Progress::LetGo& letGo = {}) {
        progress_.breathe(letGo);
        due_ = Clock::now() + 1ms;
    }

  private:
    using Clock = std::chrono::steady_clock;

    Progress& progress_;
    Clock::time_point due_{};
};

/// The rows of one table in their order, put aside before the first is visited.
class WalkedRows {
  public:
    WalkedRows(const db::Connection& connection, const RepairShape& shape, Progress& progress)
        : progress_(progress) {
        RowWalk walk{connection};
        Turns turns{progress};
        while (!progress.isStopRequested() && !read(walk, shape, turns)) {
            // The walk was let go of for the sake of others, and what they did counts.
        }
        spool_.rewind();
    }

    [[nodiscard]] bool next(WalkedRow& row) {
        if (!spool_.next(cells_))
            return false;
        row.key.swap(cells_[0]);
        row.holds.swap(cells_[1]);
        return true;
    }

  private:
    bool read(RowWalk& walk, const RepairShape& shape, Turns& turns) {
        spool_ = RowSpool{Columns};
        walk.begin(shape.walk);
        for (int count = 1; walk.isUnderWay() && walk.rows().next(); ++count) {
            spool_.add(walk.rows().text(shape.key));
            spool_.add(walk.rows().text("Holds"));
            if (count % ReadingStep == 0 && turns.areDue())
                turns.take([&walk] { walk.letGo(); });
            if (progress_.isStopRequested())
                break;
        }
        const bool whole = walk.isUnderWay();
        walk.letGo();
        return whole;
    }

    static constexpr std::size_t Columns = 2;

    Progress& progress_;
    RowSpool spool_{Columns};
    std::vector<std::string> cells_;
};

/// What one check asks and does of single rows, its statements prepared once.
class SingleRows {
  public:
    SingleRows(const db::Connection& connection, const RepairShape& shape)
        : connection_(connection),
          shape_(shape),
          row_(connection, shape.row),
          hold_(connection, shape.hold),
          test_(connection, shape.test),
          removal_(connection, shape.removal) {}

    /// Reads a row again: what the test is likely to come to. One that is gone, or that holds something else
    /// than when it was walked, is not for this pass to judge. Leaves no set open: the user may take his time
    /// over what comes of it.
    [[nodiscard]] Verdict suspicion(const WalkedRow& walked) {
        db::ResultSet row = row_.bind(1, shape_.parameter(walked.key)).open();
        if (!row.next() || row.text("Holds") != walked.holds)
            return Verdict::Keep;
        own_.clear();
        for (const std::string& column : shape_.own)
            own_.push_back(row.text(column));
        return walked.holds.empty() ? Verdict::Remove : Verdict::SayAndRemove;
    }

    /// Removes the row of the last suspicion if nobody has changed it since and by the test it has to go, and
    /// if no more has come to light than was suspected.
    void removeIfLost(Verdict suspected) {
        // First a statement that writes, if only nothing: it waits for the transaction of a server that is
        // just storing the image anew, and the row is judged on what that has left.
        db::Transaction transaction{connection_};
        for (std::size_t i = 0; i < own_.size(); ++i)
            hold_.bind(static_cast<int>(i) + 1, shape_.parameter(own_[i]));
        if (hold_.execute() == 0)
            return;
        const Verdict verdict = judge();
        if (verdict == Verdict::Keep || (verdict == Verdict::SayAndRemove && suspected != verdict))
            return;
        removal_.bind(1, shape_.parameter(own_.front())).execute();
        transaction.commit();
    }

  private:
    [[nodiscard]] Verdict judge() {
        db::ResultSet found = test_.bind(1, shape_.parameter(own_[shape_.tested])).open();
        return shape_.rule(found, own_);
    }

    const db::Connection& connection_;
    const RepairShape& shape_;
    std::vector<std::string> own_;
    db::Query row_;
    db::Query hold_;
    db::Query test_;
    db::Query removal_;
};

void judgeAndRemove(SingleRows& rows, const WalkedRow& row, Progress& progress) {
    const Verdict suspicion = rows.suspicion(row);
    if (suspicion == Verdict::SayAndRemove && !progress.announce("Non existing file"))
        return;
    if (suspicion != Verdict::Keep)
        rows.removeIfLost(suspicion);
}

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

void RepairCheck::run(const db::Connection& connection, Progress& progress) {
    if (progress.isStopRequested())
        return;
    const RepairShape shape = shapeOf(check_, connection.dialect());
    SingleRows single{connection, shape};
    WalkedRows rows{connection, shape, progress};
    Turns turns{progress};
    ImageFiles files;
    WalkedRow row;
    long long done = 0;
    bool turnTaken = true;  // since the last row
    while (!progress.isStopRequested() && rows.next(row)) {
        bool stays = shape.stays(row.holds, files);
        if (!stays && !turnTaken) {
            turns.take();  // nothing goes as long as a Stop waits to be seen
            files.forget();
            if (progress.isStopRequested())
                break;
            stays = shape.stays(row.holds, files);
        }
        if (!stays)
            judgeAndRemove(single, row, progress);
        progress.setDone(++done);
        turnTaken = !stays || turns.areDue();
        if (turnTaken) {
            turns.take();
            files.forget();
        }
    }
}

}  // namespace tessaly::maintenance
