#include "console/users/SitePage.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <algorithm>

#include "console/session/Globals.h"
#include "console/ui/FocusOutValidator.h"
#include "console/ui/Guard.h"
#include "console/ui/Mnemonics.h"
#include "console/ui/Text.h"
#include "console/ui/UneditedText.h"
#include "db/Query.h"

namespace tessaly::users {

using namespace Qt::StringLiterals;

namespace {

QString organizationFault(const QString& text) {
    return text.isEmpty() ? u"Organization name required"_s : QString{};
}

/// The characters alone are looked at, not the structure.
QString baseUidFault(const QString& text) {
    if (text.isEmpty())
        return u"Base UID required"_s;
    const bool valid =
        std::all_of(text.begin(), text.end(), [](QChar c) { return u"1234567890."_s.contains(c); });
    return valid ? QString{} : u"Only Numbers and '.' allowed for UIDs"_s;
}

}  // namespace

SitePage::SitePage(QWidget* parent)
    : QWidget(parent),
      // Shown until a row of the table is: 2.25 is the root under which everyone may make UIDs.
      txtOrganization_(new QLineEdit(u"Unknown"_s, this)),
      txtBaseUID_(new QLineEdit(u"2.25"_s, this)),
      organizationCheck_(new ui::FocusOutValidator(txtOrganization_, organizationFault)),
      baseUidCheck_(new ui::FocusOutValidator(txtBaseUID_, baseUidFault)),
      cmdApplySiteData_(new QPushButton(u"Confirm"_s, this)),
      cmdCancelSiteData_(new QPushButton(u"Cancel"_s, this)) {
    constexpr int BoxWidth = 420;
    auto* rows = new QFormLayout(this);
    rows->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    const auto addRow = [&](const QString& caption, const QString& labelName, QLineEdit* box,
                            const QString& name) {
        auto* label = new QLabel(caption, this);
        label->setObjectName(labelName);
        label->setBuddy(box);
        box->setObjectName(name);
        box->setMinimumWidth(BoxWidth);
        rows->addRow(label, box);
        connect(box, &QLineEdit::textChanged, this, [this] { enableButtons(true); });
    };
    addRow(u"Organization"_s, u"Label4"_s, txtOrganization_, u"txtOrganization"_s);
    addRow(u"UID"_s, u"Label5"_s, txtBaseUID_, u"txtBaseUID"_s);

    auto* buttons = new QHBoxLayout;
    rows->addRow(QString{}, buttons);
    cmdApplySiteData_->setObjectName(u"cmdApplySiteData"_s);
    cmdCancelSiteData_->setObjectName(u"cmdCancelSiteData"_s);
    for (QPushButton* button : {cmdApplySiteData_, cmdCancelSiteData_})
        buttons->addWidget(button);
    buttons->addStretch();
    enableButtons(false);
    connect(cmdApplySiteData_, &QPushButton::clicked, this,
            ui::handler([this] { cmdApplySiteData_Click(); }));
    connect(cmdCancelSiteData_, &QPushButton::clicked, this,
            ui::handler([this] { cmdCancelSiteData_Click(); }));
    ui::assignMnemonics(this);
}

void SitePage::enableButtons(bool enabled) {
    cmdApplySiteData_->setEnabled(enabled);
    cmdCancelSiteData_->setEnabled(enabled);
}

void SitePage::LoadSiteData() {
    ui::guarded(this, ui::BoxStyle::Plain, [this] {
        db::Query query{Globals::DbConnection(), "SELECT * FROM SiteData"};
        db::ResultSet row = query.open();
        if (row.next()) {
            const QString organization = ui::text(row, "Organization");
            const QString baseUid = ui::text(row, "BaseUID");
            ui::showText(txtOrganization_, organization);
            ui::showText(txtBaseUID_, baseUid);
        }
        enableButtons(false);
    });
}

/// A box that somebody is in, or has changed, has to be right. A stored fault in the other one is no
/// obstacle.
bool SitePage::passes(const QLineEdit* box, ui::FocusOutValidator& check) const {
    if (check.hasRefused())
        return false;
    return (ui::isUntouched(box) && window()->focusWidget() != box) || check.passes();
}

void SitePage::cmdApplySiteData_Click() {
    if (!passes(txtOrganization_, *organizationCheck_) || !passes(txtBaseUID_, *baseUidCheck_))
        return;
    ui::guarded(this, ui::BoxStyle::Critical, [this] {
        db::execute(Globals::DbConnection(), "UPDATE SiteData set Organization=?, BaseUID=?",
                    {ui::varchar(ui::textOf(txtOrganization_)), ui::varchar(ui::textOf(txtBaseUID_))});
        LoadSiteData();
    });
}

void SitePage::cmdCancelSiteData_Click() {
    if (organizationCheck_->hasRefused() || baseUidCheck_->hasRefused())
        return;
    LoadSiteData();
}

}  // namespace tessaly::users
