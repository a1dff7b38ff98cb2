#include "tessalyd/services/AllServices.h"

#include "tessalyd/services/query/FindService.h"
#include "tessalyd/services/retrieve/GetService.h"
#include "tessalyd/services/retrieve/MoveService.h"
#include "tessalyd/services/storage/StoreService.h"
#include "tessalyd/services/verification/EchoService.h"

namespace tessaly::tessalyd {

ServiceFactory allServices(ArchiveIndex& index, QueryAccess& queries, decoder::Pool& decoders) {
    const auto unlisted = std::make_shared<UnlistedClasses>();
    return [&index, &queries, &decoders, unlisted] {
        Services services;
        services.push_back(std::make_unique<EchoService>());
        services.push_back(std::make_unique<StoreService>(index, decoders, *unlisted));
        services.push_back(std::make_unique<FindService>(queries.rules(), queries.sessions()));
        services.push_back(std::make_unique<GetService>(queries, decoders));
        services.push_back(std::make_unique<MoveService>(queries, decoders));
        return services;
    };
}

}  // namespace tessaly::tessalyd
