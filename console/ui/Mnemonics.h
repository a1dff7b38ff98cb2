#pragma once

class QWidget;

namespace tessaly::ui {

/// Gives the labelled fields, buttons and check boxes of a form an Alt+letter each, taken from the letters of
/// their captions in tab order, as far as letters last. The captions themselves stay as they are: they are
/// quoted in manuals and looked up by their text. Letters that a caption marks with "&" come first.
void assignMnemonics(QWidget* form);

}  // namespace tessaly::ui
