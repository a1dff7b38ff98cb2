#pragma once

#include "console/printers/PrinterList.h"
#include "console/ui/ListPanel.h"

namespace tessaly::printers {

/// The page "Dicom Printers" of the main window.
class PrintersPage : public ui::ListPanel {
    Q_OBJECT

  public:
    explicit PrintersPage(PrinterList& printers, QWidget* parent = nullptr);

    void LoadDicomPrinters();

  private:
    void edit(const QString& name);
    void cmdModifyPrinter_Click();
    void cmdDeletePrinter_Click();

    PrinterList& printers_;
};

}  // namespace tessaly::printers
