#include <QHeaderView>
#include <QTest>
#include <QTreeView>

#include "console/session/Globals.h"
#include "tests/console/users/UserEditor.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const QString FlagColumns =
    u"DcmUpdate, DcmDelete, Move, Send, Refert, Import, Backup, ROI, ModTags, WLogin, DcmAdmin"_s;

}  // namespace

class UsersTest : public UserEditorTest {
    Q_OBJECT

  private Q_SLOTS:
    void listMarksEveryFlagThatIsNotZero();
    void columnWidthsFollowTheList();
    void keysAndDoubleClickPressTheButtons();
    void addWritesTheRow();
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
};

void UsersTest::listMarksEveryFlagThatIsNotZero() {
    QList<QStringList> expected{{u"admin"_s}, {u"zoe"_s, u"Dr. Zoe"_s}};
    for (QStringList& row : expected)
        row.resize(13);
    expected[0][12] = u"X"_s;
    expected[1][2] = expected[1][5] = expected[1][10] = u"X"_s;
    checkList({u"User"_s, u"Signature"_s, u"Update"_s, u"Delete"_s, u"Move"_s, u"Send"_s, u"Refert"_s,
               u"Import"_s, u"Backup"_s, u"ROI"_s, u"Mod. Tags"_s, u"WLogin"_s, u"Admin"_s},
              expected);
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
    reload();
    QVERIFY(qAbs(list.columnWidth(0) - 0.15 * list.width()) <= 1);
}

void UsersTest::keysAndDoubleClickPressTheButtons() {
    checkKeys();
}

void UsersTest::addWritesTheRow() {
    edit({}, [](Form form) {
        form.type(u"txtUser"_s, u"bob"_s);
        typePassword(form, u"pw"_s);
        form.type(u"txtSignature"_s, u"Bob, M.D."_s);
        QTest::keyClick(&form.find(u"txtSignature"_s), Qt::Key_Return);
    });
    QCOMPARE(
        database().rows(u"SELECT UserPwd, Signature, %1 FROM Users WHERE UserName='bob'"_s.arg(FlagColumns)),
        (QList<QStringList>{{Globals::EncodePassword(u"pw"_s), u"Bob, M.D."_s, u"1"_s, u"1"_s, u"1"_s, u"1"_s,
                             u"1"_s, u"1"_s, u"1"_s, u"1"_s, u"0"_s, u"0"_s, u"0"_s}}));
    QCOMPARE(listed().size(), 3);
    QVERIFY(!Globals::ConfigChanged());
}

void UsersTest::renamingFindsTheRowByTheLoadedName() {
    save(u"zoe"_s, {{u"txtUser"_s, u"O'Zoe "_s}});
    QCOMPARE(count(), 2);
    QCOMPARE(stored(u"O'Zoe "_s, u"Signature"_s), u"Dr. Zoe"_s);
    QCOMPARE(stored(u"O'Zoe "_s, u"UserPwd"_s), u"storedform16byte"_s);
}

void UsersTest::aRenameOntoAnExistingNameIsRefusedByTheDatabase() {
    checkRefusals(u"zoe"_s, {{{{u"txtUser"_s, u"ADMIN"_s}},
                              plain(containing(database().twice(u"Users"_s, u"UserName"_s)))}});
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
    checkComesBack({}, {{u"txtUser"_s, u"UserName"_s, name},
                        {u"txtSignature"_s, u"Signature"_s, signature},
                        {u"txtPassword1"_s, {}, u"pw"_s},
                        {u"txtPassword2"_s, {}, u"pw"_s}});
    QVERIFY(!stored(name, u"Signature"_s).isNull());
}

void UsersTest::anApostropheCannotBeOpened() {
    database().run(u"INSERT INTO Users (UserName, UserPwd) VALUES ('O''Hara', 'x')"_s);
    reload();
    BoxScript script;
    script.expect(critical(BoxScript::AnyText));
    open(u"O'Hara"_s);
    QVERIFY(script.isDone());
    QVERIFY(!script.boxes().front().text.isEmpty());
    // The deletion binds the name.
    script.expect(question(u"O'Hara"_s, QMessageBox::Ok));
    window().click(u"cmdDelUser"_s);
    QVERIFY(script.isDone());
    QCOMPARE(count(), 2);
}

void UsersTest::theKeyIsTrimmedAndTheNameIsNot() {
    edit({}, [](Form form) {
        form.type(u"txtUser"_s, u" ann "_s);
        typePassword(form, u"pw"_s);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(database().value(u"SELECT count(*) FROM Users WHERE UserName=' ann '"_s), u"1"_s);
    // Looked for without its blanks, such a name is not found: the dialog has its defaults, and Confirm
    // changes the row of the trimmed name if there is one.
    database().run(u"INSERT INTO Users (UserName, UserPwd, Signature) VALUES ('kim', 'x', 'Kim')"_s);
    database().run(u"INSERT INTO Users (UserName, UserPwd, Signature) VALUES (' kim', 'y', 'Other')"_s);
    reload();
    edit(u" kim"_s, [](Form form) {
        checkShown(form, {{u"txtUser"_s, u"kim"_s}, {u"txtSignature"_s, u"Kim"_s}});
        form.type(u"txtUser"_s, u"kim "_s);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(stored(u"kim "_s, u"Signature"_s), u"Kim"_s);
    QCOMPARE(stored(u" kim"_s, u"Signature"_s), u"Other"_s);
}

void UsersTest::aVanishedUserChangesNothing() {
    database().run(u"DELETE FROM Users WHERE UserName='zoe'"_s);
    edit(u"zoe"_s, [](Form form) {
        checkShown(form, {{u"txtUser"_s, {}}, {u"chkUpdate"_s, u"1"_s}, {u"chkAdmin"_s, u"0"_s}});
        form.type(u"txtUser"_s, u"zoe"_s);
        typePassword(form, u"pw"_s);
        form.click(u"cmdOk"_s);
    });
    QCOMPARE(listed().size(), 1);
}

void UsersTest::deleteAsksAndReloads() {
    checkDeleteAsks(true);
}

void UsersTest::anEmptyListHasNothingToModify() {
    database().run(u"DELETE FROM Users"_s);
    reload();
    BoxScript script;
    window().click(u"cmdModifyUser"_s);
    script.expect(critical(BoxScript::AnyText));
    window().click(u"cmdDelUser"_s);
    QVERIFY(script.isDone());
}

void UsersTest::failuresSayWhy() {
    database().failOn(u"Users"_s, u"UPDATE"_s);
    database().failOn(u"Users"_s, u"INSERT"_s);
    for (const auto& name : {QString{}, u"zoe"_s}) {
        BoxScript script;
        script.drive(u"frmUser"_s, [](Form form) {
            form.type(u"txtUser"_s, u"typed"_s);
            typePassword(form, u"pw"_s);
            form.click(u"cmdOk"_s);
            QCOMPARE(form.text(u"txtUser"_s), u"typed"_s);
            form.click(u"cmdCancel"_s);
        });
        script.expect(plain(containing(ScratchDatabase::Failure)));
        open(name);
        QVERIFY(script.isDone());
        QVERIFY(!script.boxes().back().text.contains(u"pw"_s));
    }
    database().run(u"DROP TABLE Users"_s);
    answering({critical(BoxScript::AnyText)}, [this] { open(u"zoe"_s); });
    checkFailedLoad();
}

QTEST_MAIN(UsersTest)
#include "tst_users.moc"
