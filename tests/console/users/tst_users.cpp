#include <QAccessible>
#include <QCheckBox>
#include <QGroupBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QTreeView>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "tests/support/ListPage.h"
#include "tests/support/WindowTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const QString FlagColumns =
    u"DcmUpdate, DcmDelete, Move, Send, Refert, Import, Backup, ROI, ModTags, WLogin, DcmAdmin"_s;

struct Permission {
    QString box;
    QString column;
    QString caption;
    QString toolTip;
    bool preset;
};
const QList<Permission>& permissions() {
    const auto referts = u"User can create/edit referts"_s;
    const auto administrator = u"User is an administrator"_s;
    static const QList<Permission> all{
        {u"chkUpdate"_s, u"DcmUpdate"_s, u"Update"_s, {}, true},
        {u"chkDelete"_s, u"DcmDelete"_s, u"Delete"_s, {}, true},
        {u"chkMove"_s, u"Move"_s, u"Move/Get"_s, u"User can send/get studies/series"_s, true},
        {u"chkSend"_s, u"Send"_s, u"Send"_s, referts, true},
        {u"chkRefert"_s, u"Refert"_s, u"Refert"_s, referts, true},
        {u"chkImport"_s, u"Import"_s, u"Import from scanner"_s, referts, true},
        {u"chkBackup"_s, u"Backup"_s, u"Backup/Restore"_s, referts, true},
        {u"chkROI"_s, u"ROI"_s, u"Manage ROI"_s, referts, true},
        {u"chkModTags"_s, u"ModTags"_s, u"Manage DICOM tags"_s, referts, false},
        {u"chkAdmin"_s, u"DcmAdmin"_s, u"Administrator"_s, administrator, false},
        {u"chkWLogin"_s, u"WLogin"_s, u"Use Windows login"_s, administrator, false},
    };
    return all;
}

}  // namespace

class UsersTest : public WindowTest {
    Q_OBJECT

  public:
    UsersTest() : WindowTest(Page::Users) {}

  protected:
    void seed() const override {
        database().run(
            u"INSERT INTO Users (UserName, UserPwd, Signature, DcmUpdate, Send, ModTags) "
            "VALUES ('zoe', 'storedform16byte', 'Dr. Zoe', 1, -1, -1)"_s);
    }

  private Q_SLOTS:
    void listMarksEveryFlagThatIsNotZero();
    void columnWidthsFollowTheList();
    void aNewUserStartsWithTheDefaults();
    void theDialogIsBuiltAsKnown();
    void tabOrderReachesConfirmEarly();
    void keysAndDoubleClickPressTheButtons();
    void addWritesTheRow();
    void eachFlagIsReadAndWrittenOnItsOwn_data();
    void eachFlagIsReadAndWrittenOnItsOwn();
    void faultsAreRefusedInOrder();
    void anUntouchedPasswordIsStoredByteForByte_data();
    void anUntouchedPasswordIsStoredByteForByte();
    void aNewPasswordIsStoredEncoded_data();
    void aNewPasswordIsStoredEncoded();
    void passwordsAreShownAsAsterisks();
    void renamingFindsTheRowByTheLoadedName();
    void aRenameOntoAnExistingNameIsRefusedByTheDatabase();
    void textsKeepEveryCharacter_data();
    void textsKeepEveryCharacter();
    void anApostropheCannotBeOpened();
    void theKeyIsTrimmedAndTheNameIsNot();
    void aVanishedUserChangesNothing();
    void deleteAsksAndReloads();
    void anEmptyListHasNothingToModify();
    void failuresSayWhy();

  private:
    /// Opens the dialog for the user of that name, empty for a new one, and lets `body` drive it.
    void edit(BoxScript& script, const QString& name, std::function<void(Form)> body) const {
        script.drive(u"frmUser"_s, std::move(body));
        if (name.isEmpty()) {
            window().click(u"cmdAddUser"_s);
        } else {
            window().selectRow(u"lstUsers"_s, name);
            window().click(u"cmdModifyUser"_s);
        }
    }
    [[nodiscard]] QString stored(const QString& name, const QString& column) const {
        return database().value(u"SELECT %1 FROM Users WHERE UserName=?"_s.arg(column), {name});
    }
    static void typePassword(const Form& form, const QString& password) {
        form.type(u"txtPassword1"_s, password);
        form.type(u"txtPassword2"_s, password);
    }
};

void UsersTest::listMarksEveryFlagThatIsNotZero() {
    QCOMPARE(
        window().headers(u"lstUsers"_s),
        (QStringList{u"User"_s, u"Signature"_s, u"Update"_s, u"Delete"_s, u"Move"_s, u"Send"_s, u"Refert"_s,
                     u"Import"_s, u"Backup"_s, u"ROI"_s, u"Mod. Tags"_s, u"WLogin"_s, u"Admin"_s}));
    QList<QStringList> expected{{u"admin"_s}, {u"zoe"_s, u"Dr. Zoe"_s}};
    for (QStringList& row : expected)
        row.resize(13);
    expected[0][12] = u"X"_s;
    expected[1][2] = expected[1][5] = expected[1][10] = u"X"_s;
    QCOMPARE(window().rows(u"lstUsers"_s), expected);
    QCOMPARE(window().selectedRows(u"lstUsers"_s), QStringList{u"admin"_s});
    const auto& model = *window().find<QAbstractItemView>(u"lstUsers"_s).model();
    for (int column = 0; column < 13; ++column) {
        const auto alignment = Qt::Alignment(model.index(0, column).data(Qt::TextAlignmentRole).toInt());
        QCOMPARE(alignment.testFlag(Qt::AlignHCenter), column >= 2 && column <= 6);
    }
}

void UsersTest::columnWidthsFollowTheList() {
    auto& list = window().find<QTreeView>(u"lstUsers"_s);
    for (const QSize size : {QSize{700, 500}, QSize{1400, 700}, QSize{1001, 600}}) {
        manager().resize(size);
        QCoreApplication::processEvents();
        QVERIFY(list.width() > size.width() / 2);
        for (int column = 0; column < 13; ++column) {
            const double fraction = column == 0 ? 0.15 : column == 1 ? 0.25 : 0.05;
            QVERIFY(qAbs(list.columnWidth(column) - fraction * list.width()) <= 1);
        }
    }
    list.header()->resizeSection(0, 10);
    manager().LoadUsers();
    QVERIFY(qAbs(list.columnWidth(0) - 0.15 * list.width()) <= 1);
}

void UsersTest::aNewUserStartsWithTheDefaults() {
    BoxScript script;
    edit(script, {}, [](Form form) {
        for (const Permission& permission : permissions())
            QCOMPARE(form.isChecked(permission.box), permission.preset);
        for (const auto& name : {u"txtUser"_s, u"txtPassword1"_s, u"txtPassword2"_s, u"txtSignature"_s})
            QCOMPARE(form.text(name), QString{});
        form.click(u"cmdCancel"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM Users"_s), u"2"_s);
}

void UsersTest::theDialogIsBuiltAsKnown() {
    BoxScript script;
    edit(script, {}, [](Form form) {
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

        const QList<std::tuple<QString, QString, int>> boxes{{u"txtUser"_s, u"User name"_s, 16},
                                                             {u"txtPassword1"_s, u"User name"_s, 16},
                                                             {u"txtPassword2"_s, u"User name"_s, 16},
                                                             {u"txtSignature"_s, u"User's signature"_s, 32}};
        for (const auto& [name, toolTip, limit] : boxes) {
            QCOMPARE(form.find<QLineEdit>(name).toolTip(), toolTip);
            QCOMPARE(form.find<QLineEdit>(name).maxLength(), limit);
        }
        QCOMPARE(form.labels(),
                 (QStringList{u"User"_s, u"Password"_s, u"Password confirm"_s, u"Signature"_s}));
        QCOMPARE(form.text(u"lblSignature"_s), u"Signature"_s);
        QVERIFY(form.find<QPushButton>(u"cmdOk"_s).isDefault());
        QCOMPARE(form.text(u"cmdOk"_s), u"Confirm"_s);
        QCOMPARE(form.text(u"cmdCancel"_s), u"Cancel"_s);
        QTest::keyClick(&form.window(), Qt::Key_Escape);
    });
    QVERIFY(script.isDone());
}

void UsersTest::tabOrderReachesConfirmEarly() {
    BoxScript script;
    edit(script, {}, [](Form form) {
        form.window().activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&form.window()));
        QStringList order;
        for (int i = 0; i < 18; ++i) {
            order << form.window().focusWidget()->objectName();
            QTest::keyClick(form.window().focusWidget(), Qt::Key_Tab);
        }
        QCOMPARE(order,
                 (QStringList{u"txtUser"_s, u"txtPassword1"_s, u"txtPassword2"_s, u"txtSignature"_s,
                              u"chkUpdate"_s, u"chkDelete"_s, u"chkMove"_s, u"chkRefert"_s, u"chkAdmin"_s,
                              u"cmdOk"_s, u"cmdCancel"_s, u"chkSend"_s, u"chkImport"_s, u"chkROI"_s,
                              u"chkBackup"_s, u"chkWLogin"_s, u"chkModTags"_s, u"txtUser"_s}));
        form.click(u"cmdCancel"_s);
    });
    QVERIFY(script.isDone());
}

void UsersTest::keysAndDoubleClickPressTheButtons() {
    checkKeys(manager(), {.list = u"lstUsers"_s,
                          .dialog = u"frmUser"_s,
                          .keyBox = u"txtUser"_s,
                          .question = okCancel(u"Are you sure you want to delete user [admin] ?"_s,
                                               QMessageBox::Cancel)});
}

void UsersTest::addWritesTheRow() {
    BoxScript script;
    edit(script, {}, [](Form form) {
        form.type(u"txtUser"_s, u"bob"_s);
        typePassword(form, u"pw"_s);
        form.type(u"txtSignature"_s, u"Bob, M.D."_s);
        QTest::keyClick(&form.find(u"txtSignature"_s), Qt::Key_Return);
    });
    QVERIFY(script.isDone());
    QCOMPARE(
        database().rows(u"SELECT UserPwd, Signature, %1 FROM Users WHERE UserName='bob'"_s.arg(FlagColumns)),
        (QList<QStringList>{{Globals::EncodePassword(u"pw"_s), u"Bob, M.D."_s, u"1"_s, u"1"_s, u"1"_s, u"1"_s,
                             u"1"_s, u"1"_s, u"1"_s, u"1"_s, u"0"_s, u"0"_s, u"0"_s}}));
    QCOMPARE(window().rows(u"lstUsers"_s).size(), 3);
    QVERIFY(!Globals::ConfigChanged());
}

void UsersTest::eachFlagIsReadAndWrittenOnItsOwn_data() {
    QTest::addColumn<QString>("box");
    QTest::addColumn<QString>("column");
    QTest::addColumn<int>("set");
    for (const Permission& permission : permissions()) {
        for (const int set : {1, -1})
            QTest::addRow("%s as %d", qPrintable(permission.column), set)
                << permission.box << permission.column << set;
    }
}

void UsersTest::eachFlagIsReadAndWrittenOnItsOwn() {
    QFETCH(QString, box);
    QFETCH(QString, column);
    QFETCH(int, set);
    database().run(
        u"INSERT INTO Users (UserName, UserPwd, %1) VALUES ('bob', 'x', %2)"_s.arg(column).arg(set));
    manager().LoadUsers();
    const auto flags = [&] {
        QStringList names;
        for (const Permission& permission : permissions()) {
            if (stored(u"bob"_s, permission.column) != u"0"_s)
                names << permission.column + u"="_s + stored(u"bob"_s, permission.column);
        }
        return names;
    };
    BoxScript script;
    edit(script, u"bob"_s, [&](Form form) {
        for (const Permission& permission : permissions())
            QCOMPARE(form.isChecked(permission.box), permission.box == box);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(flags(), QStringList{column + u"=1"_s});
    edit(script, u"bob"_s, [&](Form form) {
        form.check(box, false);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(flags(), QStringList{});
    edit(script, u"bob"_s, [&](Form form) {
        form.check(box, true);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(flags(), QStringList{column + u"=1"_s});
    QVERIFY(script.isDone());
}

void UsersTest::faultsAreRefusedInOrder() {
    BoxScript script;
    script.drive(u"frmUser"_s, [](Form form) {
        form.click(u"cmdOk"_s);
        form.type(u"txtUser"_s, u"   "_s);
        form.click(u"cmdOk"_s);
        form.type(u"txtUser"_s, u"bob"_s);
        form.type(u"txtPassword2"_s, u"a"_s);
        form.click(u"cmdOk"_s);
        form.type(u"txtPassword1"_s, u"A"_s);
        form.click(u"cmdOk"_s);
        form.type(u"txtPassword1"_s, u"a "_s);
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        form.click(u"cmdCancel"_s);
    });
    script.expect(plain(u"User name cannot be empty"_s));
    script.expect(plain(u"User name cannot be empty"_s));
    script.expect(plain(u"Password cannot be empty"_s));
    script.expect(plain(u"Password mismatch"_s));
    script.expect(plain(u"Password mismatch"_s));
    window().click(u"cmdAddUser"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM Users"_s), u"2"_s);
}

void UsersTest::anUntouchedPasswordIsStoredByteForByte_data() {
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("encoded") << Globals::EncodePassword(u"secret"_s).toUtf8();
    if (!ScratchDatabase::isPostgresql()) {  // which holds nothing of the kind
        QTest::newRow("longer than the box") << QByteArray{"a form of another encoder, 40 bytes long!"};
        QTest::newRow("not UTF-8") << QByteArray{"\xe4\xf6\xfc\xff raw"};
    }
    QTest::newRow("blanks") << QByteArray{"  "};
    QTest::newRow("control characters") << QByteArray{"a\tb\nc"};
}

void UsersTest::anUntouchedPasswordIsStoredByteForByte() {
    QFETCH(QByteArray, bytes);
    const QString hex = QString::fromLatin1(bytes.toHex().toUpper());
    database().run(u"UPDATE Users SET UserPwd=%1 WHERE UserName='zoe'"_s.arg(database().textOf(bytes)));
    BoxScript script;
    edit(script, u"zoe"_s, [](Form form) {
        QCOMPARE(form.text(u"txtPassword1"_s), form.text(u"txtPassword2"_s));
        form.type(u"txtSignature"_s, u"changed"_s);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(stored(u"zoe"_s, u"Signature"_s), u"changed"_s);
    QCOMPARE(stored(u"zoe"_s, database().hexOf(u"UserPwd"_s)), hex);
    QCOMPARE(stored(u"zoe"_s, database().typeOf(u"UserPwd"_s)), u"text"_s);
}

void UsersTest::aNewPasswordIsStoredEncoded_data() {
    QTest::addColumn<QString>("password");
    QTest::newRow("short") << u"x"_s;
    QTest::newRow("sixteen characters") << u"sixteen letters!"_s;
    QTest::newRow("blanks") << u"   "_s;
    QTest::newRow("umlauts") << u"pässwörd"_s;
    QTest::newRow("CJK and four bytes") << u"密码🔑"_s;
    QTest::newRow("apostrophe") << u"it's"_s;
}

void UsersTest::aNewPasswordIsStoredEncoded() {
    QFETCH(QString, password);
    BoxScript script;
    script.drive(u"frmUser"_s, [&](Form form) {
        QCOMPARE(form.text(u"txtPassword1"_s), u"storedform16byte"_s);
        form.type(u"txtPassword1"_s, password);
        form.click(u"cmdOk"_s);
        QVERIFY(form.window().isVisible());
        form.type(u"txtPassword2"_s, password);
        form.click(u"cmdOk"_s);
    });
    script.expect(plain(u"Password mismatch"_s));
    window().selectRow(u"lstUsers"_s, u"zoe"_s);
    window().click(u"cmdModifyUser"_s);
    QVERIFY(script.isDone());
    const QString form = stored(u"zoe"_s, u"UserPwd"_s);
    QCOMPARE(form, Globals::EncodePassword(password));
    QCOMPARE(form.size(), 16);
    // Nowhere in the database is the password as it was typed.
    for (const QStringList& row : database().rows(u"SELECT * FROM Users"_s))
        QVERIFY(!row.contains(password));
}

void UsersTest::passwordsAreShownAsAsterisks() {
    BoxScript script;
    edit(script, u"zoe"_s, [](Form form) {
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
    QVERIFY(script.isDone());
}

void UsersTest::renamingFindsTheRowByTheLoadedName() {
    BoxScript script;
    edit(script, u"zoe"_s, [](Form form) {
        form.type(u"txtUser"_s, u"O'Zoe "_s);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM Users"_s), u"2"_s);
    QCOMPARE(stored(u"O'Zoe "_s, u"Signature"_s), u"Dr. Zoe"_s);
    QCOMPARE(stored(u"O'Zoe "_s, u"UserPwd"_s), u"storedform16byte"_s);
}

void UsersTest::aRenameOntoAnExistingNameIsRefusedByTheDatabase() {
    BoxScript script;
    script.drive(u"frmUser"_s, [](Form form) {
        form.type(u"txtUser"_s, u"ADMIN"_s);
        form.click(u"cmdOk"_s);
        QCOMPARE(form.text(u"txtUser"_s), u"ADMIN"_s);
        form.click(u"cmdCancel"_s);
    });
    script.expect(plain(BoxScript::AnyText));
    window().selectRow(u"lstUsers"_s, u"zoe"_s);
    window().click(u"cmdModifyUser"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().front().text.contains(database().twice(u"Users"_s, u"UserName"_s)));
    QCOMPARE(stored(u"zoe"_s, u"Signature"_s), u"Dr. Zoe"_s);
}

void UsersTest::textsKeepEveryCharacter_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("signature");
    QTest::newRow("umlauts") << u"Jürgen Größe"_s << u"Dr. Öß"_s;
    QTest::newRow("CJK") << u"山田"_s << u"医師 서울"_s;
    QTest::newRow("four bytes") << u"🩻 bob"_s << u"🏥🏥"_s;
    QTest::newRow("percent and quotes") << u"100% \"b\" ?"_s << u"O'Hara's --"_s;
    QTest::newRow("an ideographic blank at both ends") << u"\u3000山田\u3000"_s << u"\u3000"_s;
    QTest::newRow("an ideographic blank alone") << u"\u3000"_s << u"x"_s;
    QTest::newRow("no signature") << u"bob"_s << QString{};
}

void UsersTest::textsKeepEveryCharacter() {
    QFETCH(QString, name);
    QFETCH(QString, signature);
    BoxScript script;
    edit(script, {}, [&](Form form) {
        form.type(u"txtUser"_s, name);
        form.type(u"txtSignature"_s, signature);
        typePassword(form, u"pw"_s);
        form.click(u"cmdOk"_s);
    });
    edit(script, name, [&](Form form) {
        QCOMPARE(form.text(u"txtUser"_s), name);
        QCOMPARE(form.text(u"txtSignature"_s), signature);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(stored(name, u"Signature"_s), signature);
    QVERIFY(!stored(name, u"Signature"_s).isNull());
}

void UsersTest::anApostropheCannotBeOpened() {
    database().run(u"INSERT INTO Users (UserName, UserPwd) VALUES ('O''Hara', 'x')"_s);
    manager().LoadUsers();
    window().selectRow(u"lstUsers"_s, u"O'Hara"_s);
    BoxScript script;
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdModifyUser"_s);
    QVERIFY(script.isDone());
    QVERIFY(!script.boxes().front().text.isEmpty());
    // The deletion binds the name.
    script.expect(okCancel(u"Are you sure you want to delete user [O'Hara] ?"_s, QMessageBox::Ok));
    window().click(u"cmdDelUser"_s);
    QVERIFY(script.isDone());
    QCOMPARE(database().value(u"SELECT count(*) FROM Users"_s), u"2"_s);
}

void UsersTest::theKeyIsTrimmedAndTheNameIsNot() {
    BoxScript script;
    edit(script, {}, [](Form form) {
        form.type(u"txtUser"_s, u" ann "_s);
        typePassword(form, u"pw"_s);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(database().value(u"SELECT count(*) FROM Users WHERE UserName=' ann '"_s), u"1"_s);
    // Looked for without its blanks, such a name is not found: the dialog has its defaults, and Confirm
    // changes the row of the trimmed name if there is one.
    database().run(u"INSERT INTO Users (UserName, UserPwd, Signature) VALUES ('kim', 'x', 'Kim')"_s);
    database().run(u"INSERT INTO Users (UserName, UserPwd, Signature) VALUES (' kim', 'y', 'Other')"_s);
    manager().LoadUsers();
    edit(script, u" kim"_s, [](Form form) {
        QCOMPARE(form.text(u"txtUser"_s), u"kim"_s);
        QCOMPARE(form.text(u"txtSignature"_s), u"Kim"_s);
        form.type(u"txtUser"_s, u"kim "_s);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(stored(u"kim "_s, u"Signature"_s), u"Kim"_s);
    QCOMPARE(stored(u" kim"_s, u"Signature"_s), u"Other"_s);
}

void UsersTest::aVanishedUserChangesNothing() {
    database().run(u"DELETE FROM Users WHERE UserName='zoe'"_s);
    BoxScript script;
    edit(script, u"zoe"_s, [](Form form) {
        QCOMPARE(form.text(u"txtUser"_s), QString{});
        QVERIFY(form.isChecked(u"chkUpdate"_s));
        QVERIFY(!form.isChecked(u"chkAdmin"_s));
        form.type(u"txtUser"_s, u"zoe"_s);
        typePassword(form, u"pw"_s);
        form.click(u"cmdOk"_s);
    });
    QVERIFY(script.isDone());
    QCOMPARE(window().rows(u"lstUsers"_s).size(), 1);
}

void UsersTest::deleteAsksAndReloads() {
    const QString question = u"Are you sure you want to delete user [admin] ?"_s;
    database().run(u"INSERT INTO Users (UserName) VALUES ('zz')"_s);
    BoxScript script;
    script.expect(okCancel(question, QMessageBox::Cancel));
    window().click(u"cmdDelUser"_s);
    QCOMPARE(window().rows(u"lstUsers"_s).size(), 3);  // reloaded, nothing deleted

    database().run(u"INSERT INTO Users (UserName) VALUES ('zzz')"_s);
    database().failOn(u"Users"_s, u"DELETE"_s);
    script.expect(okCancel(question, QMessageBox::Ok));
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdDelUser"_s);
    QVERIFY(script.boxes().back().text.contains(ScratchDatabase::Failure));
    QCOMPARE(window().rows(u"lstUsers"_s).size(), 4);

    database().allow(u"Users"_s, u"DELETE"_s);
    script.expect(okCancel(question, QMessageBox::Ok));
    window().click(u"cmdDelUser"_s);
    QVERIFY(script.isDone());
    QCOMPARE(window().rows(u"lstUsers"_s).size(), 3);
    QVERIFY(!Globals::ConfigChanged());
}

void UsersTest::anEmptyListHasNothingToModify() {
    database().run(u"DELETE FROM Users"_s);
    manager().LoadUsers();
    BoxScript script;
    window().click(u"cmdModifyUser"_s);
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdDelUser"_s);
    QVERIFY(script.isDone());
}

void UsersTest::failuresSayWhy() {
    database().failOn(u"Users"_s, u"UPDATE"_s);
    database().failOn(u"Users"_s, u"INSERT"_s);
    BoxScript script;
    for (const auto& name : {QString{}, u"zoe"_s}) {
        script.drive(u"frmUser"_s, [](Form form) {
            form.type(u"txtUser"_s, u"typed"_s);
            typePassword(form, u"pw"_s);
            form.click(u"cmdOk"_s);
            QCOMPARE(form.text(u"txtUser"_s), u"typed"_s);
            form.click(u"cmdCancel"_s);
        });
        script.expect(plain(BoxScript::AnyText));
        window().selectRow(u"lstUsers"_s, u"zoe"_s);
        window().click(name.isEmpty() ? u"cmdAddUser"_s : u"cmdModifyUser"_s);
        QVERIFY(script.isDone());
        QVERIFY(script.boxes().back().text.contains(ScratchDatabase::Failure));
        QVERIFY(!script.boxes().back().text.contains(u"pw"_s));
    }
    database().run(u"DROP TABLE Users"_s);
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdModifyUser"_s);
    script.expect(plain(BoxScript::AnyText));
    manager().LoadUsers();
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().back().text.contains(database().noTable(u"Users"_s)));
}

QTEST_MAIN(UsersTest)
#include "tst_users.moc"
