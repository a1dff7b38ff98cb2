#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <QDialog>
#include <QDir>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <cstring>
#include <future>

#include "console/ui/ConsoleEnd.h"
#include "console/ui/Verification.h"
#include "tests/dicom/net/Peers.h"
#include "tests/support/Console.h"
#include "tests/support/Eventually.h"
#include "tests/support/UnusedPort.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace tessaly;
using namespace tessaly::dicom;
using tessaly::ui::EchoVerify;
using namespace tessaly::test;
using Outcome = VerificationResult::Outcome;

namespace {

constexpr const char* HangingHost = "resolver.hangs.example";
std::promise<void> resolverMayGoOn;
std::shared_future<void> resolverGoesOn = resolverMayGoOn.get_future().share();

constexpr Verifier::Limits Short{.total = 400ms, .resolve = 200ms};

VerificationResult verify(const QString& port, const std::string& called = "PEER",
                          const Verifier::Limits& limits = {}, const std::string& calling = "TESSALY") {
    return Verifier{limits}.verify({.host = "127.0.0.1",
                                    .port = port.toStdString(),
                                    .callingAeTitle = calling,
                                    .calledAeTitle = called});
}

/// This process's sockets that are connected to the port.
std::vector<int> socketsTo(const QString& port) {
    std::vector<int> found;
    for (const QString& name : QDir{u"/proc/self/fd"_s}.entryList(QDir::System | QDir::Files)) {
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        if (getpeername(name.toInt(), reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
            peer.sin_family == AF_INET && ntohs(peer.sin_port) == port.toInt())
            found.push_back(name.toInt());
    }
    return found;
}

bool sendsAtOnce(int socket) {
    int on = 0;
    socklen_t size = sizeof on;
    return getsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, &size) == 0 && on != 0;
}

}  // namespace

/// The system's resolver, but for one name that it never answers while the test says so.
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** found) {
    static const auto real = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if (name != nullptr && std::strcmp(name, HangingHost) == 0 && (hints->ai_flags & AI_NUMERICHOST) == 0)
        resolverGoesOn.wait();
    return real(name, service, hints, found);
}

class VerificationTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void cleanupTestCase() { resolverMayGoOn.set_value(); }

    void outcomesAreToldApart_data();
    void outcomesAreToldApart();
    void nobodyListens();
    void nobodyTakesTheConnection();
    void unknownHost();
    void aResolverThatHangsIsLeftBehind();
    void theLimitHoldsWhateverThePeerDoes();
    void anEmptyCallingTitleIsTheVerifiersOwn();
    void aBlankTitleIsNotTried();
    void whatCannotBeSentIsRaised_data();
    void whatCannotBeSentIsRaised();
    void aStopEndsTheWait();
    void nothingWaitsForAnAcknowledgement();
    void storescpAnswers();
    void orthancAnswersAndRejects();
    void theWindowLivesAndTheDialogIsBlocked();
    void theDialogComesBackWithItsFocus();
    void theComponentsDescriptionReachesTheCaller();
    void theConsoleMayEndMeanwhile();
    void theDialogMayGoMeanwhile_data();
    void theDialogMayGoMeanwhile();
};

void VerificationTest::outcomesAreToldApart_data() {
    QTest::addColumn<Peer::Manner>("manner");
    QTest::addColumn<VerificationResult::Outcome>("outcome");
    using Manner = Peer::Manner;
    QTest::newRow("accepts") << Manner::Accepts << Outcome::Success;
    QTest::newRow("never speaks") << Manner::NeverSpeaks << Outcome::TimedOut;
    QTest::newRow("stops half-way") << Manner::StopsHalfWay << Outcome::TimedOut;
    QTest::newRow("drips") << Manner::Drips << Outcome::TimedOut;
    QTest::newRow("closes") << Manner::Closes << Outcome::Aborted;
    QTest::newRow("speaks nonsense") << Manner::SpeaksNonsense << Outcome::Faulty;
    QTest::newRow("rejects") << Manner::Rejects << Outcome::Rejected;
    QTest::newRow("aborts") << Manner::Aborts << Outcome::Aborted;
    QTest::newRow("offers nothing") << Manner::OffersNothing << Outcome::NoPresentationContext;
    QTest::newRow("aborts the echo") << Manner::AbortsTheEcho << Outcome::Aborted;
    QTest::newRow("ignores the echo") << Manner::IgnoresTheEcho << Outcome::TimedOut;
    QTest::newRow("fails the echo") << Manner::FailsTheEcho << Outcome::Failed;
    QTest::newRow("ignores the release") << Manner::IgnoresTheRelease << Outcome::Success;
}

void VerificationTest::outcomesAreToldApart() {
    QFETCH(Peer::Manner, manner);
    QFETCH(VerificationResult::Outcome, outcome);
    const Peer peer{manner};
    const bool waits = outcome == Outcome::TimedOut;
    const VerificationResult result = verify(peer.port(), "PEER", waits ? Short : Verifier::Limits{});
    QCOMPARE(result.outcome, outcome);
    QVERIFY(!result.detail.empty());
    EVENTUALLY_COMPARE(peer.connections(), 1);
    QCOMPARE(result.rejectSource, outcome == Outcome::Rejected ? 1 : 0);
    QCOMPARE(result.rejectReason, outcome == Outcome::Rejected ? 7 : 0);
    QCOMPARE(result.status, outcome == Outcome::Failed ? 0x0122 : 0);
}

void VerificationTest::nobodyListens() {
    QCOMPARE(verify(unusedPort()).outcome, Outcome::Unreachable);
}

void VerificationTest::nobodyTakesTheConnection() {
    const FullPort full;
    const auto start = std::chrono::steady_clock::now();
    QCOMPARE(verify(full.port()).outcome, Outcome::TimedOut);
    QVERIFY(std::chrono::steady_clock::now() - start < 10s);
}

void VerificationTest::unknownHost() {
    QCOMPARE(Verifier{}.verify({.host = "", .port = "104", .calledAeTitle = "PEER"}).outcome,
             Outcome::Unreachable);
    QCOMPARE(Verifier{}.verify({.host = "no such host", .port = "104", .calledAeTitle = "PEER"}).outcome,
             Outcome::Unreachable);
}

void VerificationTest::aResolverThatHangsIsLeftBehind() {
    const VerificationResult result =
        Verifier{Short}.verify({.host = HangingHost, .port = "104", .calledAeTitle = "PEER"});
    QCOMPARE(result.outcome, Outcome::TimedOut);
}

void VerificationTest::theLimitHoldsWhateverThePeerDoes() {
    for (const auto manner : {Peer::Manner::NeverSpeaks, Peer::Manner::StopsHalfWay, Peer::Manner::Drips,
                              Peer::Manner::IgnoresTheEcho}) {
        const Peer peer{manner};
        const auto start = std::chrono::steady_clock::now();
        (void)verify(peer.port(), "PEER", Short);
        const auto taken = std::chrono::steady_clock::now() - start;
        QVERIFY(taken >= Short.total);
        QVERIFY(taken < 10s);  // far from a minute, which the library would take
    }
}

void VerificationTest::anEmptyCallingTitleIsTheVerifiersOwn() {
    const Peer peer{Peer::Manner::Accepts};
    QCOMPARE(verify(peer.port(), "PEER", {}, "").outcome, Outcome::Success);
    QCOMPARE(peer.callingAeTitle(), std::string{Verifier::DefaultCallingAeTitle});
    QCOMPARE(verify(peer.port(), "With Blank", {}, "lower's").outcome, Outcome::Success);
    QCOMPARE(peer.callingAeTitle(), std::string{"lower's"});
    QCOMPARE(peer.calledAeTitle(), std::string{"With Blank"});
}

void VerificationTest::aBlankTitleIsNotTried() {
    const Peer peer{Peer::Manner::Accepts};
    QCOMPARE(verify(peer.port(), "").outcome, Outcome::Untitled);
    QCOMPARE(verify(peer.port(), "  ").outcome, Outcome::Untitled);
    QCOMPARE(verify(peer.port(), "PEER", {}, "  ").outcome, Outcome::Untitled);
    QCOMPARE(peer.connections(), 0);
}

void VerificationTest::whatCannotBeSentIsRaised_data() {
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("port");
    QTest::addColumn<QString>("calling");
    QTest::addColumn<QString>("called");
    QTest::addColumn<QString>("text");
    const QString host = u"127.0.0.1"_s;
    const auto badPort = [&](const char* name, const QString& port) {
        QTest::newRow(name) << host << port << u"A"_s << u"B"_s
                            << u"Port '%1' is no number from 1 to 65535"_s.arg(port);
    };
    badPort("letters for a port", u"abc"_s);
    badPort("no port", u""_s);
    badPort("blanks for a port", u"  "_s);
    badPort("number and more", u"104x"_s);
    badPort("port 0", u"0"_s);
    badPort("port too big", u"65536"_s);
    badPort("port that overflows", u"99999999999999"_s);
    QTest::newRow("umlaut")
        << host << u"104"_s << u"A"_s << u"RÖNTGEN"_s
        << u"The called AE title 'RÖNTGEN' has characters that DICOM does not allow in it"_s;
    QTest::newRow("backslash")
        << host << u"104"_s << u"A\\B"_s << u"B"_s
        << u"The calling AE title 'A\\B' has characters that DICOM does not allow in it"_s;
    QTest::newRow("long title") << host << u"104"_s << u"A"_s << u"SEVENTEEN LETTERS"_s
                                << u"The called AE title 'SEVENTEEN LETTERS' is longer than 16 characters"_s;
}

void VerificationTest::whatCannotBeSentIsRaised() {
    QFETCH(QString, host);
    QFETCH(QString, port);
    QFETCH(QString, calling);
    QFETCH(QString, called);
    QFETCH(QString, text);
    QString raised;
    try {
        (void)Verifier{}.verify(
            {host.toStdString(), port.toStdString(), calling.toStdString(), called.toStdString()});
    } catch (const std::runtime_error& fault) {
        raised = QString::fromUtf8(fault.what());
    }
    QCOMPARE(raised, text);
}

void VerificationTest::aStopEndsTheWait() {
    for (const std::string host : {"127.0.0.1", HangingHost}) {
        const Peer peer{Peer::Manner::NeverSpeaks};
        std::stop_source stop;
        auto waiting = std::async(std::launch::async, [&] {
            return Verifier{{.total = 1h, .resolve = 1h}}.verify(
                {.host = host, .port = peer.port().toStdString(), .calledAeTitle = "PEER"}, stop.get_token());
        });
        if (host == "127.0.0.1")
            EVENTUALLY_COMPARE(peer.connections(), 1);
        stop.request_stop();
        QCOMPARE(waiting.get().outcome, Outcome::Stopped);
    }
}

void VerificationTest::nothingWaitsForAnAcknowledgement() {
    const Peer peer{Peer::Manner::IgnoresTheEcho};
    std::stop_source stop;
    const auto verification = std::async(std::launch::async, [&] {
        return Verifier{}.verify({.host = "127.0.0.1",
                                  .port = peer.port().toStdString(),
                                  .callingAeTitle = "TESSALY",
                                  .calledAeTitle = "PEER"},
                                 stop.get_token());
    });
    EVENTUALLY(std::ranges::any_of(socketsTo(peer.port()), sendsAtOnce));
    stop.request_stop();
}

void VerificationTest::storescpAnswers() {
    const auto storescp = Product::storescp();
    QDialog dialog;
    QVERIFY(EchoVerify(&dialog, u"127.0.0.1"_s, storescp->port(), u"TESSALY"_s, u"ANYBODY"_s));
    QVERIFY(EchoVerify(&dialog, u"localhost"_s, u" %1 "_s.arg(storescp->port()), {}, u"ANYBODY"_s));
}

void VerificationTest::orthancAnswersAndRejects() {
    const auto orthanc = Product::orthanc();
    QCOMPARE(verify(orthanc->port(), "ORTHANC").outcome, Outcome::Success);

    const VerificationResult wrongTitle = verify(orthanc->port(), "SOMEBODY");
    QCOMPARE(wrongTitle.outcome, Outcome::Rejected);
    QCOMPARE(wrongTitle.rejectSource, 1);
    QCOMPARE(wrongTitle.rejectReason, 7);

    QVERIFY(verify(orthanc->port(), "ORTHANC", {}, "STRANGER").outcome != Outcome::Success);
}

void VerificationTest::theWindowLivesAndTheDialogIsBlocked() {
    const Peer peer{Peer::Manner::NeverSpeaks};
    QDialog dialog;
    auto* button = new QPushButton{u"Verify"_s, &dialog};
    QSignalSpy clicks{button, &QPushButton::clicked};
    dialog.show();
    int ticks = 0;
    bool blocked = false;
    QTimer ticker;
    connect(&ticker, &QTimer::timeout, &dialog, [&] {
        if (++ticks > 1)
            return;
        QTest::mouseClick(button, Qt::LeftButton);
        QTest::keyClick(&dialog, Qt::Key_Escape);
        dialog.close();
        const QCursor* cursor = QGuiApplication::overrideCursor();
        blocked = dialog.isVisible() && !dialog.isEnabled() && cursor != nullptr &&
                  cursor->shape() == Qt::WaitCursor;
    });
    ticker.start(10ms);
    QVERIFY(!EchoVerify(&dialog, u"127.0.0.1"_s, peer.port(), u"A"_s, u"B"_s, {.total = 2s, .resolve = 1s}));
    QVERIFY(ticks > 1);
    QVERIFY(blocked);
    QCOMPARE(clicks.size(), 0);
    QVERIFY(dialog.isEnabled());
    QVERIFY(dialog.isVisible());
    QCOMPARE(QGuiApplication::overrideCursor(), nullptr);
    QVERIFY(dialog.close());
}

void VerificationTest::theDialogComesBackWithItsFocus() {
    QDialog dialog;
    auto* rows = new QVBoxLayout{&dialog};
    rows->addWidget(new QLineEdit);
    auto* box = new QLineEdit;
    rows->addWidget(box);
    dialog.show();
    dialog.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&dialog));
    box->setFocus();
    QVERIFY(!EchoVerify(&dialog, u"127.0.0.1"_s, unusedPort(), u"A"_s, u"B"_s));
    QVERIFY(box->hasFocus());
}

void VerificationTest::theComponentsDescriptionReachesTheCaller() {
    QDialog dialog;
    dialog.show();
    QString raised;
    try {
        (void)EchoVerify(&dialog, u"127.0.0.1"_s, u"abc"_s, u"A"_s, u"B"_s);
    } catch (const std::runtime_error& fault) {
        raised = QString::fromUtf8(fault.what());
    }
    QCOMPARE(raised, u"Port 'abc' is no number from 1 to 65535"_s);
    QVERIFY(dialog.isEnabled());
    QCOMPARE(QGuiApplication::overrideCursor(), nullptr);
}

void VerificationTest::theConsoleMayEndMeanwhile() {
    const Peer peer{Peer::Manner::NeverSpeaks};
    QDialog dialog;
    dialog.show();
    QTimer::singleShot(0, &dialog, [] { ui::endConsole(0); });
    QVERIFY(!EchoVerify(&dialog, u"127.0.0.1"_s, peer.port(), u"A"_s, u"B"_s, {.total = 1h}));
    QCOMPARE(takeConsoleEnd(), 0);
}

void VerificationTest::theDialogMayGoMeanwhile_data() {
    QTest::addColumn<bool>("deleted");
    QTest::newRow("rejected by program") << false;
    QTest::newRow("deleted") << true;
}

void VerificationTest::theDialogMayGoMeanwhile() {
    QFETCH(bool, deleted);
    const Peer peer{Peer::Manner::NeverSpeaks};
    QPointer dialog{new QDialog};
    dialog->show();
    QTimer::singleShot(0, qApp, [dialog, deleted] {
        if (deleted)
            delete dialog;
        else
            dialog->reject();
    });
    QVERIFY(!EchoVerify(dialog, u"127.0.0.1"_s, peer.port(), u"A"_s, u"B"_s, {.total = 1h}));
    QCOMPARE(QGuiApplication::overrideCursor(), nullptr);
    QVERIFY(!dialog || dialog->isEnabled());
    delete dialog;
}

QTEST_MAIN(VerificationTest)
#include "tst_verification.moc"
