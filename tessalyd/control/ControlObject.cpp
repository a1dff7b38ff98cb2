#include "tessalyd/control/ControlObject.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QTimer>
#include <algorithm>
#include <exception>
#include <limits>

#include "serveradaptor.h"
#include "tessalyd/Printable.h"

using namespace Qt::StringLiterals;

namespace tessaly::tessalyd {

namespace {

/// A command that takes longer is answered before its end: consoles wait two seconds.
constexpr std::chrono::milliseconds ReplyPatience{1000};

enum State { Listening = 0, Stopped = 2 };

/// What a peer sent, in a form that every bus takes and every window can show.
QString shown(const std::string& title) {
    return QString::fromStdString(printable(title));
}

}  // namespace

/// The answer to one method call, given once: when its command has ended or when it takes too long. Belongs
/// to the object's thread.
class ControlObject::PendingReply {
  public:
    PendingReply(QDBusConnection bus, const QDBusMessage& call) : bus_(std::move(bus)), call_(call) {}

    void answer(const QString& fault = {}) {
        if (answered_)
            return;
        answered_ = true;
        bus_.send(fault.isEmpty() ? call_.createReply()
                                  : call_.createErrorReply(u"org.tessaly.Server1.Error"_s, fault));
    }

  private:
    QDBusConnection bus_;
    QDBusMessage call_;
    bool answered_ = false;
};

ControlObject::ControlObject(QDBusConnection bus, Options options)
    : options_(std::move(options)), service_(std::move(bus), options_.lingerMark) {
    new Server1Adaptor{this};
    retryTimer_.setSingleShot(true);
    connect(&retryTimer_, &QTimer::timeout, this,
            [this] { commands_->add([this, wish = wish_.get_token()] { retry(wish); }); });
}

ControlObject::~ControlObject() {
    close();
}

void ControlObject::run() {
    log_.emplace(options_.logFile, options_.logBytes);
    server_ = std::make_unique<Server>(emitter(&ControlObject::emitConnection),
                                       emitter(&ControlObject::emitEndConnection), options_.decoding,
                                       options_.addresses, options_.jobs, options_.peerTimeout);
    commands_.emplace();
    perform([this, wish = wish()] { start(wish); });
    // Calls that came with the activation are answered when the ports are bound, unless that takes long.
    commands_->waitUntilIdle(ReplyPatience);
}

void ControlObject::close() {
    retryTimer_.stop();
    wish_.request_stop();
    commands_.reset();
    server_.reset();
    log_.reset();
}

void ControlObject::Start() {
    perform([this, wish = wish()] { start(wish); });
}

void ControlObject::Stop() {
    wish_.request_stop();
    perform([this] {
        stop();
        if (std::exchange(failing_, false))
            OFLOG_ERROR(serverLog(), "suspended: not trying to listen any more");
    });
}

void ControlObject::Restart() {
    perform([this, wish = wish()] {
        stop();
        start(wish);
    });
}

int ControlObject::GetStatus(int& openAssociations, int& portsBound) {
    const Server::Status status = server_->status();
    openAssociations = status.openAssociations;
    portsBound = status.portsBound;
    return status.listening ? Listening : Stopped;
}

void ControlObject::RegisterService() {
    service_.enable(answering());
}

void ControlObject::UnregisterService() {
    service_.disable(answering());
}

void ControlObject::Terminate() {
    if (std::exchange(terminating_, true))
        return;
    wish_.request_stop();
    // Posted, so that the reply to this call goes out before anything ends.
    mailbox_.post([this] {
        commands_->add([this] {
            stop();
            server_->shutDown();
            mailbox_.post([this] { emit finished(); });
        });
    });
}

/// The answer to the call that is being made, which is given after a while at the latest; null without a
/// call.
std::shared_ptr<ControlObject::PendingReply> ControlObject::replyLater() {
    if (!calledFromDBus())
        return nullptr;
    setDelayedReply(true);
    auto reply = std::make_shared<PendingReply>(connection(), message());
    QTimer::singleShot(ReplyPatience, this, [reply] { reply->answer(); });
    return reply;
}

SystemService::Done ControlObject::answering() {
    return [reply = replyLater()] {
        if (reply)
            reply->answer();
    };
}

void ControlObject::perform(std::function<void()> command) {
    if (terminating_)
        return;
    commands_->add([this, reply = replyLater(), command = std::move(command)] {
        QString fault;
        try {
            command();
        } catch (const std::exception& error) {
            fault = QString::fromUtf8(error.what());
        }
        if (reply)
            mailbox_.post([reply, fault] { reply->answer(fault); });
    });
}

/// The wish that it listens, which a command is given; a new one when the former has ended.
std::stop_token ControlObject::wish() {
    if (wish_.stop_requested() && !terminating_)
        wish_ = std::stop_source{};
    return wish_.get_token();
}

/// In the commands' thread, like stop() and retry().
void ControlObject::start(const std::stop_token& wish) {
    if (server_->status().listening)
        return;
    try {
        server_->start(wish);
    } catch (const ReadingStopped&) {
        throw;
    } catch (const std::exception& error) {
        OFLOG_ERROR(serverLog(), "not listening: " << error.what() << "; trying again every "
                                                   << options_.retryInterval.count() << " s");
        failing_ = true;
        retryLater();
        throw;
    }
    listens();
}

void ControlObject::retry(const std::stop_token& wish) {
    if (wish.stop_requested())
        return;
    if (server_->status().listening) {
        server_->bindMissing();
        if (server_->hasMissing())
            retryLater();
        return;
    }
    try {
        server_->start(wish);
    } catch (const std::exception&) {  // the log has a line already
        retryLater();
        return;
    }
    listens();
}

void ControlObject::retryLater() {
    mailbox_.post([this] { retryTimer_.start(options_.retryInterval); });
}

void ControlObject::listens() {
    if (std::exchange(failing_, false))
        OFLOG_ERROR(serverLog(), "listening: what was missing is there");
    mailbox_.post([this] { emit OnStart(); });
    if (server_->hasMissing())
        retryLater();
}

void ControlObject::stop() {
    if (!server_->status().listening)
        return;
    server_->stop();
    // Here, and not when the other thread comes to it: a restart may have let others in by then.
    mailbox_.post([this, last = server_->latestConnection()] {
        emit OnStop();
        abortAfterGrace(last);
    });
}

void ControlObject::abortAfterGrace(std::uint64_t last) {
    QTimer::singleShot(options_.grace, this, [this, last] { server_->abortThrough(last); });
}

OpenAssociations::Event ControlObject::emitter(void (ControlObject::*emitEvent)(const AssociationNames&,
                                                                                int)) {
    return [this, emitEvent](const AssociationNames& names, int total) {
        mailbox_.post([this, emitEvent, names, total] { (this->*emitEvent)(names, total); });
    };
}

void ControlObject::emitConnection(const AssociationNames& names, int total) {
    emit OnConnection(QString::fromUtf8(names.port.c_str()), shown(names.callingAeTitle),
                      shown(names.calledAeTitle),
                      static_cast<short>(std::min(total, int{std::numeric_limits<short>::max()})));
}

void ControlObject::emitEndConnection(const AssociationNames& names, int total) {
    emit OnEndConnection(QString::fromUtf8(names.port.c_str()), shown(names.callingAeTitle),
                         shown(names.calledAeTitle), total);
}

}  // namespace tessaly::tessalyd
