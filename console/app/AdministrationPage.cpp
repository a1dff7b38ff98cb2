#include "console/app/AdministrationPage.h"

#include <QGridLayout>

namespace tessaly {

AdministrationPage::AdministrationPage(QWidget* parent)
    : QWidget(parent),
      logFile_(new server::LogFileFrame(this)),
      server_(new server::ServerFrame(this)),
      database_(new maintenance::DatabaseFrame(this)) {
    auto* grid = new QGridLayout(this);
    grid->addWidget(logFile_, 0, 0);
    grid->addWidget(server_, 0, 1);
    grid->addWidget(database_, 1, 0, 1, 2);
    grid->setColumnStretch(1, 1);
    grid->setRowStretch(0, 1);
}

}  // namespace tessaly
