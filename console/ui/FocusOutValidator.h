#pragma once

#include <QObject>
#include <functional>

class QLineEdit;

namespace tessaly::ui {

/// Keeps the focus in a text box as long as its text is at fault: leaving the box for another control of its
/// window, or for another page of the tab control that it stands in, shows the fault in a plain message box
/// and gives the focus back; the click that was to leave is not carried out. Closing the window or going to
/// another one is no leaving. Owned by the box.
class FocusOutValidator : public QObject {
  public:
    /// What is wrong with a text, empty when nothing is.
    using Fault = std::function<QString(const QString& text)>;

    FocusOutValidator(QLineEdit* box, Fault fault);

    /// False when the text is at fault; the fault has then been shown, once for all that one click causes.
    [[nodiscard]] bool passes();
    /// True from a refusal until whatever caused it has been dealt with.
    [[nodiscard]] bool hasRefused() const { return refused_; }

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    [[nodiscard]] bool isAtFault() const;
    [[nodiscard]] bool wouldLeave(const QObject* clicked) const;
    void leave();
    void refuse();

    QLineEdit* box_;
    Fault fault_;
    bool refused_ = false;
};

}  // namespace tessaly::ui
