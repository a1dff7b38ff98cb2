#pragma once

#include <QWidget>

class QCheckBox;
class QComboBox;
class QFormLayout;
class QGroupBox;
class QHBoxLayout;
class QLineEdit;

namespace tessaly::printers {

/// The controls of the printer editor in their frames, each bound to its column; as they are for a printer
/// that nothing is known of yet.
class PrinterForm : public QWidget {
    Q_OBJECT

  public:
    explicit PrinterForm(QWidget* parent = nullptr);

    // Those that the editor uses by name.
    [[nodiscard]] QLineEdit* name() const { return name_; }
    [[nodiscard]] QLineEdit* aeTitle() const { return aeTitle_; }
    [[nodiscard]] QLineEdit* host() const { return host_; }
    [[nodiscard]] QLineEdit* port() const { return port_; }
    [[nodiscard]] QComboBox* numBits() const { return numBits_; }
    [[nodiscard]] QCheckBox* defaultPrinter() const { return defaultPrinter_; }

  private:
    enum class Deletable { No, Yes };

    QLayout* makeAddress();
    QGroupBox* makeJob();
    QGroupBox* makeDensities();
    QGroupBox* makeIllumination();
    QGroupBox* makeGeometry();
    QGroupBox* makeOther();

    QLineEdit* makeText(const QString& objectName, const QString& column, int limit = 0);
    /// Without a column: the editor moves it by name. In a deletable one the Delete key clears the selection.
    QComboBox* makeChoice(const QString& objectName, const QString& column, const QStringList& items,
                          Deletable deletable);
    QCheckBox* makeCheck(const QString& objectName, const QString& column, const QString& caption);
    /// A box for a number with its spin buttons. One that `activates` takes the focus when they are pressed
    /// and holds no zero and no text that is no number once it is left.
    enum class Activates { No, Yes };
    void addNumber(QFormLayout* rows, const QString& label, QLineEdit* box, const QString& spinName,
                   int minimum, int maximum, Activates activates);

    QLineEdit* name_ = nullptr;
    QLineEdit* aeTitle_ = nullptr;
    QLineEdit* host_ = nullptr;
    QLineEdit* port_ = nullptr;
    QComboBox* numBits_ = nullptr;
    QCheckBox* defaultPrinter_ = nullptr;
};

}  // namespace tessaly::printers
