#include <QTest>

#include "console/server/DBusServer.h"
#include "tests/console/server/FakeServer.h"

using namespace tessaly::test;

/// The session bus itself going away under the console. In a process of its own: the toolkit's shared
/// connection does not come back.
class ServerBusTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theBusMayComeBack();
};

void ServerBusTest::theBusMayComeBack() {
    FakeServer fake;
    const auto makeServer = tessaly::server::dbusServerFactory();
    auto server = makeServer();
    QCOMPARE(server->GetStatus().state, 0);

    fake.bus().stop();
    QVERIFY_EXCEPTION_THROWN((void)server->GetStatus(), std::runtime_error);
    QVERIFY_EXCEPTION_THROWN((void)makeServer(), std::runtime_error);

    fake.bus().start();
    server = makeServer();
    QCOMPARE(server->GetStatus().state, 0);
}

QTEST_MAIN(ServerBusTest)
#include "tst_serverbus.moc"
