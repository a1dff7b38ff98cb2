#include "console/server/ServerBus.h"

#include <stdexcept>

#include "console/server/DBusNames.h"

namespace tessaly::server {

using namespace Qt::StringLiterals;

namespace {

QDBusMessage busCall(const QString& method, const QVariantList& arguments) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s, u"org.freedesktop.DBus"_s, method);
    message.setArguments(arguments);
    return message;
}

[[noreturn]] void fail(const QString& description) {
    throw std::runtime_error(description.toStdString());
}

QString nextConnectionName() {
    static int count = 0;
    return u"tessaly-server-%1"_s.arg(++count);
}

}  // namespace

ServerBus::ServerBus(int answerLimit)
    : name_(nextConnectionName()),
      connection_(QDBusConnection::connectToBus(QDBusConnection::SessionBus, name_)),
      answerLimit_(answerLimit) {}

ServerBus::~ServerBus() {
    QDBusConnection::disconnectFromBus(name_);
}

QString ServerBus::startServer() {
    checkAnswers();
    unanswered_.reset();
    if (!connection_.isConnected()) {
        // A connection of our own, unlike the process's shared one, can be made anew when the bus is back.
        QDBusConnection::disconnectFromBus(name_);
        connection_ = QDBusConnection::connectToBus(QDBusConnection::SessionBus, name_);
    }
    const QDBusMessage start = busCall(u"StartServiceByName"_s, {ServiceName, 0U});
    const QDBusMessage started = connection_.call(start, QDBus::Block, CallLimit);
    const QDBusError refusal{started};
    if (refusal.type() == QDBusError::NoReply)
        fail(refusal, start);
    // One that somebody else has started is a server, too, where the bus knows of none to start.
    QString process = owner();
    if (process.isEmpty())
        tessaly::server::fail(refusal.isValid() ? refusal.message()
                                                : u"The server ended while it was started"_s);
    if (process == renounced_)
        tessaly::server::fail(u"The server that was terminated has not ended yet"_s);
    return process;
}

QString ServerBus::owner() const {
    const QDBusMessage reply =
        connection_.call(busCall(u"GetNameOwner"_s, {ServiceName}), QDBus::Block, CallLimit);
    return reply.type() == QDBusMessage::ReplyMessage ? reply.arguments().value(0).toString() : QString{};
}

void ServerBus::checkAnswers() {
    if (!unanswered_)
        return;
    if (unanswered_->isFinished()) {
        // Every other error is an answer too: whoever asks next will hear of it.
        if (unanswered_->error().type() != QDBusError::NoReply)
            return;
        ask(question_);
    }
    tessaly::server::fail(u"The server does not answer"_s);
}

void ServerBus::ask(const QDBusMessage& question) {
    question_ = question;
    unanswered_ = connection_.asyncCall(question, answerLimit_);
}

void ServerBus::fail(const QDBusError& error, const QDBusMessage& question) {
    // The bus gives the same error for a process that vanished; the question is then answered at once.
    if (error.type() == QDBusError::NoReply)
        ask(question);
    tessaly::server::fail(error.message());
}

}  // namespace tessaly::server
