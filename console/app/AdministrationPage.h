#pragma once

#include <QWidget>

#include "console/maintenance/DatabaseFrame.h"
#include "console/server/LogFileFrame.h"
#include "console/server/ServerFrame.h"

namespace tessaly {

/// The page "Administration": three frames that three subsystems own.
class AdministrationPage : public QWidget {
    Q_OBJECT

  public:
    explicit AdministrationPage(QWidget* parent = nullptr);

    [[nodiscard]] server::LogFileFrame& logFile() const { return *logFile_; }
    [[nodiscard]] server::ServerFrame& server() const { return *server_; }
    [[nodiscard]] maintenance::DatabaseFrame& database() const { return *database_; }

  private:
    server::LogFileFrame* logFile_;
    server::ServerFrame* server_;
    maintenance::DatabaseFrame* database_;
};

}  // namespace tessaly
