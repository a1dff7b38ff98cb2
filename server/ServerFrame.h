#pragma once

#include <QGroupBox>

namespace tessaly::server {

/// The frame "Server" of the page "Administration".
class ServerFrame : public QGroupBox {
    Q_OBJECT

  public:
    explicit ServerFrame(QWidget* parent = nullptr);
};

}  // namespace tessaly::server
