#include "tests/tessalyd/services/retrieve/MoveTest.h"

#include <QTcpSocket>
#include <stdexcept>

#include "dicom/data/SinkStream.h"

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

void MoveTest::take(const Request& request, Requester& requester, DIC_US status) {
    dicom::SinkStream nowhere{[](std::span<const char>) {}};
    if (!requester.receiveDataSet(nowhere))
        throw AssociationEnded{DIMSE_BADCOMMANDTYPE};
    T_DIMSE_C_StoreRSP response{};
    response.DimseStatus = status;
    Requester::require(DIMSE_sendStoreResponse(requester.association(), request.context->id,
                                               &request.message.msg.CStoreRQ, &response, nullptr));
}

}  // namespace tessaly::test
