#pragma once

#include <QString>

#include "db/Connection.h"

/// State and helpers that all forms share. For the user-interface thread alone.
namespace tessaly::Globals {

/// The one connection to the configuration database; made on first use, opened by Main, and closed and
/// re-established by the compaction alone.
[[nodiscard]] db::Connection& DbConnection();

/// True once a change was written that the server reads only when it starts.
[[nodiscard]] bool ConfigChanged() noexcept;
void setConfigChanged(bool value) noexcept;

/// A password as typed in the form that Users.UserPwd holds; the empty text stays empty.
[[nodiscard]] QString EncodePassword(const QString& text);

/// Creates the table FtpNodes where the database lacks it. Reports a failure itself; never throws.
void EnsureFtpNodesTable();

}  // namespace tessaly::Globals
