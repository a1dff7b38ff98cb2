#include <QTest>

#include "tests/tessaly-db/Terminal.h"
#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

class TestToolUsers : public ToolTest {
    Q_OBJECT
  private slots:
    void addsAnAdministrator();
    void changesAPassword();
    void refusesNames_data();
    void refusesNames();
    void asksOnATerminal();
    void refusesWhatWasTyped_data();
    void refusesWhatWasTyped();
    void isBrokenOffWithTheTerminalIntact_data();
    void isBrokenOffWithTheTerminalIntact();
};

}  // namespace

void TestToolUsers::addsAnAdministrator() {
    create();
    const auto added = run({u"add-admin"_s, u"Jürgen"_s});
    QCOMPARE(added.status, 0);
    QCOMPARE(storedPassword(u"Jürgen"_s), encoded(toldPassword(added.out, u"Jürgen"_s)));
    QCOMPARE(column("SELECT UserName FROM Users WHERE DcmAdmin<>0 ORDER BY UserName"),
             QStringList({u"admin"_s, u"Jürgen"_s}));

    const auto before = storedPassword(u"admin"_s);
    const auto again = run({u"add-admin"_s, u"ADMIN"_s});
    QCOMPARE(again.status, 1);
    QCOMPARE(again.err, u"tessaly-db: There is a user already: ADMIN\n"_s);
    QCOMPARE(storedPassword(u"admin"_s), before);
}

void TestToolUsers::changesAPassword() {
    create();
    const auto before = storedPassword(u"admin"_s);
    const auto set = run({u"set-password"_s, u"admin"_s, u"--random"_s});
    QCOMPARE(set.status, 0);
    QCOMPARE(storedPassword(u"admin"_s), encoded(toldPassword(set.out, u"admin"_s)));
    QVERIFY(storedPassword(u"admin"_s) != before);

    const auto unknown = run({u"set-password"_s, u"nobody"_s});
    QCOMPARE(unknown.status, 1);
    QCOMPARE(unknown.err, u"tessaly-db: There is no user nobody\n"_s);
    QCOMPARE(column("SELECT UserName FROM Users"), QStringList{u"admin"_s});
}

void TestToolUsers::refusesNames_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("why");
    QTest::newRow("empty") << QString() << u"must not be empty"_s;
    QTest::newRow("long") << u"seventeen letters"_s << u"is longer than 16 characters"_s;
    QTest::newRow("long beyond the first plane")
        << u"\U0001F60A"_s.repeated(9) << u"is longer than 16 characters"_s;
    QTest::newRow("blank in front") << u" x"_s << u"must not begin or end with a blank"_s;
    QTest::newRow("blank behind") << u"x "_s << u"must not begin or end with a blank"_s;
    QTest::newRow("two lines") << u"a\nb"_s << u"must not have control characters"_s;
}

void TestToolUsers::refusesNames() {
    QFETCH(QString, name);
    QFETCH(QString, why);
    const auto refused = run({u"create"_s, u"--admin"_s, name});
    QCOMPARE(refused.status, 1);
    QCOMPARE(refused.err, u"tessaly-db: The user name %1\n"_s.arg(why));
    QVERIFY(!hasTables());
}

void TestToolUsers::asksOnATerminal() {
    Terminal creating(TESSALY_DB, {u"create"_s});
    QVERIFY(creating.waitFor("New password of admin: "));
    QVERIFY(!creating.echoes());
    creating.type("so geheim, ß\n");
    QVERIFY(creating.waitFor("Once more: "));
    QVERIFY(!creating.echoes());
    creating.type("so geheim, ß\n");
    QCOMPARE(creating.finish(), 0);
    QVERIFY2(!creating.screen().contains("geheim"), creating.screen().constData());
    QVERIFY(creating.echoes());
    QCOMPARE(storedPassword(u"admin"_s), encoded(u"so geheim, ß"_s));

    Terminal random(TESSALY_DB, {u"set-password"_s, u"admin"_s, u"--random"_s});
    QCOMPARE(random.finish(), 0);
    const QString shown = QString::fromUtf8(random.screen()).remove(u'\r');
    QCOMPARE(storedPassword(u"admin"_s), encoded(toldPassword(shown, u"admin"_s)));
}

void TestToolUsers::refusesWhatWasTyped_data() {
    QTest::addColumn<QByteArrayList>("typed");
    QTest::addColumn<QByteArray>("why");
    QTest::newRow("nothing") << QByteArrayList{""} << QByteArray("The password must not be empty");
    QTest::newRow("long") << QByteArrayList{"12345678901234567"}
                          << QByteArray("The password is longer than 16 characters");
    QTest::newRow("no UTF-8") << QByteArrayList{"\xff\xfe"} << QByteArray("The password is not valid UTF-8");
    QTest::newRow("two") << QByteArrayList{"one", "two"} << QByteArray("The two passwords differ");
}

void TestToolUsers::refusesWhatWasTyped() {
    QFETCH(QByteArrayList, typed);
    QFETCH(QByteArray, why);
    Terminal creating(TESSALY_DB, {u"create"_s});
    QVERIFY(creating.waitFor("New password of admin: "));
    creating.type(typed.first() + '\n');
    if (typed.size() > 1) {
        QVERIFY(creating.waitFor("Once more: "));
        creating.type(typed.last() + '\n');
    }
    QCOMPARE(creating.finish(), 1);
    QVERIFY2(creating.screen().contains("tessaly-db: " + why), creating.screen().constData());
    QVERIFY(!hasTables());
}

void TestToolUsers::isBrokenOffWithTheTerminalIntact_data() {
    QTest::addColumn<QByteArray>("key");
    QTest::newRow("Ctrl-C") << QByteArray("\x03");
    QTest::newRow("Ctrl-D") << QByteArray("\x04");
    QTest::newRow("Ctrl-backslash") << QByteArray("\x1c");
}

void TestToolUsers::isBrokenOffWithTheTerminalIntact() {
    QFETCH(QByteArray, key);
    Terminal creating(TESSALY_DB, {u"create"_s});
    QVERIFY(creating.waitFor("New password of admin: "));
    creating.type(key);
    QCOMPARE(creating.finish(), 1);
    QVERIFY(creating.echoes());
    QVERIFY(creating.screen().contains("tessaly-db: Broken off: no password was given"));
    QVERIFY(!hasTables());
}

QTEST_GUILESS_MAIN(TestToolUsers)
#include "tst_toolusers.moc"
