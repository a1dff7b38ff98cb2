#include "console/server/DBusServer.h"

#include <QCoreApplication>
#include <QDBusVariant>
#include <QDeadlineTimer>
#include <QThread>
#include <stdexcept>

#include "console/server/DBusNames.h"
#include "console/server/ServerBus.h"

namespace tessaly::server {

using namespace Qt::StringLiterals;

namespace {

constexpr int EndLimit = 2000;  // ms that a process may take to end after it said that it would
constexpr unsigned long EndPoll = 10;

}  // namespace

DBusServer::DBusServer(std::shared_ptr<ServerBus> bus)
    : bus_(std::move(bus)), proxy_(bus_->startServer(), ObjectPath, bus_->connection(), nullptr) {
    proxy_.setTimeout(ServerBus::CallLimit);
    connect(&proxy_, &ServerProxy::OnConnection, this, &Server::OnConnection);
    connect(&proxy_, &ServerProxy::OnEndConnection, this, &Server::OnEndConnection);
    connect(&proxy_, &ServerProxy::OnStart, this, &Server::OnStart);
    connect(&proxy_, &ServerProxy::OnStop, this, &Server::OnStop);
}

DBusServer::~DBusServer() {
    // Events that have arrived are still this server's: without the last ones of a server that ends, its
    // associations would stay listed for ever.
    QCoreApplication::sendPostedEvents(&proxy_, QEvent::MetaCall);
}

template <class Ask>
auto DBusServer::call(Ask ask) {
    bus_->checkAnswers();
    auto reply = ask();
    reply.waitForFinished();
    if (reply.isError())
        bus_->fail(reply.error(), QDBusMessage::createMethodCall(proxy_.service(), proxy_.path(),
                                                                 proxy_.interface(), u"GetStatus"_s));
    return reply;
}

void DBusServer::Start() {
    call([this] { return proxy_.Start(); });
}

void DBusServer::Stop() {
    call([this] { return proxy_.Stop(); });
}

void DBusServer::Restart() {
    call([this] { return proxy_.Restart(); });
}

Server::Status DBusServer::GetStatus() {
    const auto reply = call([this] { return proxy_.GetStatus(); });
    return {.state = reply.template argumentAt<0>(),
            .openAssociations = reply.template argumentAt<1>(),
            .portsBound = reply.template argumentAt<2>()};
}

void DBusServer::RegisterService() {
    call([this] { return proxy_.RegisterService(); });
}

void DBusServer::UnregisterService() {
    call([this] { return proxy_.UnregisterService(); });
}

bool DBusServer::IsService() {
    // The proxy's own accessor says nothing of a failure.
    const auto reply = call([this]() -> QDBusPendingReply<QDBusVariant> {
        QDBusMessage get = QDBusMessage::createMethodCall(proxy_.service(), proxy_.path(),
                                                          u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
        get << proxy_.interface() << u"IsService"_s;
        return bus_->connection().asyncCall(get, ServerBus::CallLimit);
    });
    return reply.value().variant().toBool();
}

void DBusServer::Terminate() {
    const QString process = proxy_.service();
    try {
        call([this] { return proxy_.Terminate(); });
    } catch (const std::runtime_error&) {
        if (bus_->owner() == process)
            throw;
        return;  // ended before it could answer
    }
    bus_->renounce(process);
    for (const QDeadlineTimer end{EndLimit}; bus_->owner() == process; QThread::msleep(EndPoll)) {
        if (end.hasExpired())
            throw std::runtime_error("The server does not end");
    }
}

ServerFactory dbusServerFactory() {
    return [bus = std::shared_ptr<ServerBus>{}]() mutable {
        if (!bus)
            bus = std::make_shared<ServerBus>();
        return std::make_unique<DBusServer>(bus);
    };
}

}  // namespace tessaly::server
