#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/assoc.h>

#include <map>
#include <memory>
#include <span>
#include <vector>

#include "tessalyd/association/Service.h"

namespace tessaly::tessalyd {

/// What has been negotiated: the contexts, and where a request in each of them goes.
struct Negotiated {
    struct Target {
        Service* service = nullptr;
        Right right = Right::None;
    };
    std::vector<AcceptedContext> contexts;
    /// A context in which the requestor is SCP alone has none: it sends no requests there.
    std::map<T_ASC_PresentationContextID, Target> targets;
};

/// Answers each proposed presentation context and each extended negotiation by what the services support.
/// The services outlive what is returned.
[[nodiscard]] Negotiated negotiate(T_ASC_Parameters* parameters,
                                   std::span<const std::unique_ptr<Service>> services);

}  // namespace tessaly::tessalyd
