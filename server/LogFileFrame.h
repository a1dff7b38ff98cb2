#pragma once

#include <QGroupBox>

namespace tessaly::server {

/// The frame "Log file" of the page "Administration".
class LogFileFrame : public QGroupBox {
    Q_OBJECT

  public:
    explicit LogFileFrame(QWidget* parent = nullptr);
};

}  // namespace tessaly::server
