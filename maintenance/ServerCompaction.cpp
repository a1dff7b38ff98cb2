#include "maintenance/ServerCompaction.h"

#include <sys/prctl.h>

#include <QCoreApplication>
#include <QProcess>
#include <QStandardPaths>
#include <csignal>
#include <stdexcept>

namespace tessaly::maintenance {

using namespace Qt::StringLiterals;

namespace {

constexpr int Tick = 10;  // ms between two questions whether to go on

/// Beside this program, as it is installed, or in the build's folder of programs; otherwise wherever the
/// system finds programs.
QString tool() {
    const QString name = u"tessaly-db"_s;
    const QString own = QCoreApplication::applicationDirPath();
    const QString beside = QStandardPaths::findExecutable(name, {own, own + u"/../bin"_s});
    return beside.isEmpty() ? name : beside;
}

/// What the program says of its failure, without its name.
QString description(QProcess& process) {
    if (process.error() == QProcess::FailedToStart)
        return tool() + u": "_s + process.errorString();
    QString text = QString::fromUtf8(process.readAllStandardError()).trimmed();
    if (process.exitStatus() != QProcess::NormalExit)
        text = process.program() + u": "_s + process.errorString();
    const QString name = u"tessaly-db: "_s;
    return text.startsWith(name) ? text.mid(name.size()) : text;
}

}  // namespace

void ServerCompaction::run(const db::Connection& /*connection*/, Progress& progress) {
    QProcess process;
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
    process.start(tool(), {u"compact"_s});
    bool stopped = false;
    while (!process.waitForFinished(Tick) && process.state() != QProcess::NotRunning && !stopped) {
        progress.breathe();
        stopped = progress.isStopRequested();
        if (stopped)
            process.kill();
    }
    process.waitForFinished(-1);
    if (!stopped && (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0 ||
                     process.error() == QProcess::FailedToStart))
        throw std::runtime_error(description(process).toStdString());
}

}  // namespace tessaly::maintenance
