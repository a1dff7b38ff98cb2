#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmnet/assoc.h>

#include <optional>
#include <string>

#include "tessalyd/association/OpenAssociations.h"
#include "tessalyd/configuration/Configuration.h"

namespace tessaly::tessalyd {

/// Why an association is not accepted.
enum class Rejection { ApplicationContext, CalledAETitle, CallingAETitle, LimitExceeded, NotListening };

/// What is to be said of the protocol that the peer means to speak.
[[nodiscard]] std::optional<Rejection> checkProtocol(T_ASC_Parameters* parameters);

/// What the port's checks say of the two titles, both without blanks around them. Titles are compared with
/// regard to case, as the standard has it.
[[nodiscard]] std::optional<Rejection> checkTitles(const PortConfiguration& port, const std::string& calling,
                                                   const std::string& called);

/// Whether the title is that of a node of the port.
[[nodiscard]] bool isNode(const PortConfiguration& port, const std::string& calling);

/// How many associations the port takes. An eighth of the places, one at least, is for nodes of the port, if
/// it has any and takes four or more.
[[nodiscard]] Places placesOf(const PortConfiguration& port);

/// Result, source and reason for the peer.
[[nodiscard]] T_ASC_RejectParameters parametersOf(Rejection rejection);

/// For the log.
[[nodiscard]] const char* description(Rejection rejection);

}  // namespace tessaly::tessalyd
