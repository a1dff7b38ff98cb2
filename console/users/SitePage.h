#pragma once

#include <QWidget>

class QLineEdit;
class QPushButton;

namespace tessaly::ui {
class FocusOutValidator;
}

namespace tessaly::users {

/// The page "Site Parameters" of the main window.
class SitePage : public QWidget {
    Q_OBJECT

  public:
    explicit SitePage(QWidget* parent = nullptr);

    void LoadSiteData();

  private:
    void enableButtons(bool enabled);
    [[nodiscard]] bool passes(const QLineEdit* box, ui::FocusOutValidator& check) const;
    void cmdApplySiteData_Click();
    void cmdCancelSiteData_Click();

    QLineEdit* txtOrganization_;
    QLineEdit* txtBaseUID_;
    ui::FocusOutValidator* organizationCheck_;
    ui::FocusOutValidator* baseUidCheck_;
    QPushButton* cmdApplySiteData_;
    QPushButton* cmdCancelSiteData_;
};

}  // namespace tessaly::users
