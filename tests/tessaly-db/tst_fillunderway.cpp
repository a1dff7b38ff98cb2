#include <QTest>
#include <atomic>
#include <thread>

#include "dicom/data/NameFolding.h"
#include "tessalyd/store/ArchiveSession.h"
#include "tests/tessaly-db/FillTest.h"
#include "tests/tessaly-db/Terminal.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

/// An upgrade that somebody breaks off, or that has a server beside it.
class TestFillUnderway : public FillTest {
    Q_OBJECT
  private slots:
    void goesOnWhereItWasBrokenOff();
    void runsWhileAServerStores();
};

void TestFillUnderway::goesOnWhereItWasBrokenOff() {
    constexpr int Images = 20'000;
    makeOlder();
    addObject(1);
    // Each of them costs the reading of a file, which is another object's.
    for (int number = 2; number <= Images; ++number)
        rows_ +=
            u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile) VALUES "
            "('%1', '%2.2', '%2.dcm')"_s.arg(uid(number), uid(1));
    writeRows();

    Terminal filling(TESSALY_DB, {u"upgrade"_s});
    QVERIFY2(filling.waitFor("1% "), filling.screen().right(300).constData());
    QVERIFY(filling.screen().contains(" images, older rows are filled"));
    filling.type("\x03");
    QCOMPARE(filling.finish(), 1);
    QVERIFY2(filling.screen().endsWith(
                 "tessaly-db: Broken off: what is filled stays, and the next upgrade goes on\r\n"),
             filling.screen().right(300).constData());
    QCOMPARE(column("SELECT NameAlphabetic FROM Patient"), QStringList{u"muller^1"_s});
    const auto mark = column("SELECT FilledTo FROM SchemaVersion");
    QVERIFY2(mark.size() == 1 && mark.first().startsWith(u"1.2.3."_s), qPrintable(mark.join(u',')));
    const QString left =
        column(qPrintable(u"SELECT COUNT(*) AS x FROM Image WHERE SOPInstanceUID>'%1'"_s.arg(mark.first())))
            .first();
    QVERIFY2(left.toInt() > 0 && left.toInt() < Images, qPrintable(left));

    const auto rest = run({u"upgrade"_s});
    QCOMPARE(rest.status, 0);
    QVERIFY2(rest.out.contains(u"filled 0 patients and 0 images; %1 files could not be read"_s.arg(left)),
             qPrintable(rest.out.right(300)));
    QCOMPARE(run({u"upgrade"_s}).out, u"DicomFDB: version 4, nothing to do\n"_s);
}

void TestFillUnderway::runsWhileAServerStores() {
    makeOlder();
    constexpr int Objects = 600;
    for (int number = 1; number <= Objects; ++number)
        addObject(number);
    writeRows();
    QCOMPARE(run({u"upgrade"_s, u"--quiet"_s}).status, 0);
    change(u"UPDATE Image SET ContentDate=NULL"_s);
    change(u"UPDATE Series SET ProtocolName=NULL"_s);
    change(u"UPDATE Patient SET NameAlphabetic=NULL"_s);

    std::atomic<bool> stop = false;
    std::atomic<int> stored = 0;
    std::string fault;
    std::thread server{[&] {
        try {
            tessalyd::ArchiveSession session{std::chrono::seconds{30}};
            while (!stop) {
                const int number = stored % Objects + 1;
                const std::string id = uid(number).toStdString();
                tessalyd::ObjectHeader header{.patientId = u"P%1"_s.arg(number).toStdString(),
                                              .patientName = "Own^Name",
                                              .studyInstanceUid = id + ".1",
                                              .seriesInstanceUid = id + ".2",
                                              .protocolName = "Own",
                                              .sopInstanceUid = id,
                                              .contentDate = "20250101"};
                header.nameGroups = dicom::foldedGroups(header.patientName);
                session.record(header, {.studyPath = path(u"images"_s).toStdString(),
                                        .seriesDir = "1.2.3",
                                        .imageFile = id + ".dcm"});
                ++stored;
            }
        } catch (const std::exception& error) {
            fault = error.what();
        }
    }};
    while (stored < 100 && fault.empty())
        std::this_thread::yield();
    const auto filled = run({u"upgrade"_s, u"--refill"_s});
    const int storedByThen = stored;
    while (stored < storedByThen + 10 && fault.empty())
        std::this_thread::yield();
    stop = true;
    server.join();
    QCOMPARE(QString::fromStdString(fault), QString());
    QCOMPARE(filled.err, QString());
    QCOMPARE(filled.status, 0);
    const auto count = [](const char* table, const char* where) {
        return column(qPrintable(u"SELECT COUNT(*) AS x FROM %1 WHERE %2"_s.arg(QString::fromLatin1(table),
                                                                                QString::fromLatin1(where))))
            .first()
            .toInt();
    };
    const int own = std::min<int>(stored, Objects);
    QCOMPARE(count("Image", "ContentDate='20250101'"), own);
    QCOMPARE(count("Series", "ProtocolName='Own'"), own);
    QCOMPARE(count("Patient", "NameAlphabetic='own^name'"), own);
    QCOMPARE(count("Image", "ContentDate='20210204'"), Objects - own);
    QCOMPARE(count("Series", "ProtocolName='Routine'"), Objects - own);
    QCOMPARE(count("Patient", "NameAlphabetic LIKE 'muller^%'"), Objects - own);
}

QTEST_GUILESS_MAIN(TestFillUnderway)
#include "tst_fillunderway.moc"
