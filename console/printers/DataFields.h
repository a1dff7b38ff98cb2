#pragma once

#include <QString>

#include "db/UpdatableRow.h"

class QComboBox;
class QWidget;

// A control names the column that it shows in its dynamic property "DataField"; text boxes and combo boxes
// move their text, check boxes 1 or 0.

namespace tessaly::printers {

/// Binds a control to a column.
void setDataField(QWidget* control, const QString& column);

/// Puts the row's values into the form's controls; where the column is NULL a control stays as it is.
void showRow(const QWidget& form, const db::UpdatableRow& row);

/// Sets the row's columns from the form's controls: in a column that is no text an empty control is NULL, and
/// a number is read by ui::enteredNumber(). Throws db::Error for any other text there. Not the columns of
/// text boxes that nobody edited since showRow().
void takeRow(const QWidget& form, db::UpdatableRow& row);

/// Selects the text of a drop-down list; one that the list lacks is added, so that a value from elsewhere is
/// shown, and stored again, as it stands. The empty text is no selection.
void selectText(QComboBox* combo, const QString& text);

}  // namespace tessaly::printers
