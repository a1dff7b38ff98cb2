#include "tests/tessalyd/services/retrieve/MoveTest.h"

#include <QTcpSocket>
#include <stdexcept>


using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd;

namespace tessaly::test {

MoveTest::Receiver::Receiver(const QStringList& options) {
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(u"storescp"_s, QStringList{u"+B"_s, u"-od"_s, folder.path()} + options + QStringList{port});
    const auto listens = [this] {
        QTcpSocket probe;
        probe.connectToHost(u"127.0.0.1"_s, port.toUShort());
        return probe.waitForConnected(PatienceMs);
    };
    if (!QTest::qWaitFor(listens, PatienceMs))
        throw std::runtime_error{"the destination does not start"};
}

MoveTest::Receiver::~Receiver() {
    process.kill();
    process.waitForFinished();
}

void MoveTest::take(const Request& request, Association& association, DIC_US status) {
    if (!association.receiveDataSet([](std::span<const char>) {}))
        throw AssociationEnded{DIMSE_BADCOMMANDTYPE};
    association.respond(request, status);
}

}  // namespace tessaly::test
