#include "private/common/socket_posix.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cstring>

#include "no_copyable.h"

namespace NIVUR::platform {

namespace {

// Linux has these options since 4.18 and 5.0; older headers lack them.
constexpr int kUdpSegment = 103;
constexpr int kUdpGro = 104;

// The most that one call can send: kernels before 6.9 accept 64 segments, and no UDP packet is
// longer than 65,507 bytes.
constexpr size_t kMostSegments = 64;
constexpr size_t kMostBytes = 65507;

/// A message with one piece of data and room for control data.
template <size_t kControl>
struct Message : NoCopyable {
    Message(void* data, size_t length) : piece{data, length} {
        header.msg_iov = &piece;
        header.msg_iovlen = 1;
        header.msg_control = control;
        header.msg_controllen = sizeof(control);
    }

    iovec piece;
    msghdr header{};
    alignas(cmsghdr) char control[kControl] = {};
};

/// Returns whether the kernel knows the segment option; older kernels would send all segments as
/// one datagram.
bool knowsSegments(int socket) {
    int size = 0;
    socklen_t length = sizeof(size);
    return ::getsockopt(socket, IPPROTO_UDP, kUdpSegment, &size, &length) == 0;
}

ptrdiff_t sendSegments(int socket, const SocketAddress& receiver, const char* data, size_t length,
                       size_t datagram) {
    const auto size = static_cast<uint16_t>(datagram);
    Message<CMSG_SPACE(sizeof(size))> message(const_cast<char*>(data), length);
    message.header.msg_name = const_cast<void*>(receiver.data());
    message.header.msg_namelen = static_cast<socklen_t>(receiver.size());
    cmsghdr* const control = CMSG_FIRSTHDR(&message.header);
    control->cmsg_level = IPPROTO_UDP;
    control->cmsg_type = kUdpSegment;
    control->cmsg_len = CMSG_LEN(sizeof(size));
    std::memcpy(CMSG_DATA(control), &size, sizeof(size));
    return ::sendmsg(socket, &message.header, 0);
}

/// Returns whether a call failed because this route does not support segments: they exceed its MTU,
/// or nothing computes their checksums.
bool isSegmentsRefused(const IoResult& sent) {
    return sent.error == EINVAL || sent.error == EMSGSIZE || sent.error == EIO;
}

}  // namespace

/// Sends as many datagrams in one call as the system allows: 0.22 us for each of 32, where
/// sendmmsg() and recvmmsg() take 3.0 us (docs/performance.md, "UDP, 32 of 1200 B at once"). If the
/// route refuses segments, it sends them one by one.
IoResult sendDatagrams(int socket, const SocketAddress& receiver, const void* data, size_t length,
                       size_t datagram) {
    const auto* const bytes = static_cast<const char*>(data);
    const size_t most = std::min(kMostSegments, kMostBytes / datagram) * datagram;
    size_t step = receiver.isValid() && knowsSegments(socket) ? std::max(most, datagram) : datagram;
    size_t done = 0;
    while (done < length) {
        const size_t part = std::min(step, length - done);
        const IoResult sent = complete([&] {
            return part > datagram ? sendSegments(socket, receiver, bytes + done, part, datagram)
                                   : sendto(socket, bytes + done, part, receiver);
        });
        if (sent) {
            done += part;
        } else if (part > datagram && isSegmentsRefused(sent)) {
            step = datagram;
        } else {
            return done > 0 ? IoResult{IoResult::DONE, done} : sent;
        }
    }
    return {IoResult::DONE, done};
}

IoResult receiveDatagrams(int socket, SocketAddress& sender, void* data, size_t length,
                          size_t& datagram) {
    Message<256> message(data, length);
    sockaddr_in6 from{};
    message.header.msg_name = &from;
    message.header.msg_namelen = sizeof(from);
    const IoResult received = complete([&] { return ::recvmsg(socket, &message.header, 0); });
    sender = SocketAddress::fromPlatform(&from, received ? message.header.msg_namelen : 0);
    if (!received) {
        return received;
    }
    if ((message.header.msg_flags & MSG_TRUNC) != 0) {
        return {IoResult::FAILED, 0, EMSGSIZE};
    }
    int size = 0;
    for (cmsghdr* control = CMSG_FIRSTHDR(&message.header); control != nullptr;
         control = CMSG_NXTHDR(&message.header, control)) {
        if (control->cmsg_level == IPPROTO_UDP && control->cmsg_type == kUdpGro) {
            std::memcpy(&size, CMSG_DATA(control), sizeof(size));
        }
    }
    datagram = size > 0 ? static_cast<size_t>(size) : received.count;
    return received;
}

int setCoalescing(int socket, bool coalescing) {
    const int value = coalescing ? 1 : 0;
    return ::setsockopt(socket, IPPROTO_UDP, kUdpGro, &value, sizeof(value));
}

}  // namespace NIVUR::platform
