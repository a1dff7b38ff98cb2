#include "maintenance/Relocation.h"

#include <QList>
#include <utility>
#include <vector>

#include "db/Query.h"
#include "db/StreamedQuery.h"
#include "db/dialects/Dialect.h"
#include "maintenance/RowSpool.h"

namespace tessaly::maintenance {

namespace {

constexpr int Step = 100;  // rows between two questions to the caller
// Measured on PostgreSQL: with fewer, the answers count; with more, it reads the whole table for each
// statement.
constexpr std::size_t Batch = 100;  // rows with one statement

/// One character for one: QString::toUpper() would make SS of a sharp s and shift what follows.
QString upperCased(const QString& text) {
    QList<uint> characters = text.toUcs4();
    for (uint& character : characters)
        character = QChar::toUpper(character);
    return QString::fromUcs4(reinterpret_cast<const char32_t*>(characters.constData()), characters.size());
}

/// Writes the paths of studies in the order in which they come, many with one statement: with one each, every
/// study would cost an answer of the engine and a flush of its log.
class PathUpdate {
  public:
    explicit PathUpdate(const db::Connection& connection) : connection_(connection) {}

    void add(std::string path, std::string study) {
        params_.push_back(db::varchar(std::move(path)));
        params_.push_back(db::varchar(std::move(study)));
        if (params_.size() == Width * Batch)
            finish();
    }

    /// What add() still holds back.
    void finish() {
        const std::vector<db::Param> params = std::exchange(params_, {});
        try {
            updateAll(params);
        } catch (const db::LostSession&) {
            throw;
        } catch (const db::Error&) {
            // None of them is written. Each by itself now, so that those before the one at fault stay
            // written and the fault is that one's own.
            updateEach(params);
        }
    }

  private:
    static constexpr std::size_t Width = 2;

    void updateAll(const std::vector<db::Param>& params) {
        if (params.empty())
            return;
        std::string text =
            connection_.dialect().updateEach("Study", "StudyPath", "StudyInstanceUID", params.size() / Width);
        if (params.size() < Width * Batch) {
            db::Query{connection_, std::move(text)}.bindAll(params).execute();
            return;
        }
        if (!whole_)
            whole_.emplace(connection_, std::move(text));
        whole_->bindAll(params).execute();
    }

    void updateEach(const std::vector<db::Param>& params) {
        db::Query update{connection_, "UPDATE Study set STUDYPATH=? WHERE STUDYINSTANCEUID=?"};
        for (std::size_t i = 0; i < params.size(); i += Width)
            update.bindAll({params[i], params[i + 1]}).execute();
    }

    const db::Connection& connection_;
    std::vector<db::Param> params_;
    std::optional<db::Query> whole_;  // of a full batch
};

}  // namespace

std::optional<std::string> relocatedPath(const std::string& path, const QString& from, const QString& to) {
    const QString root = QString::fromStdString(path).left(from.size());
    const std::string stored = root.toStdString();
    // The second condition fails for a path that is not valid UTF-8, which stays as it is.
    if (upperCased(root) != upperCased(from) || !path.starts_with(stored))
        return std::nullopt;
    return to.toStdString() + path.substr(stored.size());
}

void Relocation::run(const db::Connection& connection, Progress& progress) {
    long long count = 0;
    const auto mayGoOn = [&] {
        if (++count % Step != 0)
            return true;
        progress.setDone(count);
        progress.breathe();
        return !progress.isStopRequested();
    };

    RowSpool matches{2};
    {
        db::StreamedQuery walk{connection, "SELECT * FROM Study ORDER BY STUDYINSTANCEUID"};
        while (walk.next()) {
            if (const auto path = relocatedPath(walk.row().text("StudyPath"), from_, to_)) {
                matches.add(*path);
                matches.add(walk.row().text("StudyInstanceUID"));
            }
            if (!mayGoOn())
                return;
        }
    }
    matches.rewind();
    PathUpdate update{connection};
    std::vector<std::string> row;
    while (matches.next(row)) {
        update.add(std::move(row[0]), std::move(row[1]));
        if (!mayGoOn())
            return;
    }
    update.finish();
}

}  // namespace tessaly::maintenance
