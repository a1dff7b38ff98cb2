#pragma once

namespace tessaly::server {

// Where the server is on the session bus; its interface is described in org.tessaly.Server1.xml.
inline constexpr char ServiceName[] = "org.tessaly.Server";
inline constexpr char ObjectPath[] = "/org/tessaly/Server";

}  // namespace tessaly::server
