#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "base/FileDescriptor.h"

namespace tessaly::decoder {

/// Sends one message, with descriptors if there are any (two at most). False, with errno, if the other end is
/// gone.
[[nodiscard]] bool sendMessage(int socket, std::span<const std::byte> message,
                               std::span<const int> descriptors = {});

/// Receives one message of exactly that size; blocks. The descriptors that did not come stay closed. False if
/// the other end is gone, or if it is another message.
[[nodiscard]] bool receiveMessage(int socket, std::span<std::byte> message,
                                  std::array<base::FileDescriptor, 2>& descriptors);

}  // namespace tessaly::decoder
