#include "printers/PrintersPage.h"

#include <QtWidgets>

namespace tessaly::printers {

using namespace Qt::StringLiterals;

PrintersPage::PrintersPage([[maybe_unused]] MainWindowOperations& window, QWidget* parent)
    : ListPanel(u"lstDcmPrinters"_s,
                {{.title = u"Name"_s},
                 {.title = u"AE Title"_s},
                 {.title = u"Hostname"_s},
                 {.title = u"Port"_s},
                 {.title = u"Layout"_s},
                 {.title = u"Size"_s},
                 {.title = u"Medium"_s},
                 {.title = u"Destination"_s},
                 {.title = u"Orientation"_s}},
                {.add = {u"cmdAddPrinter"_s, u"Add..."_s},
                 .modify = {u"cmdModifyPrinter"_s, u"Modify..."_s},
                 .remove = {u"cmdDeletePrinter"_s, u"Delete"_s}},
                parent),
      window_(window) {
    (void)window_;
}

void PrintersPage::LoadDicomPrinters() {}

}  // namespace tessaly::printers
