#include "tests/console/server/FakeServer.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFile>
#include <QSet>
#include <csignal>
#include <stdexcept>

#include "console/server/DBusNames.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

namespace {

const QString Name = server::ServiceName;

}  // namespace

FakeServer::FakeServer() {
    offer();
}

FakeServer::~FakeServer() {
    endAll();
}

void FakeServer::offer(const QString& command) {
    bus_.offer(Name, command);
}

void FakeServer::offer() {
    offer(QStringLiteral(FAKE_SERVER " ") + folder_.path());
}

void FakeServer::offerSilent() {
    offer(QStringLiteral(FAKE_SERVER " ") + folder_.path() + u" silent"_s);
}

void FakeServer::offerFailing() {
    offer(u"/bin/false"_s);
}

void FakeServer::withdraw() {
    bus_.withdraw(Name);
}

QVariant FakeServer::tell(const QString& method, const QVariantList& arguments) const {
    QDBusMessage call = QDBusMessage::createMethodCall(Name, server::ObjectPath + u"/script"_s, {}, method);
    call.setAutoStartService(false);
    call.setArguments(arguments);
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call);
    if (reply.type() != QDBusMessage::ReplyMessage)
        throw std::runtime_error(qPrintable(method + u": "_s + reply.errorMessage()));
    return reply.arguments().value(0);
}

bool FakeServer::runs() const {
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(Name);
}

int FakeServer::process() const {
    const QDBusReply<uint> process = QDBusConnection::sessionBus().interface()->servicePid(Name);
    if (!process.isValid())
        throw std::runtime_error("no server runs");
    return static_cast<int>(process.value());
}

void FakeServer::hang() const {
    ::kill(process(), SIGSTOP);
}

bool FakeServer::isHung(int process) const {
    QFile status{u"/proc/%1/stat"_s.arg(process)};
    return status.open(QIODevice::ReadOnly) && status.readAll().contains(") T ");
}

void FakeServer::resume(int process) const {
    ::kill(process, SIGCONT);
}

void FakeServer::kill(int process) const {
    ::kill(process, SIGKILL);
}

QList<std::pair<QString, int>> FakeServer::log() const {
    QFile file{logPath()};
    QList<std::pair<QString, int>> found;
    if (file.open(QIODevice::ReadOnly)) {
        for (const QString& line : QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts))
            found.emplaceBack(line.section(u' ', 0, 0), line.section(u' ', 1).toInt());
    }
    return found;
}

QStringList FakeServer::calls() const {
    QStringList found;
    for (const auto& [call, process] : log())
        found << call;
    return found;
}

void FakeServer::endAll() const {
    QSet<int> processes;
    for (const auto& [call, process] : log())
        processes << process;
    for (const int process : processes) {
        // Not whoever has the number of one that ended long ago.
        if (QFile::symLinkTarget(u"/proc/%1/exe"_s.arg(process)) == QStringLiteral(FAKE_SERVER))
            kill(process);
    }
    QFile::resize(logPath(), 0);
}

}  // namespace tessaly::test
