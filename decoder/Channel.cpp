#include "decoder/Channel.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace tessaly::decoder {

namespace {

constexpr std::size_t MostDescriptors = 2;

struct Control {
    alignas(cmsghdr) std::array<char, CMSG_SPACE(MostDescriptors * sizeof(int))> bytes{};
};

}  // namespace

bool sendMessage(int socket, std::span<const std::byte> message, std::span<const int> descriptors) {
    iovec part{.iov_base = const_cast<std::byte*>(message.data()), .iov_len = message.size()};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    Control control;
    if (!descriptors.empty()) {
        header.msg_control = control.bytes.data();
        header.msg_controllen = CMSG_SPACE(descriptors.size_bytes());
        cmsghdr* const rights = CMSG_FIRSTHDR(&header);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(descriptors.size_bytes());
        std::memcpy(CMSG_DATA(rights), descriptors.data(), descriptors.size_bytes());
    }
    ssize_t sent = 0;
    do
        sent = ::sendmsg(socket, &header, MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(message.size());
}

bool receiveMessage(int socket, std::span<std::byte> message,
                    std::array<base::FileDescriptor, MostDescriptors>& descriptors) {
    iovec part{.iov_base = message.data(), .iov_len = message.size()};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    Control control;
    header.msg_control = control.bytes.data();
    header.msg_controllen = control.bytes.size();
    ssize_t received = 0;
    do
        received = ::recvmsg(socket, &header, MSG_CMSG_CLOEXEC);
    while (received < 0 && errno == EINTR);
    if (received < 0)
        return false;
    const cmsghdr* const rights = CMSG_FIRSTHDR(&header);
    if (rights != nullptr && rights->cmsg_level == SOL_SOCKET && rights->cmsg_type == SCM_RIGHTS) {
        const std::size_t count = (rights->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count && i < descriptors.size(); ++i) {
            int descriptor = -1;
            std::memcpy(&descriptor, CMSG_DATA(rights) + i * sizeof descriptor, sizeof descriptor);
            descriptors[i] = base::FileDescriptor{descriptor};
        }
    }
    return received == static_cast<ssize_t>(message.size()) &&
           (header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) == 0;
}

}  // namespace tessaly::decoder
