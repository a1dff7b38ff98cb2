// The whole console in a process of its own, so that its exit status can be seen. Answers every message box
// with its default button, logs in once with the two arguments, and closes the main window when it comes up;
// says on standard output what it met, one line each.

#include <QAbstractButton>
#include <QApplication>
#include <QEvent>
#include <QMessageBox>
#include <QPushButton>
#include <QTextStream>
#include <QTimer>

#include "console/app/Startup.h"
#include "console/session/Globals.h"
#include "tests/support/Form.h"

namespace {

using namespace Qt::StringLiterals;
using tessaly::test::Form;

class Administrator : public QObject {
  public:
    Administrator(QString user, QString password) : user_(std::move(user)), password_(std::move(password)) {
        qApp->installEventFilter(this);
    }

    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Show && watched->isWidgetType() &&
            static_cast<QWidget*>(watched)->isWindow())
            QTimer::singleShot(0, watched,
                               [this, window = static_cast<QWidget*>(watched)] { meet(*window); });
        return QObject::eventFilter(watched, event);
    }

  private:
    void meet(QWidget& window) {
        if (auto* box = qobject_cast<QMessageBox*>(&window)) {
            say(u"box %1 \"%2\" %3"_s.arg(box->icon()).arg(box->windowTitle(), box->text()));
            box->defaultButton()->click();
        } else if (window.objectName() == u"frmLogin"_s) {
            logIn(Form{window});
        } else if (window.objectName() == u"TessalyManager"_s) {
            say(u"main window"_s);
            window.close();
        }
    }

    void logIn(const Form& login) {
        say(u"login"_s);
        login.type(u"txtUserName"_s, user_);
        login.type(u"txtPassword"_s, password_);
        login.click(user_.isEmpty() ? u"cmdCancel"_s : u"cmdOk"_s);
        if (login.window().isVisible())
            login.click(u"cmdCancel"_s);
    }

    static void say(const QString& line) { QTextStream{stdout} << line << Qt::endl; }

    QString user_;
    QString password_;
};

}  // namespace

int main(int argc, char* argv[]) {
    const QApplication application{argc, argv};
    const Administrator administrator{QString::fromUtf8(argc > 1 ? argv[1] : ""),
                                      QString::fromUtf8(argc > 2 ? argv[2] : "")};
    tessaly::Globals::setConfigChanged(true);  // no matter: the start-up clears it
    return tessaly::Main();
}
