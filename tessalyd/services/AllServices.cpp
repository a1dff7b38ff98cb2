#include "tessalyd/services/AllServices.h"

#include "tessalyd/services/EchoService.h"
#include "tessalyd/services/StoreService.h"

namespace tessaly::tessalyd {

ServiceFactory allServices(ArchiveIndex& index) {
    return [&index] {
        Services services;
        services.push_back(std::make_unique<EchoService>());
        services.push_back(std::make_unique<StoreService>(index));
        return services;
    };
}

}  // namespace tessaly::tessalyd
