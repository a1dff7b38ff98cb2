#pragma once

#include <QString>

class QWidget;

namespace tessaly::network {

/// The two tables whose names form one name space.
enum class NameSpace { DicomNodes, FtpNodes };

/// True when no node of the other table has the name; otherwise says so in a message box. Throws db::Error.
[[nodiscard]] bool nameIsFree(QWidget* parent, const QString& name, NameSpace other);

}  // namespace tessaly::network
