#pragma once

#include <functional>
#include <string>

namespace tessaly::archive {

enum class Severity { Debug, Info, Error };

/// Takes what the archive has to say to whoever runs the program, a line each: into the server's log, for
/// one. At Error and Info it names no study and no series. From any thread; it must not throw.
using Report = std::function<void(Severity, const std::string& line)>;

/// For those to whom nobody listens.
inline void reportNothing(Severity /*severity*/, const std::string& /*line*/) {}

}  // namespace tessaly::archive
