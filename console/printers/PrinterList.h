#pragma once

namespace tessaly::printers {

/// The list of printers, for what changes its rows.
class PrinterList {
  public:
    virtual ~PrinterList() = default;

    /// Refills the list from the database and reports its own failure in a message box.
    virtual void LoadDicomPrinters() = 0;
};

}  // namespace tessaly::printers
