#include <dcmtk/dcmdata/dcdeftag.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <regex>

#include "tessalyd/forwarding/films/NewUid.h"
#include "tessalyd/forwarding/films/PrintOrder.h"
#include "tessalyd/forwarding/films/PrintProgress.h"
#include "tessalyd/forwarding/films/PrinterLink.h"

using namespace tessaly::tessalyd::films;

namespace {

/// What is kept of a print: in the spool, with its job, and what its settings come to.
class FilmSettingsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void ordersComeBack();
    void noOrderIsNeverPrinted_data();
    void noOrderIsNeverPrinted();
    void progressComesBack();
    void uidsAreBelowTheSites();
    void statusesHaveTheirClass();
    void rowsFillInAndNothingElse();
};

void FilmSettingsTest::ordersComeBack() {
    QTemporaryDir folder;
    PresentationLut lut;
    lut.table.values = {1, 2, 65535};
    lut.table.bits = 16;
    lut.explanation = "x";
    PrintOrder order;
    order.callingAeTitle = "PORT";
    order.originator = "STATION";
    order.baseUid = "1.2.3";
    order.isColour = true;
    order.session = {{DCM_FilmSessionLabel, "M\xfcller \"\\\x1b$B"}};
    order.luts.emplace("9", lut);
    Film film;
    film.displayFormat = "STANDARD\\2,1";
    film.settings = {{DCM_MaxDensity, "300"}};
    film.lut = "9";
    FilmImage& image = film.images[2];
    image.file = "image-7";
    image.layout = {.rows = 3, .columns = 4, .bitsAllocated = 16, .bitsStored = 12, .isInverse = true};
    image.layout.aspectRatio = "1\\2";
    image.settings = {{DCM_Polarity, "REVERSE"}};
    image.lut = "9";
    film.annotations[1].text = "\xff\x01";
    order.films.push_back(film);
    save(order, folder.path().toStdString());
    QCOMPARE(QFile::permissions(folder.filePath(QStringLiteral("order"))) &
                 (QFile::ReadGroup | QFile::ReadOther | QFile::WriteGroup | QFile::WriteOther),
             QFile::Permissions{});
    const PrintOrder read = loadOrder(folder.path().toStdString());
    QCOMPARE(read.callingAeTitle, order.callingAeTitle);
    QCOMPARE(read.originator, order.originator);
    QCOMPARE(read.baseUid, order.baseUid);
    QVERIFY(read.isColour);
    QVERIFY(read.session == order.session);
    QVERIFY(read.luts.at("9").table.values == order.luts.at("9").table.values);
    QCOMPARE(read.luts.at("9").table.bits, 16U);
    QCOMPARE(read.films.size(), 1U);
    const Film& back = read.films.front();
    QVERIFY(back.settings == film.settings && back.lut == "9" && back.displayFormat == film.displayFormat);
    QCOMPARE(back.images.at(2).file, std::string{"image-7"});
    QCOMPARE(back.images.at(2).layout.aspectRatio, std::string{"1\\2"});
    QVERIFY(back.images.at(2).layout.isInverse && back.images.at(2).layout.columns == 4);
    QCOMPARE(back.annotations.at(1).text, film.annotations.at(1).text);
}

void FilmSettingsTest::noOrderIsNeverPrinted_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("nothing") << QByteArray{};
    QTest::newRow("no object") << QByteArray{"[1]"};
    QTest::newRow("cut off") << QByteArray{"{\"films\":[{"};
    QTest::newRow("no format") << QByteArray{R"({"films":[{"format":"SLIDE"}]})"};
    const auto image = [](const char* what) {
        return QByteArray{R"({"films":[{"format":"STANDARD\\1,1","images":{)"} + what + "}}]}";
    };
    const QByteArray layout = R"("layout":{"rows":1,"columns":1,"samples":1,"allocated":8,"stored":8})";
    QTest::newRow("no such box") << image((R"("2":{"file":"a",)" + layout + "}").constData());
    QTest::newRow("another folder's file") << image((R"("1":{"file":"../a",)" + layout + "}").constData());
    QTest::newRow("no rows") << image(
        R"("1":{"file":"a","layout":{"columns":1,"samples":1,"allocated":8,"stored":8}})");
    QTest::newRow("no bits") << image(
        R"("1":{"file":"a","layout":{"rows":1,"columns":1,"samples":1,"allocated":8}})");
    QTest::newRow("four samples") << image(
        R"("1":{"file":"a","layout":{"rows":1,"columns":1,"samples":4,"allocated":8,"stored":8}})");
}

void FilmSettingsTest::noOrderIsNeverPrinted() {
    QFETCH(const QByteArray, content);
    QTemporaryDir folder;
    QVERIFY_THROWS_EXCEPTION(NoSuchOrder, (void)loadOrder(folder.path().toStdString()));
    QFile file{folder.filePath(QStringLiteral("order"))};
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
    file.close();
    QVERIFY_THROWS_EXCEPTION(NoSuchOrder, (void)loadOrder(folder.path().toStdString()));
}

void FilmSettingsTest::progressComesBack() {
    for (const bool isAsked : {false, true}) {
        const PrintProgress progress{.printed = 2, .films = 30, .isAsked = isAsked};
        const auto read = PrintProgress::parse(progress.note());
        QCOMPARE(read.printed, 2U);
        QCOMPARE(read.films, 30U);
        QCOMPARE(read.isAsked, isAsked);
    }
    for (const char* const nonsense : {"", "x", "2", "2 of", "2 of x films printed", "-1 of 3 films printed"})
        QCOMPARE(PrintProgress::parse(nonsense).films, 0U);
}

void FilmSettingsTest::uidsAreBelowTheSites() {
    const std::regex uid{"(0|[1-9][0-9]*)(\\.(0|[1-9][0-9]*))+"};
    for (const char* const base :
         {"1.2.826.0.1", "2.25", "1.2.840.113619.2.55.3.604688119.971", "", "1..2", "x", "01.2",
          "1.2345678901234567890123456789012345678901234567890123456789012"}) {
        const std::string made = newUid(base);
        QVERIFY2(std::regex_match(made, uid) && made.size() <= 64, made.c_str());
        QVERIFY(made != newUid(base));
    }
    QVERIFY(newUid("1.2.826.0.1").starts_with("1.2.826.0.1."));
    QVERIFY(newUid("1..2").starts_with("2.25."));
}

void FilmSettingsTest::statusesHaveTheirClass() {
    QCOMPARE(verdictOf(0x0000), Verdict::Success);
    for (const int status : {0x0107, 0x0116, 0xb600, 0xb60a})
        QCOMPARE(verdictOf(static_cast<std::uint16_t>(status)), Verdict::Warning);
    for (const int status : {0x0105, 0x0106})
        QCOMPARE(verdictOf(static_cast<std::uint16_t>(status)), Verdict::Unacceptable);
    for (const int status : {0xc601, 0xc602, 0xc605, 0x0213})
        QCOMPARE(verdictOf(static_cast<std::uint16_t>(status)), Verdict::Busy);
    for (const int status : {0xc600, 0xc603, 0xc613, 0x0110, 0x0112, 0xfe00, 0xa700})
        QCOMPARE(verdictOf(static_cast<std::uint16_t>(status)), Verdict::Failure);
}

void FilmSettingsTest::rowsFillInAndNothingElse() {
    const PrinterRow row{
        .copies = "0", .medium = "SPECIAL", .minDensity = "20", .maxDensity = "300", .filmSize = "A4"};
    const Settings session = settingsThatHold(SettingsOf::Session, {}, row);
    QCOMPARE(session.at(DCM_NumberOfCopies), std::string{"1"});  // none is no number of copies
    QCOMPARE(session.at(DCM_MediumType), std::string{"SPECIAL"});
    QVERIFY(!session.contains(DCM_PrintPriority));
    const Settings film =
        settingsThatHold(SettingsOf::Film, {{DCM_FilmSizeID, "A3"}, {DCM_MinDensity, "310"}}, row);
    QCOMPARE(film.at(DCM_FilmSizeID), std::string{"A3"});
    QCOMPARE(film.at(DCM_MinDensity), std::string{"310"});
    QVERIFY(!film.contains(DCM_MaxDensity));  // the row's would be below
    const Settings response = settingsForResponse(SettingsOf::Film, {}, row);
    for (const DcmTagKey& tag :
         {DCM_FilmOrientation, DCM_MagnificationType, DCM_Trim, DCM_RequestedResolutionID})
        QVERIFY(response.contains(tag));
}

}  // namespace

QTEST_GUILESS_MAIN(FilmSettingsTest)
#include "tst_filmsettings.moc"
