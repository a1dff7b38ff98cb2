#pragma once

#include <QString>
#include <string_view>

#include "db/Query.h"

// The border between the forms' text and what the database holds.

namespace tessaly::ui {

[[nodiscard]] inline db::Param varchar(const QString& text) {
    return db::varchar(text.toStdString());
}

/// What showText() was given and nobody touched, as it was read: NULL again for NULL.
[[nodiscard]] inline db::Param varcharAsRead(const QString& text) {
    return text.isNull() ? db::null(db::Type::Varchar) : varchar(text);
}

/// A column as the forms show it; NULL is a null text, which is empty.
[[nodiscard]] inline QString text(db::ResultSet& rows, std::string_view column) {
    return rows.isNull(column) ? QString{} : QString::fromStdString(rows.text(column));
}

/// Without the blanks at both ends, and blanks alone: other white space, of other scripts too, is part of a
/// name.
[[nodiscard]] inline QString trimmed(QString text) {
    while (text.endsWith(u' '))
        text.chop(1);
    while (text.startsWith(u' '))
        text.remove(0, 1);
    return text;
}

/// A set flag as the lists show it.
[[nodiscard]] inline QString mark(bool set) {
    return set ? QStringLiteral("X") : QString{};
}

}  // namespace tessaly::ui
