#pragma once

#include <QGroupBox>

class QLineEdit;

namespace tessaly::maintenance {

/// The frame "Database" of the page "Administration": gives the archive's studies another root folder.
class DatabaseFrame : public QGroupBox {
    Q_OBJECT

  public:
    explicit DatabaseFrame(QWidget* parent = nullptr);

    /// Presets both path boxes.
    void setImageRoot(const QString& root);

  private:
    [[nodiscard]] QLineEdit* addPath(const QString& label, const QString& boxName, const QString& buttonName);
    void browse(QLineEdit* box);
    void cmdChangePath_Click();

    QLineEdit* txtPathIni_;
    QLineEdit* txtPathFin_;
};

}  // namespace tessaly::maintenance
