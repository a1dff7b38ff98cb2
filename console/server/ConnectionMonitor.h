#pragma once

#include <QHash>
#include <QObject>

#include "console/server/StatusDisplay.h"

class QTreeWidgetItem;

namespace tessaly::ui {
class ReportList;
}

namespace tessaly::server {

class Server;

/// Keeps the list of open associations, one row with a count for each port and pair of AE titles, and the
/// status bar true to the events of the server. The list is its own: nobody else adds or removes rows.
class ConnectionMonitor : public QObject {
    Q_OBJECT

  public:
    ConnectionMonitor(ui::ReportList& list, StatusDisplay& display);

    /// Follows the events of `server` as long as both live. Rows of an earlier one stay.
    void follow(const Server& server);

  private:
    void OnConnection(const QString& port, const QString& calling, const QString& called, int total);
    void OnEndConnection(const QString& port, const QString& calling, const QString& called);

    ui::ReportList& list_;
    StatusDisplay& display_;
    QHash<QString, QTreeWidgetItem*> rows_;  // by key; owned by the list
};

}  // namespace tessaly::server
