#include <QAccessible>
#include <QCheckBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

#include "console/session/Globals.h"
#include "tests/console/users/UserEditor.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class UserDialogTest : public UserEditorTest {
    Q_OBJECT

  private Q_SLOTS:
    void aNewUserStartsWithTheDefaults();
    void theDialogIsBuiltAsKnown();
    void tabOrderReachesConfirmEarly();
    void eachFlagIsReadAndWrittenOnItsOwn_data();
    void eachFlagIsReadAndWrittenOnItsOwn();
    void faultsAreRefusedInOrder();
    void anUntouchedPasswordIsStoredByteForByte_data();
    void anUntouchedPasswordIsStoredByteForByte();
    void aNewPasswordIsStoredEncoded_data();
    void aNewPasswordIsStoredEncoded();
    void passwordsAreShownAsAsterisks();
};

void UserDialogTest::aNewUserStartsWithTheDefaults() {
    edit({}, [](Form form) {
        for (const Permission& permission : permissions())
            QCOMPARE(form.isChecked(permission.box), permission.preset);
        for (const auto& name : {u"txtUser"_s, u"txtPassword1"_s, u"txtPassword2"_s, u"txtSignature"_s})
            QCOMPARE(form.text(name), QString{});
        form.click(u"cmdCancel"_s);
    });
    QCOMPARE(count(), 2);
}

void UserDialogTest::theDialogIsBuiltAsKnown() {
    edit({}, [](Form form) {
        QCOMPARE(form.window().windowTitle(), u"User"_s);
        const auto* frame = form.window().findChild<QGroupBox*>();
        QCOMPARE(frame->title(), u"Permissions"_s);
        QList<int> columns;
        for (const Permission& permission : permissions()) {
            const auto& box = form.find<QCheckBox>(permission.box);
            QCOMPARE(box.text(), permission.caption);
            QCOMPARE(box.toolTip(), permission.toolTip);
            const bool framed = permission.box != u"chkWLogin"_s;
            QCOMPARE(frame->isAncestorOf(&box), framed);
            QCOMPARE(box.font().bold(), !framed);
            if (framed)
                columns << box.x();
        }
        QCOMPARE(columns.size(), 10);
        const int left = *std::min_element(columns.begin(), columns.end());
        QCOMPARE(columns.count(left), 5);
        const auto& windowsLogin = form.find<QCheckBox>(u"chkWLogin"_s);
        QVERIFY(windowsLogin.geometry().bottom() < frame->geometry().top());

        checkLimits(
            form,
            {{u"txtUser"_s, 16}, {u"txtPassword1"_s, 16}, {u"txtPassword2"_s, 16}, {u"txtSignature"_s, 32}});
        for (const auto& box : {u"txtUser"_s, u"txtPassword1"_s, u"txtPassword2"_s})
            QCOMPARE(form.find(box).toolTip(), u"User name"_s);
        QCOMPARE(form.find(u"txtSignature"_s).toolTip(), u"User's signature"_s);
        QCOMPARE(form.labels(),
                 (QStringList{u"User"_s, u"Password"_s, u"Password confirm"_s, u"Signature"_s}));
        QCOMPARE(form.text(u"lblSignature"_s), u"Signature"_s);
        QVERIFY(form.find<QPushButton>(u"cmdOk"_s).isDefault());
        QCOMPARE(form.text(u"cmdOk"_s), u"Confirm"_s);
        QCOMPARE(form.text(u"cmdCancel"_s), u"Cancel"_s);
        QTest::keyClick(&form.window(), Qt::Key_Escape);
    });
}

void UserDialogTest::tabOrderReachesConfirmEarly() {
    edit({}, [](Form form) {
        checkTabOrder(form, {{u"txtUser"_s},
                             {u"txtPassword1"_s},
                             {u"txtPassword2"_s},
                             {u"txtSignature"_s},
                             {u"chkUpdate"_s},
                             {u"chkDelete"_s},
                             {u"chkMove"_s},
                             {u"chkRefert"_s},
                             {u"chkAdmin"_s},
                             {u"cmdOk"_s},
                             {u"cmdCancel"_s},
                             {u"chkSend"_s},
                             {u"chkImport"_s},
                             {u"chkROI"_s},
                             {u"chkBackup"_s},
                             {u"chkWLogin"_s},
                             {u"chkModTags"_s},
                             {u"txtUser"_s}});
        form.click(u"cmdCancel"_s);
    });
}

void UserDialogTest::eachFlagIsReadAndWrittenOnItsOwn_data() {
    QTest::addColumn<QString>("box");
    QTest::addColumn<QString>("column");
    QTest::addColumn<int>("set");
    for (const Permission& permission : permissions()) {
        for (const int set : {1, -1})
            QTest::addRow("%s as %d", qPrintable(permission.column), set)
                << permission.box << permission.column << set;
    }
}

void UserDialogTest::eachFlagIsReadAndWrittenOnItsOwn() {
    QFETCH(QString, box);
    QFETCH(QString, column);
    QFETCH(int, set);
    database().run(
        u"INSERT INTO Users (UserName, UserPwd, %1) VALUES ('bob', 'x', %2)"_s.arg(column).arg(set));
    reload();
    const auto flags = [&] {
        QStringList names;
        for (const Permission& permission : permissions()) {
            if (stored(u"bob"_s, permission.column) != u"0"_s)
                names << permission.column + u"="_s + stored(u"bob"_s, permission.column);
        }
        return names;
    };
    edit(u"bob"_s, [&](Form form) {
        for (const Permission& permission : permissions())
            QCOMPARE(form.isChecked(permission.box), permission.box == box);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(flags(), QStringList{column + u"=1"_s});
    edit(u"bob"_s, [&](Form form) {
        form.check(box, false);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(flags(), QStringList{});
    edit(u"bob"_s, [&](Form form) {
        form.check(box, true);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(flags(), QStringList{column + u"=1"_s});
}

void UserDialogTest::faultsAreRefusedInOrder() {
    const Box noName = plain(u"User name cannot be empty"_s);
    const Box mismatch = plain(u"Password mismatch"_s);
    checkRefusals(
        {}, {{{}, noName},
             {{{u"txtUser"_s, u"   "_s}}, noName},
             {{{u"txtUser"_s, u"bob"_s}, {u"txtPassword2"_s, u"a"_s}}, plain(u"Password cannot be empty"_s)},
             {{{u"txtPassword1"_s, u"A"_s}}, mismatch},
             {{{u"txtPassword1"_s, u"a "_s}}, mismatch}});
}

void UserDialogTest::anUntouchedPasswordIsStoredByteForByte_data() {
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("encoded") << Globals::EncodePassword(u"secret"_s).toUtf8();
    if (!ScratchDatabase::isPostgresql()) {  // which holds nothing of the kind
        QTest::newRow("longer than the box") << QByteArray{"a form of another encoder, 40 bytes long!"};
        QTest::newRow("not UTF-8") << QByteArray{"\xe4\xf6\xfc\xff raw"};
    }
    QTest::newRow("blanks") << QByteArray{"  "};
    QTest::newRow("control characters") << QByteArray{"a\tb\nc"};
}

void UserDialogTest::anUntouchedPasswordIsStoredByteForByte() {
    QFETCH(QByteArray, bytes);
    const QString hex = QString::fromLatin1(bytes.toHex().toUpper());
    database().run(u"UPDATE Users SET UserPwd=%1 WHERE UserName='zoe'"_s.arg(database().textOf(bytes)));
    edit(u"zoe"_s, [](Form form) {
        QCOMPARE(form.text(u"txtPassword1"_s), form.text(u"txtPassword2"_s));
        form.type(u"txtSignature"_s, u"changed"_s);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(stored(u"zoe"_s, u"Signature"_s), u"changed"_s);
    QCOMPARE(stored(u"zoe"_s, database().hexOf(u"UserPwd"_s)), hex);
    QCOMPARE(stored(u"zoe"_s, database().typeOf(u"UserPwd"_s)), u"text"_s);
}

void UserDialogTest::aNewPasswordIsStoredEncoded_data() {
    QTest::addColumn<QString>("password");
    QTest::newRow("short") << u"x"_s;
    QTest::newRow("sixteen characters") << u"sixteen letters!"_s;
    QTest::newRow("blanks") << u"   "_s;
    QTest::newRow("umlauts") << u"pässwörd"_s;
    QTest::newRow("CJK and four bytes") << u"密码🔑"_s;
    QTest::newRow("apostrophe") << u"it's"_s;
}

void UserDialogTest::aNewPasswordIsStoredEncoded() {
    QFETCH(QString, password);
    edit(u"zoe"_s, {plain(u"Password mismatch"_s)}, [&](Form form) {
        QCOMPARE(form.text(u"txtPassword1"_s), u"storedform16byte"_s);
        form.type(u"txtPassword1"_s, password);
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        form.type(u"txtPassword2"_s, password);
        form.click(u"cmdOk"_s);
    });
    const QString form = stored(u"zoe"_s, u"UserPwd"_s);
    QCOMPARE(form, Globals::EncodePassword(password));
    QCOMPARE(form.size(), 16);
    // Nowhere in the database is the password as it was typed.
    for (const QStringList& row : database().rows(u"SELECT * FROM Users"_s))
        QVERIFY(!row.contains(password));
}

void UserDialogTest::passwordsAreShownAsAsterisks() {
    edit(u"zoe"_s, [](Form form) {
        for (const auto& name : {u"txtPassword1"_s, u"txtPassword2"_s}) {
            auto& box = form.find<QLineEdit>(name);
            QCOMPARE(box.displayText(), u"*"_s.repeated(16));
            auto* accessible = QAccessible::queryAccessibleInterface(&box);
            for (const auto part : {QAccessible::Name, QAccessible::Description, QAccessible::Value,
                                    QAccessible::Help, QAccessible::Accelerator})
                QVERIFY(!accessible->text(part).contains(u"storedform16byte"_s));
            QVERIFY(!accessible->textInterface()->text(0, 16).contains(u"stored"_s));
            QVERIFY(accessible->state().passwordEdit);
        }
        form.click(u"cmdCancel"_s);
    });
}

QTEST_MAIN(UserDialogTest)
#include "tst_userdialog.moc"
