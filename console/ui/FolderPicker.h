#pragma once

#include <QString>
#include <optional>

class QWidget;

namespace tessaly::ui {

/// Lets the user pick an existing folder; nothing on Cancel. The path is absolute, without a final separator.
[[nodiscard]] std::optional<QString> browseForFolder(QWidget* owner, const QString& prompt,
                                                     const QString& start = {});

}  // namespace tessaly::ui
