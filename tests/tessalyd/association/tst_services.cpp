#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/ofstd/ofstd.h>

#include <QTest>
#include <cstring>
#include <latch>
#include <thread>

#include "dicom/data/SinkStream.h"
#include "tests/tessalyd/Association.h"
#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/association/ScriptedServer.h"

using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// What a service may do and rely on, whatever service it is: scripted ones behind a real association.
class ServicesTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void cleanup();

    void whatIsAcceptedIsTheSumOfTheOffers_data();
    void whatIsAcceptedIsTheSumOfTheOffers();
    void extendedNegotiationIsTheServices();
    void aFailureIsTheRequestsAlone_data();
    void aFailureIsTheRequestsAlone();
    void aCancelIsSeenBetweenTheAnswers();
    void aCancelInTheIdentifiersPduIsSeen();
    void aCancelOfAnotherRequestIsNone();
    void aCancelThatComesTooLateIsPassedOver();
    void anotherRequestBeforeTheAnswerEndsTheAssociation();
    void theRequestersEndReachesTheService();
    void aStopReachesTheService();
    void aStopReachesAServiceThatCannotSend();
    void aServiceCanAskTheRequester();
    void aFaultEndsItsAssociationAlone();

  private:
    [[nodiscard]] QString port() const { return server_->port(); }

    std::unique_ptr<ScriptedServer> server_;
};

void ServicesTest::init() {
    server_ = std::make_unique<ScriptedServer>();
}

void ServicesTest::cleanup() {
    server_.reset();
}

void ServicesTest::whatIsAcceptedIsTheSumOfTheOffers_data() {
    QTest::addColumn<QByteArray>("sopClass");
    QTest::addColumn<QList<QByteArray>>("syntaxes");
    QTest::addColumn<int>("role");
    QTest::addColumn<QByteArray>("accepted");
    QTest::addColumn<int>("acceptedRole");
    const QList<QByteArray> both{Implicit, Explicit};
    const QByteArray none;
    constexpr int Default = ASC_SC_ROLE_DEFAULT;
    constexpr int Scu = ASC_SC_ROLE_SCU;
    constexpr int Scp = ASC_SC_ROLE_SCP;
    constexpr int ScuScp = ASC_SC_ROLE_SCUSCP;
    const auto row = [](const char* name, const char* sopClass, const QList<QByteArray>& syntaxes, int role,
                        const QByteArray& accepted, int acceptedRole) {
        QTest::newRow(name) << QByteArray{sopClass} << syntaxes << role << accepted << acceptedRole;
    };
    row("a class of nobody's", UID_MRImageStorage, both, Default, none, Default);
    row("the first that is taken", CtClass, both, Default, Implicit, Default);
    row("no syntax that is taken", CtClass, {UID_RLELosslessTransferSyntax}, Default, none, Default);
    row("one syntax that is taken", CtClass, {UID_RLELosslessTransferSyntax, Explicit}, Default, Explicit,
        Default);
    row("to send alone, said so", CtClass, both, Scu, Implicit, Default);
    row("to receive: the preferred", CtClass, both, Scp, Explicit, Scp);
    row("both", CtClass, both, ScuScp, Explicit, ScuScp);
    row("to receive what nobody sends", EchoClass, both, Scp, none, Default);
    row("both, where nobody sends", EchoClass, both, ScuScp, Implicit, Default);
}

void ServicesTest::whatIsAcceptedIsTheSumOfTheOffers() {
    QFETCH(const QByteArray, sopClass);
    QFETCH(const QList<QByteArray>, syntaxes);
    QFETCH(const int, role);
    QFETCH(const QByteArray, accepted);
    QFETCH(const int, acceptedRole);
    std::vector<std::string> proposed;
    for (const QByteArray& syntax : syntaxes)
        proposed.push_back(syntax.toStdString());
    Association peer{
        port(),
        "TESTER",
        "TESSALY",
        {{EchoClass, {Implicit}}, {sopClass.toStdString(), proposed, static_cast<T_ASC_SC_ROLE>(role)}}};
    QVERIFY(peer.isOpen());
    QCOMPARE(QByteArray::fromStdString(peer.accepted(1)), accepted);
    if (!accepted.isEmpty())
        QCOMPARE(static_cast<int>(peer.acceptedRole(1)), acceptedRole);
}

void ServicesTest::extendedNegotiationIsTheServices() {
    Association peer{
        port(), "TESTER", "TESSALY", ScriptedServer::contexts(), {{FindClass, {1, 1, 1}}, {MoveClass, {1}}}};
    QVERIFY(peer.isOpen());
    QVERIFY(peer.acceptedExtensions() == (std::vector<Association::Extension>{{FindClass, {1, 1, 0}}}));
    const Association plain{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    QVERIFY(plain.acceptedExtensions().empty());
}

void ServicesTest::aFailureIsTheRequestsAlone_data() {
    QTest::addColumn<int>("context");
    QTest::addColumn<int>("command");
    QTest::newRow("find") << int{ScriptedServer::Find} << int{DIMSE_C_FIND_RQ};
    QTest::newRow("move") << int{ScriptedServer::Move} << int{DIMSE_C_MOVE_RQ};
    QTest::newRow("get") << int{ScriptedServer::Get} << int{DIMSE_C_GET_RQ};
    QTest::newRow("store") << int{ScriptedServer::Ct} << int{DIMSE_C_STORE_RQ};
}

void ServicesTest::aFailureIsTheRequestsAlone() {
    QFETCH(const int, context);
    QFETCH(const int, command);
    server_->on(static_cast<T_DIMSE_Command>(command), [](const Request&, Requester&) {
        throw RequestFailure{0xa900, std::string(70, 'x'), DCM_QueryRetrieveLevel};
    });
    Association peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    ask(peer, static_cast<ScriptedServer::ContextId>(context), static_cast<T_DIMSE_Command>(command));
    const Heard heard = hear(peer);
    QVERIFY(heard.arrived);
    QCOMPARE(int{heard.message.CommandField}, command | 0x8000);
    const auto& response = heard.message.msg;
    QCOMPARE(int{command == DIMSE_C_FIND_RQ   ? response.CFindRSP.DimseStatus
                 : command == DIMSE_C_MOVE_RQ ? response.CMoveRSP.DimseStatus
                 : command == DIMSE_C_GET_RQ  ? response.CGetRSP.DimseStatus
                                              : response.CStoreRSP.DimseStatus},
             0xa900);
    QVERIFY(heard.detail != nullptr);
    OFString comment;
    heard.detail->findAndGetOFString(DCM_ErrorComment, comment);
    QCOMPARE(comment, OFString(64, 'x'));
    DcmElement* offending = nullptr;
    DcmTagKey key;
    QVERIFY(heard.detail->findAndGetElement(DCM_OffendingElement, offending).good());
    QVERIFY(offending->getTagVal(key).good());
    QVERIFY(key == DCM_QueryRetrieveLevel);
    QVERIFY(peer.echo());
}

void ServicesTest::aCancelIsSeenBetweenTheAnswers() {
    std::atomic<bool> before = true;
    server_->on(DIMSE_C_FIND_RQ, [&before](const Request& request, Requester& requester) {
        before = requester.isCancelled();
        answerFind(request, requester, STATUS_FIND_Pending_MatchesAreContinuing);
        while (!requester.isCancelled())
            std::this_thread::yield();
        answerFind(request, requester, STATUS_FIND_Cancel_MatchingTerminatedDueToCancelRequest);
    });
    Association peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    const DIC_US id = ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    QCOMPARE(int{hear(peer).message.msg.CFindRSP.DimseStatus}, 0xff00);
    QVERIFY(!before);
    cancel(peer, ScriptedServer::Find, id);
    QCOMPARE(int{hear(peer).message.msg.CFindRSP.DimseStatus}, 0xfe00);
    QVERIFY(peer.echo());
}

void ServicesTest::aCancelInTheIdentifiersPduIsSeen() {
    server_->on(DIMSE_C_FIND_RQ, [](const Request& request, Requester& requester) {
        tessaly::dicom::SinkStream nowhere{[](std::span<const char>) {}};
        (void)requester.receiveDataSet(nowhere);
        answerFind(request, requester, requester.isCancelled() ? STATUS_FIND_Cancel : STATUS_Success);
    });
    Association peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    const std::string identifier{"\x08\0\x52\0\x06\0\0\0STUDY ", 14};
    for (int i = 0; i < 3; ++i) {
        peer.sendFindAndCancel(ScriptedServer::Find, FindClass, identifier);
        const Heard heard = hear(peer);
        QVERIFY(heard.arrived);
        QCOMPARE(int{heard.message.msg.CFindRSP.DimseStatus}, STATUS_FIND_Cancel);
    }
    QVERIFY(peer.echo());
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    QCOMPARE(int{hear(peer).message.msg.CFindRSP.DimseStatus}, STATUS_Success);
}

void ServicesTest::aCancelOfAnotherRequestIsNone() {
    std::latch goOn{1};
    server_->on(DIMSE_C_FIND_RQ, [&goOn](const Request& request, Requester& requester) {
        goOn.wait();
        const bool cancelled = requester.isCancelled();
        answerFind(request, requester, cancelled ? 0xfe00 : STATUS_Success);
    });
    Association peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    const DIC_US id = ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    cancel(peer, ScriptedServer::Find, static_cast<DIC_US>(id + 1));
    goOn.count_down();
    QCOMPARE(int{hear(peer).message.msg.CFindRSP.DimseStatus}, 0);
    QVERIFY(peer.echo());
}

void ServicesTest::aCancelThatComesTooLateIsPassedOver() {
    server_->on(DIMSE_C_FIND_RQ, [](const Request& request, Requester& requester) {
        answerFind(request, requester, requester.isCancelled() ? 0xfe00 : STATUS_Success);
    });
    Association peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    const DIC_US id = ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    QCOMPARE(int{hear(peer).message.msg.CFindRSP.DimseStatus}, 0);
    cancel(peer, ScriptedServer::Find, id);
    QVERIFY(peer.echo());
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    QCOMPARE(int{hear(peer).message.msg.CFindRSP.DimseStatus}, 0);
}

void ServicesTest::anotherRequestBeforeTheAnswerEndsTheAssociation() {
    server_->on(DIMSE_C_FIND_RQ, [](const Request&, Requester& requester) {
        while (!requester.isCancelled())
            std::this_thread::yield();
    });
    Association peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    QVERIFY(peer.waitForEnd());
    EVENTUALLY_COMPARE(int{server_->ended}, 1);
}

void ServicesTest::theRequestersEndReachesTheService() {
    server_->on(DIMSE_C_FIND_RQ, [](const Request&, Requester& requester) {
        while (!requester.isCancelled())
            std::this_thread::yield();
    });
    for (const bool abort : {true, false}) {
        server_->ended = 0;
        auto peer = std::make_unique<Association>(port(), "TESTER", "TESSALY", ScriptedServer::contexts());
        ask(*peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
        if (abort)
            peer->abort();
        peer.reset();
        EVENTUALLY_COMPARE(int{server_->ended}, 1);
    }
}

void ServicesTest::aStopReachesTheService() {
    std::atomic<bool> asked = false;
    server_->on(DIMSE_C_FIND_RQ, [&asked](const Request& request, Requester& requester) {
        asked = true;
        while (!requester.stop().stop_requested())
            std::this_thread::yield();
        answerFind(request, requester, STATUS_Success);
    });
    Association peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    EVENTUALLY(asked);
    server_->stop();
    QVERIFY(hear(peer).arrived);  // what is sent after a stop still goes out
    QVERIFY(peer.waitForEnd());
    EVENTUALLY_COMPARE(int{server_->ended}, 1);
}

void ServicesTest::aStopReachesAServiceThatCannotSend() {
    std::atomic<int> answers = 0;
    server_->on(DIMSE_C_FIND_RQ, [&answers](const Request& request, Requester& requester) {
        for (;; ++answers)
            answerFind(request, requester, STATUS_FIND_Pending_MatchesAreContinuing);
    });
    Association peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    int before = -1;
    const auto isStuck = [&] { return std::exchange(before, int{answers}) == answers && answers > 0; };
    QTRY_VERIFY_WITH_TIMEOUT(isStuck(), PatienceMs);  // nobody reads the answers
    server_->stop();
    EVENTUALLY_COMPARE(int{server_->ended}, 1);
}

void ServicesTest::aServiceCanAskTheRequester() {
    server_->on(DIMSE_C_GET_RQ, [](const Request& request, Requester& requester) {
        const auto contexts = requester.contexts();
        const auto target = std::find_if(contexts.begin(), contexts.end(), [](const AcceptedContext& one) {
            return one.has(Role::Scp) && one.sopClass == CtClass;
        });
        T_DIMSE_Message store{};
        store.CommandField = DIMSE_C_STORE_RQ;
        store.msg.CStoreRQ.MessageID = 77;
        store.msg.CStoreRQ.DataSetType = DIMSE_DATASET_PRESENT;
        OFStandard::strlcpy(store.msg.CStoreRQ.AffectedSOPClassUID, CtClass, sizeof(DIC_UI));
        OFStandard::strlcpy(store.msg.CStoreRQ.AffectedSOPInstanceUID, "1.2.3", sizeof(DIC_UI));
        DcmDataset object;
        object.putAndInsertString(DCM_SOPInstanceUID, "1.2.3");
        Requester::require(DIMSE_sendMessageUsingMemoryData(requester.association(), target->id, &store,
                                                            nullptr, &object, nullptr, nullptr));
        const Request answer = requester.receive();
        T_DIMSE_C_GetRSP response{};
        response.DimseStatus =
            answer.message.CommandField == DIMSE_C_STORE_RSP && requester.isCancelled() ? 0xfe00 : 0xc000;
        Requester::require(DIMSE_sendGetResponse(requester.association(), request.context->id,
                                                 &request.message.msg.CGetRQ, &response, nullptr, nullptr));
    });
    Association peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    const DIC_US id = ask(peer, ScriptedServer::Get, DIMSE_C_GET_RQ);
    Heard asked = hear(peer);
    QCOMPARE(int{asked.message.CommandField}, int{DIMSE_C_STORE_RQ});
    cancel(peer, ScriptedServer::Get, id);  // comes before the answer that is waited for
    T_DIMSE_C_StoreRSP stored{};
    QVERIFY(
        DIMSE_sendStoreResponse(peer.raw(), ScriptedServer::Ct, &asked.message.msg.CStoreRQ, &stored, nullptr)
            .good());
    const Heard final = hear(peer);
    QCOMPARE(int{final.message.CommandField}, int{DIMSE_C_GET_RSP});
    QCOMPARE(int{final.message.msg.CGetRSP.DimseStatus}, 0xfe00);
    QVERIFY(peer.echo());
}

void ServicesTest::aFaultEndsItsAssociationAlone() {
    server_->on(DIMSE_C_FIND_RQ,
                [](const Request&, Requester&) { throw std::runtime_error{"nobody expects this"}; });
    Association other{port()};
    Association peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    QVERIFY(peer.waitForEnd());
    EVENTUALLY_COMPARE(int{server_->ended}, 1);
    QVERIFY(other.echo());
}

QTEST_GUILESS_MAIN(ServicesTest)
#include "tst_services.moc"
