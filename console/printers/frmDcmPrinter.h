#pragma once

#include <optional>

#include "console/printers/PrinterList.h"
#include "console/ui/EditorDialog.h"
#include "db/UpdatableRow.h"

namespace tessaly::printers {

class PrinterForm;

/// The editor of one DICOM printer.
class frmDcmPrinter : public ui::EditorDialog {
    Q_OBJECT

  public:
    frmDcmPrinter(PrinterList& printers, QWidget* parent);

    /// Fills the dialog with the printer of that name, or with a new one for a name that is blank or does
    /// not exist, and shows it modally. A failure is reported and the dialog not shown.
    void Init(const QString& name);
    [[nodiscard]] bool FormValidate() override;

  protected:
    [[nodiscard]] bool save() override;
    void reload() override;

  private:
    void LoadPrinter(const QString& name);
    void writeRow();
    void writeDefault() const;
    void cmdVerify_Click();

    PrinterList& printers_;
    PrinterForm* form_;
    std::optional<db::UpdatableRow> printerRow_;  // empty for a new printer
};

}  // namespace tessaly::printers
