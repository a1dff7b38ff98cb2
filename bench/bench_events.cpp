// How long it takes from a client's connection to the association's row in the console's list, and from its
// end to the row's going, with the real server and the real window. Prints a table; judges nothing.

#include <QAbstractItemModel>
#include <QApplication>
#include <QEventLoop>
#include <QTabWidget>
#include <QTreeView>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>
#include <vector>

#include "console/app/TessalyManager.h"
#include "tests/support/Form.h"
#include "tests/support/ScratchBus.h"
#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/RequestorAssociation.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

using Clock = std::chrono::steady_clock;
constexpr int Associations = 1'000;

double milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

void print(const char* what, std::vector<double> times) {
    std::sort(times.begin(), times.end());
    const auto at = [&times](double part) {
        return times[static_cast<std::size_t>(part * static_cast<double>(times.size() - 1))];
    };
    std::printf("%-46s %8.2f ms %8.2f ms %8.2f ms\n", what, at(0.5), at(0.99), times.back());
}

}  // namespace

int main(int argc, char** argv) {
    qputenv("TCP_NODELAY", "1");  // the client's: the server is to be measured
    const ScratchBus bus;
    const QApplication application{argc, argv};
    Daemon daemon;
    daemon.launch();
    daemon.database.openConsoleConnection();
    TessalyManager window;
    window.load();
    window.show();
    const Form form{window};
    form.find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(3);
    const QAbstractItemModel& list = *form.find<QTreeView>(u"lstStatus"_s).model();

    // A loop of its own: it sleeps until there is something to hear, as the program's does.
    QEventLoop loop;
    Clock::time_point changed;
    const auto note = [&] {
        changed = Clock::now();
        loop.quit();
    };
    QObject::connect(&list, &QAbstractItemModel::rowsInserted, &window, note);
    QObject::connect(&list, &QAbstractItemModel::rowsRemoved, &window, note);
    const auto timeOfRows = [&](int rows) {
        while (list.rowCount() != rows)
            loop.exec();
        return changed;
    };

    std::vector<double> appearing;
    std::vector<double> going;
    for (int i = 0; i < Associations; ++i) {
        // A client beside the window, which must be free to hear of it.
        std::promise<void> release;
        Clock::time_point connecting;
        Clock::time_point releasing;
        const auto client = std::async(std::launch::async, [&] {
            connecting = Clock::now();
            RequestorAssociation association{daemon.port()};
            release.get_future().wait();
            releasing = Clock::now();
            association.release();
        });
        const auto shown = timeOfRows(1);
        release.set_value();
        const auto gone = timeOfRows(0);
        client.wait();
        appearing.push_back(milliseconds(shown - connecting));
        going.push_back(milliseconds(gone - releasing));
    }
    std::printf("%d associations, one after the other              median     99 of 100      longest\n",
                Associations);
    print("from the client's connecting to the row", appearing);
    print("from the client's release to the row's end", going);
    return 0;
}
