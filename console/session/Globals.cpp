#include "console/session/Globals.h"

#include "console/ui/Guard.h"
#include "db/Query.h"
#include "passwords/PasswordEncoder.h"

namespace tessaly::Globals {

namespace {

bool configChanged = false;

}  // namespace

db::Connection& DbConnection() {
    static db::Connection connection;
    return connection;
}

bool ConfigChanged() noexcept {
    return configChanged;
}

void setConfigChanged(bool value) noexcept {
    configChanged = value;
}

QString EncodePassword(const QString& text) {
    if (text.isEmpty())
        return {};
    return QString::fromStdString(PasswordEncoder{}.encode(text.toStdString()));
}

void EnsureFtpNodesTable() {
    bool exists = false;
    ui::ignoringErrors([&] { exists = DbConnection().hasTable("FtpNodes"); });
    if (exists)
        return;
    // A look-up that fails counts as a missing table: the creation then fails too and says why.
    ui::guarded(nullptr, ui::BoxStyle::Critical, [] {
        db::execute(DbConnection(),
                    "CREATE TABLE FtpNodes ( "
                    "Name VARCHAR(16) NOT NULL PRIMARY KEY, "
                    "Host VARCHAR(64), "
                    "UserName VARCHAR(16), "
                    "UserPwd VARCHAR(16), "
                    "Destination VARCHAR(128), "
                    "NodeType VARCHAR(8))");
    });
}

}  // namespace tessaly::Globals
