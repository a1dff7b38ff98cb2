#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QStringList>
#include <functional>
#include <memory>
#include <vector>

#include "tessalydproxy.h"
#include "tests/support/Eventually.h"
#include "tests/support/ScratchDatabase.h"
#include "tests/support/UnusedPort.h"

namespace tessaly::test {

/// What a program of another product said.
struct Outcome {
    int exitCode = -1;
    QString output;  ///< both streams
};
/// Runs a program to its end.
[[nodiscard]] Outcome run(const QString& program, const QStringList& arguments);

/// A row of the table Port.
struct PortRow {
    QString port = unusedPort();
    QString aeTitle = QStringLiteral("TESSALY");
    int maxConnections = 60;
    bool checkCalling = false;
    bool checkCalled = false;
    bool saveCompressed = true;
    QString root;  ///< empty: the scratch database's image folder
};

/// The server as its users have it: the program, on a database of its own and on the session bus of the test.
class Daemon {
  public:
    struct Event {
        QString port;
        QString calling;
        QString called;
        int total = 0;
        bool operator==(const Event&) const = default;
    };

    /// Writes the rows; nothing runs yet.
    explicit Daemon(const QList<PortRow>& ports = {PortRow{}});
    /// Ends the process, whatever state it is in. Unless it was killed, the test fails when the process has
    /// not ended by itself with exit code 0: a sanitizer's report is seen there.
    ~Daemon();

    /// Starts the program and waits until it listens or says that it does not.
    void launch(const QStringList& arguments = {});
    /// kill -9.
    void kill();
    /// Calls a method without arguments and waits for its reply.
    [[nodiscard]] bool succeeds(QDBusPendingReply<> (OrgTessalyServer1Interface::*method)());
    /// Terminate over the bus; true when it then ends by itself with exit code 0.
    [[nodiscard]] bool terminate();

    struct Status {
        int state = -1;
        int open = -1;
        int ports = -1;
        bool operator==(const Status&) const = default;
    };
    [[nodiscard]] Status status();
    [[nodiscard]] bool isBusy() { return status().open != 0; }

    [[nodiscard]] QString port(int index = 0) const { return ports_.at(index).port; }
    [[nodiscard]] QString address() const { return QStringLiteral("localhost"); }
    [[nodiscard]] QString log() const;
    /// Where the server keeps what it has to remember.
    [[nodiscard]] QString stateFolder() const { return database.folder() + QStringLiteral("/state"); }
    [[nodiscard]] QString logFile() const { return database.folder() + QStringLiteral("/tessalyd.log"); }

    /// Rows of Image with the native path of each one's file.
    struct Image {
        QString instance;
        QString file;
    };
    [[nodiscard]] QList<Image> images() const;
    /// All files below the image folder.
    [[nodiscard]] QStringList files() const;
    /// All files and folders below the image folder.
    [[nodiscard]] QStringList entries() const;
    /// Rows in the four tables of the archive together.
    [[nodiscard]] int archiveRows() const;

    ScratchDatabase database;
    QProcess process;
    OrgTessalyServer1Interface proxy;
    QList<Event> connections;
    QList<Event> ends;
    int starts = 0;
    int stops = 0;

  private:
    [[nodiscard]] bool endedWell() const;

    QList<PortRow> ports_;
    bool killed_ = false;
};

}  // namespace tessaly::test
