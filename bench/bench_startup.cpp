// How long the console takes to come up: from the start of its process to the login shown, and from the
// accepted login to the main window shown with 10,000 nodes, 1,000 ports and 1,000 users in the tables;
// beside it, in the same run, a process that shows one empty dialog (the toolkit's own share) and plain C on
// SQLite that reads the same rows, and the console with the same rows on PostgreSQL. Prints a table; judges
// nothing.

#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QApplication>
#include <QDialog>
#include <QEvent>
#include <QProcess>
#include <QTextStream>
#include <QTimer>
#include <chrono>
#include <cstdio>

#include "console/app/Startup.h"
#include "console/session/Globals.h"
#include "tests/support/Form.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using tessaly::test::Form;
using tessaly::test::ScratchDatabase;

namespace {

constexpr int Nodes = 10'000;
constexpr int Ports = 1'000;
constexpr int Users = 1'000;
constexpr int Rounds = 5;

/// Milliseconds of the clock that all processes share.
double now() {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void fill(const ScratchDatabase& database) {
    const auto many = [](const QString& insert, int count) {
        return u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<%1) "_s.arg(count) +
               insert;
    };
    database.run(u"BEGIN"_s);
    database.run(
        many(u"INSERT INTO DicomNodes SELECT 'NODE'||i, 'AE'||i, 'TESSALY', 'host'||i||'.example', '104',"
             " 1, 1, 0 FROM n"_s,
             Nodes));
    database.run(
        many(u"INSERT INTO Port SELECT 20000+i, 'AE'||i, 10, '/srv/images', 0, 0, 1 FROM n"_s, Ports));
    database.run(many(u"INSERT INTO PortRemoteNodes SELECT '11112', 'NODE'||i FROM n"_s, Nodes));
    database.run(many(
        u"INSERT INTO Users (UserName, Signature, Move) SELECT 'user'||i, 'Dr. '||i, 1 FROM n"_s, Users));
    database.run(u"COMMIT"_s);
}

/// Reports the moment at which a window of that name has been painted, then goes on with `then`.
class Watcher : public QObject {
  public:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Paint && watched->isWidgetType() && !watched->objectName().isEmpty())
            painted(static_cast<QWidget*>(watched));
        return QObject::eventFilter(watched, event);
    }

  private:
    void painted(QWidget* widget) {
        QWidget* window = widget->window();
        if (window == last_)
            return;
        if (window->objectName() == u"frmLogin"_s) {
            last_ = window;
            say("login", now());
            QTimer::singleShot(0, window, [window] {
                const Form login{*window};
                login.type(u"txtUserName"_s, ScratchDatabase::Administrator);
                login.type(u"txtPassword"_s, ScratchDatabase::Password);
                say("ok", now());
                login.click(u"cmdOk"_s);
            });
        } else if (window->objectName() == u"TessalyManager"_s) {
            last_ = window;
            say("main", now());
            QTimer::singleShot(0, window, &QWidget::close);
        }
    }
    static void say(const char* what, double when) {
        std::printf("%s %.3f\n", what, when);
        std::fflush(stdout);
    }
    QWidget* last_ = nullptr;
};

int runConsole(QApplication& application) {
    Watcher watcher;
    application.installEventFilter(&watcher);
    return tessaly::Main();
}

int runEmptyDialog() {
    QDialog dialog;
    QTimer::singleShot(0, &dialog, [&dialog] {
        std::printf("login %.3f\n", now());
        dialog.close();
    });
    return dialog.exec();
}

constexpr const char* AcceptedNodes =
    "SELECT PortRemoteNodes.Name,DicomNodes.AETitle FROM PortRemoteNodes, DicomNodes WHERE"
    " PortRemoteNodes.Port='11112' AND DicomNodes.Name = PortRemoteNodes.Name ORDER BY DicomNodes.Name";

/// The rows that the main window shows, read with SQLite's own library.
int runPlainRead(const char* path) {
    sqlite3* handle = nullptr;
    sqlite3_open_v2(path, &handle, SQLITE_OPEN_READONLY, nullptr);
    std::printf("ok %.3f\n", now());
    long long characters = 0;
    for (const char* sql : {"SELECT * FROM DicomNodes ORDER BY Name", "SELECT * FROM Port ORDER BY Port",
                            AcceptedNodes, "SELECT * FROM DicomServer",
                            "SELECT * FROM FtpNodes ORDER BY Name", "SELECT * FROM Users ORDER BY User",
                            "SELECT * FROM SiteData", "SELECT * FROM Printers ORDER BY Name"}) {
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(handle, sql, -1, &statement, nullptr);
        while (sqlite3_step(statement) == SQLITE_ROW) {
            for (int i = 0; i < sqlite3_column_count(statement); ++i) {
                (void)sqlite3_column_text(statement, i);
                characters += sqlite3_column_bytes(statement, i);
            }
        }
        sqlite3_finalize(statement);
    }
    std::printf("main %.3f\n", now());
    sqlite3_close(handle);
    return characters > 0 ? 0 : 1;
}

struct Times {
    double toLogin = 0;  ///< ms from the start of the process
    double toMain = 0;   ///< ms from OK pressed
    double peak = 0;     ///< MB
};

/// The best of some runs of this program in the role given; its times are those the child reports.
Times measure(const QStringList& role) {
    Times best{1e9, 1e9, 0};
    for (int round = 0; round < Rounds; ++round) {
        QProcess child;
        const double start = now();
        child.start(QCoreApplication::applicationFilePath(), role);
        child.waitForFinished(-1);
        double ok = 0;
        for (const QByteArray& line : child.readAllStandardOutput().split('\n')) {
            const double when = line.mid(line.indexOf(' ') + 1).toDouble();
            if (line.startsWith("login"))
                best.toLogin = std::min(best.toLogin, when - start);
            else if (line.startsWith("ok"))
                ok = when;
            else if (line.startsWith("main"))
                best.toMain = std::min(best.toMain, when - ok);
            else if (line.startsWith("peak"))
                best.peak = std::max(best.peak, when);
        }
    }
    return best;
}

int child(const QString& role, QApplication& application) {
    int status = 1;
    if (role == u"console"_s)
        status = runConsole(application);
    else if (role == u"dialog"_s)
        status = runEmptyDialog();
    else if (role == u"plain"_s)
        status = runPlainRead(QCoreApplication::arguments().at(2).toUtf8().constData());
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("peak %.1f\n", static_cast<double>(usage.ru_maxrss) / 1024);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    QApplication application{argc, argv};
    if (argc > 1)
        return child(QString::fromLocal8Bit(argv[1]), application);

    const ScratchDatabase small;
    const Times smallConsole = measure({u"console"_s});
    const ScratchDatabase large;
    fill(large);
    const Times console = measure({u"console"_s});
    const Times dialog = measure({u"dialog"_s});
    const Times plain = measure({u"plain"_s, large.path()});
    qputenv("TESSALY_TEST_ENGINE", "postgresql");
    const ScratchDatabase server;
    fill(server);
    const Times onServer = measure({u"console"_s});
    QTextStream out{stdout};
    out << u"start to login shown        %1 ms, an empty dialog %2 ms, ratio %3\n"_s
               .arg(console.toLogin, 0, 'f', 1)
               .arg(dialog.toLogin, 0, 'f', 1)
               .arg(console.toLogin / dialog.toLogin, 0, 'f', 2);
    out << u"OK to main window, %1 nodes, %2 ports, %3 users  %4 ms\n"_s.arg(Nodes).arg(Ports).arg(Users).arg(
        console.toMain, 0, 'f', 1);
    out << u"  the same with almost empty tables  %1 ms (the password's encoding and the window itself)\n"_s
               .arg(smallConsole.toMain, 0, 'f', 1);
    out << u"  the same rows in plain C  %1 ms, ratio of the difference %2\n"_s.arg(plain.toMain, 0, 'f', 1)
               .arg((console.toMain - smallConsole.toMain) / plain.toMain, 0, 'f', 1);
    out << u"  the same rows from PostgreSQL  %1 ms, ratio %2, peak memory %3 MB\n"_s
               .arg(onServer.toMain, 0, 'f', 1)
               .arg(onServer.toMain / console.toMain, 0, 'f', 2)
               .arg(onServer.peak, 0, 'f', 1);
    out << u"peak memory  %1 MB, with almost empty tables %2 MB, an empty dialog %3 MB\n"_s
               .arg(console.peak, 0, 'f', 1)
               .arg(smallConsole.peak, 0, 'f', 1)
               .arg(dialog.peak, 0, 'f', 1);
    return 0;
}
