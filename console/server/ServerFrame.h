#pragma once

#include <QGroupBox>

class QCheckBox;
class QPushButton;

namespace tessaly::ui {
class ReportList;
}

namespace tessaly::server {

/// The frame "Server" of the page "Administration": the controls alone, ServerControl has their handlers.
class ServerFrame : public QGroupBox {
    Q_OBJECT

  public:
    explicit ServerFrame(QWidget* parent = nullptr);

    [[nodiscard]] QCheckBox& chkService() const { return *chkService_; }
    [[nodiscard]] QPushButton& cmdStart() const { return *cmdStart_; }
    [[nodiscard]] QPushButton& cmdStop() const { return *cmdStop_; }
    [[nodiscard]] QPushButton& cmdRestart() const { return *cmdRestart_; }
    [[nodiscard]] QPushButton& cmdLoad() const { return *cmdLoad_; }
    /// Port, calling and called AE title and number of the open associations.
    [[nodiscard]] ui::ReportList& lstStatus() const { return *lstStatus_; }

  private:
    [[nodiscard]] QPushButton* addButton(const QString& name, const QString& caption, const QString& toolTip);

    ui::ReportList* lstStatus_;
    QPushButton* cmdStart_;
    QPushButton* cmdStop_;
    QPushButton* cmdRestart_;
    QPushButton* cmdLoad_;
    QCheckBox* chkService_;
};

}  // namespace tessaly::server
