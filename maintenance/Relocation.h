#pragma once

#include <QString>
#include <optional>
#include <string>
#include <utility>

#include "maintenance/Pass.h"

namespace tessaly::maintenance {

/// The path, UTF-8, with the root `from` replaced by `to`; nothing for a path that does not begin with it.
/// The case does not matter, character by character: each is compared by its own upper-case form, so that no
/// character ever stands for two (a sharp s matches a sharp s, not SS). What follows the root is kept byte
/// for byte, and nothing is put in or taken out at the seam.
[[nodiscard]] std::optional<std::string> relocatedPath(const std::string& path, const QString& from,
                                                       const QString& to);

/// Rewrites the StudyPath of every study below a root. Counts studies, each twice: as it is looked at, and as
/// it is rewritten. Throws db::Error.
class Relocation : public Pass {
  public:
    Relocation(QString from, QString to) : from_(std::move(from)), to_(std::move(to)) {}

    void run(const db::Connection& connection, Progress& progress) override;

  private:
    QString from_;
    QString to_;
};

}  // namespace tessaly::maintenance
