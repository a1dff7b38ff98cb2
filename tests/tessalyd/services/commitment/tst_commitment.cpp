#include <QFile>
#include <QTest>

#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/services/commitment/Committer.h"
#include "tests/tessalyd/services/commitment/ReportReceiver.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

namespace {

constexpr const char* CtClass = "1.2.840.10008.5.1.4.1.1.2";
constexpr const char* MrClass = "1.2.840.10008.5.1.4.1.1.4";

std::string instance(int number) {
    return "1.2.826.0.1.1.1." + std::to_string(number);
}

}  // namespace

class CommitmentTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void whatIsStoredIsCommitted_data();
    void whatIsStoredIsCommitted();
    void whatIsNotSafeIsNot();
    void aClassThatIsNotTheInstancesIsAConflict();
    void rowsWithoutASizeAreCommitted();
    void aRequestThatIsWrongIsRefused_data();
    void aRequestThatIsWrongIsRefused();
    void tooManyReferencesAreRefused();
    void theSameRequestAgainIsOneReport();
    void theSameRequestAfterItsReportIsReportedAgain();
    void anotherListUnderTheUidFails();
    void aRequestorThatIsGoneIsTriedAgain();
    void anAnswerThatIsAnErrorIsTriedAgain();
    void aReportIsDeliveredOverTheRequestorsAssociation();
    void aRequestorThatDoesNotListenHoldsNoReport();
    void tablesThatCannotBeReadAreNoFailure();
    void aKilledServerReportsAfterItsStart();
    void aDiskThatIsNotMountedIsNoFailure();

  private:
    /// A server, with a node CT at that port that may neither query nor be sent to, and images.
    void launchWith(const QString& port, int images = 2) {
        daemon_ = std::make_unique<Daemon>();
        daemon_->database.run(
            u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port) VALUES ('ct', 'CT', 'OTHER', "
            "'127.0.0.1', '%1')"_s.arg(port));
        launchAgain();
        for (int i = 1; i <= images; ++i)
            QCOMPARE(store({.instance = instance(i), .seed = i}).status, 0);
    }
    void launchAgain() { daemon_->launch({u"--first-retry"_s, u"1"_s}); }

    [[nodiscard]] static CommitmentAsk askFor(std::initializer_list<int> numbers) {
        CommitmentAsk ask;
        for (const int number : numbers)
            ask.references.emplace_back(CtClass, instance(number));
        return ask;
    }
    [[nodiscard]] int ask(const CommitmentAsk& ask) const { return Committer{daemon_->port()}.ask(ask); }
    [[nodiscard]] QString jobs() const { return daemon_->database.value(u"SELECT COUNT(*) FROM Job"_s); }
    [[nodiscard]] QString spooled() const {
        return QString::number(
            QDir{daemon_->database.imageRoot() + u"/.spool"_s}.entryList(QDir::Files | QDir::Hidden).size());
    }
};

void CommitmentTest::whatIsStoredIsCommitted_data() {
    QTest::addColumn<QString>("syntax");
    QTest::newRow("explicit") << u"1.2.840.10008.1.2.1"_s;
    QTest::newRow("implicit") << u"1.2.840.10008.1.2"_s;
}

void CommitmentTest::whatIsStoredIsCommitted() {
    QFETCH(QString, syntax);
    const ReportReceiver receiver;
    launchWith(receiver.port());
    Committer modality{daemon_->port(), "CT", syntax.toStdString()};
    QCOMPARE(modality.ask(askFor({1, 2})), 0);
    EVENTUALLY(receiver.reports().size() == 1);
    const Report report = receiver.reports().front();
    QCOMPARE(report.eventType, 1);
    QCOMPARE(report.calling, "TESSALY");  // the called title of the request, not the node's local one
    QCOMPARE(report.transactionUid, "1.2.826.0.1.99");
    QCOMPARE(report.retrieveAeTitle, "TESSALY");
    QCOMPARE(report.committed, (std::vector{instance(1), instance(2)}));
    QVERIFY(!report.hasFailed);
    QVERIFY(report.roleWasProposed);
    EVENTUALLY_COMPARE(daemon_->database.value(u"SELECT State FROM Job"_s), u"2"_s);
    EVENTUALLY_COMPARE(spooled(), u"0"_s);
}

void CommitmentTest::whatIsNotSafeIsNot() {
    const ReportReceiver receiver;
    launchWith(receiver.port(), 5);
    const auto fileOf = [this](int number) {
        for (const auto& image : daemon_->images())
            if (image.instance.toStdString() == instance(number))
                return image.file;
        return QString{};
    };
    QVERIFY(QFile::remove(fileOf(2)));
    QFile longer{fileOf(3)};
    QVERIFY(longer.open(QIODevice::Append) && longer.write("more") == 4);
    longer.close();
    QVERIFY(QFile::remove(fileOf(4)) && QFile::copy(fileOf(1), fileOf(4)));
    QFile cut{fileOf(5)};
    QVERIFY(cut.resize(cut.size() - 10));
    CommitmentAsk wanted = askFor({1, 2, 3, 4, 5, 6});
    QCOMPARE(ask(wanted), 0);
    EVENTUALLY(receiver.reports().size() == 1);
    const Report report = receiver.reports().front();
    QCOMPARE(report.eventType, 2);
    QCOMPARE(report.committed, std::vector{instance(1)});
    for (const int number : {2, 3, 4, 5, 6})
        QCOMPARE(report.failed.at(instance(number)), 0x0112);
}

void CommitmentTest::aClassThatIsNotTheInstancesIsAConflict() {
    const ReportReceiver receiver;
    launchWith(receiver.port());
    CommitmentAsk wanted;
    wanted.references = {{MrClass, instance(1)}};
    QCOMPARE(ask(wanted), 0);
    EVENTUALLY(receiver.reports().size() == 1);
    const Report report = receiver.reports().front();
    QCOMPARE(report.eventType, 2);
    QCOMPARE(report.failed.at(instance(1)), 0x0119);
    QVERIFY(!report.hasCommitted);
}

void CommitmentTest::rowsWithoutASizeAreCommitted() {
    const ReportReceiver receiver;
    launchWith(receiver.port());
    QCOMPARE(daemon_->database.value(u"SELECT COUNT(*) FROM Image WHERE FileSize>0"_s), u"2"_s);
    daemon_->database.run(u"UPDATE Image SET FileSize=NULL, SOPClassUID=NULL"_s);
    QCOMPARE(ask(askFor({1, 2})), 0);
    EVENTUALLY(receiver.reports().size() == 1);
    QCOMPARE(receiver.reports().front().eventType, 1);
}

void CommitmentTest::aRequestThatIsWrongIsRefused_data() {
    QTest::addColumn<QString>("calling");
    QTest::addColumn<CommitmentAsk>("wanted");
    QTest::addColumn<int>("status");
    const CommitmentAsk right = askFor({1});
    const auto with = [&right](auto change) {
        CommitmentAsk changed = right;
        change(changed);
        return changed;
    };
    QTest::newRow("no node") << u"STRANGER"_s << right << 0x0124;
    QTest::newRow("another class") << u"CT"_s << with([](auto& ask) { ask.sopClass = "1.2.3"; }) << 0x0118;
    QTest::newRow("another instance")
        << u"CT"_s << with([](auto& ask) { ask.sopInstance = "1.2.3"; }) << 0x0112;
    QTest::newRow("another action") << u"CT"_s << with([](auto& ask) { ask.actionType = 2; }) << 0x0123;
    QTest::newRow("no transaction UID")
        << u"CT"_s << with([](auto& ask) { ask.transactionUid.clear(); }) << 0x0115;
    QTest::newRow("a transaction UID that is none")
        << u"CT"_s << with([](auto& ask) { ask.transactionUid = "abc"; }) << 0x0115;
    QTest::newRow("no references") << u"CT"_s << with([](auto& ask) { ask.references.clear(); }) << 0x0115;
    QTest::newRow("a reference without an instance") << u"CT"_s << with([](auto& ask) {
        ask.references = {{CtClass, ""}};
    }) << 0x0115;
    QTest::newRow("no data set") << u"CT"_s << with([](auto& ask) { ask.hasDataSet = false; }) << 0x0115;
}

void CommitmentTest::aRequestThatIsWrongIsRefused() {
    QFETCH(QString, calling);
    QFETCH(CommitmentAsk, wanted);
    QFETCH(int, status);
    const ReportReceiver receiver;
    launchWith(receiver.port(), 1);
    Committer modality{daemon_->port(), calling.toStdString()};
    QCOMPARE(modality.ask(wanted), status);
    QCOMPARE(jobs(), u"0"_s);
    QCOMPARE(spooled(), u"0"_s);
    if (calling == u"CT")  // and the association goes on
        QCOMPARE(modality.ask(askFor({1})), 0);
}

void CommitmentTest::tooManyReferencesAreRefused() {
    const ReportReceiver receiver;
    launchWith(receiver.port(), 1);
    // By hand: the toolkit takes its time for so many items.
    const auto dataSet = [](int count) {
        CommitmentAsk one = askFor({1});
        const std::vector<char> whole = commitmentDataSet(one, "1.2.840.10008.1.2.1");
        const auto item = std::search(whole.begin(), whole.end(), std::begin("\xfe\xff\x00\xe0"),
                                      std::begin("\xfe\xff\x00\xe0") + 4);
        const auto end = std::search(item, whole.end(), std::begin("\xfe\xff\xdd\xe0"),
                                     std::begin("\xfe\xff\xdd\xe0") + 4);
        std::vector<char> bytes(whole.begin(), item);
        for (int i = 0; i < count; ++i)
            bytes.insert(bytes.end(), item, end);
        bytes.insert(bytes.end(), end, whole.end());
        return bytes;
    };
    Committer modality{daemon_->port()};
    QCOMPARE(modality.askBytes({}, dataSet(100'001)), 0x0213);
    QCOMPARE(jobs(), u"0"_s);
    QCOMPARE(modality.askBytes({}, dataSet(100'000)), 0);
    QCOMPARE(jobs(), u"1"_s);
    // The check of so many goes on: a stop does not wait for it.
    QVERIFY(daemon_->terminate());
    QCOMPARE(daemon_->database.value(u"SELECT State FROM Job"_s), u"0"_s);
}

void CommitmentTest::theSameRequestAgainIsOneReport() {
    const QString port = unusedPort();
    launchWith(port);
    QCOMPARE(ask(askFor({1})), 0);
    QCOMPARE(ask(askFor({1})), 0);
    QCOMPARE(jobs(), u"1"_s);
    const ReportReceiver receiver{port};
    EVENTUALLY_COMPARE(daemon_->database.value(u"SELECT State FROM Job"_s), u"2"_s);
    QCOMPARE(receiver.reports().size(), std::size_t{1});
    EVENTUALLY_COMPARE(spooled(), u"0"_s);
}

void CommitmentTest::theSameRequestAfterItsReportIsReportedAgain() {
    const ReportReceiver receiver;
    launchWith(receiver.port());
    QCOMPARE(ask(askFor({1})), 0);
    EVENTUALLY_COMPARE(daemon_->database.value(u"SELECT State FROM Job"_s), u"2"_s);
    QCOMPARE(ask(askFor({1})), 0);
    EVENTUALLY(receiver.reports().size() == 2);
    QCOMPARE(receiver.reports().back().eventType, 1);
    QCOMPARE(jobs(), u"1"_s);
}

void CommitmentTest::anotherListUnderTheUidFails() {
    const ReportReceiver receiver;
    launchWith(receiver.port());
    QCOMPARE(ask(askFor({1})), 0);
    QCOMPARE(ask(askFor({1, 2})), 0);
    EVENTUALLY(receiver.reports().size() == 2);
    const Report first = receiver.reports().front();
    const Report second = receiver.reports().back();
    QCOMPARE(first.eventType, 1);
    QCOMPARE(second.eventType, 2);
    QCOMPARE(second.failed, (std::map<std::string, int>{{instance(1), 0x0131}, {instance(2), 0x0131}}));
    QVERIFY(!second.hasCommitted);
}

void CommitmentTest::aRequestorThatIsGoneIsTriedAgain() {
    const QString port = unusedPort();
    launchWith(port);
    QCOMPARE(ask(askFor({1})), 0);
    EVENTUALLY(daemon_->database.value(u"SELECT Attempts FROM Job"_s).toInt() > 0);
    QVERIFY(!daemon_->database.value(u"SELECT LastError FROM Job"_s).isEmpty());
    const ReportReceiver receiver{port};
    EVENTUALLY(receiver.reports().size() == 1);
}

void CommitmentTest::anAnswerThatIsAnErrorIsTriedAgain() {
    ReportReceiver receiver{unusedPort(), 0x0110};
    launchWith(receiver.port());
    QCOMPARE(ask(askFor({1})), 0);
    EVENTUALLY_COMPARE(daemon_->database.value(u"SELECT LastError FROM Job"_s),
                       u"the node answers with status 0110"_s);
    receiver.setStatus(0);
    EVENTUALLY_COMPARE(daemon_->database.value(u"SELECT State FROM Job"_s), u"2"_s);
}

void CommitmentTest::aReportIsDeliveredOverTheRequestorsAssociation() {
    launchWith(unusedPort());  // nobody listens there
    QCOMPARE(ask(askFor({1})), 0);
    EVENTUALLY(daemon_->database.value(u"SELECT Attempts FROM Job"_s).toInt() > 0);
    Committer modality{daemon_->port()};
    QCOMPARE(modality.hearReport(0x0110), 1);  // an error: it comes again
    QCOMPARE(modality.hearReport(), 1);
    // And the association can be used for requests as before.
    CommitmentAsk other = askFor({2});
    other.transactionUid += ".2";
    QCOMPARE(modality.ask(other), 0);
    EVENTUALLY_COMPARE(daemon_->database.value(u"SELECT State FROM Job ORDER BY Number"_s), u"2"_s);
}

void CommitmentTest::aRequestorThatDoesNotListenHoldsNoReport() {
    const QString port = unusedPort();
    launchWith(port);
    Committer modality{daemon_->port()};
    QCOMPARE(modality.ask(askFor({1})), 0);
    EVENTUALLY_COMPARE(daemon_->database.value(u"SELECT State FROM Job WHERE Attempts>0"_s), u"1"_s);
    const ReportReceiver receiver{port};
    EVENTUALLY(receiver.reports().size() == 1);
    QCOMPARE(modality.hearReport(), 1);  // it did come here as well
}

void CommitmentTest::tablesThatCannotBeReadAreNoFailure() {
    const ReportReceiver receiver;
    launchWith(receiver.port());
    daemon_->database.run(u"ALTER TABLE Image RENAME TO Elsewhere"_s);
    QCOMPARE(ask(askFor({1})), 0);
    EVENTUALLY(daemon_->database.value(u"SELECT Attempts FROM Job"_s).toInt() > 0);
    QVERIFY(receiver.reports().empty());
    daemon_->database.run(u"ALTER TABLE Elsewhere RENAME TO Image"_s);
    EVENTUALLY(receiver.reports().size() == 1);
    QCOMPARE(receiver.reports().front().eventType, 1);
}

void CommitmentTest::aKilledServerReportsAfterItsStart() {
    const QString port = unusedPort();
    launchWith(port);
    QCOMPARE(ask(askFor({1, 2})), 0);
    daemon_->kill();
    QCOMPARE(jobs(), u"1"_s);
    // An attempt may have been under way: another server waits for the end of its lease.
    daemon_->database.run(u"UPDATE Job SET Lease=Lease-61 WHERE State=1"_s);
    const ReportReceiver receiver{port};
    launchAgain();
    EVENTUALLY(receiver.reports().size() == 1);
    QCOMPARE(receiver.reports().front().committed, (std::vector{instance(1), instance(2)}));
}

void CommitmentTest::aDiskThatIsNotMountedIsNoFailure() {
    const ReportReceiver receiver;
    launchWith(receiver.port());
    const QString root = daemon_->database.imageRoot();
    QVERIFY(QDir{}.rename(root, root + u"-elsewhere"_s));
    QVERIFY(QDir{}.mkpath(root));  // the empty place of the mount
    QCOMPARE(ask(askFor({1})), 0);
    EVENTUALLY(daemon_->database.value(u"SELECT Attempts FROM Job"_s).toInt() > 0);
    QVERIFY(receiver.reports().empty());
    QVERIFY(QDir{root + u"-elsewhere"_s}.rename(root + u"-elsewhere/1.2.826.0.1.1"_s,
                                                root + u"/1.2.826.0.1.1"_s));
    EVENTUALLY(receiver.reports().size() == 1);
    QCOMPARE(receiver.reports().front().eventType, 1);
}

QTEST_GUILESS_MAIN(CommitmentTest)
#include "tst_commitment.moc"
