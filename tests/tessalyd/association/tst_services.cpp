#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/ofstd/ofstd.h>

#include <QTest>
#include <cstring>
#include <latch>
#include <thread>

#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/RequestorAssociation.h"
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
    void theRequestorsEndReachesTheService();
    void aStopReachesTheService();
    void aStopReachesAServiceThatCannotSend();
    void aServiceCanAskTheRequestor();
    void aRequestGoesToTheServiceOfItsContext();
    void anUnknownRequestIsAnsweredAndItsDataSetPassedOver();
    void aRequestWithoutTheRightDoesNotReachItsService();
    void aFailureMayCarryADataSet();
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
    RequestorAssociation peer{
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
    RequestorAssociation peer{
        port(), "TESTER", "TESSALY", ScriptedServer::contexts(), {{FindClass, {1, 1, 1}}, {MoveClass, {1}}}};
    QVERIFY(peer.isOpen());
    QVERIFY(peer.acceptedExtensions() ==
            (std::vector<RequestorAssociation::Extension>{{FindClass, {1, 1, 0}}}));
    const RequestorAssociation plain{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
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
    server_->on(static_cast<CommandField>(command), [](const Request&, Association&) {
        throw RequestFailure{0xa900, std::string(70, 'x'), {.offendingElement = DCM_QueryRetrieveLevel}};
    });
    RequestorAssociation peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
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
    server_->on(CommandField::CFind, [&before](const Request& request, Association& association) {
        before = association.isCancelled();
        answerFind(request, association, STATUS_FIND_Pending_MatchesAreContinuing);
        while (!association.isCancelled())
            std::this_thread::yield();
        answerFind(request, association, STATUS_FIND_Cancel_MatchingTerminatedDueToCancelRequest);
    });
    RequestorAssociation peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    const DIC_US id = ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    QCOMPARE(int{hear(peer).message.msg.CFindRSP.DimseStatus}, 0xff00);
    QVERIFY(!before);
    cancel(peer, ScriptedServer::Find, id);
    QCOMPARE(int{hear(peer).message.msg.CFindRSP.DimseStatus}, 0xfe00);
    QVERIFY(peer.echo());
}

void ServicesTest::aCancelInTheIdentifiersPduIsSeen() {
    server_->on(CommandField::CFind, [](const Request& request, Association& association) {
        (void)association.receiveDataSet([](std::span<const char>) {});
        answerFind(request, association, association.isCancelled() ? STATUS_FIND_Cancel : STATUS_Success);
    });
    RequestorAssociation peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
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
    server_->on(CommandField::CFind, [&goOn](const Request& request, Association& association) {
        goOn.wait();
        const bool cancelled = association.isCancelled();
        answerFind(request, association, cancelled ? 0xfe00 : STATUS_Success);
    });
    RequestorAssociation peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    const DIC_US id = ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    cancel(peer, ScriptedServer::Find, static_cast<DIC_US>(id + 1));
    goOn.count_down();
    QCOMPARE(int{hear(peer).message.msg.CFindRSP.DimseStatus}, 0);
    QVERIFY(peer.echo());
}

void ServicesTest::aCancelThatComesTooLateIsPassedOver() {
    server_->on(CommandField::CFind, [](const Request& request, Association& association) {
        answerFind(request, association, association.isCancelled() ? 0xfe00 : STATUS_Success);
    });
    RequestorAssociation peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    const DIC_US id = ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    QCOMPARE(int{hear(peer).message.msg.CFindRSP.DimseStatus}, 0);
    cancel(peer, ScriptedServer::Find, id);
    QVERIFY(peer.echo());
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    QCOMPARE(int{hear(peer).message.msg.CFindRSP.DimseStatus}, 0);
}

void ServicesTest::anotherRequestBeforeTheAnswerEndsTheAssociation() {
    server_->on(CommandField::CFind, [](const Request&, Association& association) {
        while (!association.isCancelled())
            std::this_thread::yield();
    });
    RequestorAssociation peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    QVERIFY(peer.waitForEnd());
    EVENTUALLY_COMPARE(int{server_->ended}, 1);
}

void ServicesTest::theRequestorsEndReachesTheService() {
    server_->on(CommandField::CFind, [](const Request&, Association& association) {
        while (!association.isCancelled())
            std::this_thread::yield();
    });
    for (const bool abort : {true, false}) {
        server_->ended = 0;
        auto peer =
            std::make_unique<RequestorAssociation>(port(), "TESTER", "TESSALY", ScriptedServer::contexts());
        ask(*peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
        if (abort)
            peer->abort();
        peer.reset();
        EVENTUALLY_COMPARE(int{server_->ended}, 1);
    }
}

void ServicesTest::aStopReachesTheService() {
    std::atomic<bool> asked = false;
    server_->on(CommandField::CFind, [&asked](const Request& request, Association& association) {
        asked = true;
        while (!association.stop().stop_requested())
            std::this_thread::yield();
        answerFind(request, association, STATUS_Success);
    });
    RequestorAssociation peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    EVENTUALLY(asked);
    server_->stop();
    QVERIFY(hear(peer).arrived);  // what is sent after a stop still goes out
    QVERIFY(peer.waitForEnd());
    EVENTUALLY_COMPARE(int{server_->ended}, 1);
}

void ServicesTest::aStopReachesAServiceThatCannotSend() {
    std::atomic<int> answers = 0;
    server_->on(CommandField::CFind, [&answers](const Request& request, Association& association) {
        for (;; ++answers)
            answerFind(request, association, STATUS_FIND_Pending_MatchesAreContinuing);
    });
    RequestorAssociation peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    int before = -1;
    const auto isStuck = [&] { return std::exchange(before, int{answers}) == answers && answers > 0; };
    QTRY_VERIFY_WITH_TIMEOUT(isStuck(), PatienceMs);  // nobody reads the answers
    server_->stop();
    EVENTUALLY_COMPARE(int{server_->ended}, 1);
}

void ServicesTest::aServiceCanAskTheRequestor() {
    server_->on(CommandField::CGet, [](const Request& request, Association& association) {
        const auto contexts = association.contexts();
        const auto target = std::find_if(contexts.begin(), contexts.end(), [](const AcceptedContext& one) {
            return one.has(Role::Scp) && one.sopClass == CtClass;
        });
        auto store = tessaly::dicom::Command::request(CommandField::CStore, 77);
        store.set(DCM_AffectedSOPClassUID, CtClass);
        store.set(DCM_AffectedSOPInstanceUID, "1.2.3");
        store.set(DCM_Priority, std::uint16_t{0});
        DcmDataset object;
        object.putAndInsertString(DCM_SOPInstanceUID, "1.2.3");
        const auto stored = association.invoke(*target, store, &object);
        const bool isStored = stored.command.field() == CommandField::CStore && stored.dataSet.empty();
        association.respond(request, isStored && association.isCancelled() ? 0xfe00 : 0xc000);
    });
    RequestorAssociation peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
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

void ServicesTest::aRequestGoesToTheServiceOfItsContext() {
    std::atomic<int> reached = 0;
    server_->on(CommandField::CFind, [&reached](const Request&, Association&) { ++reached; });
    RequestorAssociation peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    ask(peer, ScriptedServer::Move, DIMSE_C_FIND_RQ);  // in the context of another service
    const Heard heard = hear(peer);
    QVERIFY(heard.arrived);
    QCOMPARE(int{heard.message.CommandField}, int{DIMSE_C_FIND_RSP});
    QCOMPARE(int{heard.message.msg.CFindRSP.DimseStatus}, 0x0211);
    QCOMPARE(int{reached}, 0);
    QVERIFY(peer.echo());
}

void ServicesTest::anUnknownRequestIsAnsweredAndItsDataSetPassedOver() {
    RequestorAssociation peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    T_DIMSE_Message message{};
    message.CommandField = DIMSE_N_ACTION_RQ;
    T_DIMSE_N_ActionRQ& action = message.msg.NActionRQ;
    action.MessageID = 77;
    OFStandard::strlcpy(action.RequestedSOPClassUID, FindClass, sizeof(DIC_UI));
    OFStandard::strlcpy(action.RequestedSOPInstanceUID, "1.2.3", sizeof(DIC_UI));
    action.ActionTypeID = 1;
    action.DataSetType = DIMSE_DATASET_PRESENT;
    DcmDataset body;
    body.putAndInsertString(DCM_TransactionUID, "1.2.3.4");
    QVERIFY(DIMSE_sendMessageUsingMemoryData(peer.raw(), ScriptedServer::Find, &message, nullptr, &body,
                                             nullptr, nullptr)
                .good());
    const Heard heard = hear(peer);
    QVERIFY(heard.arrived);
    QCOMPARE(int{heard.message.CommandField}, int{DIMSE_N_ACTION_RSP});
    QCOMPARE(int{heard.message.msg.NActionRSP.DimseStatus}, 0x0211);
    QCOMPARE(int{heard.message.msg.NActionRSP.MessageIDBeingRespondedTo}, 77);
    QCOMPARE(QByteArray{heard.message.msg.NActionRSP.AffectedSOPInstanceUID}, QByteArray{"1.2.3"});
    QVERIFY(peer.echo());
}

void ServicesTest::aRequestWithoutTheRightDoesNotReachItsService() {
    std::atomic<int> reached = 0;
    server_->setRight(Right::Query);
    server_->on(CommandField::CFind, [&reached](const Request& request, Association& association) {
        ++reached;
        answerFind(request, association, STATUS_Success);
    });
    for (const auto& [title, status] : {std::pair{"TESTER", 0x0124}, std::pair{"ASKER", 0x0000}}) {
        RequestorAssociation peer{port(), title, "TESSALY", ScriptedServer::contexts()};
        ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
        const Heard heard = hear(peer);
        QVERIFY(heard.arrived);
        QCOMPARE(int{heard.message.msg.CFindRSP.DimseStatus}, status);
        QVERIFY(peer.echo());
    }
    QCOMPARE(int{reached}, 1);
}

void ServicesTest::aFailureMayCarryADataSet() {
    server_->on(CommandField::CFind, [](const Request&, Association&) {
        auto values = std::make_shared<DcmDataset>();
        values->putAndInsertString(DCM_PatientID, "P1");
        throw RequestFailure{0xc001, "with what holds", {.offendingElement = {}, .dataSet = values}};
    });
    RequestorAssociation peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    const Heard heard = hear(peer);
    QVERIFY(heard.arrived);
    QCOMPARE(int{heard.message.msg.CFindRSP.DimseStatus}, 0xc001);
    QVERIFY(heard.message.msg.CFindRSP.DataSetType != DIMSE_DATASET_NULL);
    QVERIFY(peer.echo());
}

void ServicesTest::aFaultEndsItsAssociationAlone() {
    server_->on(CommandField::CFind,
                [](const Request&, Association&) { throw std::runtime_error{"nobody expects this"}; });
    RequestorAssociation other{port()};
    RequestorAssociation peer{port(), "TESTER", "TESSALY", ScriptedServer::contexts()};
    ask(peer, ScriptedServer::Find, DIMSE_C_FIND_RQ);
    QVERIFY(peer.waitForEnd());
    EVENTUALLY_COMPARE(int{server_->ended}, 1);
    QVERIFY(other.echo());
}

QTEST_GUILESS_MAIN(ServicesTest)
#include "tst_services.moc"
