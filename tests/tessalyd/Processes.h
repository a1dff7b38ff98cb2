#pragma once

#include <QList>
#include <QString>

namespace tessaly::test {

/// The processes that a process has made and not buried.
[[nodiscard]] QList<int> childrenOf(qint64 process);

/// A field of /proc/PID/status; empty where there is no such process.
[[nodiscard]] QString statusOf(qint64 process, const char* field);

/// The peak of its memory, in kilobytes. Throws std::runtime_error if there is no such process.
[[nodiscard]] long long peakMemoryOf(qint64 process);

/// The hard limit of that name, as /proc/PID/limits has it.
[[nodiscard]] QString limitOf(qint64 process, const char* name);

/// How often a test of kills is to kill: TESSALY_TEST_KILLS, or else what is usual for it.
[[nodiscard]] int killsWanted(int usual);

/// True when it is gone, or has only to be buried.
[[nodiscard]] bool hasEnded(qint64 process);

}  // namespace tessaly::test
