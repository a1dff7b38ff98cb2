#include "console/maintenance/Relocation.h"

#include <QList>

#include "console/maintenance/RowSpool.h"
#include "db/Query.h"

namespace tessaly::maintenance {

namespace {

constexpr int Step = 100;  // rows between two questions to the caller

/// One character for one: QString::toUpper() would make SS of a sharp s and shift what follows.
QString upperCased(const QString& text) {
    QList<uint> characters = text.toUcs4();
    for (uint& character : characters)
        character = QChar::toUpper(character);
    return QString::fromUcs4(reinterpret_cast<const char32_t*>(characters.constData()), characters.size());
}

}  // namespace

std::optional<std::string> relocatedPath(const std::string& path, const QString& from, const QString& to) {
    const QString root = QString::fromStdString(path).left(from.size());
    const std::string stored = root.toStdString();
    // The second condition fails for a path that is no UTF-8: it is nobody's to rewrite.
    if (upperCased(root) != upperCased(from) || !path.starts_with(stored))
        return std::nullopt;
    return to.toStdString() + path.substr(stored.size());
}

void relocateStudies(const db::Connection& connection, const QString& from, const QString& to,
                     const std::function<bool()>& goOn) {
    int count = 0;
    const auto mayGoOn = [&] { return ++count % Step != 0 || goOn(); };

    RowSpool matches{2};
    {
        db::Query walk{connection, "SELECT * FROM Study ORDER BY STUDYINSTANCEUID"};
        db::ResultSet rows = walk.open();
        while (rows.next()) {
            if (const auto path = relocatedPath(rows.text("StudyPath"), from, to)) {
                matches.add(*path);
                matches.add(rows.text("StudyInstanceUID"));
            }
            if (!mayGoOn())
                return;
        }
    }
    matches.rewind();
    db::Query update{connection, "UPDATE Study set STUDYPATH=? WHERE STUDYINSTANCEUID=?"};
    std::vector<std::string> row;
    while (matches.next(row)) {
        update.bindAll({db::varchar(row[0]), db::varchar(row[1])}).execute();
        if (!mayGoOn())
            return;
    }
}

}  // namespace tessaly::maintenance
