#include "console/ui/Verification.h"

#include <QApplication>
#include <QCursor>
#include <QEventLoop>
#include <QPointer>
#include <QThread>
#include <QWidget>
#include <exception>
#include <memory>

namespace tessaly::ui {

namespace {

/// Blocks a dialog and shows the wait cursor while it lives. A dialog that goes all the same ends the loop.
class Blocked : public QObject {
  public:
    Blocked(QWidget* dialog, QEventLoop& loop) : dialog_(dialog), focus_(dialog->focusWidget()), loop_(loop) {
        QGuiApplication::setOverrideCursor(Qt::WaitCursor);
        dialog->setEnabled(false);
        dialog->installEventFilter(this);  // a disabled window still has its close button
        connect(dialog, &QObject::destroyed, &loop_, &QEventLoop::quit);
    }
    ~Blocked() override {
        QGuiApplication::restoreOverrideCursor();
        if (!dialog_)
            return;
        dialog_->setEnabled(true);
        if (focus_)
            focus_->setFocus();
    }

    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Close) {
            event->ignore();
            return true;
        }
        if (event->type() == QEvent::Hide && !event->spontaneous())
            loop_.quit();
        return QObject::eventFilter(watched, event);
    }

  private:
    QPointer<QWidget> dialog_;
    QPointer<QWidget> focus_;
    QEventLoop& loop_;
};

}  // namespace

bool EchoVerify(QWidget* dialog, const QString& host, const QString& port, const QString& callingAeTitle,
                const QString& calledAeTitle, const dicom::Verifier::Limits& limits) {
    const dicom::VerificationRequest request{.host = host.toStdString(),
                                             .port = port.toStdString(),
                                             .callingAeTitle = callingAeTitle.toStdString(),
                                             .calledAeTitle = calledAeTitle.toStdString()};
    dicom::VerificationResult result;
    std::exception_ptr fault;
    std::stop_source stop;
    const std::unique_ptr<QThread> worker{QThread::create([&, token = stop.get_token()] {
        try {
            result = dicom::Verifier{limits}.verify(request, token);
        } catch (...) {
            fault = std::current_exception();
        }
    })};

    QEventLoop loop;  // comes back early when the console ends
    const Blocked blocked{dialog, loop};
    QObject::connect(worker.get(), &QThread::finished, &loop, &QEventLoop::quit);
    worker->start();
    loop.exec();
    stop.request_stop();
    worker->wait();

    if (fault)
        std::rethrow_exception(fault);
    return result.outcome == dicom::VerificationResult::Outcome::Success;
}

}  // namespace tessaly::ui
