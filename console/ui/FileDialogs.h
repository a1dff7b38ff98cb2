#pragma once

#include <QFileDialog>
#include <QGuiApplication>

namespace tessaly::ui {

/// The desktop's own dialogs where there is a desktop, the toolkit's where there is none.
[[nodiscard]] inline QFileDialog::Options fileDialogOptions() {
    return QGuiApplication::platformName() == QLatin1String("offscreen") ? QFileDialog::DontUseNativeDialog
                                                                         : QFileDialog::Options{};
}

}  // namespace tessaly::ui
