#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/assoc.h>

#include <cstdint>
#include <string>
#include <vector>

#include "dicom/data/TransferSyntaxes.h"

namespace tessaly::dicom {

/// What the requestor of an association is in a presentation context: it sends requests (SCU), or it is sent
/// them (SCP), as those are who ask for objects by C-GET and those whose storage is committed.
enum class Role : std::uint8_t { Scu = 1, Scp = 2 };

/// The roles as the toolkit has them, and as bits.
[[nodiscard]] constexpr unsigned bit(Role role) noexcept {
    return static_cast<unsigned>(role);
}
[[nodiscard]] constexpr T_ASC_SC_ROLE roleSelection(unsigned roles) noexcept {
    if ((roles & bit(Role::Scp)) == 0)
        return ASC_SC_ROLE_DEFAULT;
    return (roles & bit(Role::Scu)) == 0 ? ASC_SC_ROLE_SCP : ASC_SC_ROLE_SCUSCP;
}

[[nodiscard]] constexpr unsigned rolesOf(T_ASC_SC_ROLE selection) noexcept {
    switch (selection) {
        case ASC_SC_ROLE_SCP:
            return bit(Role::Scp);
        case ASC_SC_ROLE_SCUSCP:
            return bit(Role::Scu) | bit(Role::Scp);
        default:
            return bit(Role::Scu);
    }
}

struct ProposedContext {
    std::string sopClass;
    std::vector<std::string> transferSyntaxes;
    unsigned roles = bit(Role::Scu);  ///< of the requestor, as bits
};

struct AcceptedContext {
    T_ASC_PresentationContextID id = 0;
    std::string sopClass;
    std::string transferSyntax;
    unsigned roles = 0;  ///< of the requestor, as bits

    [[nodiscard]] TransferSyntax syntax() const { return TransferSyntax{transferSyntax}; }
    [[nodiscard]] bool has(Role role) const noexcept { return (roles & bit(role)) != 0; }
};

}  // namespace tessaly::dicom
