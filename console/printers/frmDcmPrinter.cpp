#include "console/printers/frmDcmPrinter.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

#include "console/printers/DataFields.h"
#include "console/printers/PrinterForm.h"
#include "console/session/Globals.h"
#include "console/ui/Guard.h"
#include "console/ui/Text.h"
#include "console/ui/UneditedText.h"
#include "console/ui/Verification.h"

namespace tessaly::printers {

using namespace Qt::StringLiterals;

namespace {

db::UpdatableRow openRow(const std::string& condition) {
    return {Globals::DbConnection(), "Printers", "Name", "SELECT * FROM Printers WHERE " + condition};
}

/// Older rows hold a flag here, as the column's name tells.
QString numBitsOf(const std::optional<std::string>& stored) {
    if (!stored || *stored == "0")
        return u"12"_s;
    return *stored == "1" ? u"8"_s : QString::fromStdString(*stored);
}

}  // namespace

frmDcmPrinter::frmDcmPrinter(PrinterList& printers, QWidget* parent)
    : EditorDialog({.name = u"frmDcmPrinter"_s, .caption = u"Dicom Printer"_s}, parent),
      printers_(printers),
      form_(new PrinterForm(this)) {
    body()->addWidget(form_);
    auto* verify = new QPushButton(u"Verify"_s, this);
    verify->setObjectName(u"cmdVerify"_s);
    verify->setToolTip(u"Do a C-ECHO DICOM verification service"_s);
    connect(verify, &QPushButton::clicked, this, ui::handler([this] { cmdVerify_Click(); }));
    addButtons({verify});
}

void frmDcmPrinter::Init(const QString& name) {
    if (ui::guarded(parentWidget(), ui::BoxStyle::Critical, [&] { LoadPrinter(name); }))
        showModal();
}

void frmDcmPrinter::LoadPrinter(const QString& name) {
    selectText(form_->numBits(), numBitsOf({}));
    if (ui::trimmed(name).isEmpty())
        return;
    // The name goes into the text as it is, not escaped, here and in writeDefault(): one with an apostrophe
    // cannot be opened.
    db::UpdatableRow row = openRow("Name='" + name.toStdString() + "'");
    if (!row.exists())
        return;
    showRow(*this, row);
    selectText(form_->numBits(), numBitsOf(row.value("Force8bit")));
    printerRow_.emplace(std::move(row));
}

bool frmDcmPrinter::FormValidate() {
    const auto required = {form_->name(), form_->aeTitle(), form_->host(), form_->port()};
    if (std::none_of(required.begin(), required.end(),
                     [](const QLineEdit* box) { return ui::trimmed(box->text()).isEmpty(); }))
        return true;
    ui::messageBox(this, u"Name, AE Title, Host and Port cannot be empty"_s);
    return false;
}

bool frmDcmPrinter::save() {
    const auto report = [this](const QString& what) {
        ui::messageBox(this, u"Update Printer: "_s + what);
        return false;
    };
    try {
        writeRow();
        if (form_->defaultPrinter()->isChecked())
            writeDefault();
        return true;
    } catch (const db::Error& fault) {
        return report(fault.Number() == db::Error::DuplicateKeyNumber
                          ? u"duplicate Name ["_s + form_->name()->text() + u"], change name."_s
                          : QString::fromUtf8(fault.what()));
    } catch (const std::exception& fault) {
        return report(QString::fromUtf8(fault.what()));
    }
}

void frmDcmPrinter::writeRow() {
    const auto take = [this](db::UpdatableRow& row) {
        takeRow(*this, row);
        row.set("Force8bit", form_->numBits()->currentText().toStdString());
    };
    if (printerRow_) {
        take(*printerRow_);
        printerRow_->update();
        return;
    }
    db::UpdatableRow row = openRow("Name is NULL");  // no row, but the table's columns
    take(row);
    row.insert();
    printerRow_.emplace(std::move(row));
}

void frmDcmPrinter::writeDefault() const {
    // Deliberate: no transaction holds the two statements and the printer's row together.
    db::execute(Globals::DbConnection(), "UPDATE Printers SET DefaultPrinter=0");
    db::execute(Globals::DbConnection(), "UPDATE Printers SET DefaultPrinter=1 Where Name ='" +
                                             ui::textOf(form_->name()).toStdString() + "'");
}

void frmDcmPrinter::reload() {
    printers_.LoadDicomPrinters();
}

void frmDcmPrinter::cmdVerify_Click() {
    ui::guarded(this, ui::BoxStyle::Critical, [this] {
        if (ui::EchoVerify(this, ui::textOf(form_->host()), ui::textOf(form_->port()), {},
                           ui::textOf(form_->aeTitle())))
            ui::messageBox(this, u"Verify succeeded!"_s);
        else
            ui::messageBox(this, u"Verify failed!"_s, ui::BoxStyle::Critical);
    });
}

}  // namespace tessaly::printers
