#pragma once

#include <QString>
#include <string_view>

#include "db/Query.h"

// The border between the forms' text and the database's UTF-8.

namespace tessaly::ui {

[[nodiscard]] inline db::Param varchar(const QString& text) {
    return db::varchar(text.toStdString());
}

/// A column as the forms show it; NULL is empty.
[[nodiscard]] inline QString text(db::ResultSet& rows, std::string_view column) {
    return QString::fromStdString(rows.text(column));
}

/// A set flag as the lists show it.
[[nodiscard]] inline QString mark(bool set) {
    return set ? QStringLiteral("X") : QString{};
}

}  // namespace tessaly::ui
