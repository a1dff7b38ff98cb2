#include "console/server/LogFileFrame.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QLineEdit>
#include <QPushButton>
#include <algorithm>

#include "console/session/Globals.h"
#include "console/ui/Guard.h"
#include "console/ui/SpinButtons.h"
#include "console/ui/Text.h"
#include "console/ui/TypedNumber.h"
#include "db/Query.h"

namespace tessaly::server {

using namespace Qt::StringLiterals;

namespace {

struct DumpOption {
    const char* caption;
    int bit;  // in DumpLevel; the jump to 16 is the record's format
};
constexpr std::array<DumpOption, 4> DumpOptions{
    {{"Dump Socket", 1}, {"Dump Association", 16}, {"Dump DUL", 2}, {"Dump VR", 4}}};

constexpr int LongestTimeout = 3600;  // seconds

}  // namespace

LogFileFrame::LogFileFrame(QWidget* parent)
    : QGroupBox(u"Log file"_s, parent),
      cmbOutputLevel_(new QComboBox(this)),
      txtQueryTimeout_(new QLineEdit(this)) {
    setObjectName(u"Frame1"_s);
    cmbOutputLevel_->setObjectName(u"cmbOutputLevel"_s);
    cmbOutputLevel_->addItems({u"Errors"_s, u"Normal"_s, u"Warnings"_s, u"Debug"_s});  // in stored order
    txtQueryTimeout_->setObjectName(u"txtQueryTimeout"_s);
    txtQueryTimeout_->setToolTip(u"Timeout on Query connections"_s);
    auto* timeout = new QHBoxLayout;
    timeout->setSpacing(0);
    timeout->addWidget(txtQueryTimeout_);
    timeout->addWidget(new ui::SpinButtons(u"UpDown1"_s, txtQueryTimeout_, 0, LongestTimeout, this));

    auto* options = new QGridLayout;
    for (int i = 0; i < static_cast<int>(DumpOptions.size()); ++i) {
        auto* box =
            new QCheckBox(QString::fromLatin1(DumpOptions[static_cast<std::size_t>(i)].caption), this);
        box->setObjectName(u"chkDumpOpt"_s + QString::number(i));
        options->addWidget(box, i / 2, i % 2);
        chkDumpOpt_[static_cast<std::size_t>(i)] = box;
    }
    setTabOrder(chkDumpOpt_.back(), txtQueryTimeout_);  // as they stand below each other

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    const auto addButton = [&](const QString& name, const QString& caption) {
        auto* button = new QPushButton(caption, this);
        button->setObjectName(name);
        button->setAutoDefault(false);
        buttons->addWidget(button);
        return button;
    };
    connect(addButton(u"cmdOk"_s, u"Confirm"_s), &QPushButton::clicked, this,
            ui::handler([this] { cmdOk_Click(); }));
    connect(addButton(u"cmdCancel"_s, u"Cancel"_s), &QPushButton::clicked, this, ui::handler([this] {
                ui::guarded(this, ui::BoxStyle::Critical, [this] { LoadServerParameters(); });
            }));

    auto* rows = new QFormLayout;
    rows->addRow(u"Logfile level"_s, cmbOutputLevel_);
    rows->addRow(options);
    rows->addRow(u"Query Timeout"_s, timeout);
    auto* whole = new QVBoxLayout(this);
    whole->addLayout(rows);
    whole->addStretch();
    whole->addLayout(buttons);
}

void LogFileFrame::LoadServerParameters() {
    fill();
    Q_EMIT loaded();
}

void LogFileFrame::fill() {
    db::Query query{Globals::DbConnection(), "SELECT * FROM DicomServer"};
    db::ResultSet row = query.open();
    if (!row.next()) {
        ui::messageBox(this, u"Cannot find server configuration"_s, ui::BoxStyle::Critical);
        return;
    }
    // A number that is no level is shown as the one that the server takes it for: with nothing selected,
    // Confirm would store -1.
    cmbOutputLevel_->setCurrentIndex(
        static_cast<int>(std::clamp<long long>(row.integer("loglevel"), 0, cmbOutputLevel_->count() - 1)));
    const long long dumpLevel = row.integer("DumpLevel");
    for (std::size_t i = 0; i < DumpOptions.size(); ++i)
        chkDumpOpt_[i]->setChecked((dumpLevel & DumpOptions[i].bit) != 0);
    txtQueryTimeout_->setText(ui::text(row, "QueryTimeout"));
}

void LogFileFrame::cmdOk_Click() {
    ui::guarded(this, ui::BoxStyle::Critical, [this] {
        const int timeout = ui::leadingNumber(txtQueryTimeout_->text());
        int dumpLevel = 0;
        for (std::size_t i = 0; i < DumpOptions.size(); ++i)
            dumpLevel += chkDumpOpt_[i]->isChecked() ? DumpOptions[i].bit : 0;
        db::execute(
            Globals::DbConnection(), "UPDATE DicomServer SET LogLevel=?,DumpLevel=?, QueryTimeout=?",
            {db::integer(cmbOutputLevel_->currentIndex()), db::integer(dumpLevel), db::integer(timeout)});
        Globals::setConfigChanged(true);
    });
}

}  // namespace tessaly::server
