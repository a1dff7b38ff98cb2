#include "console/app/frmLogin.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

#include "console/session/Globals.h"
#include "console/ui/Guard.h"
#include "console/ui/PasswordBox.h"
#include "console/ui/Text.h"
#include "db/Query.h"

namespace tessaly {

using namespace Qt::StringLiterals;

frmLogin::frmLogin(QWidget* parent)
    : QDialog(parent), txtUserName_(new QLineEdit(this)), txtPassword_(new QLineEdit(this)) {
    setObjectName(u"frmLogin"_s);
    setWindowTitle(u"Dicom Config login"_s);
    constexpr int BoxWidth = 220;

    auto* rows = new QFormLayout;
    const auto addRow = [&](const QString& caption, const QString& labelName, QLineEdit* box,
                            const QString& name) {
        auto* label = new QLabel(caption, this);
        label->setObjectName(labelName);
        label->setBuddy(box);
        box->setObjectName(name);
        box->setMinimumWidth(BoxWidth);
        rows->addRow(label, box);
    };
    addRow(u"&Login"_s, u"lblLabels0"_s, txtUserName_, u"txtUserName"_s);
    addRow(u"&Password:"_s, u"lblLabels1"_s, txtPassword_, u"txtPassword"_s);
    ui::makePasswordBox(txtPassword_);

    auto* ok = new QPushButton(u"OK"_s, this);
    ok->setObjectName(u"cmdOk"_s);
    ok->setDefault(true);
    auto* cancel = new QPushButton(u"Cancel"_s, this);
    cancel->setObjectName(u"cmdCancel"_s);
    connect(ok, &QPushButton::clicked, this, ui::handler([this] { cmdOk_Click(); }));
    connect(cancel, &QPushButton::clicked, this, ui::handler([this] { cmdCancel_Click(); }));

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(ok);
    buttons->addWidget(cancel);
    auto* whole = new QVBoxLayout(this);
    whole->addLayout(rows);
    whole->addLayout(buttons);
    whole->setSizeConstraint(QLayout::SetFixedSize);
}

bool frmLogin::check() const {
    db::Query query{Globals::DbConnection(), "SELECT * FROM Users WHERE UserName=? AND DcmAdmin<>0"};
    db::ResultSet rows = query.bind(1, ui::varchar(txtUserName_->text())).open();
    if (!rows.next())
        return false;
    // A user without any stored password is let in whatever is typed. This is meant: it is how a lost
    // administrator's password is reset.
    if (rows.isNull("UserPwd"))
        return true;
    return ui::text(rows, "UserPwd") == Globals::EncodePassword(txtPassword_->text());
}

void frmLogin::cmdOk_Click() {
    loginSucceeded_ = check();
    if (loginSucceeded_) {
        accept();
        return;
    }
    ui::messageBox(this, u"Password o utente non validi. Riprovare."_s, ui::BoxStyle::Plain, u"Accesso"_s);
    txtPassword_->setFocus();
    txtPassword_->selectAll();
}

void frmLogin::cmdCancel_Click() {
    loginSucceeded_ = false;
    reject();
}

}  // namespace tessaly
