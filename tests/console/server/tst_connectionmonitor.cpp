#include <QLabel>
#include <QTabWidget>
#include <QTest>

#include "console/app/TessalyManager.h"
#include "tests/console/server/ScriptedServer.h"
#include "tests/support/Form.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

/// The list of open associations and the status bar under the events of a server.
class ConnectionMonitorTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        script_ = {};
        window_ = std::make_unique<TessalyManager>(script_.factory());
        window_->setConnectionTimerEnabled(false);
        window_->RefreshServerState();
        window_->show();
        window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(3);
    }
    void cleanup() { window_.reset(); }

    void theListHasItsColumns();
    void oneRowForTheSameThreeValues();
    void otherValuesAreOtherRows();
    void anEndWithoutARowChangesNothing();
    void theKeyIsTheJoinedText();
    void theTotalIsTheServersFigure();
    void anEndLeavesTheStatusBar();
    void startAndStopShowTheState();
    void rowsOutliveTheServer();
    void aBurstIsCountedRight_data();
    void aBurstIsCountedRight();

  private:
    [[nodiscard]] Form window() const { return Form{*window_}; }
    [[nodiscard]] QList<QStringList> rows() const { return window().rows(u"lstStatus"_s); }
    [[nodiscard]] QStringList statusBar() const {
        return {window().text(u"stsBarText1"_s),
                window().find<QLabel>(u"stsBarIcon1"_s).property("key").toString(),
                window().text(u"stsBarText2"_s)};
    }
    void connection(const QString& port, const QString& calling, const QString& called,
                    short total = 1) const {
        Q_EMIT script_.current->OnConnection(port, calling, called, total);
    }
    void end(const QString& port, const QString& calling, const QString& called) const {
        Q_EMIT script_.current->OnEndConnection(port, calling, called, 0);
    }

    ServerScript script_;
    std::unique_ptr<TessalyManager> window_;
};

void ConnectionMonitorTest::theListHasItsColumns() {
    QCOMPARE(window().headers(u"lstStatus"_s),
             (QStringList{u"Port"_s, u"From AE_TITLE"_s, u"For AE_TITLE"_s, u"Num. Conn."_s}));
    QCOMPARE(rows(), QList<QStringList>{});
}

void ConnectionMonitorTest::oneRowForTheSameThreeValues() {
    connection(u"104"_s, u"CT1"_s, u"TESSALY"_s);
    QCOMPARE(rows(), (QList<QStringList>{{u"104"_s, u"CT1"_s, u"TESSALY"_s, u"1"_s}}));
    connection(u"104"_s, u"CT1"_s, u"TESSALY"_s);
    QCOMPARE(rows(), (QList<QStringList>{{u"104"_s, u"CT1"_s, u"TESSALY"_s, u"2"_s}}));
    end(u"104"_s, u"CT1"_s, u"TESSALY"_s);
    QCOMPARE(rows(), (QList<QStringList>{{u"104"_s, u"CT1"_s, u"TESSALY"_s, u"1"_s}}));
    end(u"104"_s, u"CT1"_s, u"TESSALY"_s);
    QCOMPARE(rows(), QList<QStringList>{});
    connection(u"104"_s, u"CT1"_s, u"TESSALY"_s);
    QCOMPARE(rows(), (QList<QStringList>{{u"104"_s, u"CT1"_s, u"TESSALY"_s, u"1"_s}}));
}

void ConnectionMonitorTest::otherValuesAreOtherRows() {
    connection(u"104"_s, u"CT1"_s, u"TESSALY"_s);
    connection(u"105"_s, u"CT1"_s, u"TESSALY"_s);
    connection(u"104"_s, u"CT2"_s, u"TESSALY"_s);
    connection(u"104"_s, u"CT1"_s, u"OTHER"_s);
    connection(u"104"_s, u"<b>Ä</b>"_s, u""_s);
    QCOMPARE(rows(), (QList<QStringList>{{u"104"_s, u"CT1"_s, u"TESSALY"_s, u"1"_s},
                                         {u"105"_s, u"CT1"_s, u"TESSALY"_s, u"1"_s},
                                         {u"104"_s, u"CT2"_s, u"TESSALY"_s, u"1"_s},
                                         {u"104"_s, u"CT1"_s, u"OTHER"_s, u"1"_s},
                                         {u"104"_s, u"<b>Ä</b>"_s, u""_s, u"1"_s}}));
    end(u"105"_s, u"CT1"_s, u"TESSALY"_s);
    QCOMPARE(rows().size(), 4);
    QCOMPARE(rows().at(1).at(1), u"CT2"_s);
}

void ConnectionMonitorTest::anEndWithoutARowChangesNothing() {
    end(u"104"_s, u"CT1"_s, u"TESSALY"_s);
    QCOMPARE(rows(), QList<QStringList>{});
    connection(u"104"_s, u"CT1"_s, u"TESSALY"_s);
    end(u"104"_s, u"CT1"_s, u"ELSEWHERE"_s);
    QCOMPARE(rows().size(), 1);
}

void ConnectionMonitorTest::theKeyIsTheJoinedText() {
    connection(u"104"_s, u"A:B"_s, u"C"_s);
    connection(u"104"_s, u"A"_s, u"B:C"_s);
    QCOMPARE(rows(), (QList<QStringList>{{u"104"_s, u"A:B"_s, u"C"_s, u"2"_s}}));
}

void ConnectionMonitorTest::theTotalIsTheServersFigure() {
    connection(u"104"_s, u"CT1"_s, u"TESSALY"_s, 41);
    QCOMPARE(statusBar(), (QStringList{u"Connected"_s, u"connected"_s, u"Num. Connections =41"_s}));
    connection(u"104"_s, u"CT1"_s, u"TESSALY"_s, 0);
    QCOMPARE(statusBar().last(), u"Num. Connections =0"_s);
    connection(u"104"_s, u"CT1"_s, u"TESSALY"_s, -1);
    QCOMPARE(statusBar().last(), u"Num. Connections =-1"_s);
    window_->RefreshServerState();
    QCOMPARE(statusBar(), (QStringList{u"Listening"_s, u"listening"_s, u""_s}));
    QCOMPARE(rows().first().last(), u"3"_s);
}

void ConnectionMonitorTest::anEndLeavesTheStatusBar() {
    connection(u"104"_s, u"CT1"_s, u"TESSALY"_s, 1);
    end(u"104"_s, u"CT1"_s, u"TESSALY"_s);
    QCOMPARE(statusBar(), (QStringList{u"Connected"_s, u"connected"_s, u"Num. Connections =1"_s}));
}

void ConnectionMonitorTest::startAndStopShowTheState() {
    connection(u"104"_s, u"CT1"_s, u"TESSALY"_s, 1);
    Q_EMIT script_.current->OnStop();
    QCOMPARE(statusBar(), (QStringList{u"Stopped"_s, u"stopped"_s, u""_s}));
    // The next look at the server sets the buttons.
    QVERIFY(!window().find(u"cmdStart"_s).isEnabled());
    QVERIFY(window().find(u"cmdStop"_s).isEnabled());
    connection(u"104"_s, u"CT1"_s, u"TESSALY"_s, 2);
    Q_EMIT script_.current->OnStart();
    QCOMPARE(statusBar(), (QStringList{u"Listening"_s, u"listening"_s, u""_s}));
    QCOMPARE(rows().first().last(), u"2"_s);
}

void ConnectionMonitorTest::rowsOutliveTheServer() {
    connection(u"104"_s, u"CT1"_s, u"TESSALY"_s);
    window_->DropServer();
    QCOMPARE(rows().size(), 1);
    window_->RefreshServerState();
    connection(u"104"_s, u"CT1"_s, u"TESSALY"_s);
    QCOMPARE(rows(), (QList<QStringList>{{u"104"_s, u"CT1"_s, u"TESSALY"_s, u"2"_s}}));
    end(u"104"_s, u"CT1"_s, u"TESSALY"_s);
    end(u"104"_s, u"CT1"_s, u"TESSALY"_s);
    QCOMPARE(rows(), QList<QStringList>{});
}

void ConnectionMonitorTest::aBurstIsCountedRight_data() {
    QTest::addColumn<int>("callers");
    QTest::newRow("of one caller") << 1;
    QTest::newRow("of seven") << 7;
    QTest::newRow("of as many callers as events") << 10'000;
}

void ConnectionMonitorTest::aBurstIsCountedRight() {
    QFETCH(int, callers);
    constexpr int Events = 10'000;
    const auto caller = [callers](int i) { return u"CALLER_%1"_s.arg(i % callers); };
    window().find(u"lstStatus"_s).setFocus();
    for (int i = 0; i < Events; ++i)
        connection(u"104"_s, caller(i), u"TESSALY"_s, static_cast<short>(i + 1));
    QCoreApplication::processEvents();
    const QList<QStringList> full = rows();
    QCOMPARE(full.size(), callers);
    int sum = 0;
    for (const QStringList& row : full)
        sum += row.last().toInt();
    QCOMPARE(sum, Events);
    QCOMPARE(full.first().last().toInt(), (Events + callers - 1) / callers);
    QCOMPARE(statusBar().last(), u"Num. Connections =10000"_s);
    for (int i = 0; i < Events; ++i)
        end(u"104"_s, caller(i), u"TESSALY"_s);
    QCOMPARE(rows(), QList<QStringList>{});
}

QTEST_MAIN(ConnectionMonitorTest)
#include "tst_connectionmonitor.moc"
