#include "users/SitePage.h"

#include <QtWidgets>

namespace tessaly::users {

using namespace Qt::StringLiterals;

SitePage::SitePage([[maybe_unused]] MainWindowOperations& window, QWidget* parent)
    : QWidget(parent), window_(window) {
    (void)window_;
}

void SitePage::LoadSiteData() {}

}  // namespace tessaly::users
