#pragma once

#include <QDialog>

namespace tessaly {

/// The about box: title, version and a line of description.
class frmAbout : public QDialog {
    Q_OBJECT

  public:
    explicit frmAbout(QWidget* parent);
};

}  // namespace tessaly
