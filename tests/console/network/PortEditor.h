#pragma once

#include <QAbstractButton>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QTest>

#include "tests/support/BoxScript.h"

// The dialog DicomPort, as tests drive it.

namespace tessaly::test {

/// Answers the folder dialog that the browse button opens; an empty folder is Cancel.
inline void expectFolder(BoxScript& script, const QString& folder) {
    script.drive(QStringLiteral("QFileDialog"), [folder](Form form) {
        auto& dialog = static_cast<QFileDialog&>(form.window());
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Images dir"));
        if (folder.isEmpty())
            return dialog.reject();
        dialog.selectFile(folder);
        form.find<QDialogButtonBox>(QStringLiteral("buttonBox")).buttons().first()->click();
    });
}

/// What every port must have; the browse button opens a folder dialog.
inline void fillPort(const Form& form, const QString& port, const QString& title) {
    form.type(QStringLiteral("txtPort"), port);
    form.type(QStringLiteral("txtAETitle"), title);
    form.click(QStringLiteral("cmdRootDir"));
}

}  // namespace tessaly::test
