#include "console/users/frmUser.h"

#include <QGroupBox>
#include <QVBoxLayout>
#include <array>

#include "console/session/Globals.h"
#include "console/ui/Guard.h"
#include "console/ui/PasswordBox.h"
#include "console/ui/Text.h"
#include "db/Query.h"

namespace tessaly::users {

using namespace Qt::StringLiterals;

namespace {

constexpr int NameLimit = 16;
constexpr int SignatureLimit = 32;

}  // namespace

frmUser::frmUser(UserList& users, QWidget* parent)
    : EditorDialog({.name = u"frmUser"_s, .caption = u"User"_s, .saveFaults = ui::BoxStyle::Plain}, parent),
      users_(users) {
    addTexts();
    addPermissions();
    addButtons();
    orderTabs();
}

void frmUser::addTexts() {
    auto* rows = new QFormLayout;
    body()->addLayout(rows);
    const auto text = [&](const QString& label, const QString& name, int limit, const QString& toolTip,
                          QString UserRecord::*member) {
        QLineEdit* box = fields_.text(rows, label, name, limit, member);
        box->setToolTip(toolTip);
        return box;
    };
    user_ = text(u"User"_s, u"txtUser"_s, NameLimit, u"User name"_s, &UserRecord::name);
    // Both boxes stand for one member: nothing is saved unless they agree.
    const auto password = [&](const QString& label, const QString& name) {
        QLineEdit* box = text(label, name, NameLimit, u"User name"_s, &UserRecord::password);
        ui::makePasswordBox(box);
        return box;
    };
    password1_ = password(u"Password"_s, u"txtPassword1"_s);
    password2_ = password(u"Password confirm"_s, u"txtPassword2"_s);
    auto* signature = text(u"Signature"_s, u"txtSignature"_s, SignatureLimit, u"User's signature"_s,
                           &UserRecord::signature);
    rows->labelForField(signature)->setObjectName(u"lblSignature"_s);
}

void frmUser::addPermissions() {
    const auto check = [this](const QString& caption, const QString& name, const QString& toolTip,
                              bool UserRecord::*member) {
        QCheckBox* box = fields_.check(caption, name, member);
        box->setToolTip(toolTip);
        return box;
    };
    // The tool tips repeat themselves from box to box; users know them so.
    const auto referts = u"User can create/edit referts"_s;
    const auto administrator = u"User is an administrator"_s;

    QCheckBox* windowsLogin =
        check(u"Use Windows login"_s, u"chkWLogin"_s, administrator, &UserRecord::windowsLogin);
    QFont bold = windowsLogin->font();
    bold.setBold(true);
    windowsLogin->setFont(bold);
    body()->addWidget(windowsLogin);

    auto* frame = new QGroupBox(u"Permissions"_s);
    body()->addWidget(frame);
    auto* columns = new QHBoxLayout(frame);
    const auto addColumn = [columns](std::initializer_list<QCheckBox*> boxes) {
        auto* column = new QVBoxLayout;
        columns->addLayout(column);
        for (QCheckBox* box : boxes)
            column->addWidget(box);
    };
    addColumn({check(u"Update"_s, u"chkUpdate"_s, {}, &UserRecord::update),
               check(u"Delete"_s, u"chkDelete"_s, {}, &UserRecord::remove),
               check(u"Move/Get"_s, u"chkMove"_s, u"User can send/get studies/series"_s, &UserRecord::move),
               check(u"Refert"_s, u"chkRefert"_s, referts, &UserRecord::refert),
               check(u"Administrator"_s, u"chkAdmin"_s, administrator, &UserRecord::admin)});
    addColumn({check(u"Send"_s, u"chkSend"_s, referts, &UserRecord::send),
               check(u"Import from scanner"_s, u"chkImport"_s, referts, &UserRecord::import),
               check(u"Manage ROI"_s, u"chkROI"_s, referts, &UserRecord::roi),
               check(u"Backup/Restore"_s, u"chkBackup"_s, referts, &UserRecord::backup),
               check(u"Manage DICOM tags"_s, u"chkModTags"_s, referts, &UserRecord::modTags)});
}

void frmUser::orderTabs() {
    // Confirm and Cancel come before the rarer permissions.
    const std::array names{u"txtUser"_s,   u"txtPassword1"_s, u"txtPassword2"_s, u"txtSignature"_s,
                           u"chkUpdate"_s, u"chkDelete"_s,    u"chkMove"_s,      u"chkRefert"_s,
                           u"chkAdmin"_s,  u"cmdOk"_s,        u"cmdCancel"_s,    u"chkSend"_s,
                           u"chkImport"_s, u"chkROI"_s,       u"chkBackup"_s,    u"chkWLogin"_s,
                           u"chkModTags"_s};
    for (std::size_t i = 1; i < names.size(); ++i)
        setTabOrder(findChild<QWidget*>(names[i - 1]), findChild<QWidget*>(names[i]));
}

void frmUser::Init(const QString& name) {
    loadedName_ = ui::trimmed(name);
    if (ui::guarded(parentWidget(), ui::BoxStyle::Critical, [this] { fill(); }))
        showModal();
}

void frmUser::fill() {
    fields_.show({});
    // The name goes into the text as it is, not escaped: one with an apostrophe cannot be opened.
    db::Query query{Globals::DbConnection(),
                    "SELECT * FROM Users WHERE UserName='" + loadedName_.toStdString() + "'"};
    db::ResultSet row = query.open();
    if (!row.next())
        return;
    storedPassword_ = row.text("UserPwd");
    fields_.show({.name = ui::text(row, "UserName"),
                  .password = QString::fromStdString(storedPassword_),
                  .signature = ui::text(row, "Signature"),
                  .update = row.flag("DcmUpdate"),
                  .remove = row.flag("DcmDelete"),
                  .move = row.flag("Move"),
                  .send = row.flag("Send"),
                  .refert = row.flag("Refert"),
                  .import = row.flag("Import"),
                  .backup = row.flag("Backup"),
                  .roi = row.flag("ROI"),
                  .modTags = row.flag("ModTags"),
                  .admin = row.flag("DcmAdmin"),
                  .windowsLogin = row.flag("WLogin")});
    shownPassword_ = password1_->text();
}

bool frmUser::FormValidate() {
    const auto refuse = [this](const QString& why) {
        ui::messageBox(this, why);
        return false;
    };
    if (ui::trimmed(user_->text()).isEmpty())
        return refuse(u"User name cannot be empty"_s);
    if (password1_->text().isEmpty())
        return refuse(u"Password cannot be empty"_s);
    if (password1_->text() != password2_->text())
        return refuse(u"Password mismatch"_s);
    return true;
}

bool frmUser::save() {
    const UserRecord user = fields_.read();
    // An untouched password is stored again as it was, never encoded twice.
    const std::string password = password1_->text() == shownPassword_
                                     ? storedPassword_
                                     : Globals::EncodePassword(user.password).toStdString();
    const bool newUser = loadedName_.isEmpty();
    db::Query query{Globals::DbConnection(),
                    newUser ? "INSERT INTO Users "
                              "(UserName, UserPwd, DcmUpdate, DcmDelete, Move, Refert, DcmAdmin, Signature, "
                              "Send, Backup, Import, ROI, WLogin, ModTags ) "
                              " VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?)"
                            : "UPDATE Users "
                              "SET UserName=?, UserPwd=?, DcmUpdate=?, DcmDelete=?, Move=?, Refert=?, "
                              "DcmAdmin=?, Signature=?, Send=?, Backup=?, Import=?, ROI=?, WLogin=?, "
                              "ModTags=? "
                              "WHERE UserName=?"};
    query.bindAll(
        {ui::varchar(user.name), db::varchar(password), db::undeclared(static_cast<long long>(user.update)),
         db::bit(user.remove), db::bit(user.move), db::bit(user.refert), db::bit(user.admin),
         ui::varcharAsRead(user.signature), db::bit(user.send), db::bit(user.backup), db::bit(user.import),
         db::bit(user.roi), db::bit(user.windowsLogin), db::bit(user.modTags)});
    if (!newUser) {
        constexpr int KeyPosition = 15;
        query.bind(KeyPosition, ui::varchar(loadedName_));
    }
    query.execute();
    return true;
}

void frmUser::reload() {
    users_.LoadUsers();
}

}  // namespace tessaly::users
