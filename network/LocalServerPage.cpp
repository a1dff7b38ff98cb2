#include "network/LocalServerPage.h"

#include <QtWidgets>

namespace tessaly::network {

using namespace Qt::StringLiterals;

LocalServerPage::LocalServerPage([[maybe_unused]] MainWindowOperations& window, QWidget* parent)
    : QWidget(parent), window_(window) {
    (void)window_;
}

void LocalServerPage::LoadPorts() {}

void LocalServerPage::LoadPortNodes(const QString& /*port*/) {}

}  // namespace tessaly::network
