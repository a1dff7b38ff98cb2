// A plug-in of the toolkit that uses an installed console as its user would: logs in with TESSALY_PASSWORD,
// says on standard output what it meets, a line each, and closes the window once the file TESSALY_CLOSE is
// there.

#include <QAbstractButton>
#include <QApplication>
#include <QFile>
#include <QGenericPlugin>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QTextStream>
#include <QTimer>

using namespace Qt::StringLiterals;

class Visitor : public QGenericPlugin {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "visitor.json")

  public:
    QObject* create(const QString& /*key*/, const QString& /*specification*/) override {
        auto* timer = new QTimer(this);
        connect(timer, &QTimer::timeout, this, [this] { look(); });
        timer->start(Interval);
        return new QObject;
    }

  private:
    static constexpr int Interval = 20;  // milliseconds

    void look() {
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (!window->isVisible())
                continue;
            if (auto* box = qobject_cast<QMessageBox*>(window)) {
                say(u"box "_s + box->text());
                box->reject();
            } else if (window->objectName() == u"frmLogin"_s && !loggedIn_) {
                logIn(*window);
            } else if (window->objectName() == u"TessalyManager"_s) {
                watch(*window);
            }
        }
    }

    void logIn(QWidget& login) {
        loggedIn_ = true;
        login.findChild<QLineEdit*>(u"txtUserName"_s)->setText(u"admin"_s);
        login.findChild<QLineEdit*>(u"txtPassword"_s)->setText(qEnvironmentVariable("TESSALY_PASSWORD"));
        login.findChild<QAbstractButton*>(u"cmdOk"_s)->click();
    }

    void watch(QWidget& window) {
        const QString state = window.findChild<QLabel*>(u"stsBarText1"_s)->text();
        if (state != state_)
            say(u"state "_s + state);
        state_ = state;
        if (QFile::exists(qEnvironmentVariable("TESSALY_CLOSE")))
            window.close();
    }

    static void say(const QString& line) { QTextStream{stdout} << line << Qt::endl; }

    bool loggedIn_ = false;
    QString state_;
};

#include "Visitor.moc"
