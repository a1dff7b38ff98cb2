#include "console/ui/FolderPicker.h"

#include <QDir>
#include <QFileDialog>

#include "console/ui/FileDialogs.h"

namespace tessaly::ui {

std::optional<QString> browseForFolder(QWidget* owner, const QString& prompt, const QString& start) {
    const QString folder = QFileDialog::getExistingDirectory(owner, prompt, start,
                                                             QFileDialog::ShowDirsOnly | fileDialogOptions());
    if (folder.isEmpty())
        return std::nullopt;
    return QDir::cleanPath(folder);
}

}  // namespace tessaly::ui
