#include "tests/tessalyd/DaemonTest.h"

namespace tessaly::test {

void DaemonTest::launch(const QList<PortRow>& ports, const QStringList& arguments) {
    daemon_ = std::make_unique<Daemon>(ports);
    daemon_->launch(arguments);
}

RequestorAssociation::Answer DaemonTest::store(const ObjectSpec& spec, int port) const {
    return RequestorAssociation{daemon_->port(port)}.store(*makeObject(spec));
}

}  // namespace tessaly::test
