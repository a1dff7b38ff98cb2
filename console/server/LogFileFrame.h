#pragma once

#include <QGroupBox>
#include <array>

class QCheckBox;
class QComboBox;
class QLineEdit;

namespace tessaly::server {

/// The frame "Log file" of the page "Administration": edits the one record of DicomServer.
class LogFileFrame : public QGroupBox {
    Q_OBJECT

  public:
    explicit LogFileFrame(QWidget* parent = nullptr);

    /// Shows the stored parameters; reports a missing record itself and then leaves the controls alone.
    /// Throws db::Error.
    void LoadServerParameters();

  Q_SIGNALS:
    /// The parameters were read again: what else the page shows of the server is to be brought up to date.
    void loaded();

  private:
    void fill();
    void cmdOk_Click();

    QComboBox* cmbOutputLevel_;
    std::array<QCheckBox*, 4> chkDumpOpt_{};
    QLineEdit* txtQueryTimeout_;
};

}  // namespace tessaly::server
