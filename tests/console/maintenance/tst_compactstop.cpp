// Stop, as a user presses it while a server's tables are compacted.

#include <QTest>

#include "console/session/Globals.h"
#include "tests/console/maintenance/CompactFormTest.h"
#include "tests/support/Eventually.h"
#include "tests/support/RealInput.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class CompactStopTest : public CompactFormTest {
    Q_OBJECT

  private Q_SLOTS:
    void stopIsPressedWhileTheServerWorks_data();
    void stopIsPressedWhileTheServerWorks();

  private:
    [[nodiscard]] bool isAtWork() const {
        database().run(u"SELECT pg_stat_clear_snapshot()"_s);
        return database().value(
                   u"SELECT count(*) FROM pg_stat_activity WHERE query LIKE 'VACUUM%series%' "
                   "AND state = 'active'"_s) != u"0"_s;
    }
};

void CompactStopTest::stopIsPressedWhileTheServerWorks_data() {
    QTest::addColumn<QString>("key");
    QTest::newRow("a click") << QString{};
    QTest::newRow("its key") << u"alt+s"_s;
    QTest::newRow("Escape") << u"Escape"_s;
}

void CompactStopTest::stopIsPressedWhileTheServerWorks() {
    QFETCH(QString, key);
    Globals::DbConnection().close();
    database().setDataSource(database().dataSource({u"ConnSettings=SET lock_timeout TO 600000"_s}));
    const QString file = database().value(u"SELECT pg_relation_filenode('series')"_s);
    database().run(u"BEGIN"_s);
    database().run(u"LOCK TABLE Series IN ACCESS SHARE MODE"_s);
    QVERIFY(real::hasKeyboard(repair()));
    QTimer turn;
    connect(&turn, &QTimer::timeout, this, [&] {
        if (!isAtWork())
            return;
        turn.stop();
        if (key.isEmpty())
            real::click(form().find(u"cmdStop"_s));
        else
            real::press(key);
    });
    turn.start(20);
    BoxScript script;
    repair().CompactDatabaseFile();  // comes to no end by itself
    QVERIFY(script.isDone());
    EVENTUALLY(!isAtWork());
    QCOMPARE(database().value(u"SELECT pg_relation_filenode('series')"_s), file);
}

QTEST_MAIN(CompactStopTest)
#include "tst_compactstop.moc"
