#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmnet/dimse.h>

#include <QTest>
#include <limits>

#include "tessalyd/services/retrieve/SubOperations.h"

using tessaly::dicom::Command;
using tessaly::dicom::CommandField;
using namespace tessaly::tessalyd;
using namespace std::chrono_literals;

/// What the answers to a retrieval say, table by table, without a network.
class SubOperationsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theEndIsToldByWhatWasSent_data();
    void theEndIsToldByWhatWasSent();
    void theCountersSumUpToTheTotal();
    void beyondSixteenBitsTheCountersStay();
    void aMoveIsAnsweredAsAMove();
    void progressIsToldOnceASecond_data();
    void progressIsToldOnceASecond();

  private:
    static Command get() { return Command::request(CommandField::CGet, 7); }
    static int counter(const Command& response, const DcmTagKey& tag) {
        return response.number(tag).value_or(std::numeric_limits<Uint16>::max());
    }
    static std::string failedOf(const SubOperations& operations) {
        auto list = operations.failures();
        OFString uids;
        if (list)
            list->findAndGetOFStringArray(DCM_FailedSOPInstanceUIDList, uids);
        return {uids.c_str(), uids.size()};
    }
};

void SubOperationsTest::theEndIsToldByWhatWasSent_data() {
    QTest::addColumn<int>("total");
    QTest::addColumn<int>("completed");
    QTest::addColumn<int>("warned");
    QTest::addColumn<int>("failed");
    QTest::addColumn<bool>("cancelled");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("uids");
    const auto row = [](const char* name, int total, int completed, int warned, int failed, bool cancelled,
                        int status, const char* uids) {
        QTest::newRow(name) << total << completed << warned << failed << cancelled << status
                            << QByteArray{uids};
    };
    row("nothing matched", 0, 0, 0, 0, false, 0x0000, "");
    row("all well", 3, 3, 0, 0, false, 0x0000, "");
    row("one warning", 3, 2, 1, 0, false, 0xb000, "");
    row("warnings alone", 2, 0, 2, 0, false, 0xb000, "");
    row("some failed", 3, 1, 0, 2, false, 0xb000, "1.2.0\\1.2.1");
    row("all but a warning failed", 2, 0, 1, 1, false, 0xb000, "1.2.0");
    row("all failed", 2, 0, 0, 2, false, 0xa702, "1.2.0\\1.2.1");
    row("cancelled before the first", 3, 0, 0, 0, true, 0xfe00, "");
    row("cancelled in the middle", 4, 1, 1, 1, true, 0xfe00, "1.2.0");
    row("cancelled where all had failed", 3, 0, 0, 2, true, 0xfe00, "1.2.0\\1.2.1");
}

void SubOperationsTest::theEndIsToldByWhatWasSent() {
    QFETCH(const int, total);
    QFETCH(const int, completed);
    QFETCH(const int, warned);
    QFETCH(const int, failed);
    QFETCH(const bool, cancelled);
    QFETCH(const int, status);
    QFETCH(const QByteArray, uids);
    SubOperations operations{static_cast<std::size_t>(total)};
    for (int i = 0; i < completed; ++i)
        operations.complete();
    for (int i = 0; i < warned; ++i)
        operations.warn();
    for (int i = 0; i < failed; ++i)
        operations.fail("1.2." + std::to_string(i));
    QCOMPARE(int{operations.finalStatus(cancelled)}, status);
    QCOMPARE(QByteArray::fromStdString(failedOf(operations)), uids);
    const Command response = operations.response(get(), operations.finalStatus(cancelled));
    QCOMPARE(counter(response, DCM_NumberOfCompletedSuboperations), completed);
    QCOMPARE(counter(response, DCM_NumberOfWarningSuboperations), warned);
    QCOMPARE(counter(response, DCM_NumberOfFailedSuboperations), failed);
    // What remains is told while something may remain, not by a response that all is over.
    QCOMPARE(response.number(DCM_NumberOfRemainingSuboperations).has_value(), cancelled);
}

void SubOperationsTest::theCountersSumUpToTheTotal() {
    SubOperations operations{4};
    const auto check = [&operations](int remaining, int completed, int warned, int failed) {
        const Command response = operations.response(get(), STATUS_Pending);
        QCOMPARE(counter(response, DCM_NumberOfRemainingSuboperations), remaining);
        QCOMPARE(counter(response, DCM_NumberOfCompletedSuboperations), completed);
        QCOMPARE(counter(response, DCM_NumberOfWarningSuboperations), warned);
        QCOMPARE(counter(response, DCM_NumberOfFailedSuboperations), failed);
        QVERIFY(!response.hasDataSet());
        QCOMPARE(int{response.messageId()}, 7);
    };
    check(4, 0, 0, 0);
    operations.complete();
    check(3, 1, 0, 0);
    operations.fail("1.2");
    check(2, 1, 0, 1);
    operations.warn();
    check(1, 1, 1, 1);
}

void SubOperationsTest::beyondSixteenBitsTheCountersStay() {
    SubOperations operations{200'000};
    const auto counters = [&operations] {
        const Command response = operations.response(get(), STATUS_Pending);
        return std::pair{counter(response, DCM_NumberOfRemainingSuboperations),
                         counter(response, DCM_NumberOfCompletedSuboperations)};
    };
    QCOMPARE(counters(), (std::pair{65535, 0}));
    for (int i = 0; i < 70'000; ++i)
        operations.complete();
    QCOMPARE(counters(), (std::pair{65535, 65535}));
    for (int i = 0; i < 129'999; ++i)
        operations.complete();
    QCOMPARE(counters(), (std::pair{1, 65535}));
}

void SubOperationsTest::aMoveIsAnsweredAsAMove() {
    SubOperations operations{2};
    operations.fail("1.2.3");
    const Command response = operations.response(Command::request(CommandField::CMove, 9), STATUS_Pending);
    QVERIFY(response.isResponse());
    QVERIFY(response.field() == CommandField::CMove);
    QCOMPARE(int{response.messageId()}, 9);
    QCOMPARE(counter(response, DCM_NumberOfRemainingSuboperations), 1);
    QCOMPARE(counter(response, DCM_NumberOfFailedSuboperations), 1);
}

void SubOperationsTest::progressIsToldOnceASecond_data() {
    QTest::addColumn<QList<int>>("asked");
    QTest::addColumn<QList<int>>("told");
    QTest::newRow("not before a second") << QList<int>{0, 500, 999} << QList<int>{};
    QTest::newRow("after a second, once") << QList<int>{1000, 1001, 1999} << QList<int>{1000};
    QTest::newRow("each second") << QList<int>{1100, 1900, 2000, 2999, 3050} << QList<int>{1100, 2000, 3050};
    QTest::newRow("what was missed is not made up for")
        << QList<int>{4500, 4501, 4999, 5000} << QList<int>{4500, 5000};
}

void SubOperationsTest::progressIsToldOnceASecond() {
    QFETCH(const QList<int>, asked);
    QFETCH(const QList<int>, told);
    const PendingPace::Clock::time_point start{12345s};
    PendingPace pace{start};
    QList<int> due;
    for (const int at : asked) {
        if (pace.isDue(start + std::chrono::milliseconds{at}))
            due << at;
    }
    QCOMPARE(due, told);
}

QTEST_APPLESS_MAIN(SubOperationsTest)
#include "tst_suboperations.moc"
