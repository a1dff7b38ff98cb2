// How long the network's lists take with thousands of rows: filled by their statement, which sorts them, and
// painted, and the same after a node was changed in its editor. Beside it, in the same run, the same
// statement in plain C on SQLite. Prints a table; judges nothing.

#include <sqlite3.h>

#include <QApplication>
#include <QLineEdit>
#include <QScrollBar>
#include <QTabWidget>
#include <QTreeView>
#include <chrono>
#include <cstdio>
#include <functional>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "tests/support/BoxScript.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

constexpr int Nodes = 10'000;
constexpr int Ports = 1'000;
constexpr int Rounds = 7;

/// Rows in no order, so that the statement has to sort them.
void fill(const ScratchDatabase& database) {
    const auto many = [](int count, const QString& insert) {
        return u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<%1), "
               "r(i) AS (SELECT i*7919 % %1 FROM n) "_s.arg(count) +
               insert;
    };
    database.run(u"BEGIN"_s);
    database.run(u"DELETE FROM Port"_s);
    database.run(
        many(Ports, u"INSERT INTO Port SELECT 20000+i, 'AE'||i, 10, '/srv/images/'||i, 0, 0, 1 FROM r"_s));
    database.run(many(Nodes,
                      u"INSERT INTO DicomNodes SELECT 'NODE'||i, 'AE'||i, 'AE1', 'host'||i||'.example',"
                      " '104', 1, 1, 0 FROM r"_s));
    database.run(many(Nodes,
                      u"INSERT INTO FtpNodes SELECT 'FTP'||i, 'host'||i||'.example', 'user', 'password',"
                      " '/incoming/'||i, 'Quib' FROM r"_s));
    database.run(many(Nodes, u"INSERT INTO PortRemoteNodes SELECT '20000', 'NODE'||i FROM r"_s));
    database.run(u"COMMIT"_s);
}

double best(const std::function<void()>& work) {
    double best = 1e9;
    for (int round = 0; round < Rounds; ++round) {
        const auto start = std::chrono::steady_clock::now();
        work();
        best = std::min(
            best,
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

/// Every cell of the statement's rows as text; the rows.
int readPlain(const QString& path, const char* sql) {
    sqlite3* handle = nullptr;
    sqlite3_open_v2(path.toUtf8().constData(), &handle, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(handle, sql, -1, &statement, nullptr);
    int rows = 0;
    for (; sqlite3_step(statement) == SQLITE_ROW; ++rows) {
        for (int i = 0; i < sqlite3_column_count(statement); ++i)
            (void)sqlite3_column_text(statement, i);
    }
    sqlite3_finalize(statement);
    sqlite3_close(handle);
    return rows;
}

struct List {
    QString name;
    int page;
    const char* sql;
    std::function<void(TessalyManager&)> load;
};

const std::vector<List> Lists{
    {u"lstNodes"_s, 0, "SELECT * FROM DicomNodes ORDER BY Name", &TessalyManager::LoadNodes},
    {u"lstPorts"_s, 1, "SELECT * FROM Port ORDER BY Port", &TessalyManager::LoadPorts},
    {u"lstPortNodes"_s, 1,
     "SELECT PortRemoteNodes.Name,DicomNodes.AETitle FROM PortRemoteNodes, DicomNodes "
     " WHERE PortRemoteNodes.Port='20000' AND DicomNodes.Name = PortRemoteNodes.Name "
     " ORDER BY DicomNodes.Name",
     [](TessalyManager& window) { window.LoadPortNodes(u"20000"_s); }},
    {u"lstFTPNodes"_s, 2, "SELECT * FROM FtpNodes ORDER BY Name", &TessalyManager::LoadFTPNodes},
};

/// From Confirm in the editor of a node to the painted list.
double reloadAfterSave(TessalyManager& window) {
    double best = 1e9;
    for (int round = 0; round < Rounds; ++round) {
        std::chrono::steady_clock::time_point start;
        BoxScript script;
        script.drive(u"DicomNode"_s, [&](Form form) {
            form.type(u"txtHost"_s, u"round %1"_s.arg(round));
            start = std::chrono::steady_clock::now();
            form.click(u"cmdOk"_s);
        });
        Form{window}.click(u"cmdModifyNode"_s);
        Form{window}.find<QTreeView>(u"lstNodes"_s).viewport()->repaint();
        best = std::min(
            best,
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

}  // namespace

int main(int argc, char** argv) {
    const QApplication application{argc, argv};
    const ScratchDatabase database;
    fill(database);
    database.openConsoleConnection();
    TessalyManager window;
    window.load();
    window.show();
    const Form form{window};

    std::printf("list            rows   load and paint   plain C   ratio   scroll a page\n");
    for (const List& list : Lists) {
        form.find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(list.page);
        QApplication::processEvents();
        auto& view = form.find<QTreeView>(list.name);
        const double load = best([&] {
            list.load(window);
            view.viewport()->repaint();
        });
        int rows = 0;
        const double plain = best([&] { rows = readPlain(database.path(), list.sql); });
        if (rows != view.model()->rowCount()) {
            std::fprintf(stderr, "%s shows other rows\n", qPrintable(list.name));
            return 1;
        }
        QScrollBar* bar = view.verticalScrollBar();
        const double scroll = best([&] {
            bar->setValue((bar->value() + bar->pageStep()) % std::max(bar->maximum(), 1));
            view.viewport()->repaint();
        });
        std::printf("%-12s %7d   %11.1f ms %6.1f ms  %6.1f   %10.1f ms\n", qPrintable(list.name), rows, load,
                    plain, load / plain, scroll);
    }
    form.find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(0);
    std::printf(
        "Confirm in a node's editor to the painted list, %d nodes of which as many are accepted: %.1f ms\n",
        Nodes, reloadAfterSave(window));
    return 0;
}
