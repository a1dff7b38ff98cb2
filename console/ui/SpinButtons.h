#pragma once

#include <QWidget>

class QLineEdit;

namespace tessaly::ui {

/// A pair of up and down buttons that counts the whole number in a text box; the box stays free text. The
/// caller places it beside the box, which must live as long. The keys Up and Down in the box count as well.
class SpinButtons : public QWidget {
    Q_OBJECT

  public:
    SpinButtons(const QString& name, QLineEdit* box, int minimum, int maximum, QWidget* parent = nullptr);

    /// From a text that is no whole number the first step leads to the minimum.
    void stepUp() { step(+1); }
    void stepDown() { step(-1); }

  Q_SIGNALS:
    void changed(int value);  ///< after a step that changed the box

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void step(int by);

    QLineEdit* box_;
    int minimum_;
    int maximum_;
};

}  // namespace tessaly::ui
