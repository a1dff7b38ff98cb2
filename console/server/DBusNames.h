#pragma once

#include <QLatin1StringView>

namespace tessaly::server {

// Where the server is on the session bus; its interface is described in org.tessaly.Server1.xml.
inline constexpr QLatin1StringView ServiceName{"org.tessaly.Server"};
inline constexpr QLatin1StringView ObjectPath{"/org/tessaly/Server"};

}  // namespace tessaly::server
