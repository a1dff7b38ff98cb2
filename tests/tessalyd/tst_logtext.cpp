#include <dcmtk/dcmdata/dcdeftag.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTest>
#include <filesystem>

#include "tessalyd/Log.h"
#include "tests/support/Eventually.h"
#include "tests/tessalyd/services/retrieve/RetrieveTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

namespace {

const QString StudyUid = u"1.2.77"_s;
const QString SeriesUid = u"1.2.88"_s;

ObjectSpec theObject(const std::string& instance = "1.2.99") {
    return {.study = StudyUid.toStdString(), .series = SeriesUid.toStdString(), .instance = instance};
}

/// Lines that do not begin as each entry does.
QStringList strayLines(const QString& log) {
    static const QRegularExpression entry{
        u"^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d+ [ A-Z]{5} \\["_s};
    QStringList stray;
    for (const QString& line : log.split(u'\n', Qt::SkipEmptyParts)) {
        if (!entry.match(line).hasMatch())
            stray << line;
    }
    return stray;
}

}  // namespace

/// What of others' texts and of patients gets into the log, and what becomes of its file.
class LogTextTest : public RetrieveTest {
    Q_OBJECT

  private Q_SLOTS:
    void aPeersTextWithLineFeedsForgesNoEntry();
    void aNameOfTheTablesWithLineFeedsForgesNoEntry();
    void dumpsOfAPeersTextForgeNoEntry();
    void noStudyOrSeriesIsNamedUpToNormal_data();
    void noStudyOrSeriesIsNamedUpToNormal();
    void noPatientIsNamedWhenTheTablesRefuseOne();
    void aLogThatWasTakenAwayIsBegunAnew_data();
    void aLogThatWasTakenAwayIsBegunAnew();
    void aLogThatCannotBeOpenedIsTriedAgain();
};

void LogTextTest::aPeersTextWithLineFeedsForgesNoEntry() {
    launch();
    {
        RequestorAssociation peer{daemon_->port(), "A\n\xffZ\\"};
        QVERIFY(peer.isOpen());
        EVENTUALLY_COMPARE(daemon_->connections.size(), 1);
        QVERIFY(peer.store(*makeObject({}), "1.2\n2026-11-22 00:00:00.000 ERROR").status != 0);
        peer.release();
    }
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
    const QString log = daemon_->log();
    QCOMPARE(strayLines(log), QStringList{});
    QVERIFY2(log.contains(u"A\\x0a\\xffZ\\\\ > TESSALY"_s), qPrintable(log));
    QCOMPARE(daemon_->connections.first().calling, u"A\\x0a\\xffZ\\\\"_s);
    QCOMPARE(daemon_->ends.first().calling, u"A\\x0a\\xffZ\\\\"_s);
}

void LogTextTest::aNameOfTheTablesWithLineFeedsForgesNoEntry() {
    launch({PortRow{}, PortRow{.port = u"none\nat all"_s}, PortRow{.aeTitle = u"TWO\nLINES"_s}});
    const QString log = daemon_->log();
    QCOMPARE(strayLines(log), QStringList{});
    QVERIFY2(log.contains(u"port none\\x0aat all: cannot listen"_s), qPrintable(log));
    QVERIFY2(log.contains(u"listening as TWO\\x0aLINES"_s), qPrintable(log));
}

void LogTextTest::dumpsOfAPeersTextForgeNoEntry() {
    daemon_ = std::make_unique<Daemon>();
    daemon_->database.run(u"UPDATE DicomServer SET DumpLevel=23, LogLevel=3"_s);
    daemon_->launch();
    QCOMPARE(store({.patientName = "Doe\n2026-11-22 00:00:00.000 ERROR [1] forged\x1b[2J"}).status, 0);
    QVERIFY(daemon_->terminate());
    const QString log = daemon_->log();
    for (const QString& line : strayLines(log))
        QVERIFY2(line.startsWith(u"    "_s), qPrintable(line));
    QVERIFY2(!log.contains(u"\n2026-11-22 00:00:00.000 ERROR [1] forged"_s), qPrintable(log));
    QVERIFY(!log.contains(u'\x1b'));
}

void LogTextTest::noStudyOrSeriesIsNamedUpToNormal_data() {
    QTest::addColumn<int>("level");
    QTest::addColumn<bool>("named");
    QTest::newRow("Errors") << 0 << false;
    QTest::newRow("Normal") << 1 << false;
    QTest::newRow("Debug") << 3 << true;
}

void LogTextTest::noStudyOrSeriesIsNamedUpToNormal() {
    QFETCH(const int, level);
    QFETCH(const bool, named);
    launchWith();
    QCOMPARE(store(theObject("1.2.991")).status, 0);
    QCOMPARE(store(theObject("1.2.992")).status, 0);
    const QString folder = daemon_->database.imageRoot() + u'/' + StudyUid + u'/' + SeriesUid;
    const QString left = folder + u"/.tessalyd-7-1.part"_s;
    {
        QFile file{left};
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(
            file.setFileTime(QDateTime::currentDateTime().addSecs(-60), QFileDevice::FileModificationTime));
    }
    daemon_->database.run(u"UPDATE DicomServer SET LogLevel=?"_s, {level});
    QVERIFY(daemon_->terminate());
    QVERIFY(QFile::remove(daemon_->logFile()));
    daemon_->launch();
    EVENTUALLY(!QFile::exists(left));
    QVERIFY(QFile::remove(folder + u"/1.2.991.dcm"_s));
    QVERIFY(QFile::resize(folder + u"/1.2.992.dcm"_s, 700));
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::GetStudyRoot, "STUDY", {{DCM_StudyInstanceUID, StudyUid.toStdString()}});
    QCOMPARE(viewer.collect().failed.size(), 2);
    viewer.release();
    QVERIFY(QDir{folder}.removeRecursively());
    QFile blocker{folder};
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    QCOMPARE(store(theObject("1.2.993")).status, 0xa700);
    QVERIFY(daemon_->terminate());
    const QString log = daemon_->log();
    for (const auto* instance : {"1.2.991", "1.2.992", "1.2.993"})
        QVERIFY2(log.contains(QString::fromLatin1(instance)), qPrintable(log));
    QVERIFY2(log.contains(u"below "_s + daemon_->database.imageRoot()), qPrintable(log));
    QVERIFY2(log.contains(StudyUid) == named, qPrintable(log));
    QVERIFY2(log.contains(SeriesUid) == named, qPrintable(log));
}

void LogTextTest::noPatientIsNamedWhenTheTablesRefuseOne() {
    daemon_ = std::make_unique<Daemon>();
    if (ScratchDatabase::isPostgresql())  // an engine that quotes the row
        daemon_->database.run(u"ALTER TABLE Patient ADD CHECK (Sex IS NULL)"_s);
    else
        daemon_->database.failOn(u"Patient"_s, u"INSERT"_s);
    daemon_->launch();
    QCOMPARE(store({}).status, 0xa700);
    const QString log = daemon_->log();
    QVERIFY2(log.contains(u"not stored"_s), qPrintable(log));
    QVERIFY2(!log.contains(u"Doe"_s), qPrintable(log));
    QCOMPARE(strayLines(log), QStringList{});
}

void LogTextTest::aLogThatWasTakenAwayIsBegunAnew_data() {
    QTest::addColumn<bool>("renamed");
    QTest::newRow("removed") << false;
    QTest::newRow("renamed") << true;
}

void LogTextTest::aLogThatWasTakenAwayIsBegunAnew() {
    QFETCH(const bool, renamed);
    launch();
    QVERIFY(renamed ? QFile::rename(daemon_->logFile(), scratch(u"yesterday.log"_s))
                    : QFile::remove(daemon_->logFile()));
    const auto says = [this](int) {
        (void)RequestorAssociation{daemon_->port()}.echo();
        return daemon_->log().contains(u"association accepted"_s);
    };
    EVENTUALLY(says(0));
    QVERIFY(!(QFile::permissions(daemon_->logFile()) & (QFileDevice::ReadOther | QFileDevice::WriteOther)));
}

void LogTextTest::aLogThatCannotBeOpenedIsTriedAgain() {
    namespace fs = std::filesystem;
    QTemporaryDir scratchFolder;
    const fs::path folder{scratchFolder.filePath(u"logs"_s).toStdString()};
    const fs::path file = folder / "server.log";
    const tessaly::tessalyd::LogFile log{file, 1 << 20};
    const auto written = [&file] {
        OFLOG_ERROR(tessaly::tessalyd::serverLog(), "a message");
        QFile read{QString::fromStdString(file.string())};
        return read.open(QIODevice::ReadOnly) && read.readAll().contains("a message");
    };
    QVERIFY(written());
    fs::remove_all(folder);
    QFile blocker{QString::fromStdString(folder.string())};
    QVERIFY(blocker.open(QIODevice::WriteOnly));  // no folder can be made there
    const auto until = QDateTime::currentDateTime().addSecs(2);
    while (QDateTime::currentDateTime() < until)
        QVERIFY(!written());
    QVERIFY(blocker.remove());
    EVENTUALLY(written());
}

QTEST_GUILESS_MAIN(LogTextTest)
#include "tst_logtext.moc"
