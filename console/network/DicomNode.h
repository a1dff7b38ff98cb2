#pragma once

#include "console/network/NetworkLists.h"
#include "console/network/NodeRecord.h"
#include "console/ui/EditorDialog.h"
#include "console/ui/FieldBinder.h"

namespace tessaly::network {

/// The editor of one DICOM node.
class DicomNode : public ui::EditorDialog {
    Q_OBJECT

  public:
    DicomNode(NetworkLists& lists, QWidget* parent);

    /// Fills the dialog with the node of that name, or with a new one for an empty name, and shows it
    /// modally; not when the ports' titles cannot be read.
    void Init(const QString& name);
    [[nodiscard]] bool FormValidate() override;

  protected:
    [[nodiscard]] bool save() override;
    void reload() override;

  private:
    void writeRow(const NodeRecord& node) const;
    void fillLocalTitles();
    void fill();
    void cmdTest_Click();

    NetworkLists& lists_;
    ui::FieldBinder<NodeRecord> fields_;
    QLineEdit* txtName_ = nullptr;
    QLineEdit* txtAETitle_ = nullptr;
    QLineEdit* txtHost_ = nullptr;
    QLineEdit* txtPort_ = nullptr;
    QComboBox* cmbLocalTitle_ = nullptr;
    QString node_;  // as Init was given it: empty means a new node
};

}  // namespace tessaly::network
