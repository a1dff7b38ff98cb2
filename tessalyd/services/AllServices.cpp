#include "tessalyd/services/AllServices.h"

#include "tessalyd/forwarding/films/FilmPrinter.h"
#include "tessalyd/forwarding/ftp/Handler.h"
#include "tessalyd/services/commitment/CommitmentService.h"
#include "tessalyd/services/print/PrintService.h"
#include "tessalyd/services/query/FindService.h"
#include "tessalyd/services/retrieve/GetService.h"
#include "tessalyd/services/retrieve/MoveService.h"
#include "tessalyd/services/storage/StoreService.h"
#include "tessalyd/services/verification/EchoService.h"

namespace tessaly::tessalyd {

ServiceFactory allServices(ServiceContext& shared) {
    const auto unlisted = std::make_shared<UnlistedClasses>();
    const auto probe = std::make_shared<print::PrinterProbe>();
    return [&shared, unlisted, probe](const PortConfiguration& port, const AssociationNames& peer) {
        PeerServices made{.services = {}, .nodes = shared.settings()->nodes};
        made.services.push_back(std::make_unique<EchoService>());
        made.services.push_back(std::make_unique<StoreService>(shared, *unlisted));
        made.services.push_back(std::make_unique<FindService>(shared));
        made.services.push_back(std::make_unique<GetService>(shared));
        made.services.push_back(std::make_unique<MoveService>(shared));
        made.services.push_back(std::make_unique<CommitmentService>(shared, port));
        made.services.push_back(std::make_unique<print::PrintService>(shared, *probe, port, peer));
        return made;
    };
}

std::map<std::string, jobs::Handler> jobHandlers(ServiceContext& shared, std::chrono::seconds peerTimeout) {
    return {{CommitmentKind, commitmentHandler(shared)},
            {ftp::JobKind, ftp::makeHandler(shared.decoders, shared.quietTime)},
            {films::PrintKind, films::printHandler({.answer = peerTimeout})}};
}

}  // namespace tessaly::tessalyd
