#include "console/server/ConnectionMonitor.h"

#include "console/server/Server.h"
#include "console/ui/Guard.h"
#include "console/ui/ReportList.h"

namespace tessaly::server {

using namespace Qt::StringLiterals;

namespace {

enum Column { Port, Calling, Called, Count };

QString keyOf(const QString& port, const QString& calling, const QString& called) {
    return port + u':' + calling + u':' + called;
}

int count(const QTreeWidgetItem& row) {
    return row.text(Count).toInt();
}

void setCount(QTreeWidgetItem& row, int count) {
    row.setText(Count, QString::number(count));
}

}  // namespace

ConnectionMonitor::ConnectionMonitor(ui::ReportList& list, StatusDisplay& display)
    : list_(list), display_(display) {}

void ConnectionMonitor::follow(const Server& server) {
    using State = StatusDisplay::State;
    connect(&server, &Server::OnConnection, this, &ConnectionMonitor::OnConnection);
    connect(&server, &Server::OnEndConnection, this, &ConnectionMonitor::OnEndConnection);
    const auto show = [this](State state) {
        display_.showState(state);
        display_.showText({});
    };
    connect(&server, &Server::OnStart, this, [show] { show(State::Listening); });
    connect(&server, &Server::OnStop, this, [show] { show(State::Stopped); });
}

void ConnectionMonitor::OnConnection(const QString& port, const QString& calling, const QString& called,
                                     int total) {
    display_.showState(StatusDisplay::State::Connected);
    display_.showText(u"Num. Connections ="_s + QString::number(total));
    QTreeWidgetItem*& row = rows_[keyOf(port, calling, called)];
    if (row != nullptr)
        setCount(*row, count(*row) + 1);
    else
        row = new QTreeWidgetItem(&list_, {port, calling, called, u"1"_s});
}

void ConnectionMonitor::OnEndConnection(const QString& port, const QString& calling, const QString& called) {
    const auto found = rows_.find(keyOf(port, calling, called));
    if (found == rows_.end())
        return;
    QTreeWidgetItem& row = **found;
    if (const int open = count(row); open > 1) {
        setCount(row, open - 1);
    } else {
        // The view would make the next row the current one and lay out the whole list for it, row by row.
        if (list_.currentItem() == &row)
            list_.setCurrentItem(nullptr);
        delete &row;
        rows_.erase(found);
    }
}

}  // namespace tessaly::server
