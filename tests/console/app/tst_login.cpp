#include <QLineEdit>
#include <QSignalSpy>
#include <QTest>

#include "console/app/frmLogin.h"
#include "console/session/Globals.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

Box refusal() {
    return {.text = u"Password o utente non validi. Riprovare."_s, .title = u"Accesso"_s};
}

}  // namespace

class LoginTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        database_ = std::make_unique<ScratchDatabase>();
        database_->openConsoleConnection();
    }
    void cleanup() { database_.reset(); }

    void looksAsItShould();
    void theAdministratorIsLetIn();
    void othersAreRefused_data();
    void othersAreRefused();
    void aNullPasswordLetsAnyPasswordIn();
    void anEmptyStoredPasswordMatchesAnEmptyOne();
    void ofTwoUsersOfOneNameTheFirstCounts();
    void afterAFailureThePasswordIsSelected();
    void cancelAndTheWindowFrameRefuse();
    void aDatabaseFailureEndsTheConsole();

  private:
    /// Shows the login, types, presses OK; a refused login is then cancelled.
    static bool logIn(const QString& user, const QString& password) {
        frmLogin login;
        BoxScript script;
        script.drive(u"frmLogin"_s, [&](Form form) {
            form.type(u"txtUserName"_s, user);
            form.type(u"txtPassword"_s, password);
            form.click(u"cmdOk"_s);
            if (form.window().isVisible())
                form.click(u"cmdCancel"_s);
        });
        login.exec();
        return login.LoginSucceeded();
    }

    std::unique_ptr<ScratchDatabase> database_;
};

void LoginTest::looksAsItShould() {
    frmLogin login;
    const Form form{login};
    QCOMPARE(login.windowTitle(), u"Dicom Config login"_s);
    QCOMPARE(form.text(u"lblLabels0"_s), u"&Login"_s);
    QCOMPARE(form.text(u"lblLabels1"_s), u"&Password:"_s);
    QCOMPARE(form.text(u"cmdOk"_s), u"OK"_s);
    QCOMPARE(form.text(u"cmdCancel"_s), u"Cancel"_s);
    QVERIFY(!login.LoginSucceeded());
    form.type(u"txtPassword"_s, u"abc"_s);
    QCOMPARE(form.find<QLineEdit>(u"txtPassword"_s).displayText(), u"***"_s);
}

void LoginTest::theAdministratorIsLetIn() {
    QVERIFY(logIn(ScratchDatabase::Administrator, ScratchDatabase::Password));
    // The database compares names without case, and the console leaves that to it.
    QVERIFY(logIn(ScratchDatabase::Administrator.toUpper(), ScratchDatabase::Password));
}

void LoginTest::othersAreRefused_data() {
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::newRow("wrong password") << u"admin"_s << u"wrong"_s;
    QTest::newRow("password in another case") << u"admin"_s << u"Secret"_s;
    QTest::newRow("password with a blank") << u"admin"_s << u"secret "_s;
    QTest::newRow("no password") << u"admin"_s << u""_s;
    QTest::newRow("unknown user") << u"nobody"_s << u"secret"_s;
    QTest::newRow("user with a blank") << u" admin"_s << u"secret"_s;
    QTest::newRow("no user") << u""_s << u""_s;
    QTest::newRow("apostrophe") << u"' OR ''='"_s << u"secret"_s;
    QTest::newRow("no administrator") << u"clerk"_s << u"secret"_s;
    QTest::newRow("the stored form typed") << u"admin"_s << Globals::EncodePassword(u"secret"_s);
}

void LoginTest::othersAreRefused() {
    QFETCH(QString, user);
    QFETCH(QString, password);
    database_->run(u"INSERT INTO Users (UserName, UserPwd, DcmAdmin) VALUES ('clerk', ?, 0)"_s,
                   {Globals::EncodePassword(u"secret"_s)});
    frmLogin login;
    BoxScript script;
    script.drive(u"frmLogin"_s, [&](Form form) {
        form.type(u"txtUserName"_s, user);
        form.type(u"txtPassword"_s, password);
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        form.click(u"cmdCancel"_s);
    });
    script.expect(refusal());
    login.exec();
    QVERIFY(script.isDone());
    QVERIFY(!login.LoginSucceeded());
}

void LoginTest::aNullPasswordLetsAnyPasswordIn() {
    database_->run(u"UPDATE Users SET UserPwd=NULL"_s);
    QVERIFY(logIn(u"admin"_s, u"whatever"_s));
    QVERIFY(logIn(u"admin"_s, u""_s));
}

void LoginTest::anEmptyStoredPasswordMatchesAnEmptyOne() {
    database_->run(u"UPDATE Users SET UserPwd=''"_s);
    QVERIFY(logIn(u"admin"_s, u""_s));
}

void LoginTest::ofTwoUsersOfOneNameTheFirstCounts() {
    // Only a database without the table's key holds them.
    database_->run(u"DROP TABLE Users"_s);
    database_->define(u"CREATE TABLE Users (UserName VARCHAR(16), UserPwd VARCHAR(16), DcmAdmin BIT)"_s);
    for (const QString& password : {u"first"_s, u"second"_s})
        database_->run(u"INSERT INTO Users VALUES ('twin', ?, 1)"_s, {Globals::EncodePassword(password)});
    frmLogin login;
    BoxScript script;
    script.drive(u"frmLogin"_s, [](Form form) {
        form.type(u"txtUserName"_s, u"twin"_s);
        for (const QString& password : {u"second"_s, u"first"_s}) {
            form.type(u"txtPassword"_s, password);
            form.click(u"cmdOk"_s);
        }
    });
    script.expect(refusal());
    login.exec();
    QVERIFY(script.isDone());
    QVERIFY(login.LoginSucceeded());
}

void LoginTest::afterAFailureThePasswordIsSelected() {
    frmLogin login;
    BoxScript script;
    script.drive(u"frmLogin"_s, [](Form form) {
        form.type(u"txtUserName"_s, u"admin"_s);
        form.type(u"txtPassword"_s, u"wrong"_s);
        QTest::keyClick(&form.find(u"txtPassword"_s), Qt::Key_Return);  // the default button
        auto& password = form.find<QLineEdit>(u"txtPassword"_s);
        QCOMPARE(form.window().focusWidget(), &password);
        QCOMPARE(password.selectedText(), u"wrong"_s);
        QCOMPARE(form.text(u"txtUserName"_s), u"admin"_s);
        QTest::keyClicks(&password, u"secret"_s);  // replaces the wrong one
        QTest::keyClick(&password, Qt::Key_Return);
    });
    script.expect(refusal());
    login.exec();
    QVERIFY(script.isDone());
    QVERIFY(login.LoginSucceeded());
}

void LoginTest::cancelAndTheWindowFrameRefuse() {
    frmLogin login;
    BoxScript script;
    script.drive(u"frmLogin"_s, [](Form form) { QTest::keyClick(&form.window(), Qt::Key_Escape); });
    login.exec();
    QVERIFY(!login.LoginSucceeded());
    script.drive(u"frmLogin"_s, [](Form form) { form.window().close(); });
    login.exec();
    QVERIFY(!login.LoginSucceeded());
    QVERIFY(script.isDone());
}

void LoginTest::aDatabaseFailureEndsTheConsole() {
    database_->run(u"DROP TABLE Users"_s);
    frmLogin login;
    BoxScript script;
    script.drive(u"frmLogin"_s, [](Form form) { form.click(u"cmdOk"_s); });
    script.expect(critical(BoxScript::AnyText));
    login.exec();
    QVERIFY(script.boxes().front().text.contains(database_->noTable(u"Users"_s)));
    QVERIFY(!login.LoginSucceeded());
    QCOMPARE(takeConsoleEnd(), std::optional{1});
}

QTEST_MAIN(LoginTest)
#include "tst_login.moc"
