#pragma once

#include <QGroupBox>

namespace tessaly::maintenance {

/// The frame "Database" of the page "Administration".
class DatabaseFrame : public QGroupBox {
    Q_OBJECT

  public:
    explicit DatabaseFrame(QWidget* parent = nullptr);
};

}  // namespace tessaly::maintenance
