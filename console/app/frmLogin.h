#pragma once

#include <QDialog>

class QLineEdit;

namespace tessaly {

/// Asks for an administrator's name and password. Shown modally by Main, which reads LoginSucceeded()
/// afterwards.
class frmLogin : public QDialog {
    Q_OBJECT

  public:
    explicit frmLogin(QWidget* parent = nullptr);

    /// False until a check succeeded.
    [[nodiscard]] bool LoginSucceeded() const noexcept { return loginSucceeded_; }

  private:
    void cmdOk_Click();
    void cmdCancel_Click();
    /// Throws db::Error: a failing database ends the console, it is no wrong password.
    [[nodiscard]] bool check() const;

    QLineEdit* txtUserName_;
    QLineEdit* txtPassword_;
    bool loginSucceeded_ = false;
};

}  // namespace tessaly
