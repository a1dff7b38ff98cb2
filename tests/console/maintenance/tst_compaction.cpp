// The compaction as its form runs it: the question, the server, the connection, the wait.

#include <QElapsedTimer>
#include <QLabel>
#include <QTest>

#include "console/session/Globals.h"
#include "console/ui/ConsoleEnd.h"
#include "db/Query.h"
#include "tests/console/maintenance/CompactFormTest.h"
#include "tests/support/Console.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class CompactionTest : public CompactFormTest {
    Q_OBJECT

  private Q_SLOTS:
    void theQuestionBreaksItsLineAtTheCarriageReturn();
    void noLeavesEverythingRunning();
    void aServerThatDoesNotEndIsReported();
    void aConnectionInUseIsReported();
    void theDatabaseIsCompacted();
    void stopEndsTheWait();
    void stopInThePassLeavesTheQuestionAndEndsTheWaitAtOnce();
    void theConsoleMayEndInTheWait();
};

void CompactionTest::theQuestionBreaksItsLineAtTheCarriageReturn() {
    const auto height = [](const QString& separator) {
        QMessageBox box{QMessageBox::NoIcon, {}, u"one"_s + separator + u"two"_s};
        box.setTextFormat(Qt::PlainText);
        box.setTextInteractionFlags(Qt::TextSelectableByMouse);
        return box.findChild<QLabel*>(u"qt_msgbox_label"_s)->sizeHint().height();
    };
    QVERIFY(height(u"\r"_s) > height(u" "_s));
    QCOMPARE(height(u"\r"_s), height(u"\n"_s));
}

void CompactionTest::noLeavesEverythingRunning() {
    BoxScript script;
    script.expect(question(QMessageBox::No));
    repair().CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window().calls, QStringList{});
    QVERIFY(Globals::DbConnection().isOpen());
}

void CompactionTest::aServerThatDoesNotEndIsReported() {
    window().refusesToTerminate = true;
    BoxScript script;
    script.expect(question(QMessageBox::Yes)).expect(plain(u"CompactDB: the server does not answer"_s));
    repair().CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window().calls, (QStringList{u"terminate, open"_s, u"timer on, open"_s, u"refresh, open"_s}));
}

void CompactionTest::aConnectionInUseIsReported() {
    const db::Query query{Globals::DbConnection(), "SELECT * FROM Users"};
    BoxScript script;
    script.expect(question(QMessageBox::Yes))
        .expect(plain(u"CompactDB: A statement of the connection is still in use"_s));
    repair().CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(window().calls, Bracket);
}

void CompactionTest::theDatabaseIsCompacted() {
    const qint64 before = size();
    bool waits = false;
    QTimer::singleShot(0, &repair(), [&] {
        QTimer::singleShot(1000, &repair(), [&] {
            waits = form().find(u"lblWait"_s).isVisible() && !form().find(u"prgBar"_s).isVisible() &&
                    !Globals::DbConnection().isOpen();
        });
    });
    QElapsedTimer clock;
    clock.start();
    BoxScript script;
    sayYes(script);
    repair().CompactDB();
    QVERIFY(script.isDone());
    QVERIFY2(clock.elapsed() >= 5000, "the server had no five seconds to let go of the database");
    QVERIFY(waits);
    QCOMPARE(window().calls, Bracket);
    QVERIFY(size() < before / 2);
    // The console's connection is on the compacted database.
    db::Query query{Globals::DbConnection(), "SELECT * FROM Series"};
    db::ResultSet rows = query.open();
    QVERIFY(rows.next());
    QCOMPARE(rows.text("SeriesInstanceUID"), "1.2.7");
}

void CompactionTest::stopEndsTheWait() {
    const qint64 before = size();
    database().release();
    whenWaiting([this] { form().click(u"cmdStop"_s); });
    const Turns turns{repair()};
    BoxScript script;
    sayYes(script);
    repair().CompactDB();
    QVERIFY(script.isDone());
    QVERIFY2(turns.waiting() <= FirstTurns, qPrintable(QString::number(turns.waiting())));
    QCOMPARE(window().calls, Bracket);
    QCOMPARE(size(), before);
}

void CompactionTest::stopInThePassLeavesTheQuestionAndEndsTheWaitAtOnce() {
    const qint64 before = size();
    database().release();
    // The one row of the pass is visited; Stop is pressed in the event processing after it.
    QTimer::singleShot(0, &repair(), [this] { form().click(u"cmdStop"_s); });
    const Turns turns{repair()};
    BoxScript script;
    sayYes(script);
    repair().Repair();
    QVERIFY(script.isDone());
    QVERIFY2(turns.waiting() <= FirstTurns, qPrintable(QString::number(turns.waiting())));
    QCOMPARE(window().calls, Bracket);
    QCOMPARE(size(), before);
}

void CompactionTest::theConsoleMayEndInTheWait() {
    const qint64 before = size();
    database().release();
    whenWaiting([] { ui::endConsole(0); });
    BoxScript script;
    sayYes(script);
    repair().CompactDB();
    QVERIFY(script.isDone());
    QCOMPARE(takeConsoleEnd(), 0);
    QCOMPARE(window().calls, Bracket);
    QCOMPARE(size(), before);
}

QTEST_MAIN(CompactionTest)
#include "tst_compaction.moc"
