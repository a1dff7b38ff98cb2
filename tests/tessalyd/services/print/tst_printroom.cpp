#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QDir>
#include <QFile>

#include "tests/tessalyd/SmallDisk.h"
#include "tests/tessalyd/services/print/PrintTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

namespace {

/// Queues, printers and disks that are full.
class PrintRoomTest : public PrintTest {
    Q_OBJECT

  private Q_SLOTS:
    void aFullQueueTakesNoFilm();
    void aFullDiskTakesNoImage();
    void aFullDiskTakesNoFilm();
    void aBusyPrinterIsTriedAgain_data();
    void aBusyPrinterIsTriedAgain();

  private:
    /// A server whose archive, with the spool, is on a disk of that many kilobytes.
    void launchOnDisk(int kilobytes);
    /// What lies in the spool that the server sees.
    [[nodiscard]] QStringList seen() const;
};

void PrintRoomTest::launchOnDisk(int kilobytes) {
    launchWith(unusedPort());
    QVERIFY(daemon_->terminate());
    QDir{}.mkpath(daemon_->database.imageRoot());
    giveSmallDisk(daemon_->process, daemon_->database.imageRoot(), kilobytes);
    daemon_->launch();
}

QStringList PrintRoomTest::seen() const {
    const QDir spool{
        u"/proc/%1/root%2/.spool"_s.arg(daemon_->process.processId()).arg(daemon_->database.imageRoot())};
    QStringList found;
    for (const QFileInfo& folder : spool.entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot))
        for (const QString& file : QDir{folder.filePath()}.entryList(QDir::Files))
            found << folder.fileName() + u'/' + file;
    return found;
}

void PrintRoomTest::aFullQueueTakesNoFilm() {
    launchWith(unusedPort());
    fillQueue(1000);
    PrintStation peer = station();
    const std::string box = prepare(peer);
    QCOMPARE(peer.setImage(box, 1).status, 0);
    QCOMPARE(peer.printFilm().status, 0xc602);
    QCOMPARE(peer.printSession().status, 0xc601);
    QCOMPARE(jobs().size(), 1000);
    QVERIFY(spooled().filter(u"/print-"_s).isEmpty());
    QVERIFY(daemon_->log().contains(u"the printer has 1000 jobs already"_s));
    // What is over does not count.
    daemon_->database.run(u"UPDATE Job SET State=2 WHERE JobKey='7'"_s);
    QCOMPARE(peer.printFilm().status, 0);
    QCOMPARE(jobs().size(), 1001);
}

void PrintRoomTest::aFullDiskTakesNoImage() {
    launchOnDisk(1024);
    PrintStation peer = station();
    const std::string box = prepare(peer);
    const PrintImage large{.rows = 1000, .columns = 1000};  // 2 MB
    const auto refused = peer.setImage(box, 1, large);
    QCOMPARE(refused.status, 0xc605);
    QVERIFY(!refused.comment.empty());
    QCOMPARE(seen(), QStringList{});
    QCOMPARE(peer.printFilm().status, 0xb603);  // the box is as empty as it was
    QCOMPARE(peer.setImage(box, 1).status, 0);
    QCOMPARE(peer.printFilm().status, 0);
    QCOMPARE(jobs().size(), 1);
}

void PrintRoomTest::aFullDiskTakesNoFilm() {
    launchOnDisk(1024);
    PrintStation peer = station();
    const std::string box = prepare(peer);
    QCOMPARE(peer.setImage(box, 1).status, 0);
    const QString filling = fillDisk(daemon_->process, daemon_->database.imageRoot());
    QCOMPARE(peer.printFilm().status, 0xc602);
    QCOMPARE(peer.printSession().status, 0xc601);
    QVERIFY(jobs().isEmpty());
    QVERIFY(seen().filter(u"print-"_s).isEmpty());
    QVERIFY(daemon_->log().contains(u"films are not taken: a film cannot be put into the spool"_s));
    QVERIFY(QFile::remove(filling));
    QCOMPARE(peer.printFilm().status, 0);
    QCOMPARE(jobs().size(), 1);
}

void PrintRoomTest::aBusyPrinterIsTriedAgain_data() {
    QTest::addColumn<int>("field");
    QTest::addColumn<QString>("sopClass");
    using Field = tessaly::dicom::CommandField;
    const auto row = [](const char* name, Field field, const char* sopClass) {
        QTest::newRow(name) << static_cast<int>(field) << QString::fromLatin1(sopClass);
    };
    row("session", Field::NCreate, UID_BasicFilmSessionSOPClass);
    row("film", Field::NCreate, UID_BasicFilmBoxSOPClass);
    row("image", Field::NSet, UID_BasicGrayscaleImageBoxSOPClass);
    row("print", Field::NAction, UID_BasicFilmBoxSOPClass);
}

void PrintRoomTest::aBusyPrinterIsTriedAgain() {
    QFETCH(const int, field);
    QFETCH(const QString, sopClass);
    const std::string wanted = sopClass.toStdString();
    std::atomic<int> refused = 0;
    ScriptedPrinter printer{[&](const ScriptedPrinter::Request& request) {
        const bool isIt = request.is(static_cast<tessaly::dicom::CommandField>(field), wanted.c_str());
        const bool isRefused = isIt && refused++ == 0;
        return ScriptedPrinter::Answer{.status = static_cast<std::uint16_t>(isRefused ? 0x0213 : 0)};
    }};
    launchWith(printer.port(), {}, {u"--first-retry"_s, u"1"_s});
    PrintStation peer = station();
    QCOMPARE(peer.printAll("STANDARD\\1,1").status, 0);
    EVENTUALLY(areAll(2, 1));
    QCOMPARE(refused, 2);
    QCOMPARE(printer.associations(), 2);
    QVERIFY(daemon_->log().contains(u"0213"_s));
}

}  // namespace

QTEST_GUILESS_MAIN(PrintRoomTest)
#include "tst_printroom.moc"
