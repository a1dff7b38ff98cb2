#pragma once

#include "console/network/FtpNodeRecord.h"
#include "console/network/NetworkLists.h"
#include "console/ui/EditorDialog.h"
#include "console/ui/FieldBinder.h"

namespace tessaly::network {

/// The editor of one FTP destination.
class FTPNode : public ui::EditorDialog {
    Q_OBJECT

  public:
    FTPNode(NetworkLists& lists, QWidget* parent);

    /// Fills the dialog with the node of that name, or with a new one for an empty name, and shows it
    /// modally.
    void Init(const QString& name);
    [[nodiscard]] bool FormValidate() override;

  protected:
    [[nodiscard]] bool save() override;
    void reload() override;

  private:
    void fill(const QString& name);

    NetworkLists& lists_;
    ui::FieldBinder<FtpNodeRecord> fields_;
    QLineEdit* name_ = nullptr;
    bool newNode_ = false;
};

}  // namespace tessaly::network
