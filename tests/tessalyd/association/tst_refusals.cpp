#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <sys/resource.h>

#include <QFile>
#include <QTest>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/DaemonTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// Objects that cannot be stored: the sender is told so, and nothing of them stays.
class RefusalsTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void unfitUidsAreRefused();
    void anotherObjectThanAnnouncedIsRefused();
    void whatIsNoDataSetIsRefused_data();
    void whatIsNoDataSetIsRefused();
    void aDataSetThatIsCutOffIsRefused_data();
    void aDataSetThatIsCutOffIsRefused();
    void aCommandWithoutEndIsNotListenedTo();
    void aSeriesOfTwoStudiesIsRefused();
    void aFailingTableRefusesTheObject_data();
    void aFailingTableRefusesTheObject();
    void aFailedReplacementKeepsTheOldObject();
    void aLockedDatabaseRefusesTheObject();
    void anUnfitRootRefusesTheObject_data();
    void anUnfitRootRefusesTheObject();
    void aFullDiskRefusesTheObject();

  private:
    void compareRefused(const RequestorAssociation::Answer& answer, int status) {
        QVERIFY(answer.arrived);
        QCOMPARE(answer.status, status);
        QVERIFY(!answer.comment.empty());
        QVERIFY(answer.comment.size() <= 64);
        QCOMPARE(daemon_->archiveRows(), 0);
        QCOMPARE(daemon_->entries(), QStringList{});
        QVERIFY(RequestorAssociation{daemon_->port()}.echo());
    }

    static constexpr int OutOfResources = 0xa700;
    static constexpr int DoesNotMatch = 0xa900;
    static constexpr int CannotUnderstand = 0xc000;
};

void RefusalsTest::unfitUidsAreRefused() {
    launch();
    for (const DcmTagKey& tag : {DCM_StudyInstanceUID, DCM_SeriesInstanceUID, DCM_SOPInstanceUID}) {
        for (const char* uid : {"", "..", "../../../tmp/x", "1..2", ".1.2", "1.2.", "1/2", "1\\2", "1.a"}) {
            const auto object = makeObject({});
            const bool missing = *uid == '\0';
            if (missing)
                delete object->getDataset()->remove(tag);
            else
                object->getDataset()->putAndInsertString(tag, uid);
            const std::string announced = tag == DCM_SOPInstanceUID && !missing ? uid : "1.2.826.0.1.1.1.1";
            compareRefused(RequestorAssociation{daemon_->port()}.store(*object, announced), CannotUnderstand);
            QVERIFY2(!QTest::currentTestFailed(), uid);
        }
    }
}

void RefusalsTest::anotherObjectThanAnnouncedIsRefused() {
    launch();
    compareRefused(RequestorAssociation{daemon_->port()}.store(*makeObject({}), "1.2.3"), DoesNotMatch);
    const auto object = makeObject({});
    object->getDataset()->putAndInsertString(DCM_SOPClassUID, UID_MRImageStorage);
    compareRefused(RequestorAssociation{daemon_->port()}.store(*object, {}, UID_CTImageStorage),
                   DoesNotMatch);
    constexpr int NotSupported = 0x0122;  // the presentation context is for CT images
    compareRefused(RequestorAssociation{daemon_->port()}.store(*object, {}, UID_MRImageStorage),
                   NotSupported);
}

void RefusalsTest::whatIsNoDataSetIsRefused_data() {
    QTest::addColumn<QByteArray>("data");
    const auto nested = nestedSequences(100'000);  // a parser that calls itself for each has no stack left
    QTest::newRow("sequences without end")
        << QByteArray{nested.data(), static_cast<qsizetype>(nested.size())};
    QTest::newRow("text") << QByteArray{"neither a tag nor a length is in this text"};
    QTest::newRow("cut in a value") << QByteArray{
        "\x08\x00\x18\x00UI\x40\x00"
        "1.2.",
        12};
    QTest::newRow("cut in a header") << QByteArray{"\x08\x00\x18\x00UI", 6};
    QTest::newRow("longer than can be") << QByteArray{
        "\x08\x00\x90\x11UT\0\0\xff\xff\xff\x7f"
        "text",
        16};
}

void RefusalsTest::whatIsNoDataSetIsRefused() {
    QFETCH(const QByteArray, data);
    launch();
    compareRefused(RequestorAssociation{daemon_->port()}.storeBytes(
                       "1.2.3", {data.data(), static_cast<std::size_t>(data.size())}),
                   CannotUnderstand);
    QCOMPARE(daemon_->process.state(), QProcess::Running);
}

void RefusalsTest::aDataSetThatIsCutOffIsRefused_data() {
    QTest::addColumn<int>("side");
    QTest::newRow("small") << 32;
    QTest::newRow("begun to be written before its end") << 1200;  // 2.8 MB
}

void RefusalsTest::aDataSetThatIsCutOffIsRefused() {
    QFETCH(const int, side);
    launch();
    const ObjectSpec spec{.side = side};
    const QByteArray whole = dataSetOf(writeObject(spec, daemon_->database.folder() + u"/one.dcm"_s));
    RequestorAssociation peer{daemon_->port()};
    const auto send = [&](qsizetype size) {
        return peer.storeBytes(spec.instance, {whole.data(), static_cast<std::size_t>(size)});
    };
    compareRefused(send(whole.size() - 2), CannotUnderstand);
    QCOMPARE(send(whole.size()).status, 0);
}

void RefusalsTest::aCommandWithoutEndIsNotListenedTo() {
    launch();
    RequestorAssociation peer{daemon_->port()};
    const auto endless = nestedSequences(100'000, EXS_LittleEndianImplicit);
    // The server may hang up before all of it is sent.
    try {
        peer.sendCommand(endless);
    } catch (const std::runtime_error&) {
        QVERIFY(!peer.echo());
    }
    EVENTUALLY_COMPARE(daemon_->ends.size(), 1);
    QVERIFY(RequestorAssociation{daemon_->port()}.echo());
    QCOMPARE(daemon_->process.state(), QProcess::Running);
}

void RefusalsTest::aSeriesOfTwoStudiesIsRefused() {
    launch();
    QCOMPARE(store({}).status, 0);
    const QStringList before = daemon_->entries();
    const auto answer = store({.study = "1.2.9", .instance = "1.2.9.1"});
    QCOMPARE(answer.status, CannotUnderstand);
    QCOMPARE(QString::fromStdString(answer.comment), u"The series belongs to another study"_s);
    QCOMPARE(daemon_->entries(), before);
    QCOMPARE(daemon_->archiveRows(), 4);
}

void RefusalsTest::aFailingTableRefusesTheObject_data() {
    QTest::addColumn<QString>("table");
    for (const char* table : {"Patient", "Study", "Series", "Image"})
        QTest::newRow(table) << QString::fromLatin1(table);
}

void RefusalsTest::aFailingTableRefusesTheObject() {
    QFETCH(const QString, table);
    launch();
    daemon_->database.failOn(table, u"INSERT"_s);
    compareRefused(store({}), OutOfResources);
    QVERIFY(daemon_->log().contains(ScratchDatabase::Failure));
    daemon_->database.allow(table, u"INSERT"_s);
    QCOMPARE(store({}).status, 0);
}

void RefusalsTest::aFailedReplacementKeepsTheOldObject() {
    launch();
    QCOMPARE(store({.seed = 1}).status, 0);
    const QByteArray before = dataSetOf(daemon_->files().first());
    daemon_->database.failOn(u"Image"_s, u"UPDATE"_s);
    QCOMPARE(store({.seed = 2}).status, OutOfResources);
    QCOMPARE(daemon_->files().size(), 1);
    QCOMPARE(dataSetOf(daemon_->files().first()), before);
    QCOMPARE(daemon_->database.value(u"SELECT InstanceNumber FROM Image"_s), u"1"_s);
}

void RefusalsTest::aLockedDatabaseRefusesTheObject() {
    daemon_ = std::make_unique<Daemon>();
    daemon_->database.run(u"UPDATE DicomServer SET QueryTimeout=1"_s);
    daemon_->launch();
    daemon_->database.beginAlone(u"Image"_s);
    compareRefused(store({}), OutOfResources);
    daemon_->database.run(u"COMMIT"_s);
    QCOMPARE(store({}).status, 0);
}

void RefusalsTest::anUnfitRootRefusesTheObject_data() {
    QTest::addColumn<bool>("file");
    QTest::newRow("a file") << true;
    QTest::newRow("nothing") << false;
}

void RefusalsTest::anUnfitRootRefusesTheObject() {
    QFETCH(const bool, file);
    QTemporaryDir folder;
    const QString root = folder.filePath(u"root"_s);
    QFile blocker{root};
    QVERIFY(!file || blocker.open(QIODevice::WriteOnly));
    launch({PortRow{.root = root}});
    compareRefused(store({}), OutOfResources);
    QCOMPARE(QFileInfo{root}.isDir(), false);
    QCOMPARE(QFileInfo::exists(root), file);
}

void RefusalsTest::aFullDiskRefusesTheObject() {
    constexpr rlim_t Most = 4U << 20U;  // no file of the server may become larger
    daemon_ = std::make_unique<Daemon>();
    daemon_->process.setChildProcessModifier([] {
        constexpr rlimit Limit{.rlim_cur = Most, .rlim_max = Most};
        ::setrlimit(RLIMIT_FSIZE, &Limit);
    });
    daemon_->launch();
    compareRefused(store({.side = 1500}), OutOfResources);  // 4.5 MB
    QCOMPARE(store({.side = 500}).status, 0);
}

QTEST_GUILESS_MAIN(RefusalsTest)
#include "tst_refusals.moc"
