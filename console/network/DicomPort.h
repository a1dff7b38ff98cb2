#pragma once

#include "console/network/NetworkLists.h"
#include "console/network/PortRecord.h"
#include "console/ui/EditorDialog.h"
#include "console/ui/FieldBinder.h"

namespace tessaly::network {

/// The editor of one listening port. Saving keeps the nodes and the accepted nodes in step, all in one
/// transaction.
class DicomPort : public ui::EditorDialog {
    Q_OBJECT

  public:
    DicomPort(NetworkLists& lists, QWidget* parent);

    /// Loads the port, or a new one for an empty text, and shows the dialog modally; a port that cannot be
    /// read is reported and not shown, for Confirm would take an empty dialog for a new port.
    void Init(const QString& port);
    /// Fills the controls. Throws db::Error.
    void LoadPort(const QString& port);
    /// Throws ui::UncaughtFault for a number of connections that is no 16-bit number.
    [[nodiscard]] bool FormValidate() override;

  protected:
    /// Validates outside the guard: see FormValidate().
    void cmdOk_Click() override;
    [[nodiscard]] bool save() override;
    void reload() override;

  private:
    void writeRow(const PortRecord& port) const;
    void renameTitle(const QString& title) const;
    void renamePort(const PortRecord& port) const;
    void cmdRootDir_Click();

    NetworkLists& lists_;
    ui::FieldBinder<PortRecord> fields_;
    QLineEdit* txtPort_ = nullptr;
    QLineEdit* txtAETitle_ = nullptr;
    QLineEdit* txtMaxConnections_ = nullptr;
    QLineEdit* txtRoot_ = nullptr;
    QString OldPort_;     // as LoadPort was given it
    QString OldAETitle_;  // of the row that was found; empty means that Confirm inserts
};

}  // namespace tessaly::network
