#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <future>
#include <latch>

#include "dicom/data/ObjectFile.h"
#include "dicom/net/ObjectSender.h"
#include "tests/dicom/net/OutgoingBytes.h"
#include "tests/dicom/net/Peers.h"
#include "tests/dicom/net/StorePeer.h"
#include "tests/support/Eventually.h"
#include "tests/support/UnusedPort.h"
#include "tests/tessalyd/Objects.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace tessaly::dicom;
using namespace tessaly::test;
using Outcome = SendResult::Outcome;

/// Objects on their way to a peer that takes them.
class SendingTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theBytesArriveAsTheyAreStored_data();
    void theBytesArriveAsTheyAreStored();
    void whatThePeerDoesNotTakeIsConverted_data();
    void whatThePeerDoesNotTakeIsConverted();
    void statusesAreToldApart_data();
    void statusesAreToldApart();
    void theOriginatorIsNamed();
    void moreClassesThanAnAssociationHasRoomForAreSent();
    void whatIsNotKnownIsNotProposed();

  private:
    QString file(const QString& name) const { return folder_.filePath(name); }

    QTemporaryDir folder_;
};

void SendingTest::theBytesArriveAsTheyAreStored_data() {
    QTest::addColumn<int>("syntax");
    QTest::addColumn<int>("side");
    QTest::newRow("implicit") << int{EXS_LittleEndianImplicit} << 64;
    QTest::newRow("explicit") << int{EXS_LittleEndianExplicit} << 64;
    QTest::newRow("explicit, 18 MB") << int{EXS_LittleEndianExplicit} << 3000;
    QTest::newRow("big endian") << int{EXS_BigEndianExplicit} << 64;
    QTest::newRow("RLE") << int{EXS_RLELossless} << 64;
    QTest::newRow("JPEG") << int{EXS_JPEGProcess14SV1} << 64;
    QTest::newRow("JPEG-LS") << int{EXS_JPEGLSLossless} << 64;
}

void SendingTest::theBytesArriveAsTheyAreStored() {
    QFETCH(const int, syntax);
    QFETCH(const int, side);
    const QString path =
        writeObject({.side = side}, file(u"one.dcm"_s), static_cast<E_TransferSyntax>(syntax));
    const auto peer = Product::storescp({u"+xa"_s, u"+B"_s, u"-od"_s, u"%FOLDER%"_s});
    ObjectFile object{path.toStdString()};
    {
        ObjectSender sender{at(peer->port()), {object.kind()}, {}};
        const SendResult result = sender.send(object);
        QVERIFY2(result.outcome == Outcome::Success, result.detail.c_str());
    }
    const QDir taken{peer->folder()};
    const QStringList copies = taken.entryList({u"CT.*"_s}, QDir::Files);  // it was answered: it is there
    QCOMPARE(copies.size(), 1);
    const QString copy = taken.filePath(copies.first());
    QCOMPARE(syntaxOf(copy), static_cast<E_TransferSyntax>(syntax));
    QVERIFY(dataSetOf(copy) == dataSetOf(path));
}

void SendingTest::whatThePeerDoesNotTakeIsConverted_data() {
    QTest::addColumn<QString>("takes");
    QTest::addColumn<QString>("convertsTo");
    QTest::addColumn<QString>("arrives");
    const auto text = [](const std::string& uid) { return QString::fromStdString(uid); };
    QTest::newRow("as it is") << text(Rle) << QString{} << text(Rle);
    QTest::newRow("explicit") << text(Explicit) << text(Explicit) << text(Explicit);
    QTest::newRow("implicit") << text(Implicit) << text(Implicit) << text(Implicit);
    QTest::newRow("not at all") << text(Explicit) << QString{} << QString{};
    QTest::newRow("nothing in common") << text(UID_JPEG2000TransferSyntax) << text(Explicit) << QString{};
}

void SendingTest::whatThePeerDoesNotTakeIsConverted() {
    QFETCH(const QString, takes);
    QFETCH(const QString, convertsTo);
    QFETCH(const QString, arrives);
    const StorePeer peer{{takes.toStdString()}, &alwaysSuccess};
    ObjectSender sender{at(peer.port()), {{Ct, Rle}}, {}};
    for (int i = 0; i < 2; ++i) {
        Bytes object{100, {Ct, Rle}};
        object.convertsTo = convertsTo.toStdString();
        const SendResult result = sender.send(object);
        QCOMPARE(result.outcome, arrives.isEmpty() ? Outcome::Failed : Outcome::Success);
        QCOMPARE(result.detail.empty(), !arrives.isEmpty());
    }
    QVERIFY(!sender.failure());
    QCOMPARE(peer.associations(), 1);
    QCOMPARE(peer.received().size(), arrives.isEmpty() ? 0 : 2);
    for (const StorePeer::Received& one : peer.received())
        QCOMPARE(QString::fromStdString(one.syntax), arrives);
}

void SendingTest::statusesAreToldApart_data() {
    QTest::addColumn<int>("status");
    QTest::addColumn<Outcome>("outcome");
    const auto row = [](int status, Outcome outcome) {
        QTest::newRow(qPrintable(u"%1"_s.arg(status, 4, 16, QChar{u'0'}))) << status << outcome;
    };
    row(0x0000, Outcome::Success);
    for (const int warning : {0x0001, 0x0107, 0x0116, 0xb000, 0xb006, 0xb007})
        row(warning, Outcome::Warning);
    for (const int failure : {0x0111, 0x0122, 0x0124, 0xa700, 0xa900, 0xc000, 0xfe00, 0xff00})
        row(failure, Outcome::Failed);
}

void SendingTest::statusesAreToldApart() {
    QFETCH(const int, status);
    QFETCH(const Outcome, outcome);
    const StorePeer peer{{Explicit}, [status](int) { return status; }};
    ObjectSender sender{at(peer.port()), {{Ct, Explicit}}, {}};
    for (int i = 0; i < 2; ++i) {  // the association goes on
        Bytes object;
        const SendResult result = sender.send(object);
        QCOMPARE(result.outcome, outcome);
        QCOMPARE(int{result.status}, status);
        QCOMPARE(result.detail.empty(), outcome == Outcome::Success);
    }
    QCOMPARE(peer.associations(), 1);
}

void SendingTest::theOriginatorIsNamed() {
    const StorePeer peer{{Explicit}, &alwaysSuccess};
    ObjectSender sender{at(peer.port()), {{Ct, Explicit}}, {}};
    const MoveOriginator originator{"WORKSTATION", 4711};
    Bytes first;
    Bytes second;
    QCOMPARE(sender.send(first, &originator).outcome, Outcome::Success);
    QCOMPARE(sender.send(second).outcome, Outcome::Success);
    const auto received = peer.received();
    QCOMPARE(received.size(), 2);
    const T_DIMSE_C_StoreRQ& moved = received[0].command;
    QCOMPARE(moved.AffectedSOPClassUID, Ct.c_str());
    QCOMPARE(moved.AffectedSOPInstanceUID, "1.2.3.4");
    QCOMPARE(moved.MoveOriginatorApplicationEntityTitle, "WORKSTATION");
    QCOMPARE(int{moved.MoveOriginatorID}, 4711);
    QCOMPARE(moved.opts & 3U, unsigned{O_STORE_MOVEORIGINATORAETITLE | O_STORE_MOVEORIGINATORID});
    QCOMPARE(received[1].command.opts & 3U, 0U);
    QVERIFY(moved.MessageID != received[1].command.MessageID);
}

void SendingTest::whatIsNotKnownIsNotProposed() {
    const ContextPlan plan{{{Ct, ""}, {"", ""}, {"", Rle}}};
    QCOMPARE(plan.associations(), std::size_t{1});
    QCOMPARE(plan.contexts(0).size(), std::size_t{1});
    QCOMPARE(plan.contexts(0).front().sopClass, Ct);
    QCOMPARE(plan.contexts(0).front().transferSyntaxes, (std::vector{Explicit, Implicit}));
    QVERIFY(!plan.associationOf(""));
    const ContextPlan nothing{std::vector<ObjectKind>{{"", ""}}};
    QCOMPARE(nothing.associations(), std::size_t{0});
}

void SendingTest::moreClassesThanAnAssociationHasRoomForAreSent() {
    std::vector<ObjectKind> kinds;
    for (int i = 0; i < numberOfDcmAllStorageSOPClassUIDs; ++i) {
        for (const std::string& syntax : {Rle, Explicit})
            kinds.push_back({dcmAllStorageSOPClassUIDs[i], syntax});
    }
    const ContextPlan plan{kinds};
    QVERIFY(plan.associations() > 2);
    for (std::size_t i = 0; i < plan.associations(); ++i)
        QVERIFY(plan.contexts(i).size() <= 128);

    const StorePeer peer{{Rle, Explicit}, &alwaysSuccess};
    ObjectSender sender{at(peer.port()), kinds, {}};
    std::stable_sort(kinds.begin(), kinds.end(), [&sender](const ObjectKind& a, const ObjectKind& b) {
        return sender.associationOf(a.sopClass) < sender.associationOf(b.sopClass);
    });
    for (const ObjectKind& kind : kinds) {
        Bytes object{100, kind};
        const SendResult result = sender.send(object);
        QVERIFY2(result.outcome == Outcome::Success, result.detail.c_str());
    }
    QCOMPARE(peer.associations(), static_cast<int>(plan.associations()));
    const auto received = peer.received();
    QCOMPARE(received.size(), static_cast<qsizetype>(kinds.size()));
    for (qsizetype i = 0; i < received.size(); ++i) {
        const ObjectKind& kind = kinds.at(static_cast<std::size_t>(i));
        QCOMPARE(received[i].syntax, kind.transferSyntax);
        QCOMPARE(received[i].command.AffectedSOPClassUID, kind.sopClass.c_str());
    }
    Bytes stranger{100, {UID_VerificationSOPClass, Explicit}};
    QCOMPARE(sender.send(stranger).outcome, Outcome::Failed);
    QVERIFY(!sender.failure());
}

QTEST_GUILESS_MAIN(SendingTest)
#include "tst_sending.moc"
