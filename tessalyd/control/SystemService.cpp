#include "tessalyd/control/SystemService.h"

#include <fcntl.h>
#include <unistd.h>

#include <QDBusError>
#include <QDBusPendingCallWatcher>
#include <QStringList>
#include <system_error>

#include "base/FileDescriptor.h"
#include "tessalyd/Log.h"
#include "tessalyd/control/LoginManager.h"

using namespace Qt::StringLiterals;

namespace tessaly::tessalyd {

namespace {

/// Milliseconds that isEnabled() waits: a console waits two seconds for its answer.
constexpr int QuickTimeout = 800;
/// Milliseconds for one step of a registration, which goes on in the background.
constexpr int StepTimeout = 5000;

const QString Unit = u"tessalyd.service"_s;

QDBusMessage toManager(const QString& method, const QVariantList& arguments) {
    QDBusMessage message =
        QDBusMessage::createMethodCall(u"org.freedesktop.systemd1"_s, u"/org/freedesktop/systemd1"_s,
                                       u"org.freedesktop.systemd1.Manager"_s, method);
    message.setArguments(arguments);
    message.setAutoStartService(false);  // the bus has a file for the name that starts nothing
    return message;
}

bool isAnswer(const QDBusMessage& reply) {
    return reply.type() == QDBusMessage::ReplyMessage;
}

void warn(const char* what, const QDBusMessage& reply) {
    OFLOG_WARN(serverLog(), "systemd: " << what << ": " << qUtf8Printable(reply.errorMessage()));
}

void flush(const std::filesystem::path& path, int flags) {
    const base::FileDescriptor handle{::open(path.c_str(), flags | O_CLOEXEC, 0600)};
    if (!handle.isOpen() || ::fsync(handle.get()) < 0)
        throw std::system_error{errno, std::generic_category(), path};
}

/// Kept over a crash of the machine.
void makeMark(const std::filesystem::path& file) {
    std::filesystem::create_directories(file.parent_path());
    flush(file, O_WRONLY | O_CREAT);
    flush(file.parent_path(), O_RDONLY | O_DIRECTORY);
}

void removeMark(const std::filesystem::path& file) {
    std::error_code error;
    std::filesystem::remove(file, error);
}

}  // namespace

SystemService::SystemService(QDBusConnection bus, std::filesystem::path lingerMark)
    : bus_(std::move(bus)), lingerMark_(std::move(lingerMark)) {}

void SystemService::enable(Done done) {
    enqueue([this, done = std::move(done)] {
        // Without a systemd that knows the unit there is nothing to run without a session.
        ask(bus_, toManager(u"GetUnitFileState"_s, {Unit}), [this, done](const QDBusMessage& reply) {
            if (isAnswer(reply)) {
                startLinger(done);
            } else {
                warn("GetUnitFileState", reply);
                end(done);
            }
        });
    });
}

void SystemService::disable(Done done) {
    enqueue([this, done = std::move(done)] { disableUnit([this, done] { takeLingerBack(done); }); });
}

bool SystemService::isEnabled() const {
    // Both at once: the time-outs run side by side.
    QDBusPendingCall unit = bus_.asyncCall(toManager(u"GetUnitFileState"_s, {Unit}), QuickTimeout);
    QDBusPendingCall linger = LoginManager::bus().asyncCall(LoginManager::linger(), QuickTimeout);
    unit.waitForFinished();
    if (!isAnswer(unit.reply())) {
        warn("GetUnitFileState", unit.reply());
        return false;
    }
    if (unit.reply().arguments().value(0).toString() != u"enabled"_s)
        return false;
    linger.waitForFinished();
    return LoginManager::isOn(linger.reply());
}

void SystemService::enqueue(std::function<void()> operation) {
    operations_.push_back(std::move(operation));
    if (operations_.size() == 1)
        operations_.front()();
}

void SystemService::end(const Done& done) {
    done();
    operations_.pop_front();
    if (!operations_.empty())
        operations_.front()();
}

/// Calls `then` with the reply or an error, never before it has returned.
void SystemService::ask(const QDBusConnection& bus, const QDBusMessage& message, Then then) {
    const QDBusPendingCall call = bus.isConnected() ? bus.asyncCall(message, StepTimeout)
                                                    : QDBusPendingCall::fromError(bus.lastError());
    auto* watcher = new QDBusPendingCallWatcher{call, this};
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [watcher, then = std::move(then)] {
        watcher->deleteLater();
        then(watcher->reply());
    });
}

void SystemService::startLinger(const Done& done) {
    ask(LoginManager::bus(), LoginManager::linger(), [this, done](const QDBusMessage& reply) {
        if (LoginManager::isOn(reply)) {
            enableUnit(done);
            return;
        }
        try {
            makeMark(lingerMark_);
        } catch (const std::exception& error) {
            OFLOG_ERROR(serverLog(), "not registered as a service: " << error.what());
            end(done);
            return;
        }
        ask(LoginManager::bus(), LoginManager::setLinger(true), [this, done](const QDBusMessage& answer) {
            if (isAnswer(answer))
                enableUnit(done);
            else
                lingerRefused(answer, done);
        });
    });
}

void SystemService::lingerRefused(const QDBusMessage& reply, const Done& done) {
    OFLOG_ERROR(serverLog(), "not registered as a service: "
                                 << qUtf8Printable(reply.errorMessage())
                                 << ". What this user's programs lack is the right to run without a session. "
                                    "An administrator gives it: "
                                 << qUtf8Printable(LoginManager::remedy()));
    if (reply.errorName() != QDBusError::errorString(QDBusError::NoReply))  // it may still be done then
        removeMark(lingerMark_);
    disableUnit([this, done] { end(done); });  // an earlier registration may have enabled it
}

void SystemService::takeLingerBack(const Done& done) {
    std::error_code error;
    if (!std::filesystem::exists(lingerMark_, error)) {
        end(done);
        return;
    }
    ask(LoginManager::bus(), LoginManager::setLinger(false), [this, done](const QDBusMessage& reply) {
        if (isAnswer(reply))
            removeMark(lingerMark_);
        else
            OFLOG_ERROR(serverLog(), "this user's programs still run without a session: "
                                         << qUtf8Printable(reply.errorMessage()));
        end(done);
    });
}

void SystemService::enableUnit(const Done& done) {
    constexpr bool RuntimeOnly = false;
    constexpr bool Force = true;  // a link that an older installation left
    ask(bus_, toManager(u"EnableUnitFiles"_s, {QStringList{Unit}, RuntimeOnly, Force}),
        [this, done](const QDBusMessage& reply) {
            if (isAnswer(reply)) {
                // Takes long, and nothing here depends on it.
                bus_.send(toManager(u"Reload"_s, {}));
                end(done);
            } else {
                OFLOG_ERROR(serverLog(),
                            "not registered as a service: " << qUtf8Printable(reply.errorMessage()));
                takeLingerBack(done);
            }
        });
}

void SystemService::disableUnit(Done then) {
    constexpr bool RuntimeOnly = false;
    ask(bus_, toManager(u"DisableUnitFiles"_s, {QStringList{Unit}, RuntimeOnly}),
        [this, then = std::move(then)](const QDBusMessage& reply) {
            if (isAnswer(reply))
                bus_.send(toManager(u"Reload"_s, {}));
            else
                warn("DisableUnitFiles", reply);
            then();
        });
}

}  // namespace tessaly::tessalyd
