#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QDir>
#include <QFile>

#include "tests/dicom/net/Peers.h"
#include "tests/tessalyd/services/print/PrintTest.h"
#include "tests/tessalyd/services/print/PrintTools.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

namespace {

/// Other products' stations and printers, with the server between them.
class PrintToolsTest : public PrintTest {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void arrivesAsItWasSent_data();
    void arrivesAsItWasSent();
    void isRefusedByThePrinter();
    void printsASession();

  private:
    [[nodiscard]] QString stationFolder() const { return scratch(u"station"_s); }
    /// Prints two images on one film, as a viewer does; gives what it said.
    Outcome print(const QStringList& options) const;
    /// The stored prints that the printer has made.
    [[nodiscard]] QStringList printed() const { return files(u"SP_*.dcm"_s); }
    [[nodiscard]] QStringList files(const QString& pattern) const;
    [[nodiscard]] static QString valueIn(const QString& file, const DcmTagKey& sequence,
                                         const DcmTagKey& tag);
    [[nodiscard]] static QByteArray pixelsIn(const QString& file);

    std::unique_ptr<Product> printer_;
};

void PrintToolsTest::init() {
    printer_ = std::make_unique<Product>(
        u"dcmprscp"_s, QStringList{u"-c"_s, u"%FOLDER%/configuration"_s, u"-p"_s, u"PEER"_s},
        QString{PrintToolsConfiguration}.replace(u"%TYPE%"_s, u"LOCALPRINTER"_s));
}

QStringList PrintToolsTest::files(const QString& pattern) const {
    const QDir folder{printer_->folder()};
    QStringList found;
    for (const QString& name : folder.entryList({pattern}, QDir::Files, QDir::Name))
        found << folder.filePath(name);
    return found;
}

Outcome PrintToolsTest::print(const QStringList& options) const {
    QDir{}.mkpath(stationFolder());
    QFile configuration{stationFolder() + u"/configuration"_s};
    if (!configuration.open(QIODevice::WriteOnly))
        throw std::runtime_error{"no configuration for a station"};
    configuration.write(QString{PrintToolsConfiguration}
                            .replace(u"%TYPE%"_s, u"PRINTER"_s)
                            .replace(u"%PORT%"_s, daemon_->port())
                            .replace(u"%FOLDER%"_s, stationFolder())
                            .toUtf8());
    configuration.close();
    QStringList images;
    for (const int seed : {1, 2}) {
        const QString file = stationFolder() + u"/image%1.dcm"_s.arg(seed);
        auto object = makeObject({.instance = "1.2.826.0.1.1.1." + std::to_string(seed), .seed = seed});
        object->saveFile(file.toLocal8Bit().constData(), EXS_LittleEndianExplicit);
        images << file;
    }
    // It leaves its spooler behind, which must have somewhere to write to.
    QProcess tool;
    const QString said = stationFolder() + u"/said"_s;
    tool.setStandardOutputFile(said);
    tool.setProcessChannelMode(QProcess::MergedChannels);
    tool.start(u"dcmpsprt"_s, QStringList{u"-v"_s, u"-c"_s, configuration.fileName(), u"-p"_s, u"PEER"_s,
                                          u"--layout"_s, u"1"_s, u"2"_s, u"--spool"_s} +
                                  options + images);
    const auto isOver = [&said] {
        QFile file{said};
        return file.open(QIODevice::ReadOnly) && file.readAll().contains("spooler is terminating");
    };
    if (!tool.waitForFinished(PatienceMs) || !QTest::qWaitFor(isOver, PatienceMs))
        throw std::runtime_error{"the station does not come to an end"};
    QFile file{said};
    return {.exitCode = tool.exitCode(),
            .output = file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString{}};
}

QString PrintToolsTest::valueIn(const QString& file, const DcmTagKey& sequence, const DcmTagKey& tag) {
    DcmFileFormat object;
    if (object.loadFile(file.toLocal8Bit().constData()).bad())
        return {};
    DcmItem* item = nullptr;
    OFString value;
    if (object.getDataset()->findAndGetSequenceItem(sequence, item).good())
        item->findAndGetOFStringArray(tag, value);
    return QString::fromStdString(value);
}

QByteArray PrintToolsTest::pixelsIn(const QString& file) {
    DcmFileFormat object;
    const Uint16* words = nullptr;
    unsigned long count = 0;
    if (object.loadFile(file.toLocal8Bit().constData()).bad() ||
        object.getDataset()->findAndGetUint16Array(DCM_PixelData, words, &count).bad())
        return {};
    return {reinterpret_cast<const char*>(words), static_cast<qsizetype>(count * 2)};
}

void PrintToolsTest::arrivesAsItWasSent_data() {
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("filmSize");
    QTest::addColumn<QString>("orientation");
    QTest::newRow("as it is sent") << QStringList{u"--filmsize"_s, u"8INX10IN"_s, u"--landscape"_s}
                                   << u"8INX10IN"_s << u"LANDSCAPE"_s;
    QTest::newRow("filled in") << QStringList{} << u"14INX17IN"_s << u"PORTRAIT"_s;
}

void PrintToolsTest::arrivesAsItWasSent() {
    QFETCH(const QStringList, options);
    QFETCH(const QString, filmSize);
    QFETCH(const QString, orientation);
    launchWith(printer_->port(),
               {{u"FilmSize"_s, u"14INX17IN"_s}, {u"Border"_s, u"WHITE"_s}, {u"MaxDensity"_s, 300}});
    const Outcome said = print(options);
    EVENTUALLY2(areAll(2, 1), qPrintable(said.output));
    EVENTUALLY(printed().size() == 1);
    const QString print = printed().first();
    const auto film = [&](const DcmTagKey& tag) {
        return valueIn(print, DCM_RETIRED_FilmBoxContentSequence, tag);
    };
    QCOMPARE(film(DCM_ImageDisplayFormat), uR"(STANDARD\1,2)"_s);
    QCOMPARE(film(DCM_FilmSizeID), filmSize);
    QCOMPARE(film(DCM_FilmOrientation), orientation);
    QCOMPARE(film(DCM_BorderDensity), u"WHITE"_s);
    QCOMPARE(film(DCM_MaxDensity), u"300"_s);
    QCOMPARE(valueIn(print, DCM_RETIRED_PresentationLUTContentSequence, DCM_PresentationLUTShape),
             u"IDENTITY"_s);
    // The same pixels as the station has put into its own stored images.
    const auto pixels = [](const QString& folder) {
        QList<QByteArray> all;
        for (const QString& name : QDir{folder}.entryList({u"HG_*.dcm"_s}, QDir::Files))
            all << pixelsIn(folder + u'/' + name);
        std::sort(all.begin(), all.end());
        return all;
    };
    QCOMPARE(pixels(printer_->folder()).size(), 2);
    QVERIFY(!pixels(stationFolder()).first().isEmpty());
    QCOMPARE(pixels(printer_->folder()), pixels(stationFolder()));
}

void PrintToolsTest::isRefusedByThePrinter() {
    // The printer knows neither this size nor this medium: it gets the film without them.
    launchWith(printer_->port(), {{u"FilmSize"_s, u"A3"_s}, {u"Medium"_s, u"CLEAR FILM"_s}});
    const Outcome said = print({});
    EVENTUALLY2(areAll(2, 1), qPrintable(said.output + daemon_->log()));
    EVENTUALLY(printed().size() == 1);
    QCOMPARE(daemon_->log().count(u"once more without the optional attributes"_s), 2);
}

void PrintToolsTest::printsASession() {
    launchWith(printer_->port());
    const Outcome first = print({});
    EVENTUALLY2(areAll(2, 1), qPrintable(first.output));
    const QDir folder{stationFolder()};
    const QString stored = folder.entryList({u"SP_*.dcm"_s}, QDir::Files).first();
    const Outcome said =
        run(u"dcmprscu"_s, {u"-v"_s, u"--session-print"_s, u"-c"_s, folder.filePath(u"configuration"_s),
                            u"-p"_s, u"PEER"_s, u"--copies"_s, u"3"_s, folder.filePath(stored)});
    EVENTUALLY2(areAll(2, 2), qPrintable(said.output));
    EVENTUALLY(printed().size() == 2);
    QVERIFY(daemon_->log().contains(u"1 films to be printed"_s));
}

}  // namespace

QTEST_GUILESS_MAIN(PrintToolsTest)
#include "tst_printtools.moc"
