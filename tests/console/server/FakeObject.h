#pragma once

#include <QCoreApplication>
#include <QDBusContext>
#include <QFile>
#include <QObject>
#include <QThread>
#include <QTimer>
#include <cstdlib>

namespace tessaly::test {

/// The object of a server that has no associations but what a test makes up. Appends every call to the file
/// "calls" of its folder, a line each with the process's number; behaves as the slots of the second half say.
class FakeObject : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.tessaly.test.Fake")
    Q_PROPERTY(bool IsService READ isService)

  public:
    explicit FakeObject(const QString& folder) : log_(folder + QStringLiteral("/calls")) {
        if (!log_.open(QIODevice::Append))
            std::abort();
        note("created");
    }

    [[nodiscard]] bool isService() {
        note("IsService");
        QThread::msleep(delay_);
        return service_;
    }

  public Q_SLOTS:
    void Start() { obey("Start", 0); }
    void Stop() { obey("Stop", 2); }
    void Restart() { obey("Restart", 0); }
    int GetStatus(int& openAssociations, int& portsBound) {
        ++looks_;
        if (swallows_ > 0) {
            --swallows_;
            setDelayedReply(true);  // which never comes
        }
        QThread::msleep(delay_);
        openAssociations = 3;
        portsBound = 1;
        return state_;
    }
    void RegisterService() {
        note("RegisterService");
        service_ = !refusesService_;
    }
    void UnregisterService() {
        note("UnregisterService");
        service_ = false;
    }
    void Terminate() {
        note("Terminate");
        if (crashes_)
            std::_Exit(1);
        if (!lastEnd_.isEmpty())
            End(lastEnd_.at(0), lastEnd_.at(1), lastEnd_.at(2));
        if (linger_ >= 0)
            QTimer::singleShot(linger_, QCoreApplication::instance(), &QCoreApplication::quit);
    }

    // What only tests call.
    /// Calls of GetStatus so far; the file has none of them.
    int Looks() { return looks_; }
    void SetState(int state) { state_ = state; }
    void SetService(bool service) { service_ = service; }
    /// So many calls of GetStatus get no answer.
    void SetSwallows(int calls) { swallows_ = calls; }
    /// Every answer takes so long, in milliseconds.
    void SetDelay(uint delay) { delay_ = delay; }
    /// From Terminate to the end; negative: never.
    void SetLinger(int linger) { linger_ = linger; }
    /// Terminate ends one association of these first.
    void SetEndsOnTerminate(const QString& port, const QString& calling, const QString& called) {
        lastEnd_ = {port, calling, called};
    }
    /// Start, Stop and Restart are answered by an error.
    void SetRefuses(bool refuses) { refuses_ = refuses; }
    void SetRefusesService(bool refuses) { refusesService_ = refuses; }
    /// Start, Stop, Restart and Terminate end the process without an answer.
    void SetCrashes(bool crashes) { crashes_ = crashes; }
    void Connect(const QString& port, const QString& calling, const QString& called, short total) {
        Q_EMIT OnConnection(port, calling, called, total);
    }
    void End(const QString& port, const QString& calling, const QString& called) {
        Q_EMIT OnEndConnection(port, calling, called, 0);
    }
    /// So many associations of so many different callers at once, the last event with that total.
    void Burst(int associations, int callers) {
        for (int i = 0; i < associations; ++i)
            Q_EMIT OnConnection(QStringLiteral("104"), caller(i % callers), QStringLiteral("TESSALY"),
                                static_cast<short>(i + 1));
    }
    /// The ends of the same, in the same order.
    void EndBurst(int associations, int callers) {
        for (int i = 0; i < associations; ++i)
            Q_EMIT OnEndConnection(QStringLiteral("104"), caller(i % callers), QStringLiteral("TESSALY"), 0);
    }
    void Begin() { Q_EMIT OnStart(); }
    void Suspend() { Q_EMIT OnStop(); }
    /// The last words of a process that ends at once.
    void EndAndExit(const QString& port, const QString& calling, const QString& called) {
        Q_EMIT OnEndConnection(port, calling, called, 0);
        QCoreApplication::quit();
    }

  Q_SIGNALS:
    void OnConnection(const QString& port, const QString& calling, const QString& called, short total);
    void OnEndConnection(const QString& port, const QString& calling, const QString& called, int total);
    void OnStart();
    void OnStop();

  private:
    static QString caller(int number) { return QStringLiteral("CALLER_%1").arg(number); }

    void note(const char* call) {
        log_.write(QByteArray{call} + ' ' + QByteArray::number(QCoreApplication::applicationPid()) + '\n');
        log_.flush();
    }
    void obey(const char* call, int state) {
        note(call);
        if (crashes_)
            std::_Exit(1);
        QThread::msleep(delay_);
        if (refuses_)
            sendErrorReply(QStringLiteral("org.tessaly.test.Refused"), QStringLiteral("The server refuses"));
        else
            state_ = state;
    }

    QFile log_;
    int state_ = 0;
    int looks_ = 0;
    int swallows_ = 0;
    bool service_ = false;
    bool refuses_ = false;
    bool refusesService_ = false;
    bool crashes_ = false;
    unsigned long delay_ = 0;
    int linger_ = 0;
    QStringList lastEnd_;
};

}  // namespace tessaly::test
