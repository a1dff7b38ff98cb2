#include <dcmtk/dcmdata/dcdeftag.h>

#include <QElapsedTimer>
#include <QFile>
#include <QScopeGuard>
#include <QTest>
#include <atomic>
#include <thread>

#include "dicom/data/AttributeReader.h"
#include "tests/support/Eventually.h"
#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/Finding.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

namespace {

constexpr int CannotUnderstand = 0xc000;
constexpr qint64 Megabyte = 1 << 20;

std::span<const char> view(const QByteArray& bytes) {
    return {bytes.data(), static_cast<std::size_t>(bytes.size())};
}

/// An element in explicit little endian, of a representation with a short length.
QByteArray element(quint16 group, quint16 number, const char* vr, const QByteArray& value) {
    QByteArray bytes;
    for (const int part : {int{group}, int{number}})
        bytes += QByteArray(1, static_cast<char>(part & 0xff)) + static_cast<char>(part >> 8);
    return bytes + vr + static_cast<char>(value.size() & 0xff) + static_cast<char>(value.size() >> 8) + value;
}

/// All that an object needs, but for what stands between the groups 0008 and 0010.
QByteArray objectWith(const QByteArray& between) {
    return element(0x0008, 0x0016, "UI", "1.2.840.10008.5.1.4.1.1.2" + QByteArray(1, '\0')) +
           element(0x0008, 0x0018, "UI", "1.2.3.4.5" + QByteArray(1, '\0')) + between +
           element(0x0010, 0x0020, "LO", "P1") +
           element(0x0020, 0x000d, "UI", "1.2.3" + QByteArray(1, '\0')) +
           element(0x0020, 0x000e, "UI", "1.2.3.4" + QByteArray(1, '\0'));
}
constexpr const char* Instance = "1.2.3.4.5";

QByteArray openSequence() {
    return QByteArray::fromHex("09000110") + "SQ" + QByteArray::fromHex("0000ffffffff");
}
QByteArray emptyItems(qint64 bytes) {
    return QByteArray::fromHex("feff00e000000000").repeated(bytes / 8);
}
QByteArray endOfSequence() {
    return QByteArray::fromHex("feffdde000000000");
}

QByteArray descending(int count) {
    QByteArray data;
    for (int number = count; number > 0; --number)
        data += element(0x0009, static_cast<quint16>(number), "LO", {});
    return data;
}

}  // namespace

/// Headers that are made to cost the server its time or its memory.
class HostileHeadersTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void elementsInDescendingOrderCostNoTime();
    void headersOfAnyShapeCostLittleMemory_data();
    void headersOfAnyShapeCostLittleMemory();
    void aHeaderWithoutEndIsRefused();
    void terminateEndsAHeaderThatIsArriving_data();
    void terminateEndsAHeaderThatIsArriving();
    void aValueThatLooksLikeASequenceDoesNotEndTheServer();

  private:
    /// VmHWM or VmRSS of the server, in bytes.
    [[nodiscard]] qint64 memory(const char* name) const {
        QFile status{u"/proc/%1/status"_s.arg(daemon_->process.processId())};
        if (!status.open(QIODevice::ReadOnly))
            throw std::runtime_error{"no such process"};
        for (const QByteArray& line : status.readAll().split('\n')) {
            if (line.startsWith(name))
                return line.mid(static_cast<qsizetype>(std::strlen(name)) + 1)
                           .simplified()
                           .split(' ')
                           .at(0)
                           .toLongLong() *
                       1024;
        }
        throw std::runtime_error{"no such line"};
    }
};

void HostileHeadersTest::elementsInDescendingOrderCostNoTime() {
    launch();
    RequestorAssociation peer{daemon_->port()};
    constexpr int Most = tessaly::dicom::AttributeReader::MostOutOfOrder;
    // The first of them is in order.
    QCOMPARE(peer.storeBytes(Instance, view(objectWith(descending(Most + 1)))).status, 0);
    QElapsedTimer time;
    time.start();
    const auto answer = peer.storeBytes(Instance, view(objectWith(descending(40'000))));
    qInfo() << "40,000 elements in descending order:" << time.elapsed() << "ms";
    QCOMPARE(answer.status, CannotUnderstand);
    QCOMPARE(daemon_->images().size(), 1);
}

void HostileHeadersTest::headersOfAnyShapeCostLittleMemory_data() {
    QTest::addColumn<QByteArray>("between");
    constexpr qint64 Much = 60 * Megabyte;
    QTest::newRow("empty items") << openSequence() + emptyItems(Much) + endOfSequence();
    QByteArray values;
    while (values.size() < Much)
        values += element(0x0009, 0x1010, "LO", QByteArray(4096, 'x'));
    QTest::newRow("values, in a sequence") << openSequence() + QByteArray::fromHex("feff00e0ffffffff") +
                                                  values + QByteArray::fromHex("feff0de000000000") +
                                                  endOfSequence();
    QTest::newRow("one value") << QByteArray::fromHex("09001010") + "OB" +
                                      QByteArray::fromHex("00000000c003") + QByteArray(Much, 'x');
}

/// What is known of the folder comes last: until then the header waits in a file.
void HostileHeadersTest::headersOfAnyShapeCostLittleMemory() {
    QFETCH(const QByteArray, between);
    launch();
    RequestorAssociation peer{daemon_->port()};
    QCOMPARE(peer.store(*makeObject({})).status, 0);  // what every store needs is there
    const qint64 before = memory("VmRSS:");
    const QByteArray data = objectWith(between);
    QCOMPARE(peer.storeBytes(Instance, view(data)).status, 0);
    const qint64 peak = memory("VmHWM:") - before;
    const qint64 kept = memory("VmRSS:") - before;
    qInfo() << "peak" << peak / 1024 << "KB, kept" << kept / 1024 << "KB";
    QVERIFY2(peak < 64 * Megabyte, qPrintable(QString::number(peak)));
    QVERIFY2(kept < 32 * Megabyte, qPrintable(QString::number(kept)));
    const auto images = daemon_->images();
    QCOMPARE(images.size(), 2);
    const QString file = daemon_->database.imageRoot() + u"/1.2.3/1.2.3.4/1.2.3.4.5.dcm"_s;
    QVERIFY(dataSetOf(file) == data);
}

void HostileHeadersTest::aHeaderWithoutEndIsRefused() {
    launch();
    RequestorAssociation peer{daemon_->port()};
    const qint64 before = memory("VmRSS:");
    const auto answer =
        peer.storeBytes(Instance, view(objectWith(openSequence() + emptyItems(80 * Megabyte))));
    QCOMPARE(answer.status, CannotUnderstand);
    QCOMPARE(QString::fromStdString(answer.comment), u"The header of the object does not end"_s);
    QVERIFY(memory("VmHWM:") - before < 64 * Megabyte);
    QCOMPARE(daemon_->entries(), QStringList{});
    QCOMPARE(daemon_->archiveRows(), 0);
    QVERIFY(peer.echo());
}

void HostileHeadersTest::terminateEndsAHeaderThatIsArriving_data() {
    QTest::addColumn<QByteArray>("begin");
    QTest::addColumn<QByteArray>("again");
    QTest::newRow("empty items") << objectWith(openSequence()) << emptyItems(Megabyte);
    QTest::newRow("elements in descending order") << QByteArray{} << descending(60'000);
    QTest::newRow("sequences in each other") << QByteArray{} << openSequence().repeated(50'000);
}

/// A sender that never stops sending is in the midst of it at any moment.
void HostileHeadersTest::terminateEndsAHeaderThatIsArriving() {
    QFETCH(const QByteArray, begin);
    QFETCH(const QByteArray, again);
    launch();
    RequestorAssociation peer{daemon_->port()};
    std::atomic<int> sent = 0;
    std::thread sender{[&] {
        try {
            peer.beginStoreBytes(Instance, view(begin + again));
            for (;; ++sent)
                peer.continueStoreBytes(view(again));
        } catch (const std::runtime_error&) {  // the server is gone
        }
    }};
    const auto join = qScopeGuard([&] {
        if (daemon_->process.state() != QProcess::NotRunning)
            daemon_->kill();  // it did not end: nor would the sender
        sender.join();
    });
    EVENTUALLY(sent > 2);
    QElapsedTimer time;
    time.start();
    QVERIFY(daemon_->terminate());
    qInfo() << "ended after" << time.elapsed() << "ms";
}

/// What is in it claims all that follows, which a careless look would pass over.
void HostileHeadersTest::aValueThatLooksLikeASequenceDoesNotEndTheServer() {
    daemon_ = std::make_unique<Daemon>();
    daemon_->database.run(u"INSERT INTO DicomNodes (Name, AETitle, Query) VALUES ('x', 'TESTER', 1)"_s);
    daemon_->launch();
    const QByteArray disguise = QByteArray::fromHex("09000110") + "OB" + QByteArray::fromHex("000014000000") +
                                QByteArray::fromHex("feff00e0ffffffff090002104f420000ffffff00");
    const auto nested = nestedSequences(190'000);  // a parser that calls itself for each has no stack left
    const QByteArray data = disguise + QByteArray{nested.data(), static_cast<qsizetype>(nested.size())};
    QCOMPARE(RequestorAssociation{daemon_->port()}.storeBytes(Instance, view(data)).status, CannotUnderstand);
    RequestorAssociation asking{daemon_->port(), "TESTER", "TESSALY", Finding::contexts()};
    QCOMPARE(Finding(asking, view(data)).next().status, CannotUnderstand);
    QVERIFY(asking.echo());
    QCOMPARE(daemon_->process.state(), QProcess::Running);
}

QTEST_GUILESS_MAIN(HostileHeadersTest)
#include "tst_hostileheaders.moc"
