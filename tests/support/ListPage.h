#pragma once

#include "tests/support/BoxScript.h"

namespace tessaly::test {

/// A page of the main window with a list of at least two rows, of which the first is selected.
struct ListPage {
    QString list;
    QString dialog;  ///< that Add... and Modify... open
    QString keyBox;  ///< the box in it that shows the row's first cell
    Box question;    ///< of Delete for the first row, answered so that nothing is deleted
};

/// Delete, Enter and a double click on a row press the page's buttons, Alt+A presses Add....
void checkKeys(QWidget& window, const ListPage& page);

}  // namespace tessaly::test
