#pragma once

#include <QProcess>
#include <QString>

namespace tessaly::test {

/// Has a program see a file system of its own, of so many kilobytes, in the folder. Nobody else sees it.
/// Before the program is started.
void giveSmallDisk(QProcess& process, const QString& folder, int kilobytes);

/// Fills what the running program sees in the folder until nothing more goes in. Returns the file that does
/// it: removed, it makes room.
[[nodiscard]] QString fillDisk(const QProcess& process, const QString& folder);

}  // namespace tessaly::test
